#include <set>

#include "CommandOptions.h"
#include "Session.h"
#include "ToolError.h"

namespace {

// A tree deeper than this is taken for a fault of the server.
constexpr int MAX_DEPTH = 1000;

struct ListOptions {
    std::string server;
    std::string path = "/";
};

struct TreeOptions {
    std::string server;
    std::string path = "/";
    int depth = MAX_DEPTH;
};

Json nodeJson(const Session& session, VantrelNodeHandle& node, const std::string& path) {
    VantrelStr name;
    session.require(node.getDisplayName(name), Session::failed("read the name of", path));
    const Output& out = session.output();
    return {{"id", out.text(node.getNodeId().id())}, {"displayName", out.text(name)}};
}

// Calls `visit(child)` for each child, in the server's order.
template <typename Visit>
void forEachChild(const Session& session, VantrelNodeHandle& node, const std::string& path, Visit visit) {
    int count = 0;
    session.require(node.getNumChildren(count), Session::failed("list the children of", path));
    for (int i = 0; i < count; ++i) {
        session.checkInterrupt();
        VantrelNodeHandle child;
        session.require(node.getChild(i, child), Session::failed("read a child of", path));
        visit(child);
    }
}

void list(const Program& program, const ListOptions& options) {
    const Session session(program, options.server);
    const Output& out = session.output();
    VantrelNodeHandle node = session.node(options.path);
    Json all = Json::array();
    forEachChild(session, node, options.path, [&](VantrelNodeHandle& child) {
        Json entry = nodeJson(session, child, options.path);
        if (out.json())
            all.push_back(std::move(entry));
        else
            out.line(entry["displayName"].get<std::string>());
    });
    if (out.json()) out.document(all);
}

// Walks a subtree depth first. Text is printed on the way, JSON is gathered.
class TreeWalk {
  public:
    TreeWalk(const Session& session, const TreeOptions& options) : session_(session), options_(options) {}

    Json walk(VantrelNodeHandle& node, int level) {
        session_.checkInterrupt();
        Json entry = nodeJson(session_, node, options_.path);
        const std::string name = entry["displayName"].get<std::string>();
        if (!session_.output().json())
            session_.output().line(std::string(static_cast<std::size_t>(level) * 2, ' ') + name);
        if (level >= options_.depth) return entry;

        // A server that lists a node below itself would be walked for ever.
        const std::string id = node.getNodeId().id();
        if (level >= MAX_DEPTH || !above_.insert(id).second)
            throw ToolError("the tree of server '" + options_.server + "' is no tree: node '" + id +
                            "' is below itself or too deep");
        Json children = Json::array();
        forEachChild(session_, node, options_.path, [&](VantrelNodeHandle& child) {
            Json below = walk(child, level + 1);
            if (session_.output().json()) children.push_back(std::move(below));
        });
        above_.erase(id);
        entry["children"] = std::move(children);
        return entry;
    }

  private:
    const Session& session_;
    const TreeOptions& options_;
    std::set<std::string> above_;
};

void tree(const Program& program, const TreeOptions& options) {
    const Session session(program, options.server);
    VantrelNodeHandle node = session.node(options.path);
    const Json root = TreeWalk(session, options).walk(node, 0);
    if (session.output().json()) session.output().document(root);
}

}  // namespace

void addTreeCommands(CLI::App& app, Program& program) {
    addCommand<ListOptions>(
        app, program, "ls", "List the children of a node",
        [](CLI::App& command, ListOptions& options) {
            addServer(command, options.server);
            addPath(command, "PATH", options.path, "the node; the root when left out");
        },
        list);
    addCommand<TreeOptions>(
        app, program, "tree", "Show the nodes below a node",
        [](CLI::App& command, TreeOptions& options) {
            addServer(command, options.server);
            addPath(command, "PATH", options.path, "where to begin; the root when left out");
            command.add_option("--depth", options.depth, "levels below PATH to show; all when left out")
                ->check(CLI::Range(0, MAX_DEPTH));
        },
        tree);
}
