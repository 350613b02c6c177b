#pragma once

namespace Vantrel {

/// The one pipe of the process that wakes blocked waits: whoever wants to end one writes a byte, and every
/// wait polls the read end beside its own descriptor. Both ends are close-on-exec and non-blocking.
/// Created on first use and never destroyed. A forked child gets a pipe of its own, so that it does not wake
/// its parent. Thread-safe.
class CoSharedCancelPipe {
  public:
    CoSharedCancelPipe(const CoSharedCancelPipe&) = delete;
    CoSharedCancelPipe& operator=(const CoSharedCancelPipe&) = delete;

    static CoSharedCancelPipe& get();

    /// False when the system refused a pipe (logged): waits then end by their time-outs only.
    bool isValid() const { return in_ >= 0; }
    int getIn() const { return in_; }    ///< write end, or -1
    int getOut() const { return out_; }  ///< read end, or -1

    /// Writes one byte; false with errno set when it cannot.
    bool put() const;
    /// Takes one byte back. Whoever put one, or was left one, takes exactly one: bytes are interchangeable.
    void take() const;
    /// Drains whatever bytes are in it. Only while nobody waits: it would take bytes that others own.
    void flush() const;

    /// Makes one end close-on-exec and non-blocking; false, with the reason logged, when that fails.
    static bool prepareEnd(int fd);

  private:
    explicit CoSharedCancelPipe(unsigned generation);
    ~CoSharedCancelPipe();

    int in_ = -1;
    int out_ = -1;
    unsigned generation_;                    // of the fork that this pipe belongs to
    CoSharedCancelPipe* earlier_ = nullptr;  // the parent's; kept because its address may still be known
};

}  // namespace Vantrel
