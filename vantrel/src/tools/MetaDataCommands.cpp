#include "CommandOptions.h"
#include "LocalFile.h"
#include "Session.h"
#include "ToolError.h"

namespace {

// One command line carries the text: a server refuses far larger ones.
constexpr std::size_t MAX_METADATA_BYTES = std::size_t{64} << 20;

struct StreamsOptions {
    std::string server;
    std::string path;
};

struct GetOptions {
    std::string server;
    std::string path;
    std::string stream;
    std::string filter;
    int depth = 0;
};

struct SetOptions {
    std::string server;
    std::string path;
    std::string stream;
    std::string text;
    std::string file;
};

void listStreams(const Program& program, const StreamsOptions& options) {
    const Session session(program, options.server);
    const Output& out = session.output();
    VantrelNodeHandle node = session.node(options.path);
    const std::string failed = Session::failed("list the metadata of", options.path);
    int count = 0;
    session.require(node.getNumAvailableMetaDataStreams(count), failed);
    Json names = Json::array();
    for (int i = 0; i < count; ++i) {
        VantrelStr name;
        session.require(node.getAvailableMetaDataStream(i, name), failed);
        names.push_back(out.text(name));
    }
    out.list(names);
}

void get(const Program& program, const GetOptions& options) {
    const Session session(program, options.server);
    const Output& out = session.output();
    VantrelNodeHandle node = session.node(options.path);
    VantrelStr metaData;
    session.require(node.getMetaData(options.stream.c_str(), options.filter.c_str(), options.depth, metaData),
                    Session::failed("read the metadata of", options.path));
    if (out.json())
        out.document({{"stream", out.text(options.stream.c_str())}, {"metaData", out.text(metaData)}});
    else
        out.bytes(metaData.c_str(), metaData.length());
}

void set(const Program& program, const SetOptions& options) {
    const std::string metaData =
        options.file.empty() ? options.text : readLocalFile(options.file, MAX_METADATA_BYTES);
    if (metaData.find('\0') != std::string::npos)
        throw ToolError("cannot use '" + options.file + "' as metadata: it holds a NUL byte");
    const Session session(program, options.server);
    VantrelNodeHandle node = session.node(options.path);
    session.require(node.setMetaData(options.stream.c_str(), metaData.c_str()),
                    Session::failed("set the metadata of", options.path));
    session.output().done();
}

void addStream(CLI::App& command, std::string& stream) {
    command.add_option("STREAM", stream, "metadata stream, such as XML")->required();
}

void declareSet(CLI::App& command, SetOptions& options) {
    addServer(command, options.server);
    addPath(command, "PATH", options.path, "the node")->required();
    addStream(command, options.stream);
    CLI::Option_group* source = command.add_option_group("metadata", "where the metadata comes from");
    source->add_option("TEXT", options.text, "the metadata");
    source->add_option("--file", options.file, "file that holds the metadata");
    source->require_option(1);
}

}  // namespace

void addMetaDataCommands(CLI::App& app, Program& program) {
    CLI::App* meta = app.add_subcommand("meta", "Read and write the metadata of a node");
    meta->require_subcommand(1);
    addCommand<StreamsOptions>(
        *meta, program, "list", "List the metadata streams of a node",
        [](CLI::App& command, StreamsOptions& options) {
            addServer(command, options.server);
            addPath(command, "PATH", options.path, "the node")->required();
        },
        listStreams);
    addCommand<GetOptions>(
        *meta, program, "get", "Print metadata, unchanged",
        [](CLI::App& command, GetOptions& options) {
            addServer(command, options.server);
            addPath(command, "PATH", options.path, "the node")->required();
            addStream(command, options.stream);
            command.add_option("--filter", options.filter,
                               "what the server selects by it is the server's matter");
            command.add_option("--depth", options.depth, "levels of nodes below to include")
                ->capture_default_str();
        },
        get);
    addCommand<SetOptions>(*meta, program, "set", "Replace metadata", declareSet, set);
}
