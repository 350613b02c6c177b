#include "CommandOptions.h"
#include "Progress.h"
#include "Session.h"

namespace {

struct TransferOptions {
    std::string server;
    std::string remote;
    std::string local;
};

void pull(const Program& program, const TransferOptions& options) {
    const Session session(program, options.server);
    {
        const Progress progress("pulling '" + options.remote + "'", 0, "");
        session.require(session.server().pullStream(options.remote.c_str(), options.local.c_str()),
                        Session::failed("pull", options.remote));
    }
    session.output().done();
}

void push(const Program& program, const TransferOptions& options) {
    const Session session(program, options.server);
    {
        const Progress progress("pushing '" + options.local + "'", 0, "");
        session.require(session.server().pushStream(options.remote.c_str(), options.local.c_str()),
                        Session::failed("push", options.local));
    }
    session.output().done();
}

}  // namespace

void addFileCommands(CLI::App& app, Program& program) {
    addCommand<TransferOptions>(
        app, program, "pull", "Fetch a file from a server",
        [](CLI::App& command, TransferOptions& options) {
            addServer(command, options.server);
            command.add_option("REMOTE", options.remote, "name on the server")->required();
            command.add_option("LOCAL", options.local, "file to write")->required();
        },
        pull);
    addCommand<TransferOptions>(
        app, program, "push", "Send a file to a server",
        [](CLI::App& command, TransferOptions& options) {
            addServer(command, options.server);
            command.add_option("LOCAL", options.local, "file to send")->required();
            command.add_option("REMOTE", options.remote, "name on the server")->required();
        },
        push);
}
