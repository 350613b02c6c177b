#include <cstdio>
#include <map>

#include "CommandOptions.h"
#include "Session.h"
#include "ToolError.h"

namespace {

constexpr int FAILURE = 1;
constexpr int WRONG_USAGE = 2;
constexpr int SIGNAL_BASE = 128;
constexpr unsigned MAX_TIMEOUT_MS = 24U * 60 * 60 * 1000;

const std::map<std::string, int> LOG_LEVELS{{"user", VANTREL_LOG_USER},
                                            {"error", VANTREL_LOG_ERROR},
                                            {"warn", VANTREL_LOG_WARNING},
                                            {"notice", VANTREL_LOG_NOTICE},
                                            {"debug", VANTREL_LOG_DEBUG}};

void declare(CLI::App& app, Program& program) {
    app.require_subcommand(1);
    // Global options may stand behind the command too.
    app.fallthrough();
    app.add_flag("--json", program.json, "Print one JSON document; watch: one a line");
    app.add_option("--timeout", program.timeoutMs, "Longest wait for a server, in milliseconds")
        ->check(CLI::Range(1U, MAX_TIMEOUT_MS))
        ->type_name("MS");
    app.add_option("--log-level", program.logLevel, "user, error, warn, notice or debug")
        ->transform(CLI::Transformer(LOG_LEVELS))
        ->check(CLI::Range(0, 4))
        ->type_name("LEVEL");
    app.footer(
        "SERVER is host, host:port or host:storage. PATH starts with '/' and names nodes by their display\n"
        "names, or is 'id:' and a node id. Exit status: 0 success, 1 failure, 2 wrong usage, 128 plus the\n"
        "signal's number when interrupted.");
    addServerCommands(app, program);
    addDiscoveryCommands(app, program);
    addTreeCommands(app, program);
    addEditCommands(app, program);
    addClipCommands(app, program);
    addMetaDataCommands(app, program);
    addFrameCommands(app, program);
    addImageCommands(app, program);
    addFileCommands(app, program);
    addWatchCommand(app, program);
    addConfigCommands(app, program);
}

int run(const Program& program) {
    try {
        if (program.timeoutMs != 0) applyTimeout(program.timeoutMs);
        program.run();
        return 0;
    } catch (const Interrupted& interrupted) {
        std::fputs("vantrel: interrupted\n", stderr);
        return SIGNAL_BASE + interrupted.signal;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vantrel: %s\n", error.what());
        return FAILURE;
    }
}

}  // namespace

int runCommandLine(int argc, char** argv) {
    Program program;
    CLI::App app("Work with the node trees and frames of Vantrel servers", "vantrel");
    declare(app, program);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        app.exit(error);
        return WRONG_USAGE;
    }
    return run(program);
}
