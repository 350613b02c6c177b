#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <utility>

#include "Program.h"

/// What the commands' declarations share.

/// Check for PATH arguments: a display path from "/", or "id:" and a node id.
inline std::string checkNodePath(const std::string& path) {
    const bool isId = path.size() > 3 && path.compare(0, 3, "id:") == 0;
    return isId || (!path.empty() && path[0] == '/') ? std::string()
                                                     : "'" + path + "' does not start with '/' or 'id:'";
}

/// Declares a command whose arguments live in an `Options` of its own. `declare(command, options)` adds the
/// arguments, `run(program, options)` is what it does.
template <typename Options, typename Declare, typename Run>
void addCommand(CLI::App& app, Program& program, const char* name, const char* help, Declare declare,
                Run run) {
    CLI::App* command = app.add_subcommand(name, help);
    auto options = std::make_shared<Options>();
    declare(*command, *options);
    command->callback([&program, options, run] {
        program.run = [&program, options, run] { run(std::as_const(program), std::as_const(*options)); };
    });
}

inline void addServer(CLI::App& command, std::string& server) {
    command.add_option("SERVER", server, "host, host:port or host:storage")->required();
}

inline CLI::Option* addPath(CLI::App& command, const char* name, std::string& path, const char* help) {
    return command.add_option(name, path, help)->check(CLI::Validator(checkNodePath, "/... or id:..."));
}
