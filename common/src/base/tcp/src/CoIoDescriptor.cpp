#include "CoIoDescriptor.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "CoMsg.h"
#include "CoSharedCancelPipe.h"

namespace Vantrel {

namespace {

struct ErrorPair {
    CoIoDescriptor::IoError error;
    int systemError;
};

constexpr ErrorPair ERRORS[] = {
    {CoIoDescriptor::IoError::NoEntry, ENOENT},
    {CoIoDescriptor::IoError::BadDescriptor, EBADF},
    {CoIoDescriptor::IoError::Interrupted, EINTR},
    {CoIoDescriptor::IoError::Again, EAGAIN},
    {CoIoDescriptor::IoError::NotConnected, ENOTCONN},
    {CoIoDescriptor::IoError::Aborted, ECONNABORTED},
    {CoIoDescriptor::IoError::ConnectionReset, ECONNRESET},
    {CoIoDescriptor::IoError::TimedOut, ETIMEDOUT},
    {CoIoDescriptor::IoError::ConnectionRefused, ECONNREFUSED},
    {CoIoDescriptor::IoError::NoDevice, ENXIO},
    {CoIoDescriptor::IoError::Invalid, EINVAL},
};

// Between two looks at the cancel pipe while a stop in it is for another waiter.
constexpr int FOREIGN_STOP_PAUSE_MS = 1;

std::string errorText(CoIoDescriptor::IoError error) {
    const int current = errno;
    if (error == CoIoDescriptor::IoError::None) return {};
    for (const ErrorPair& pair : ERRORS) {
        if (pair.error == error) return coErrorText(pair.systemError);
    }
    return coErrorText(current);
}

}  // namespace

void CoIoDescriptor::setId(int id) {
    waitsInRead_ = false;
    fd_.reset(id);
}

bool CoIoDescriptor::isActive() const {
    if (!isValid()) return false;
    char byte;
    const ssize_t count = ::recv(getId(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    if (count >= 0) return count > 0;
    if (errno != ENOTSOCK) return errno == EAGAIN || errno == EINTR;
    pollfd entry{getId(), POLLIN, 0};
    if (::poll(&entry, 1, 0) < 0) return errno == EINTR;
    return (entry.revents & POLLIN) != 0 || (entry.revents & (POLLHUP | POLLERR | POLLNVAL)) == 0;
}

void CoIoDescriptor::stop() {
    CO_MSG_NOTICE("TID %d stopping I/O", static_cast<int>(::gettid()));
    if (!stop_.request([this] { return getId(); }))
        CO_MSG_ERROR("Could not cancel callIOHandler: %s", coErrorText(errno).c_str());
}

CoIoDescriptor::StopScope::StopScope(CoIoDescriptor& descriptor) : descriptor_(descriptor) {
    descriptor_.stop_.begin();
}

CoIoDescriptor::StopScope::~StopScope() {
    descriptor_.stop_.end();
}

CoIoDescriptor::WaitResult CoIoDescriptor::waitFor(short events, int timeoutMs, short& occurred) {
    occurred = 0;
    if (stopRequested()) return WaitResult::Stopped;
    pollfd entries[] = {{getId(), events, 0}, {CoSharedCancelPipe::get().getOut(), POLLIN, 0}};
    const int ready = ::poll(entries, 2, timeoutMs);
    if (ready < 0) return errno == EINTR ? WaitResult::Woken : WaitResult::Failed;
    if (stopRequested()) return WaitResult::Stopped;
    if (ready == 0) return WaitResult::TimedOut;
    occurred = entries[0].revents;
    if (occurred != 0) return WaitResult::Ready;
    // The stop is for another waiter, who takes it in a moment, or later when it is busy: rather than poll at
    // full speed, wait a little for the descriptor alone.
    const int pauseMs = timeoutMs < 0 ? FOREIGN_STOP_PAUSE_MS : std::min(timeoutMs, FOREIGN_STOP_PAUSE_MS);
    if (::poll(entries, 1, pauseMs) < 0 && errno != EINTR) return WaitResult::Failed;
    if (stopRequested()) return WaitResult::Stopped;
    occurred = entries[0].revents;
    return occurred != 0 ? WaitResult::Ready : WaitResult::Woken;
}

bool CoIoDescriptor::setSendBufferSizeSocketOption(int bytes) {
    if (::setsockopt(getId(), SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes) == 0) return true;
    setLastErrorFromSystem();
    return false;
}

bool CoIoDescriptor::setReceiveBufferSizeSocketOption(int bytes) {
    if (::setsockopt(getId(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes) == 0) return true;
    setLastErrorFromSystem();
    return false;
}

CoIoDescriptor::IoError CoIoDescriptor::getIoError() {
    const int current = errno;
    if (current == 0) return IoError::None;
    for (const ErrorPair& pair : ERRORS) {
        if (pair.systemError == current) return pair.error;
    }
    CO_MSG_WARNING("Unexpected error %d: %s", current, coErrorText(current).c_str());
    errno = current;  // Other stands for the current errno: keep it through the logging
    return IoError::Other;
}

void CoIoDescriptor::getIoError(IoError error, char* text, int size) {
    if (!text || size <= 0) return;
    std::snprintf(text, static_cast<std::size_t>(size), "%s", errorText(error).c_str());
}

CoIoDescriptor::Faults& CoIoDescriptor::faults() {
    static Faults faults;
    return faults;
}

void CoIoDescriptor::clearLastError() {
    if (lastError_ == IoError::None) return;
    lastError_ = IoError::None;
    lastErrorText_.clear();
}

void CoIoDescriptor::setLastError(IoError error) {
    setLastError(error, errorText(error));
}

void CoIoDescriptor::setLastError(IoError error, std::string text) {
    lastError_ = error;
    lastErrorText_ = std::move(text);
}

void CoIoDescriptor::setLastErrorFromSystem() {
    std::string text = coErrorText(errno);
    setLastError(getIoError(), std::move(text));
}

void CoIoDescriptor::setLastErrorFromSocket() {
    int pending = 0;
    socklen_t size = sizeof pending;
    // A pipe has no pending error to ask for; what poll reports there is a reader that went away.
    if (::getsockopt(getId(), SOL_SOCKET, SO_ERROR, &pending, &size) != 0) pending = errno;
    errno = pending == ENOTSOCK || pending == 0 ? ECONNRESET : pending;
    setLastErrorFromSystem();
}

}  // namespace Vantrel
