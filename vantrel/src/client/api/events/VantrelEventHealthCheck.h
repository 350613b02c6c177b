#pragma once

#include <atomic>
#include <functional>
#include <limits>
#include <memory>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "CoTime.h"
#include "VantrelEventConnection.h"

/// Watches the servers of connections that have handlers: a process that only waits for events makes no call
/// that would find a connection lost. Says when they are to be checked next, and restores what was lost, with
/// pauses that grow while a server cannot be reached. Belongs to the port's thread, except `request`, which
/// any thread may call.
class VantrelEventHealthCheck {
  public:
    using Microseconds = Vantrel::CoTime::Microseconds;
    using Connections = std::vector<std::shared_ptr<VantrelEventConnection>>;
    using Restored = VantrelEventRegistrations::Restored;
    /// Restores one connection and its registrations.
    using Restore = std::function<Restored(const std::shared_ptr<VantrelEventConnection>&)>;
    static constexpr Microseconds NEVER = std::numeric_limits<Microseconds>::max();

    /// A check is to come soon: there is something to watch.
    void request() { requested_ = true; }
    /// A client of the port brought an event for the connection with this id.
    void delivered(unsigned clientId, int connectionId);
    /// A client has closed its connection to the port. A server that delivered events has often ended itself;
    /// or it has given up sending, and dropped what was registered with it. Which one is not known, so that
    /// what it delivered to is registered again, at intervals that grow when that goes on.
    void clientGone(unsigned clientId);

    /// When `run` is due; NEVER while there is nothing to watch.
    Microseconds due(Microseconds now);
    /// Checks the connections. An attempt to restore one that fails may take a second: it then leaves the
    /// others to the next run, which is due at once.
    void run(Microseconds now, const Connections& connections, const Restore& restore);

  private:
    /// Doubles from one use to the next.
    struct Pause {
        void extend(Microseconds from);

        unsigned lengthMs = 0;
        Microseconds end = 0;
    };
    /// What is known of a connection, by its id.
    struct Watched {
        Pause restoring;
        Pause renewing;
        bool renew = false;
    };

    void renewWhereDue(Microseconds now, VantrelEventConnection& connection);
    void pause(VantrelEventConnection& connection, const Connections& connections);
    void forgetOthers(const Connections& connections);

    std::atomic<bool> requested_{false};

    Microseconds next_ = NEVER;
    Microseconds last_ = 0;
    std::unordered_map<int, Watched> watched_;
    std::unordered_map<unsigned, std::set<int>> deliveredTo_;  // connections, by client
    std::pair<unsigned, int> lastDelivery_{};                  // is in deliveredTo_
};
