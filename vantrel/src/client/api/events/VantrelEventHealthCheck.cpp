#include "VantrelEventHealthCheck.h"

#include <algorithm>

using Vantrel::CoTime;

namespace {

// How often connections are checked: as a rule, and at most.
constexpr CoTime::Microseconds INTERVAL = CoTime::PER_SECOND;
constexpr CoTime::Microseconds SHORTEST_INTERVAL = 100 * CoTime::PER_MILLISECOND;

// Pauses between attempts to restore a connection.
constexpr unsigned FIRST_PAUSE_MS = 1000;
constexpr unsigned LONGEST_PAUSE_MS = 30000;

}  // namespace

void VantrelEventHealthCheck::registrationsMayBeLost() {
    lost_ = true;
    request();
}

VantrelEventHealthCheck::Microseconds VantrelEventHealthCheck::due(Microseconds now) {
    if (requested_.exchange(false)) next_ = std::min(next_, std::max(now, last_ + SHORTEST_INTERVAL));
    return next_;
}

void VantrelEventHealthCheck::run(Microseconds now, const Connections& connections, const Restore& restore) {
    last_ = now;
    next_ = NEVER;
    renewAfterLoss(now, connections);
    forgetPausesOfOthers(connections);
    for (const auto& connection : connections) {
        if (!connection->hasHandlers()) continue;
        next_ = now + INTERVAL;
        if (isPaused(*connection, now)) continue;
        if (restore(connection)) {
            pauses_.erase(connection->getId());
            continue;
        }
        pause(*connection, connections);
        // The attempt took time: first the events that came in it, then the other connections.
        next_ = now;
        return;
    }
}

/// At intervals, however many servers come and go.
void VantrelEventHealthCheck::renewAfterLoss(Microseconds now, const Connections& connections) {
    if (now < nextRenewal_ || !lost_.exchange(false)) return;
    nextRenewal_ = now + INTERVAL;
    for (const auto& connection : connections) connection->registrations().renewLater();
}

bool VantrelEventHealthCheck::isPaused(const VantrelEventConnection& connection, Microseconds now) const {
    const auto found = pauses_.find(connection.getId());
    return found != pauses_.end() && now < found->second.end;
}

/// With all connections to the same server.
void VantrelEventHealthCheck::pause(VantrelEventConnection& connection, const Connections& connections) {
    Pause longer = pauses_[connection.getId()];
    longer.lengthMs = std::clamp(2 * longer.lengthMs, FIRST_PAUSE_MS, LONGEST_PAUSE_MS);
    longer.end = CoTime::getTime() + longer.lengthMs * CoTime::PER_MILLISECOND;
    const VantrelClientConnection* const client = &connection.registrations().client();
    for (const auto& other : connections) {
        if (&other->registrations().client() == client) pauses_[other->getId()] = longer;
    }
}

void VantrelEventHealthCheck::forgetPausesOfOthers(const Connections& connections) {
    for (auto pause = pauses_.begin(); pause != pauses_.end();) {
        const bool known =
            std::any_of(connections.begin(), connections.end(),
                        [&pause](const auto& connection) { return connection->getId() == pause->first; });
        pause = known ? std::next(pause) : pauses_.erase(pause);
    }
}
