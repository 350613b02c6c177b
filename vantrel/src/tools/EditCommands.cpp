#include "CommandOptions.h"
#include "Session.h"

namespace {

struct CreateOptions {
    std::string server;
    std::string parent;
    std::string name;
    std::string type;
};

struct RenameOptions {
    std::string server;
    std::string path;
    std::string name;
};

struct RemoveOptions {
    std::string server;
    std::string path;
};

struct DuplicateOptions {
    std::string server;
    std::string source;
    std::string parent;
    std::string name;
};

void showId(const Session& session, const VantrelNodeHandle& node) {
    const Output& out = session.output();
    const std::string id = out.text(node.getNodeId().id());
    if (out.json())
        out.document({{"id", id}});
    else
        out.line(id);
}

void createNode(const Program& program, const CreateOptions& options) {
    const Session session(program, options.server);
    VantrelNodeHandle parent = session.node(options.parent);
    VantrelNodeHandle node;
    session.require(parent.createNode(options.name.c_str(), options.type.c_str(), node),
                    Session::failed("create a node under", options.parent));
    showId(session, node);
}

void renameNode(const Program& program, const RenameOptions& options) {
    const Session session(program, options.server);
    VantrelNodeHandle node = session.node(options.path);
    session.require(node.renameNode(options.name.c_str()), Session::failed("rename", options.path));
    showId(session, node);
}

void removeNode(const Program& program, const RemoveOptions& options) {
    const Session session(program, options.server);
    VantrelNodeHandle node = session.node(options.path);
    session.require(node.destroyNode(), Session::failed("remove", options.path));
    session.output().done();
}

void duplicate(const Program& program, const DuplicateOptions& options) {
    const Session session(program, options.server);
    const VantrelNodeHandle source = session.node(options.source);
    VantrelNodeHandle parent = session.node(options.parent);
    VantrelNodeHandle copy;
    session.require(parent.duplicateNode(source, options.name.c_str(), copy),
                    Session::failed("duplicate", options.source));
    showId(session, copy);
}

}  // namespace

void addEditCommands(CLI::App& app, Program& program) {
    addCommand<CreateOptions>(
        app, program, "create", "Create a node and print its id",
        [](CLI::App& command, CreateOptions& options) {
            addServer(command, options.server);
            addPath(command, "PARENT", options.parent, "where to create it")->required();
            command.add_option("NAME", options.name, "display name of the new node")->required();
            command.add_option("--type", options.type, "VOLUME, PROJECT, LIBRARY, REEL, FOLDER ...")
                ->required();
        },
        createNode);
    addCommand<RenameOptions>(
        app, program, "rename", "Rename a node and print the id that it then has",
        [](CLI::App& command, RenameOptions& options) {
            addServer(command, options.server);
            addPath(command, "PATH", options.path, "the node")->required();
            command.add_option("NAME", options.name, "its new display name")->required();
        },
        renameNode);
    addCommand<RemoveOptions>(
        app, program, "rm", "Remove a node and everything below it",
        [](CLI::App& command, RemoveOptions& options) {
            addServer(command, options.server);
            addPath(command, "PATH", options.path, "the node")->required();
        },
        removeNode);
    addCommand<DuplicateOptions>(
        app, program, "duplicate", "Copy a node with everything below it and print the copy's id",
        [](CLI::App& command, DuplicateOptions& options) {
            addServer(command, options.server);
            addPath(command, "SOURCE", options.source, "the node to copy")->required();
            addPath(command, "PARENT", options.parent, "where the copy goes")->required();
            command.add_option("NAME", options.name, "display name of the copy")->required();
        },
        duplicate);
}
