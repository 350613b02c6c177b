#include "rcServerClient.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <climits>
#include <exception>
#include <utility>

#include "CoDeferral.h"
#include "CoMsg.h"
#include "RcSettings.h"
#include "rcSysCalls.h"

namespace Vantrel {

namespace {

/// A buffer that a long result has grown is not kept for the short ones that follow.
constexpr std::size_t KEPT_OUTPUT_CAPACITY = 64 * 1024;

/// Many times a login record. Unauthenticated clients get no more of the memory each, and their number is
/// limited.
constexpr std::size_t MAX_BYTES_BEFORE_LOGIN = 64 * 1024;

bool hasInput(int descriptor) {
    pollfd waiting{descriptor, POLLIN, 0};
    return ::poll(&waiting, 1, 0) > 0 && (waiting.revents & POLLIN) != 0;
}

}  // namespace

rcServerContext::Client::Client(rcServerContext& context, unsigned id, CoFd connection)
    : context_(context), id_(id), descriptor_(std::move(connection)) {
    descriptor_.setKeepAliveSocketOption();
    if (context_.usesLoginEnvironment()) takeInheritedInfo();
}

void rcServerContext::Client::setLoggedIn(bool loggedIn) {
    if (loggedIn_ && !loggedIn) {
        loginDeadline_ = CoDeadline(LOGIN_TIME_MS);
        readLate_ = false;
    }
    loggedIn_ = loggedIn;
}

int rcServerContext::Client::descriptorId() const {
    if (!isUnauthenticated() || !loginDeadline_.passed()) return descriptor_.getId();
    const bool readFirst = !std::exchange(readLate_, true) && wantsRead() && hasInput(descriptor_.getId());
    return readFirst ? descriptor_.getId() : CoIoDescriptor::INVALID_ID;
}

void rcServerContext::Client::takeInheritedInfo() {
    std::string record;
    if (!rcSysCalls::getInheritedConnectionInfo(record)) return;
    const rcConnectionInfo inherited(record.c_str(), nullptr);
    if (inherited.isValid()) {
        info_ = inherited;
    } else {
        CO_MSG_ERROR("Invalid client login information");
    }
}

bool rcServerContext::Client::wantsRead() const {
    if (isUnauthenticated()) context_.reviewInterestsIn(loginDeadline_.leftMs());
    const CoLock lock(mutex_);
    // A client that awaits a delayed return is read from once, to learn when it has gone.
    return !leaving_ && !inputLeft() && !outputPending();
}

bool rcServerContext::Client::wantsWrite() const {
    const CoLock lock(mutex_);
    // Commands that were received and had to wait are gone on with from handleWrite().
    return outputPending() || (inputLeft() && !awaitingReturn_ && !leaving_);
}

bool rcServerContext::Client::mayProcess() const {
    const CoLock lock(mutex_);
    return !awaitingReturn_ && !leaving_ && output_.size() - outputStart_ <= BATCH_OUTPUT;
}

/// A client that fails, because it wants more memory than there is, goes; the others stay.
bool rcServerContext::Client::guarded(bool (Client::*step)()) noexcept {
    try {
        try {
            return (this->*step)();
        } catch (const std::exception& error) {
            context_.current_ = nullptr;
            CO_MSG_ERROR("Client %u failed, breaking connection: %s", id_, error.what());
        }
    } catch (...) {
        // There is no memory for the log either.
    }
    return false;
}

bool rcServerContext::Client::handleRead() {
    return guarded(&Client::receive);
}

bool rcServerContext::Client::handleWrite() {
    return guarded(&Client::goOn);
}

bool rcServerContext::Client::receive() {
    {
        const CoDeferral deferral;  // descriptors log: not under the lock
        const CoLock lock(mutex_);
        // Not asked for: the peer hung up in both directions, so nothing can be delivered any more.
        if (leaving_ || inputLeft() || outputPending()) return false;
        const int count = descriptor_.nonBlockingReadWithTimeout(input_.data(), READ_SIZE, 0);
        if (count < 0) return false;
        inputStart_ = 0;
        inputEnd_ = static_cast<std::size_t>(count);
    }
    return processInput();
}

bool rcServerContext::Client::goOn() {
    if (!sendPending()) return handleError();
    if (leaving_) return !finishLeaving();
    return processInput();
}

bool rcServerContext::Client::handleError() {
    const CoDeferral deferral;
    if (isUnauthenticated() && loginDeadline_.passed()) {
        CO_MSG_WARNING("Client %u has not logged in within %u ms, breaking connection", id_, LOGIN_TIME_MS);
        return false;
    }
    const CoLock lock(mutex_);
    CO_MSG_ERROR("%s", descriptor_.getLastSocketErrorStr().c_str());
    return false;
}

bool rcServerContext::Client::processInput() {
    const bool goesOn = processCommands();
    const bool sent = sendPending();
    if (!goesOn) return false;
    if (!sent) return handleError();
    return !leaving_ || !finishLeaving();
}

/// The results of the commands that came together are kept, to go out together.
bool rcServerContext::Client::processCommands() {
    while (inputLeft() && mayProcess()) {
        std::size_t used = 0;
        const bool complete = command_.append(input_.data() + inputStart_, inputEnd_ - inputStart_, used);
        inputStart_ += used;
        if (isCommandTooLong()) return false;
        if (complete) processLine();
    }
    return true;
}

/// Logs it, too.
bool rcServerContext::Client::isCommandTooLong() const {
    const std::size_t size = command_.receivedBytes();
    const auto maxBytes = static_cast<std::size_t>(RcSettings::maxCommandBytes.get());
    if (size <= (isUnauthenticated() ? std::min(maxBytes, MAX_BYTES_BEFORE_LOGIN) : maxBytes)) return false;
    if (size > maxBytes) {
        CO_MSG_ERROR("Command of client %u at '%s' exceeds %zu bytes (%s), breaking connection", id_,
                     info_.getIpAddr().c_str(), maxBytes, RcSettings::maxCommandBytes.name());
    } else {
        CO_MSG_ERROR("Command of client %u exceeds %zu bytes before a login, breaking connection", id_,
                     MAX_BYTES_BEFORE_LOGIN);
    }
    return true;
}

void rcServerContext::Client::processLine() {
    if (context_.processCommand(*this, command_) == Outcome::Answer) {
        const CoLock lock(mutex_);
        rcResult::appendLine(context_.resultCode_, context_.resultText_, output_);
    }
    command_.reset();
    if (info_.isValid()) return;
    CO_MSG_ERROR("Invalid client info, breaking connection");
    leaving_ = true;
}

/// Whether everything that a leaving client is to get has gone.
bool rcServerContext::Client::finishLeaving() {
    const CoLock lock(mutex_);
    return !outputPending();
}

bool rcServerContext::Client::sendPending() {
    const CoDeferral deferral;  // descriptors log: not under the lock
    const CoLock lock(mutex_);
    return flush();
}

/// Sends what the socket takes at once. False when the connection is broken.
bool rcServerContext::Client::flush() {
    if (!outputPending()) return true;
    const std::size_t size = std::min<std::size_t>(output_.size() - outputStart_, INT_MAX);
    const int count = descriptor_.nonBlockingWriteWithTimeout(output_.data() + outputStart_,
                                                              static_cast<unsigned>(size), 0);
    if (count < 0) return false;
    outputStart_ += static_cast<std::size_t>(count);
    if (outputPending()) return true;
    output_.clear();
    outputStart_ = 0;
    if (output_.capacity() > KEPT_OUTPUT_CAPACITY) output_.shrink_to_fit();
    return true;
}

void rcServerContext::Client::awaitReturn() {
    const CoLock lock(mutex_);
    awaitingReturn_ = true;
}

bool rcServerContext::Client::cancelReturn() {
    const CoLock lock(mutex_);
    const bool was = awaitingReturn_;
    awaitingReturn_ = false;
    return was;
}

bool rcServerContext::Client::returnDelayed(rcResult::Code code, const char* text) {
    {
        const CoDeferral deferral;
        const CoLock lock(mutex_);
        if (!awaitingReturn_) return false;
        awaitingReturn_ = false;
        rcResult::appendLine(code, text ? text : "", output_);
        if (!flush()) {
            CO_MSG_ERROR("%s", descriptor_.lastErrorText().c_str());
            // The loop owns the client: this makes it see that the connection has ended.
            ::shutdown(descriptor_.getId(), SHUT_RDWR);
        }
    }
    context_.cancel();  // the loop has to look at the client's interests again
    return true;
}

void rcServerContext::Client::close() {
    const CoLock lock(mutex_);
    awaitingReturn_ = false;
    descriptor_.close();
}

}  // namespace Vantrel
