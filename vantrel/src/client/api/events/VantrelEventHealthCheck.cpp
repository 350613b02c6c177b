#include "VantrelEventHealthCheck.h"

#include <algorithm>

using Vantrel::CoTime;

namespace {

// How often connections are checked: as a rule, and at most.
constexpr CoTime::Microseconds INTERVAL = CoTime::PER_SECOND;
constexpr CoTime::Microseconds SHORTEST_INTERVAL = 100 * CoTime::PER_MILLISECOND;

// Pauses between attempts to restore a connection, and between renewals of its registrations.
constexpr unsigned FIRST_PAUSE_MS = 1000;
constexpr unsigned LONGEST_PAUSE_MS = 30000;

}  // namespace

void VantrelEventHealthCheck::Pause::extend(Microseconds from) {
    lengthMs = std::clamp(2 * lengthMs, FIRST_PAUSE_MS, LONGEST_PAUSE_MS);
    end = from + lengthMs * CoTime::PER_MILLISECOND;
}

void VantrelEventHealthCheck::delivered(unsigned clientId, int connectionId) {
    // Asked first: most events come from the same server as the one before.
    const std::pair<unsigned, int> delivery(clientId, connectionId);
    if (delivery == lastDelivery_) return;
    deliveredTo_[clientId].insert(connectionId);
    lastDelivery_ = delivery;
}

void VantrelEventHealthCheck::clientGone(unsigned clientId) {
    const auto found = deliveredTo_.find(clientId);
    if (found == deliveredTo_.end()) return;
    for (const int connectionId : found->second) watched_[connectionId].renew = true;
    deliveredTo_.erase(found);
    lastDelivery_ = {};
    request();
}

VantrelEventHealthCheck::Microseconds VantrelEventHealthCheck::due(Microseconds now) {
    if (requested_.exchange(false)) next_ = std::min(next_, std::max(now, last_ + SHORTEST_INTERVAL));
    return next_;
}

void VantrelEventHealthCheck::run(Microseconds now, const Connections& connections, const Restore& restore) {
    last_ = now;
    next_ = now + INTERVAL;  // should this end early
    forgetOthers(connections);
    Microseconds next = NEVER;
    for (const auto& connection : connections) {
        if (!connection->hasHandlers()) continue;
        next = std::min(next, now + INTERVAL);
        if (now < watched_[connection->getId()].restoring.end) continue;
        renewWhereDue(now, *connection);
        const Restored result = restore(connection);
        if (result == Restored::Failed) {
            pause(*connection, connections);
            // The attempt took time: first the events that came in it, then the other connections.
            next_ = now;
            return;
        }
        watched_[connection->getId()].restoring = {};
        if (result == Restored::Busy) next = now + SHORTEST_INTERVAL;
    }
    next_ = next;
}

void VantrelEventHealthCheck::renewWhereDue(Microseconds now, VantrelEventConnection& connection) {
    Watched& watched = watched_[connection.getId()];
    if (!watched.renew || now < watched.renewing.end) return;
    watched.renew = false;
    // One that was left in peace for long enough starts again with the shortest pause.
    if (now > watched.renewing.end + LONGEST_PAUSE_MS * CoTime::PER_MILLISECOND) watched.renewing = {};
    watched.renewing.extend(now);
    connection.registrations().renewLater();
}

/// With all connections to the same server.
void VantrelEventHealthCheck::pause(VantrelEventConnection& connection, const Connections& connections) {
    Pause longer = watched_[connection.getId()].restoring;
    longer.extend(CoTime::getTime());
    const VantrelClientConnection* const client = &connection.registrations().client();
    for (const auto& other : connections) {
        if (&other->registrations().client() == client) watched_[other->getId()].restoring = longer;
    }
}

void VantrelEventHealthCheck::forgetOthers(const Connections& connections) {
    const auto isGone = [&connections](int id) {
        return std::none_of(connections.begin(), connections.end(),
                            [id](const auto& connection) { return connection->getId() == id; });
    };
    for (auto at = watched_.begin(); at != watched_.end();) {
        at = isGone(at->first) ? watched_.erase(at) : std::next(at);
    }
    for (auto client = deliveredTo_.begin(); client != deliveredTo_.end();) {
        std::set<int>& ids = client->second;
        for (auto id = ids.begin(); id != ids.end();) id = isGone(*id) ? ids.erase(id) : std::next(id);
        client = ids.empty() ? deliveredTo_.erase(client) : std::next(client);
    }
    if (isGone(lastDelivery_.second)) lastDelivery_ = {};
}
