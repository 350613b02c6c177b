#pragma once

#include <exception>
#include <string>
#include <utility>

#include "VantrelClientConnection.h"
#include "VantrelCommands.h"
#include "VantrelFailure.h"

/// What the clients of the node port's commands have in common: they ask the server, in the form that a
/// server of its version knows, and keep the reason of the last failure. Operations return true on success.
/// Thread safety: one object is used by one thread at a time.
class VantrelCommandClient {
  public:
    /// The connection must outlive this object, and so must `lastFailure`, which takes the reasons of
    /// failures instead of a record of this object's own, and `limits`, which hold in place of the
    /// environment's.
    VantrelCommandClient(VantrelClientConnection& connection, VantrelFailure& lastFailure,
                         const VantrelClientConnection::OwnLimits& limits)
        : connection_(connection), lastFailure_(lastFailure), ownLimits_(&limits) {}
    explicit VantrelCommandClient(VantrelClientConnection& connection)
        : connection_(connection), lastFailure_(ownLastFailure_) {}
    VantrelCommandClient(const VantrelCommandClient&) = delete;
    VantrelCommandClient& operator=(const VantrelCommandClient&) = delete;

    /// Why the last failing operation failed: the server's own text, the transport's, or what is wrong with
    /// the reply. Empty at first; a success does not clear it.
    const char* lastError() const { return lastFailure_.text.c_str(); }
    const VantrelFailure& lastFailure() const { return lastFailure_; }

  protected:
    ~VantrelCommandClient() = default;

    VantrelClientConnection& connection() { return connection_; }
    VantrelClientConnection::Limits limits() const {
        return ownLimits_ ? ownLimits_->get() : VantrelClientConnection::Limits::byDefault();
    }

    /// Sends a command and hands the reply to `take(std::string reply)`, which throws when the reply is not
    /// what it should be.
    template <typename Take>
    [[nodiscard]] bool ask(const VantrelCommand& command, const std::string& argument, Take take,
                           const VantrelClientConnection::Limits& limits);
    template <typename Take>
    [[nodiscard]] bool ask(const VantrelCommand& command, const std::string& argument, Take take) {
        return ask(command, argument, std::move(take), limits());
    }
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
    bool fail(VantrelErrorCode code, std::string reason, bool sent = false);
    /// After a call that went wrong: the text beside its outcome is the reason.
    bool succeeded(const VantrelCallOutcome& outcome, std::string& reason);

  private:
    VantrelClientConnection& connection_;
    VantrelFailure ownLastFailure_;
    VantrelFailure& lastFailure_;
    const VantrelClientConnection::OwnLimits* const ownLimits_ = nullptr;
};

template <typename Take>
bool VantrelCommandClient::ask(const VantrelCommand& command, const std::string& argument, Take take,
                               const VantrelClientConnection::Limits& limits) {
    bool answered = false;
    try {
        std::string reply;
        answered = succeeded(connection_.callMethod(command.name, argument.c_str(), reply, limits), reply);
        if (answered) take(std::move(reply));
        return answered;
    } catch (const std::exception& error) {
        return fail(answered ? VANTREL_ERROR_INVALID_REPLY : VANTREL_ERROR_LOCAL, error.what(), answered);
    }
}
