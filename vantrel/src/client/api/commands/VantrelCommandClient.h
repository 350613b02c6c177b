#pragma once

#include <exception>
#include <string>
#include <utility>

#include "VantrelClientConnection.h"
#include "VantrelCommands.h"

/// What the clients of the node port's commands have in common: they ask the server, in the form that a
/// server of its version knows, and keep the reason of the last failure. Operations return true on success.
/// Thread safety: one object is used by one thread at a time.
class VantrelCommandClient {
  public:
    /// The connection must outlive this object, and so must `lastError`, which takes the reasons of failures
    /// instead of a text of this object's own.
    VantrelCommandClient(VantrelClientConnection& connection, std::string& lastError)
        : connection_(connection), lastError_(lastError) {}
    explicit VantrelCommandClient(VantrelClientConnection& connection)
        : connection_(connection), lastError_(ownLastError_) {}
    VantrelCommandClient(const VantrelCommandClient&) = delete;
    VantrelCommandClient& operator=(const VantrelCommandClient&) = delete;

    /// Why the last failing operation failed: the server's own text, the transport's, or what is wrong with
    /// the reply. Empty at first; a success does not clear it.
    const char* lastError() const { return lastError_.c_str(); }

  protected:
    ~VantrelCommandClient() = default;

    VantrelClientConnection& connection() { return connection_; }

    /// Sends a command and hands the reply to `take(std::string reply)`, which throws when the reply is not
    /// what it should be.
    template <typename Take>
    [[nodiscard]] bool ask(
        const VantrelCommand& command, const std::string& argument, Take take,
        const VantrelClientConnection::Limits& limits = VantrelClientConnection::Limits::byDefault());
    /// For commands whose reply says nothing.
    [[nodiscard]] bool ask(const VantrelCommand& command, const std::string& argument) {
        return ask(command, argument, [](const std::string&) {});
    }
    /// For replies that are the result.
    [[nodiscard]] bool ask(const VantrelCommand& command, const std::string& argument, std::string& result) {
        return ask(command, argument, [&result](std::string reply) { result = std::move(reply); });
    }

    /// The server's protocol version, connecting where needed.
    [[nodiscard]] bool serverVersion(VantrelVersion& version);
    /// `plain` or its extended form, whichever the server is to be asked by. Null when its version cannot be
    /// had.
    [[nodiscard]] const VantrelCommand* formOf(const VantrelCommand& plain);
    /// False, with `refusal` as the last error, when the server is too old for a command.
    [[nodiscard]] bool require(const VantrelCommand& command, const char* refusal);

    /// Keeps the reason of a failure and returns false.
    bool fail(std::string reason);
    /// After a call that went wrong: the text beside its outcome is the reason.
    bool succeeded(Vantrel::rcOutcome outcome, std::string& reason);

  private:
    VantrelClientConnection& connection_;
    std::string ownLastError_;
    std::string& lastError_;
};

template <typename Take>
bool VantrelCommandClient::ask(const VantrelCommand& command, const std::string& argument, Take take,
                               const VantrelClientConnection::Limits& limits) {
    try {
        std::string reply;
        if (!succeeded(connection_.callMethod(command.name, argument.c_str(), reply, limits), reply)) {
            return false;
        }
        take(std::move(reply));
        return true;
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}
