#include "Interrupt.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "ToolError.h"

namespace {

constexpr int STOP_AGAIN_MS = 100;

bool ignored(int signalNumber) {
    struct sigaction action {};
    return sigaction(signalNumber, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

// Every thread blocks the signal; raised where it is not, it takes its default effect.
[[noreturn]] void endProcess(int signalNumber) {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signalNumber);
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    raise(signalNumber);
    _exit(128 + signalNumber);
}

}  // namespace

SignalBlock::SignalBlock() {
    sigemptyset(&signals_);
    for (int signalNumber : {SIGINT, SIGTERM, SIGHUP})
        if (!ignored(signalNumber)) sigaddset(&signals_, signalNumber);
    pthread_sigmask(SIG_BLOCK, &signals_, &previous_);
}

SignalBlock::~SignalBlock() {
    pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

Interrupt::Interrupt(const SignalBlock& block, std::function<void()> stop) : stop_(std::move(stop)) {
    signalFd_ = signalfd(-1, &block.signals(), SFD_CLOEXEC | SFD_NONBLOCK);
    quitFd_ = eventfd(0, EFD_CLOEXEC);
    if (signalFd_ < 0 || quitFd_ < 0) {
        const int error = errno;
        if (signalFd_ >= 0) close(signalFd_);
        throw ToolError(std::string("cannot watch for signals: ") + std::strerror(error));
    }
    thread_ = std::thread([this] { watch(); });
}

Interrupt::~Interrupt() {
    quiet();
    close(signalFd_);
    close(quitFd_);
}

void Interrupt::check() const {
    if (const int signalNumber = signal_) throw Interrupted(signalNumber);
}

void Interrupt::quiet() {
    if (!thread_.joinable()) return;
    const std::uint64_t one = 1;
    if (write(quitFd_, &one, sizeof one) == sizeof one) thread_.join();
}

int Interrupt::takeSignal() const {
    signalfd_siginfo info{};
    return read(signalFd_, &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

void Interrupt::watch() {
    for (;;) {
        pollfd fds[] = {{signalFd_, POLLIN, 0}, {quitFd_, POLLIN, 0}};
        poll(fds, 2, signal_ == 0 ? -1 : STOP_AGAIN_MS);
        if (fds[1].revents != 0) return;
        const int received = takeSignal();
        if (received != 0 && signal_ != 0) endProcess(received);
        if (received != 0) signal_ = received;
        if (signal_ != 0) stop_();
    }
}
