#pragma once

#include <atomic>
#include <string>

#include "CoMutex.h"

/// Which calls of an object are to end: those that had begun when it was stopped, whether they run or wait
/// for their turn. Thread-safe.
class VantrelStops {
  public:
    VantrelStops() = default;
    VantrelStops(const VantrelStops&) = delete;
    VantrelStops& operator=(const VantrelStops&) = delete;

    /// A call on the object by this thread. Declare it before the lock that the call waits for, so that a
    /// stop during that wait counts. Nests: the outermost one counts.
    class Call {
      public:
        explicit Call(const VantrelStops& stops) : Call(&stops) {}
        /// Null: on nothing that can be stopped.
        explicit Call(const VantrelStops* stops);
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;
        ~Call();

      private:
        friend class VantrelStops;

        const VantrelStops* const stops_;
        const unsigned seen_;      // how many stops there were when it began
        const Call* const outer_;  // of this thread, on whatever object
    };

    /// While it lives, calls that begin are to end as well: its owner need not wait behind them.
    class Barrier {
      public:
        Barrier(VantrelStops& stops, const std::string& reason);
        Barrier(const Barrier&) = delete;
        Barrier& operator=(const Barrier&) = delete;
        ~Barrier();

      private:
        VantrelStops& stops_;
    };

    /// Calls that are in progress are to end.
    void stop(const std::string& reason);
    /// Whether the call of this thread is. Takes no lock.
    bool isCallStopped() const;
    /// That of the last stop.
    std::string reason() const;

    /// What a reason that the caller did not give stands for: the system's text for an interrupted call.
    static std::string textOf(const char* reason);

  private:
    void setReason(const std::string& reason);

    std::atomic<unsigned> stops_{0};
    std::atomic<unsigned> barriers_{0};
    mutable Vantrel::CoMutex mutex_;
    std::string reason_ CO_GUARDED_BY(mutex_);
};
