#include "rcAPI.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <exception>
#include <new>

#include "CoAssert.h"
#include "CoMsg.h"
#include "CoProcess.h"
#include "RcSettings.h"
#include "rcConnectionInfo.h"
#include "rcSysCalls.h"

namespace Vantrel {

namespace {

constexpr const char* NO_BUFFER = "Cannot allocate result buffer.";
constexpr const char* NOT_CONNECTED = "Connection not established.";
constexpr const char* OTHER_PROCESS = "Connection belongs to the parent process.";
constexpr const char* INVALID_METHOD = "Invalid method name.";

/// What servers without a login answer, in both spellings.
constexpr const char* UNKNOWN_LOGIN[] = {"Unknown method: _login", "Unknown method: '_login'."};

constexpr unsigned VERSION_NUMBERS = 4;
constexpr unsigned VERSION_NUMBER_BITS = 16;

std::uint64_t packVersion(const unsigned short* version, unsigned count) {
    std::uint64_t packed = 0;
    for (unsigned i = 0; i < VERSION_NUMBERS; ++i) {
        packed = packed << VERSION_NUMBER_BITS | (version && i < count ? version[i] : 0U);
    }
    return packed;
}

bool isUnknownLogin(const std::string& reply) {
    return std::find(std::begin(UNKNOWN_LOGIN), std::end(UNKNOWN_LOGIN), reply) != std::end(UNKNOWN_LOGIN);
}

/// A search for each of the bytes would cost more than looking at the few bytes of a name once.
bool isMethodName(std::string_view name) {
    for (const char byte : name) {
        if (byte == ' ' || byte == '\n') return false;
    }
    return !name.empty();
}

class FlagScope {
  public:
    explicit FlagScope(std::atomic<bool>& flag) : flag_(flag) { flag_ = true; }
    FlagScope(const FlagScope&) = delete;
    FlagScope& operator=(const FlagScope&) = delete;
    ~FlagScope() { flag_ = false; }

