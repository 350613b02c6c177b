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

Interrupt::Descriptor::Descriptor(int theId) : id(theId) {
    if (id < 0) throw ToolError(std::string("cannot watch for signals: ") + std::strerror(errno));
}

Interrupt::Descriptor::~Descriptor() {
    close(id);
}

Interrupt::Interrupt(const SignalBlock& block, std::function<void()> stop)
    : stop_(std::move(stop)),
      signals_(signalfd(-1, &block.signals(), SFD_CLOEXEC | SFD_NONBLOCK)),
      quit_(eventfd(0, EFD_CLOEXEC)),
      thread_([this] { watch(); }) {}

Interrupt::~Interrupt() {
    quiet();
}

void Interrupt::check() const {
    if (const int signalNumber = signal_) throw Interrupted(signalNumber);
}

void Interrupt::quiet() {
    if (!thread_.joinable()) return;
    const std::uint64_t one = 1;
    if (write(quit_.id, &one, sizeof one) == sizeof one) thread_.join();
}

int Interrupt::takeSignal() const {
    signalfd_siginfo info{};
    return read(signals_.id, &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

void Interrupt::watch() {
    for (;;) {
        pollfd fds[] = {{signals_.id, POLLIN, 0}, {quit_.id, POLLIN, 0}};
        poll(fds, 2, signal_ == 0 ? -1 : STOP_AGAIN_MS);
        if (fds[1].revents != 0) return;
        const int received = takeSignal();
        if (received != 0 && signal_ != 0) endProcess(received);
        if (received != 0) signal_ = received;
        if (signal_ != 0) stop_();
    }
}
