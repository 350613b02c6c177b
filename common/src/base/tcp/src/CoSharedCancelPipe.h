#pragma once

#include "CoWakeUp.h"

namespace Vantrel {

/// Wakes the blocked waits of the process: each polls the output beside its own descriptor, and a stop that
/// is put in wakes all of them until it is taken out. Close-on-exec and non-blocking. Created on first use
/// and never destroyed. A forked child has one of its own, so that it does not wake its parent. Thread-safe.
class CoSharedCancelPipe {
  public:
    static CoSharedCancelPipe& get();

    explicit CoSharedCancelPipe(CoSharedCancelPipe* parents);
    CoSharedCancelPipe(const CoSharedCancelPipe&) = delete;
    CoSharedCancelPipe& operator=(const CoSharedCancelPipe&) = delete;

    /// Tries again to make it where the system refused it; false when it still does. One thread at a time.
    bool open();
    /// False when the system refused it (logged): waits then end by their time-outs only.
    bool isValid() const { return wakeUp_.isOpen(); }
    int getIn() const { return wakeUp_.descriptor(); }   ///< to write to; -1 when there is none
    int getOut() const { return wakeUp_.descriptor(); }  ///< to wait on; the same descriptor

    /// Puts one stop in; false with errno set when it cannot.
    bool put() const { return wakeUp_.signal(); }
    /// Takes one stop out. The owner of a stop takes exactly one: they are interchangeable.
    void take() const { wakeUp_.drain(); }
    /// Takes all stops out. Only while there is no waiter: it would take those that others own.
    void flush() const;

  private:
    CoWakeUp wakeUp_{CoWakeUp::Kind::Count};
};

}  // namespace Vantrel
