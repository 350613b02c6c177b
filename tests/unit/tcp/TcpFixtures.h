#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "AwaitSleep.h"
#include "CoIoTcpServerDescriptor.h"
#include "CoMsg.h"
#include "CoSharedCancelPipe.h"
#include "SilentListener.h"

namespace Vantrel {

constexpr unsigned LONG_MS = 20000;  // an operation that takes this long has failed the test
constexpr double LONG_SEC = LONG_MS / 1000.0;

inline double secondsOf(const std::function<void()>& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// How often this thread has slept.
inline long threadSleeps() {
    rusage usage{};
    ::getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

/// Interrupts the sleep of a thread `times` times.
inline void interruptSleep(const std::atomic<pid_t>& thread, int times) {
    struct sigaction ignoring {};
    ignoring.sa_handler = [](int) {};  // without SA_RESTART: waits are interrupted
    EXPECT_EQ(::sigaction(SIGUSR1, &ignoring, nullptr), 0);
    while (times-- > 0) {
        awaitSleep(thread);
        ::syscall(SYS_tgkill, ::getpid(), thread.load(), SIGUSR1);
    }
}

inline bool isReadable(int id, unsigned timeoutMs = 0) {
    pollfd entry{id, POLLIN, 0};
    return ::poll(&entry, 1, static_cast<int>(timeoutMs)) == 1;
}

inline bool cancelPipeHasStops() {
    return isReadable(CoSharedCancelPipe::get().getOut());
}

/// Two connected ends: of local stream sockets, or of a pipe that `descriptor` writes to.
struct Pair {
    enum class Kind { Sockets, NonBlocking, Pipe };
    explicit Pair(Kind kind = Kind::Sockets) {
        int ids[2] = {-1, -1};
        const int flags = SOCK_STREAM | SOCK_CLOEXEC | (kind == Kind::NonBlocking ? SOCK_NONBLOCK : 0);
        EXPECT_EQ(kind == Kind::Pipe ? ::pipe2(ids, O_CLOEXEC) : ::socketpair(AF_UNIX, flags, 0, ids), 0);
        peer.setId(ids[0]);
        descriptor.setId(ids[1]);
    }
    /// What the peer sends.
    void send(const std::string& bytes) { EXPECT_TRUE(peer.writeStr(bytes.c_str())); }
    int read(unsigned timeoutMs) {
        return descriptor.nonBlockingReadWithTimeout(buffer, sizeof buffer, timeoutMs);
    }
    /// Until nothing more is accepted.
    void fillSendBuffer() const {
        const std::vector<char> junk(65536, 'j');
        while (::send(descriptor.getId(), junk.data(), junk.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
        }
    }

    CoIoDescriptor descriptor;
    CoIoDescriptor peer;
    char buffer[8] = {};
};

inline bool isNonBlockingAndCloseOnExec(int id) {
    return (::fcntl(id, F_GETFL) & O_NONBLOCK) != 0 && (::fcntl(id, F_GETFD) & FD_CLOEXEC) != 0;
}

/// Calls `stop` on a descriptor again and again until `action` returns, so that no moment has to be guessed;
/// it begins when `action` has read what the peer sent before.
inline void stopWhile(CoIoDescriptor& descriptor, const std::function<void()>& action) {
    CoMsg::setFilterLevel(CoMsg::ERROR);
    std::atomic<bool> ended{false};
    const int id = descriptor.getId();  // none before an action that connects, which makes one
    std::thread stopper([&] {
        char byte;
        while (id >= 0 && !ended && ::recv(id, &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0)
            std::this_thread::yield();
        while (!ended) {
            descriptor.stop();
            std::this_thread::yield();
        }
    });
    action();
    ended = true;
    stopper.join();
}

/// A stop ends `action`, which would last for LONG_MS, and leaves nothing behind.
inline void expectStopEnds(CoIoDescriptor& descriptor, const std::function<void()>& action) {
    EXPECT_LT(secondsOf([&] { stopWhile(descriptor, action); }), LONG_SEC / 2);
    EXPECT_TRUE(descriptor.wasStopped());
    EXPECT_EQ(descriptor.lastErrorText(), coErrorText(ECONNABORTED));
    EXPECT_FALSE(cancelPipeHasStops());
}

}  // namespace Vantrel
