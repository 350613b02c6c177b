#pragma once

#include <sys/time.h>

#include "CoEventLoop.h"
#include "CoIoHandler.h"
#include "CoTime.h"

namespace Vantrel {

/// The event loop of the remote-command layer, which logs what it waits for. Used by one thread, except
/// `cancel`, which any thread may call. Handlers are not owned; they must stay until they are unregistered or
/// released.
class rcAppContext {
  public:
    rcAppContext() = default;
    rcAppContext(const rcAppContext&) = delete;
    rcAppContext& operator=(const rcAppContext&) = delete;
    virtual ~rcAppContext() = default;

    /// False when `handler` is null or registered already; see CoEventLoop::add.
    bool registerIOHandler(CoIoHandler* handler) { return handler && loop_.add(*handler); }
    /// False when it is not registered.
    bool unregisterIOHandler(CoIoHandler* handler) { return handler && loop_.remove(*handler); }

    /// Makes the pass in progress, or the next one, return at once.
    void cancel();

    /// One pass of the loop, which waits up to `timeoutMs`: see CoEventLoop::pass.
    int callIOHandlers(unsigned timeoutMs);
    /// The same; null waits without limit, more than an hour is cut to an hour.
    int callIOHandlers(timeval* timeout);
    /// The same, up to a point in time; CoEventLoop::NEVER waits without limit.
    int callIOHandlersUntil(CoTime::Microseconds deadline);

  protected:
    /// Makes the wait in progress ask handlers for their interests again after `delayMs` at the latest.
    void reviewInterestsIn(unsigned delayMs) {
        loop_.reviewInterestsAt(CoTime::getTime() + delayMs * CoTime::PER_MILLISECOND);
    }

  private:
    int callWithin(CoTime::Microseconds wait);

    CoEventLoop loop_;
};

}  // namespace Vantrel
