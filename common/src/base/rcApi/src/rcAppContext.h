#pragma once

#include <poll.h>
#include <sys/time.h>

#include <cstddef>
#include <vector>

#include "CoIoDescriptor.h"
#include "CoIoHandler.h"
#include "CoTime.h"

namespace Vantrel {

/// The loop that serves I/O handlers: waits for their descriptors and calls them. Used by one thread, except
/// `cancel`, which any thread may call. Handlers are not owned; they must stay until they are unregistered.
class rcAppContext {
  public:
    /// Without a wake-up descriptor, which the system may refuse, the loop works but `cancel` does not;
    /// logged.
    rcAppContext();
    rcAppContext(const rcAppContext&) = delete;
    rcAppContext& operator=(const rcAppContext&) = delete;
    virtual ~rcAppContext() = default;

    /// False when `handler` is null or registered already. A callback may register handlers (waited for from
    /// the next pass on) and unregister any, itself too, which are then not called any more.
    bool registerIOHandler(CoIoHandler* handler);
    /// False when it is not registered.
    bool unregisterIOHandler(CoIoHandler* handler);

    /// Makes the pass in progress, or the next one, return at once.
    void cancel();

    /// One pass: waits up to `timeoutMs`, calls the handlers of every ready descriptor, and unregisters those
    /// whose callback returns false. Returns the number of ready descriptors, the wake-up one included; 0
    /// when the time ran out, negative on error. Not from within a callback.
    int callIOHandlers(unsigned timeoutMs);
    /// The same; null waits without limit, more than an hour is cut to an hour.
    int callIOHandlers(timeval* timeout);

  protected:
    /// The loop gave `handler` up (its callback returned false, or it has no descriptor) and does not touch
    /// it any more: whoever owns it may destroy it.
    virtual void handlerUnregistered(CoIoHandler& handler);

    /// Makes the wait in progress look at the handlers' interests again after `delayMs` at the latest, though
    /// no descriptor may be ready by then.
    void reviewInterestsIn(unsigned delayMs);

  private:
    int onePass(const timeval* timeout);
    void giveUp(std::size_t slot);
    void preparePoll();
    int waitForHandlers(bool limited, CoTime::Microseconds deadline);
    void dispatch(std::size_t slot, short events);

    CoIoDescriptor wakeUp_;
    std::vector<CoIoHandler*> handlers_;  ///< unregistered: null until the next pass begins
    std::vector<pollfd> polled_;          ///< [0] is the wake-up descriptor; reused by every pass
    std::vector<std::size_t> slots_;      ///< index into handlers_ of polled_[i + 1]
    CoTime::Microseconds reviewAt_ = 0;   ///< 0: not asked for
    bool inPass_ = false;
};

}  // namespace Vantrel
