#pragma once

#include <atomic>
#include <functional>
#include <limits>
#include <memory>
#include <unordered_map>
#include <vector>

#include "CoTime.h"
#include "VantrelEventConnection.h"

/// Watches the servers of connections that have handlers: a process that only waits for events makes no call
/// that would find a connection lost. Says when they are to be checked next, and restores what was lost, with
/// pauses that grow while a server cannot be reached. Belongs to the port's thread, except `request` and
/// `registrationsMayBeLost`, which any thread may call.
class VantrelEventHealthCheck {
  public:
    using Microseconds = Vantrel::CoTime::Microseconds;
    using Connections = std::vector<std::shared_ptr<VantrelEventConnection>>;
    /// Restores one connection and its registrations; false when it failed.
    using Restore = std::function<bool(const std::shared_ptr<VantrelEventConnection>&)>;
    static constexpr Microseconds NEVER = std::numeric_limits<Microseconds>::max();

    /// A check is to come soon: there is something to watch.
    void request() { requested_ = true; }
    /// A server has closed its event connection. Often it has ended itself; or it has given up sending, and
    /// dropped what was registered with it. Which one is not known, so that all are asked again.
    void registrationsMayBeLost();

    /// When `run` is due; NEVER while there is nothing to watch.
    Microseconds due(Microseconds now);
    /// Checks the connections. An attempt to restore one that fails may take a second: it then leaves the
    /// others to the next run, which is due at once.
    void run(Microseconds now, const Connections& connections, const Restore& restore);

  private:
    struct Pause {
        unsigned lengthMs = 0;
        Microseconds end = 0;
    };

    void renewAfterLoss(Microseconds now, const Connections& connections);
    bool isPaused(const VantrelEventConnection& connection, Microseconds now) const;
    void pause(VantrelEventConnection& connection, const Connections& connections);
    void forgetPausesOfOthers(const Connections& connections);

    std::atomic<bool> requested_{false};
    std::atomic<bool> lost_{false};

    Microseconds next_ = NEVER;
    Microseconds last_ = 0;
    Microseconds nextRenewal_ = 0;           // not before
    std::unordered_map<int, Pause> pauses_;  // by connection id, of those that could not be restored
};
