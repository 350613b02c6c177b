#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "CoMutex.h"
#include "CoTime.h"
#include "VantrelEventConnection.h"

/// The calls to servers that the port's thread makes of its own accord: to restore what was lost, and, when
/// the port ends, to deregister. The thread that ends the port waits for them, and breaks those that last.
/// Thread-safe; no lock is held while a server is called.
class VantrelEventServerCalls {
  public:
    using Connection = std::shared_ptr<VantrelEventConnection>;
    /// What a connection had registered when the port ended.
    struct Deregistration {
        Connection connection;
        std::vector<VantrelEventSubject> subjects;
    };
    using Deregistrations = std::vector<Deregistration>;

    // --- On the port's thread ---

    using Restored = VantrelEventRegistrations::Restored;
    /// Restores a connection. Does nothing once the end has begun.
    Restored restore(const Connection& connection) CO_EXCLUDES(mutex_);
    /// Deregisters what was submitted.
    void deregister() CO_EXCLUDES(mutex_);

    // --- On the thread that ends the port ---

    /// The end begins: nothing is restored any more.
    void forbidRestoring() CO_EXCLUDES(mutex_);
    /// Hands deregistrations to the port's thread, which has to be woken. They have
    /// VantrelEventConnection::DEREGISTRATION_TIME_MS in all from now on.
    void submit(Deregistrations deregistrations) CO_EXCLUDES(mutex_);
    /// Waits until all that were submitted are done, or their time is over. No call is in progress then.
    void await() CO_EXCLUDES(mutex_);

  private:
    class Scope;
    bool beginCall(const Connection& connection, bool restoring) CO_EXCLUDES(mutex_);
    void endCall() CO_EXCLUDES(mutex_);
    bool next(Deregistration& deregistration, unsigned& limitMs) CO_EXCLUDES(mutex_);
    bool timeIsOver() const CO_REQUIRES(mutex_) { return limit_ && limit_->passed(); }

    Vantrel::CoMutex mutex_;
    Vantrel::CoCondition changed_;
    bool mayRestore_ CO_GUARDED_BY(mutex_) = true;
    Deregistrations pending_ CO_GUARDED_BY(mutex_);
    std::optional<Vantrel::CoDeadline> limit_ CO_GUARDED_BY(mutex_);
    Connection called_ CO_GUARDED_BY(mutex_);  // its server is being called
    bool restoring_ CO_GUARDED_BY(mutex_) = false;
};
