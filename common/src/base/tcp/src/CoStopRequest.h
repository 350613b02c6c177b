#pragma once

#include <atomic>
#include <functional>

namespace Vantrel {

/// A request to end the wait that one thread is in, made by another through the shared cancel pipe.
///
/// A stop in the pipe wakes every waiter of the process until it is taken out, so each has exactly one
/// owner at any time: first the requester, and once the request is handed over, the waiter, who takes it when
/// it notices the request or ends its wait. If the waiter is gone before the hand-over, the requester takes
/// its stop back. So none stays behind, and a request on a descriptor without a waiter puts none in.
///
/// A waiter that blocks in the read of a socket of its own does not see the pipe: a request shuts the socket
/// down for reading instead, which ends the read. The waiter leaves the read only once that is done, so the
/// descriptor is still the same.
///
/// Thread safety: `begin`, `end`, `requested`, `beginRead` and `endRead` belong to the waiting thread;
/// `request` to any.
class CoStopRequest {
  public:
    /// A wait starts: earlier requests do not count. Nests; only the outermost pair counts.
    void begin();
    void end();

    /// Ends the wait in progress, if there is one. False with errno set when the pipe takes no stop.
    /// `socket` gives what the waiter reads, should it be between `beginRead` and `endRead`; it is asked only
    /// then and while the waiter cannot leave, so that the number is that of the same socket still.
    bool request(const std::function<int()>& socket);

    /// Whether a request came since the outermost `begin`.
    bool requested();

    /// Around a read that blocks. False when there is a request to look at first.
    bool beginRead();
    /// False when a request came during the read: the socket is then of no more use for reading.
    bool endRead();

  private:
    enum State : int {
        IDLE,         // there is no waiter
        WAITING,      // a wait is in progress
        READING,      // the same, in a read that blocks
        SHUTTING,     // its end is requested; the requester is about to shut the socket down
        REQUESTED,    // its end is requested; the requester owns the stop
        HANDED_OVER,  // the same; the waiter owns the stop
        NOTICED       // the waiter knows, or will when its read has ended, and no stop is left
    };

    void replaceState(State state);

    std::atomic<int> state_{IDLE};
    std::atomic<unsigned> generation_{0};  // of the process that waits: a forked child inherits no wait
    unsigned depth_ = 0;                   // nesting of begin(); the waiting thread's
};

}  // namespace Vantrel
