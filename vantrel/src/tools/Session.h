#pragma once

#include <vantrel/VantrelClientAPI.h>

#include <functional>
#include <string>

#include "Interrupt.h"
#include "Output.h"
#include "Program.h"

/// The library, one server and the way to stop, for the length of a command. Contacts nobody when built.
class Session {
  public:
    /// Throws ToolError when the library cannot be brought up.
    Session(const Program& program, const std::string& server);

    const VantrelServerHandle& server() const { return server_; }
    const Output& output() const { return output_; }
    /// How long to keep trying to connect.
    unsigned retryTimeoutMs() const;

    /// The node of a display path, or of "id:" and a node id. Throws ToolError when a path has no node; an id
    /// is taken as it is.
    VantrelNodeHandle node(const std::string& path) const;

    /// Lets a good result pass. Otherwise throws Interrupted when a signal came, else ToolError with the
    /// server's last error or, when it left none, with `otherwise`.
    void require(bool result, const std::string& otherwise) const;

    /// The same between calls: throws Interrupted when a signal came.
    void checkInterrupt() const { interrupt_.check(); }

    /// Calls to undo what a command began, after which it fails: a signal stops them no more.
    void beginUndo() { interrupt_.quiet(); }

    /// The text for `require` when a call about a node gave no reason.
    static std::string failed(const std::string& attempt, const std::string& path);

  private:
    // In this order: the signals are blocked before the library starts threads, and nothing stops the server
    // handle when it is gone.
    const SignalBlock block_;
    const Output output_;
    const unsigned timeoutMs_;
    const std::string serverText_;
    VantrelClient client_;
    const VantrelServerHandle server_;
    Interrupt interrupt_;
};

/// Passes the time-out to the library, which reads it from the environment when it first needs it. Call
/// before the first Session.
void applyTimeout(unsigned timeoutMs);

/// Brings the library up, with the log level that was asked for. Throws ToolError when it cannot be.
void startLibrary(VantrelClient& client, const Program& program);
