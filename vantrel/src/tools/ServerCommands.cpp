#include <optional>
#include <vector>

#include "CommandOptions.h"
#include "ServerRecord.h"
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
    out.record(serverRecord(out, info));
}

struct TranslateOptions {
    std::string server;
    std::vector<std::string> paths;
    std::optional<std::string> fromHost;
    std::optional<std::string> toHost;
};

void translate(const Program& program, const TranslateOptions& options) {
    const Session session(program, options.server);
    const Output& out = session.output();
    const auto orServers = [](const std::optional<std::string>& host) {
        return host ? host->c_str() : nullptr;
    };
    VantrelStrList paths;
    for (const std::string& path : options.paths) paths.push_back(path.c_str());
    VantrelStrList translated;
    session.require(session.server().translatePaths(paths, translated, orServers(options.fromHost),
                                                    orServers(options.toHost)),
                    "no translation from server '" + options.server + "'");
    Json list = Json::array();
    for (unsigned i = 0; i < translated.size(); ++i) list.push_back(out.text(translated.getStr(i)));
    out.list(list);
}

void declareTranslate(CLI::App& command, TranslateOptions& options) {
    addServer(command, options.server);
    command.add_option("PATH", options.paths, "paths as the source host writes them")->required();
    command.add_option("--from-host", options.fromHost, "source host; the server's display name by default")
        ->type_name("H");
    command.add_option("--to-host", options.toHost, "destination host; the server's host name by default")
        ->type_name("H");
}

void declareServer(CLI::App& command, ServerOptions& options) {
    addServer(command, options.server);
}

}  // namespace

Json serverRecord(const Output& out, const VantrelServerInfo& info) {
    return {{"hostName", out.text(info.getHostname())},
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
            {"id", out.text(info.getId().getId())}};
}

void addServerCommands(CLI::App& app, Program& program) {
    addCommand<ServerOptions>(app, program, "ping", "Ask whether a server answers", declareServer, ping);
    addCommand<ServerOptions>(app, program, "info", "Show what a server says of itself", declareServer, info);
    addCommand<TranslateOptions>(app, program, "translate", "Show paths as another host writes them",
                                 declareTranslate, translate);
}
