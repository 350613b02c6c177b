#include "CommandOptions.h"
#include "Session.h"

namespace {

struct ServerOptions {
    std::string server;
};

std::string version(int a, int b, int c, int d) {
    return std::to_string(a) + "." + std::to_string(b) + "." + std::to_string(c) + "." + std::to_string(d);
}

std::string productVersion(const VantrelServerInfo& info) {
    if (*info.getProductVersionStr() != '\0') return info.getProductVersionStr();
    return version(info.getProductVersionMajor(), info.getProductVersionMinor(),
                   info.getProductVersionMaint(), info.getProductBuild());
}

void ping(const Program& program, const ServerOptions& options) {
    const Session session(program, options.server);
    session.require(session.server().ping(session.retryTimeoutMs()),
                    "no answer from server '" + options.server + "'");
    session.output().record({{"ok", true}});
}

void info(const Program& program, const ServerOptions& options) {
    const Session session(program, options.server);
    const Output& out = session.output();
    VantrelServerInfo info;
    session.require(session.server().getInfo(info), "no information from server '" + options.server + "'");
    out.record({{"hostName", out.text(info.getHostname())},
                {"displayName", out.text(info.getDisplayName())},
                {"database", out.text(info.getDatabase())},
                {"storageId", out.text(info.getStorageId())},
                {"hostUUID", out.text(info.getHostUUID())},
                {"vendor", out.text(info.getVendor())},
                {"product", out.text(info.getProduct())},
                {"productVersion", out.text(productVersion(info).c_str())},
                {"protocolVersion", version(info.getVersionMajor(), info.getVersionMinor(),
                                            info.getVersionMaint(), info.getVersionBuild())},
                {"nodePort", info.getNodePort()},
                {"framePort", info.getFramePort()},
                {"id", out.text(info.getId().getId())}});
}

void declareServer(CLI::App& command, ServerOptions& options) {
    addServer(command, options.server);
}

}  // namespace

void addServerCommands(CLI::App& app, Program& program) {
    addCommand<ServerOptions>(app, program, "ping", "Ask whether a server answers", declareServer, ping);
    addCommand<ServerOptions>(app, program, "info", "Show what a server says of itself", declareServer, info);
}
