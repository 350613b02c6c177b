#pragma once

#include <poll.h>

#include <atomic>
#include <cstddef>
#include <limits>
#include <vector>

#include "CoIoHandler.h"
#include "CoTime.h"
#include "CoWakeUp.h"

namespace Vantrel {

/// Waits for descriptors and calls the handlers that serve them. Used by one thread, except `wakeUp`, `stop`
/// and `stopRequested`, which any thread may call. Handlers are not owned; they must stay until they are
/// removed or released.
class CoEventLoop {
  public:
    using Microseconds = CoTime::Microseconds;
    static constexpr Microseconds NEVER = std::numeric_limits<Microseconds>::max();

    /// Without a wake-up descriptor, which the system may refuse (logged), it works but for `wakeUp` and
    /// `stop`.
    CoEventLoop();
    CoEventLoop(const CoEventLoop&) = delete;
    CoEventLoop& operator=(const CoEventLoop&) = delete;

    /// False when it is there already. A callback may add handlers, which are waited for from the next pass
    /// on, and remove any, itself too, which are then not called any more.
    bool add(CoIoHandler& handler);
    /// False when it is not there. The handler's `released` is not called.
    bool remove(const CoIoHandler& handler);

    /// One pass: waits until something is ready, a wake-up or the time `deadline`, calls the handlers of
    /// every ready descriptor and releases those whose callback returns false. The number of ready
    /// descriptors, a wake-up counting as one; 0 at the deadline; negative, with errno set, when the system
    /// cannot wait. Not from within a callback.
    int pass(Microseconds deadline = NEVER);
    /// Passes until `stop`; ends early, with the reason logged, when the system cannot wait.
    void run();

    /// Makes the pass in progress, or else the next one, return at once.
    /// False, with errno set, when it cannot.
    bool wakeUp() { return wakeUp_.signal(); }
    bool canBeWoken() const { return wakeUp_.isOpen(); }
    /// Ends `run` for good.
    void stop();
    bool stopRequested() const { return stopped_; }

    /// Makes the wait in progress ask handlers for their interests again by the time `at`, though no
    /// descriptor may be ready by then. The earliest time of all handlers is kept: one that is asked before
    /// its own time asks for it again.
    void reviewInterestsAt(Microseconds at);

  private:
    void release(std::size_t slot);
    void preparePoll();
    int wait(Microseconds deadline);
    void dispatch(std::size_t slot, short events);

    CoWakeUp wakeUp_;
    std::atomic<bool> stopped_{false};
    std::vector<CoIoHandler*> handlers_;  ///< removed ones are null until the next pass begins
    std::vector<pollfd> polled_;          ///< [0] is the wake-up descriptor; reused by every pass
    std::vector<std::size_t> slots_;      ///< index into handlers_ of polled_[i + 1]
    Microseconds reviewAt_ = NEVER;
    bool inPass_ = false;
};

}  // namespace Vantrel
