#pragma once

#include "CoFd.h"

namespace Vantrel {

/// Wakes a thread that waits on descriptors: `descriptor` is readable from `signal` until `drain`. It is
/// close-on-exec and never blocks. Thread-safe.
class CoWakeUp {
  public:
    enum class Kind {
        Flag,  ///< one `drain` takes all signals
        Count  ///< one `drain` takes one signal
    };

    /// Closed, with errno set, when the system refuses: signals then fail.
    explicit CoWakeUp(Kind kind = Kind::Flag) { open(kind); }
    /// The same for one that is closed.
    void open(Kind kind);

    bool isOpen() const { return fd_.isOpen(); }
    int descriptor() const { return fd_.get(); }

    /// False with errno set when it is closed.
    bool signal() const;
    /// Whether there was a signal.
    bool drain() const;

    /// Closes the descriptor.
    void close() { fd_.reset(); }

  private:
    CoFd fd_;
};

}  // namespace Vantrel