  private:
    std::atomic<bool>& flag_;
};

}  // namespace

rcAPI::rcAPI() : rcAPI(nullptr, 0) {}

rcAPI::rcAPI(const unsigned short* version, unsigned count) : version_(packVersion(version, count)) {}

rcAPI::~rcAPI() = default;

rcOutcome rcAPI::connect(const char* host, int port, unsigned timeoutMs, std::string& error,
                         unsigned limitMs) {
    const CoDeadline limit(limitMs);
    disconnect();
    clearStop();
    if (!allocateBuffer()) {
        error = NO_BUFFER;
        return rcOutcome::Lost;
    }
    const CoIoDescriptor::StopScope stopScope(descriptor_);
    const FlagScope connecting(connecting_);
    if (!descriptor_.connect(host, port, 0, 0, static_cast<int>(timeoutMs / 1000), limitMs)) {
        return failTransfer(error);
    }
    descriptor_.enableWaitInRead();          // without it the connection works as well
    descriptor_.setKeepAliveSocketOption();  // a connection works without it, too
    userId_ = ::geteuid();
    groupId_ = ::getegid();
    forkGeneration_ = CoProcess::forkGeneration();
    const rcOutcome outcome =
        closingOnException(error, [&] { return login(std::min(timeoutMs, limit.leftMs()), error); });
    if (outcome != rcOutcome::Answered) {
        disconnect();
        return outcome;
    }
    CO_MSG_NOTICE("Connected fd:%d to %s:%u as %d:%d", descriptor_.getId(), host, static_cast<unsigned>(port),
                  static_cast<int>(userId_), static_cast<int>(groupId_));
    return outcome;
}

bool rcAPI::allocateBuffer() {
    if (!buffer_) buffer_.reset(new (std::nothrow) char[RECEIVE_BUFFER_SIZE]);
    return buffer_ != nullptr;
}

rcOutcome rcAPI::login(unsigned timeoutMs, std::string& error) {
    rcConnectionInfo info(version_);
    info.fillInfo(&descriptor_);
    if (!reportedAddress_.empty()) info.setIpAddr(reportedAddress_);
    const rcOutcome outcome = performCall(0, rcSysCalls::LOGIN, info.toAttrStream(), true, error, timeoutMs);
    return outcome == rcOutcome::Refused && isUnknownLogin(error) ? rcOutcome::Answered : outcome;
}

rcOutcome rcAPI::call(int objectId, const char* method, const char* argument, bool waitForResult,
                      std::string& result, unsigned timeoutMs) {
    // The scope first: a stop that comes before the flag is cleared still ends this call.
    const CoIoDescriptor::StopScope stopScope(descriptor_);
    clearStop();
    sent_ = false;
    const std::string_view name = method ? method : "";
    if (!CO_ASSERT(isMethodName(name))) {
        result = INVALID_METHOD;
        return rcOutcome::Refused;
    }
    if (!isCallPossible(result)) return rcOutcome::Lost;
    return closingOnException(result, [&] {
        return performCall(objectId, name, argument ? argument : "", waitForResult, result, timeoutMs);
    });
}

/// An exception may leave the connection in the middle of a line, of which the next call would take the rest
/// for its reply.
template <typename Transfer>
rcOutcome rcAPI::closingOnException(std::string& reason, Transfer transfer) {
    try {
        return transfer();
    } catch (const std::exception& error) {
        disconnect();
        reason = error.what();
        return rcOutcome::Failed;
    }
}

bool rcAPI::isCallPossible(std::string& reason) {
    const uid_t userId = ::geteuid();
    const gid_t groupId = ::getegid();
    if (descriptor_.isValid() && (userId != userId_ || groupId != groupId_)) {
        disconnect();
        reason = coFormat("Credentials %d:%d do not match connection's %d:%d", static_cast<int>(userId),
                          static_cast<int>(groupId), static_cast<int>(userId_), static_cast<int>(groupId_));
        return false;
    }
    if (descriptor_.isValid() && forkGeneration_ != CoProcess::forkGeneration()) {
        disconnect();  // this process's copy of the descriptor only: the connection stays the parent's
        reason = OTHER_PROCESS;
        return false;
    }
    if (isConnected(true)) return true;
    reason = NOT_CONNECTED;
    return false;
}

rcOutcome rcAPI::performCall(int objectId, std::string_view method, std::string_view argument,
                             bool waitForResult, std::string& result, unsigned timeoutMs) {
    const CoDeadline deadline(timeoutMs);
    const auto type = waitForResult ? rcCommand::Type::Sync : rcCommand::Type::Async;
    rcCommand::format(type, objectId, method, argument, line_);
    const rcOutcome written = writeLine(deadline, result);
    if (written != rcOutcome::Answered) return written;
    sent_ = true;
    if (waitForResult) return readReply(deadline, result);
    result.clear();
    return rcOutcome::Answered;
}

/// Answered when all of it was written.
rcOutcome rcAPI::writeLine(const CoDeadline& deadline, std::string& result) {
    std::string_view rest = line_;
    for (;;) {
        const auto size = static_cast<unsigned>(std::min<std::size_t>(rest.size(), INT_MAX));
        const int count = descriptor_.nonBlockingWriteWithTimeout(rest.data(), size, deadline.leftMs());
        if (count < 0) return failTransfer(result);
        rest.remove_prefix(static_cast<std::size_t>(count));
        if (rest.empty()) return rcOutcome::Answered;
        if (deadline.passed()) {
            disconnect();
            result = coErrorText(ETIMEDOUT);
            return rcOutcome::Lost;
        }
    }
}

rcOutcome rcAPI::readReply(const CoDeadline& deadline, std::string& result) {
    const auto maxBytes = static_cast<std::size_t>(RcSettings::maxReplyBytes.get());
    result_.reset();
    for (;;) {
        const unsigned leftMs = std::max(deadline.leftMs(), 1U);
        const int count = descriptor_.nonBlockingReadWithTimeout(buffer_.get(), RECEIVE_BUFFER_SIZE, leftMs);
        if (count < 0) return failTransfer(result);
        std::size_t used = 0;
        const bool complete = result_.append(buffer_.get(), static_cast<std::size_t>(count), used);
        if (result_.receivedBytes() > maxBytes) {
            disconnect();
            result = coFormat("Reply exceeds %zu bytes (%s).", maxBytes, RcSettings::maxReplyBytes.name());
            return rcOutcome::TooLong;
        }
        if (complete) return takeReply(result);
        if (deadline.passed()) {
            result = coErrorText(ETIMEDOUT);
            return rcOutcome::TimedOut;
        }
    }
}

rcOutcome rcAPI::takeReply(std::string& result) {
    result_.value().swapText(result);
    result_.value().clear();  // the caller's buffer serves the next reply
    return result_.isOk() ? rcOutcome::Answered : rcOutcome::Refused;
}

bool rcAPI::isConnected(bool checkAlive) const {
    return descriptor_.isValid() && forkGeneration_ == CoProcess::forkGeneration() &&
           (!checkAlive || descriptor_.isActive());
}

void rcAPI::stop(const char* reason) {
    if (!descriptor_.isValid() && !connecting_ && !operating_) return;
    {
        const CoLock lock(stopMutex_);
        stopped_ = true;
        stopReason_ = reason ? std::string(reason) : coErrorText(EINTR);
    }
    descriptor_.stop();
}

rcAPI::Operation::Operation(rcAPI& endpoint) : endpoint_(endpoint), stopScope_(endpoint.descriptor_) {
    endpoint_.operating_ = true;
}

rcAPI::Operation::~Operation() {
    endpoint_.operating_ = false;
}

void rcAPI::disconnect() {
    descriptor_.close();
    buffer_.reset();
    result_.reset();
}

void rcAPI::setReportedAddress(const std::string& ip) {
    reportedAddress_ = ip;
}

void rcAPI::clearStop() {
    // Looked at first: clearing a flag that other threads may read costs much more than finding it clear.
    if (stopped_) stopped_ = false;
}

/// Ends a broken connection. A stop on purpose is no I/O error: its own reason is what the caller gets.
rcOutcome rcAPI::failTransfer(std::string& result) {
    const bool stopped = stopped_ || descriptor_.wasStopped();
    if (stopped) {
        const CoLock lock(stopMutex_);
        result = stopReason_;
    } else {
        result = descriptor_.lastErrorText();
    }
    disconnect();
    return stopped ? rcOutcome::Stopped : rcOutcome::Lost;
}

}  // namespace Vantrel
