#include "ServerOptions.h"

#include <CLI/CLI.hpp>
#include <charconv>

#include "CoMsg.h"
#include "CoPort.h"

namespace vantreld {

using Vantrel::CoMsg;

namespace {

constexpr int USAGE_ERROR = 2;

int levelOf(const std::string& name) {
    for (int level = CoMsg::USER; level <= CoMsg::DEBUG; ++level) {
        if (name == CoMsg::levelName(level)) return level;
    }
    return CoMsg::WARNING;
}

}  // namespace

std::optional<VantrelVersion> parseProtocolVersion(std::string_view text) {
    int numbers[4] = {};
    const char* at = text.data();
    const char* end = at + text.size();
    for (int i = 0; i < 4; ++i) {
        if (i > 0 && (at == end || *at++ != '.')) return std::nullopt;
        const auto parsed = std::from_chars(at, end, numbers[i]);
        if (parsed.ec != std::errc() || numbers[i] < 0 || *at == '-') return std::nullopt;
        at = parsed.ptr;
    }
    if (at != end) return std::nullopt;
    return VantrelVersion{numbers[0], numbers[1], numbers[2], numbers[3]};
}

VantrelDiscoveryGroup discoveryGroupOf(const ServerOptions& options) {
    VantrelDiscoveryGroup group = VantrelDiscoveryGroup::configured();
    if (!options.discovery) group.ttl = 0;
    if (options.discoveryPort != 0) group.port = options.discoveryPort;
    if (!options.discoveryScope.empty()) group.scope = options.discoveryScope;
    return group;
}

namespace {

/// Options that are read further once all have been parsed.
struct OptionTexts {
    std::string logLevel = CoMsg::levelName(CoMsg::WARNING);
    std::string version;
    std::string redirectTo;
};

void addIdentity(CLI::App& app, ServerOptions& options) {
    app.add_option("--root", options.root, "Directory that holds everything; made when it is not there")
        ->required();
    app.add_option("--port", options.nodePort, "Node port; 0 takes any free one")
        ->check(CLI::Range(0, Vantrel::HIGHEST_PORT))
        ->capture_default_str();
    app.add_option("--frame-port", options.framePort, "Frame port; 0 takes any free one")
        ->check(CLI::Range(0, Vantrel::HIGHEST_PORT))
        ->capture_default_str();
    app.add_option("--bind", options.bindAddress, "Address to listen on; every address by default");
    app.add_option("--display-name", options.displayName, "Name shown to people; the host's name by default");
    app.add_option("--database", options.database, "Name of the database")->capture_default_str();
    app.add_option("--storage-id", options.storageId, "Identity of the storage; kept in the root by default");
}

void addBehaviour(CLI::App& app, ServerOptions& options, OptionTexts& texts) {
    app.add_option("--protocol-version", texts.version, "Act as a server of this version, A.B.C.D")
        ->check([](const std::string& text) {
            return parseProtocolVersion(text) ? std::string() : "'" + text + "' is not of the form A.B.C.D";
        });
    app.add_option("--redirect-to", texts.redirectTo,
                   "Send those who announce that they will read a frame to this server, HOST:PORT:FRAMEPORT")
        ->check([](const std::string& text) {
            return parseRedirection(text) ? std::string()
                                          : "'" + text + "' is not of the form HOST:PORT:FRAMEPORT";
        });
    app.add_flag("--demo", options.demo, "Fill an empty root with a small tree and a clip of colour bars");
    app.add_flag("--allow-shutdown", options.allowShutdown, "Let clients end the server");
    app.add_option("--log-level", texts.logLevel, "What is logged on standard error")
        ->check(CLI::IsMember({"user", "error", "warn", "notice", "debug"}))
        ->capture_default_str();
}

void addDiscovery(CLI::App& app, ServerOptions& options) {
    app.add_flag("!--no-discovery", options.discovery, "Neither announce the server nor listen for others");
    app.add_option("--discovery-port", options.discoveryPort,
                   "UDP port of the announcements; network.cfg's by default")
        ->check(CLI::Range(1, Vantrel::HIGHEST_PORT));
    app.add_option("--discovery-scope", options.discoveryScope,
                   "Multicast group of the announcements; network.cfg's by default");
}

}  // namespace

std::optional<int> parseCommandLine(int argc, char** argv, ServerOptions& options) {
    CLI::App app("Media server over one directory: a tree of nodes with metadata, clips and frames.",
                 "vantreld");
    OptionTexts texts;
    addIdentity(app, options);
    addBehaviour(app, options, texts);
    addDiscovery(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : USAGE_ERROR;
    }
    if (!texts.version.empty()) options.version = *parseProtocolVersion(texts.version);
    options.redirection = parseRedirection(texts.redirectTo);
    CoMsg::setFilterLevel(levelOf(texts.logLevel));
    return std::nullopt;
}

}  // namespace vantreld
