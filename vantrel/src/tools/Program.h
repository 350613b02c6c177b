#pragma once

#include <functional>

namespace CLI {
class App;
}

/// What the command line asked for.
struct Program {
    bool json = false;
    unsigned timeoutMs = 0;  ///< 0: the library's own time-outs
    int logLevel = -1;       ///< a VantrelLogLevel, or -1 to leave it
    /// The command. Throws ToolError, or Interrupted when a signal ended it.
    std::function<void()> run;
};

/// Reads the command line and does what it asks for. Returns the exit status.
int runCommandLine(int argc, char** argv);

/// Each adds the commands of one family; parsing one of them sets `program.run`. Both arguments must outlive
/// the run.
void addServerCommands(CLI::App& app, Program& program);
void addDiscoveryCommands(CLI::App& app, Program& program);
void addTreeCommands(CLI::App& app, Program& program);
void addEditCommands(CLI::App& app, Program& program);
void addClipCommands(CLI::App& app, Program& program);
void addMetaDataCommands(CLI::App& app, Program& program);
void addFrameCommands(CLI::App& app, Program& program);
void addImageCommands(CLI::App& app, Program& program);
void addFileCommands(CLI::App& app, Program& program);
void addWatchCommand(CLI::App& app, Program& program);
void addConfigCommands(CLI::App& app, Program& program);
