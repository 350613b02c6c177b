#pragma once

#include <atomic>

namespace Vantrel {

/// A request to end the wait that one thread is in, made by another through the shared cancel pipe.
///
/// A byte in the pipe wakes every waiter of the process until somebody takes it, so each byte has exactly one
/// owner at any time: first the requester, and once the request is handed over, the waiter, who takes it when
/// it notices the request or ends its wait. If the waiter is gone before the hand-over, the requester takes
/// its byte back. So none stays behind, and a request on a descriptor where nobody waits writes none.
///
/// Thread safety: `begin`, `end` and `requested` belong to the waiting thread; `request` to any.
class CoStopRequest {
  public:
    /// A wait starts: earlier requests do not count. Nests; only the outermost pair counts.
    void begin();
    void end();

    /// Ends the wait in progress, if there is one. False with errno set when the pipe takes no byte.
    bool request();

    /// Whether a request came since the outermost `begin`.
    bool requested();

  private:
    enum State : int {
        IDLE,         // nobody waits
        WAITING,      // a wait is in progress
        REQUESTED,    // its end is requested; the requester owns the byte
        HANDED_OVER,  // the same; the waiter owns the byte
        NOTICED       // the waiter knows, and its byte is taken
    };

    void replaceState(State state);

    std::atomic<int> state_{IDLE};
    std::atomic<unsigned> generation_{0};  // of the process that waits: a forked child inherits no wait
    unsigned depth_ = 0;                   // nesting of begin(); the waiting thread's
};

}  // namespace Vantrel
