// Reading and writing of CoIoDescriptor: once within a time-out, in full, and by lines.

#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "CoAssert.h"
#include "CoIoDescriptor.h"
#include "CoMsg.h"
#include "CoTime.h"

namespace Vantrel {

namespace {

// The longest wait in a read. It is charged more: the system counts it in ticks of its clock, rounded up.
constexpr int READ_WAIT_MS = 90;
constexpr unsigned READ_WAIT_CHARGE_MS = 100;

int toPollTimeout(unsigned timeoutMs) {
    return static_cast<int>(std::min<unsigned>(timeoutMs, INT_MAX));
}

std::size_t limited(std::size_t length, const std::atomic<unsigned>& limit) {
    const unsigned most = limit.load(std::memory_order_relaxed);
    return most == 0 ? length : std::min<std::size_t>(length, most);
}

// Only sockets have flags not to wait, or not to raise SIGPIPE, for one call. For a pipe this asks first.
bool isReady(int id, short event) {
    pollfd entry{id, event, 0};
    if (::poll(&entry, 1, 0) < 0) return false;  // with errno set
    if (entry.revents != 0) return true;
    errno = EAGAIN;
    return false;
}

// Writes to a pipe with SIGPIPE blocked, and swallows the one that the write raises.
ssize_t writeToPipe(int id, const void* buffer, std::size_t length) {
    if (!isReady(id, POLLOUT)) return -1;
    sigset_t pipeSignal;
    sigset_t pending;
    sigset_t earlier;
    ::sigemptyset(&pipeSignal);
    ::sigaddset(&pipeSignal, SIGPIPE);
    ::sigpending(&pending);
    ::pthread_sigmask(SIG_BLOCK, &pipeSignal, &earlier);
    const ssize_t count = ::write(id, buffer, std::min<std::size_t>(length, PIPE_BUF));
    const int error = errno;
    if (count < 0 && error == EPIPE && ::sigismember(&pending, SIGPIPE) == 0) {
        const timespec noWait{};
        while (::sigtimedwait(&pipeSignal, nullptr, &noWait) < 0 && errno == EINTR) {
        }
    }
    ::pthread_sigmask(SIG_SETMASK, &earlier, nullptr);
    errno = error;
    return count;
}

}  // namespace

// One system call that takes what is there, whatever the descriptor's blocking mode; -1 with errno.
ssize_t CoIoDescriptor::readOnce(void* buffer, std::size_t length) {
    const std::size_t most = limited(length, faults().maxReadBytes);
    for (;;) {
        ssize_t count = ::recv(getId(), buffer, most, MSG_DONTWAIT);
        if (count < 0 && errno == ENOTSOCK) {
            count = isReady(getId(), POLLIN) ? ::read(getId(), buffer, most) : -1;
        }
        if (count >= 0 || errno != EINTR) return count;
    }
}

ssize_t CoIoDescriptor::writeOnce(const void* buffer, std::size_t length) {
    const std::size_t most = limited(length, faults().maxWriteBytes);
    for (;;) {
        ssize_t count = ::send(getId(), buffer, most, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && errno == ENOTSOCK) count = writeToPipe(getId(), buffer, most);
        if (count >= 0 || errno != EINTR) return count;
    }
}

bool CoIoDescriptor::enableWaitInRead() {
    const timeval limit{0, READ_WAIT_MS * 1000};
    int blocking = 0;
    waitsInRead_ = ::setsockopt(getId(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0 &&
                   ::ioctl(getId(), FIONBIO, &blocking) == 0;
    return waitsInRead_;
}

// Reads as soon as there is something, within READ_WAIT_MS. To be called within a StopScope.
CoIoDescriptor::WaitResult CoIoDescriptor::waitInRead(void* buffer, std::size_t length, ssize_t& count) {
    if (!stop_.beginRead()) return stopRequested() ? WaitResult::Stopped : WaitResult::TimedOut;
    count = ::recv(getId(), buffer, limited(length, faults().maxReadBytes), 0);
    const int error = errno;
    if (!stop_.endRead()) return WaitResult::Stopped;
    errno = error;
    if (count >= 0) return WaitResult::Ready;
    return error == EAGAIN ? WaitResult::TimedOut : error == EINTR ? WaitResult::Woken : WaitResult::Failed;
}

ssize_t CoIoDescriptor::fail(IoError error) {
    setLastError(error);
    return -1;
}

// What a call with a time-out returns, the last error set, when its wait gave nothing to read or write.
int CoIoDescriptor::outcomeOf(WaitResult result) {
    switch (result) {
        case WaitResult::Stopped:
            return static_cast<int>(fail(IoError::Aborted));
        case WaitResult::Failed:
            return static_cast<int>(fail(IoError::Other));
        default:
            return 0;
    }
}

// Waits until there is something to read or write. False with `outcome`, what the call returns, otherwise.
bool CoIoDescriptor::waitReady(short event, unsigned timeoutMs, int& outcome) {
    short occurred = 0;
    const WaitResult result = waitFor(event, toPollTimeout(timeoutMs), occurred);
    if (result != WaitResult::Ready) {
        outcome = outcomeOf(result);
        return false;
    }
    if ((occurred & (POLLNVAL | POLLERR)) == 0) return true;
    outcome = -1;
    if (occurred & POLLNVAL) {
        setLastError(IoError::BadDescriptor);
    } else {
        setLastErrorFromSocket();
    }
    return false;
}

int CoIoDescriptor::nonBlockingReadWithTimeout(void* buffer, unsigned length, unsigned timeoutMs) {
    clearLastError();
    if (!isValid()) return static_cast<int>(fail(IoError::NotConnected));
    const StopScope scope(*this);
    const std::size_t most = std::min<std::size_t>(length, INT_MAX);
    ssize_t count = 0;
    if (waitsInRead_ && timeoutMs > READ_WAIT_CHARGE_MS && length > 0) {
        const WaitResult result = waitInRead(buffer, most, count);
        if (result == WaitResult::Ready)
            return static_cast<int>(count > 0 ? count : fail(IoError::ConnectionReset));
        if (result == WaitResult::Failed) {
            setLastErrorFromSystem();
            return -1;
        }
        if (result != WaitResult::TimedOut) return outcomeOf(result);
        timeoutMs -= READ_WAIT_CHARGE_MS;
    }
    int outcome = 0;
    if (!waitReady(POLLIN, timeoutMs, outcome)) return outcome;
    count = readOnce(buffer, most);
    if (count > 0 || length == 0) return static_cast<int>(count);
    if (count == 0) return static_cast<int>(fail(IoError::ConnectionReset));
    return errno == EAGAIN ? 0 : static_cast<int>(fail(IoError::Other));
}

int CoIoDescriptor::nonBlockingWriteWithTimeout(const void* buffer, unsigned length, unsigned timeoutMs) {
    clearLastError();
    if (!isValid()) return static_cast<int>(fail(IoError::NotConnected));
    const StopScope scope(*this);
    const std::size_t most = std::min<std::size_t>(length, INT_MAX);
    ssize_t count = writeOnce(buffer, most);
    if (count < 0 && errno == EAGAIN) {
        int outcome = 0;
        if (!waitReady(POLLOUT, timeoutMs, outcome)) return outcome;
        count = writeOnce(buffer, most);
    }
    if (count >= 0) return static_cast<int>(count);
    return errno == EAGAIN ? 0 : static_cast<int>(fail(IoError::Other));
}

// Repeats `step(offset)`, which moves some bytes like a system call does, until `length` bytes went.
template <typename Step>
ssize_t CoIoDescriptor::transferAll(std::size_t length, short event, unsigned stallTimeoutMs, Step step) {
    clearLastError();
    if (!isValid()) return fail(IoError::NotConnected);
    const StopScope scope(*this);
    std::optional<CoDeadline> stall;  // runs from the first fruitless attempt to the next byte
    std::size_t moved = 0;
    while (moved < length) {
        const ssize_t count = stopRequested() ? -1 : step(moved);
        if (count > 0) {
            moved += static_cast<std::size_t>(count);
            stall.reset();
            continue;
        }
        if (stopRequested()) {
            setLastError(IoError::Aborted);
            return static_cast<ssize_t>(moved);
        }
        if (count == 0 || errno == ECONNRESET || errno == EPIPE) {
            setLastError(IoError::ConnectionReset);
            return 0;
        }
        if (errno != EAGAIN) return fail(IoError::Other);
        if (stallTimeoutMs != 0 && !stall) stall.emplace(stallTimeoutMs);
        if (stall && stall->passed()) return fail(IoError::TimedOut);
        short occurred = 0;
        if (waitFor(event, stall ? toPollTimeout(stall->leftMs()) : NO_TIMEOUT, occurred) ==
            WaitResult::Failed) {
            return fail(IoError::Other);
        }
        if (occurred & POLLNVAL) return fail(IoError::BadDescriptor);
    }
    return static_cast<ssize_t>(length);
}

ssize_t CoIoDescriptor::blockingRead(void* buffer, std::size_t length, unsigned stallTimeoutMs) {
    return transferAll(length, POLLIN, stallTimeoutMs, [this, buffer, length](std::size_t moved) {
        return readOnce(static_cast<char*>(buffer) + moved, length - moved);
    });
}

ssize_t CoIoDescriptor::blockingWrite(const void* buffer, std::size_t length, unsigned stallTimeoutMs) {
    return transferAll(length, POLLOUT, stallTimeoutMs, [this, buffer, length](std::size_t moved) {
        return writeOnce(static_cast<const char*>(buffer) + moved, length - moved);
    });
}

int CoIoDescriptor::readLine(char* buffer, int size) {
    if (!CO_ASSERT(buffer != nullptr) || !CO_ASSERT(size > 0)) return 0;
    const StopScope scope(*this);
    const int room = size - 1;
    int length = 0;
    buffer[0] = '\0';
    for (;;) {
        char byte = 0;
        if (blockingRead(&byte, 1) != 1) {
            if (!wasStopped()) setLastError(IoError::ConnectionReset);
            return 0;
        }
        if (byte == '\n') return length;
        if (room == 0) continue;
        if (length < room) ++length;
        buffer[length - 1] = byte;
        buffer[length] = '\0';
    }
}

bool CoIoDescriptor::writeStr(const char* text) {
    if (!CO_ASSERT(text != nullptr)) return false;
    const std::size_t length = std::strlen(text);
    return blockingWrite(text, length) == static_cast<ssize_t>(length);
}

}  // namespace Vantrel
