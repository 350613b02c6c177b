#pragma once

#include <signal.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <thread>

/// A signal asked the command to end.
class Interrupted : public std::runtime_error {
  public:
    explicit Interrupted(int signalNumber) : std::runtime_error("interrupted"), signal(signalNumber) {}
    const int signal;
};

/// Keeps SIGINT, SIGTERM and SIGHUP from ending the process for as long as it lives, in this thread and in
/// the threads that start while it lives: make it before any other thread. A signal that the parent process
/// ignores (nohup) stays ignored.
class SignalBlock {
  public:
    SignalBlock();
    ~SignalBlock();
    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;

    const sigset_t& signals() const { return signals_; }

  private:
    sigset_t signals_;
    sigset_t previous_;
};

/// Waits for the blocked signals on a thread of its own. After the first one it calls `stop` again and again,
/// since a stop that comes between two library calls ends neither, until `quiet` or destruction. A second
/// signal ends the process at once.
class Interrupt {
  public:
    Interrupt(const SignalBlock& block, std::function<void()> stop);
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    /// Throws Interrupted once a signal has come.
    void check() const;
    /// `stop` is called no more when this returns, so that the command can undo what it began.
    void quiet();

  private:
    /// Owns a descriptor. ToolError with the system's reason when there is none.
    struct Descriptor {
        explicit Descriptor(int theId);
        Descriptor(const Descriptor&) = delete;
        Descriptor& operator=(const Descriptor&) = delete;
        ~Descriptor();

        const int id;
    };

    void watch();
    int takeSignal() const;

    const std::function<void()> stop_;
    std::atomic<int> signal_{0};
    const Descriptor signals_;
    const Descriptor quit_;
    std::thread thread_;  ///< last: it uses all the others
};
