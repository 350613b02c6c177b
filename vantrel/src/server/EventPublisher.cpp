#include "EventPublisher.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "CoException.h"
#include "CoMsg.h"
#include "NodeIds.h"
#include "rcAttrStream.h"

namespace vantreld {

using Vantrel::CoException;
using Vantrel::coFormat;
using Vantrel::CoLock;
using Vantrel::CoThread;
using Vantrel::CoTime;

namespace {

/// A client that registers again, as clients do after their connection was lost, or watches one node after
/// the other, keeps its event connection.
constexpr CoTime::Microseconds KEEP_UNUSED = 5 * CoTime::PER_SECOND;

/// The earlier of two times; 0 is none.
CoTime::Microseconds earlier(CoTime::Microseconds a, CoTime::Microseconds b) {
    return a == 0 || b == 0 ? a + b : std::min(a, b);
}

std::shared_ptr<const std::string> eventArgument(const NodeChange& change) {
    Vantrel::rcAttrStream stream;
    stream.addStringValue("NodeId", std::string_view(nodeIdText(change.node)));
    stream.addStringValue("Type", change.type);
    stream.addStringValue("Details", std::string_view(change.details));
    return std::make_shared<const std::string>(stream.text());
}

}  // namespace

EventPublisher::~EventPublisher() = default;

// --- Registrations ---

void EventPublisher::registerEvents(const EventAddress& client, int connection, std::int64_t node) {
    const CoLock lock(mutex_);
    const auto known = ids_.find(client);
    if (known != ids_.end() && registrations_.has({known->second, connection}, node)) return;
    if (registrations_.size() >= settings_.maxRegistrations)
        throw CoException(coFormat("Cannot register for events: this server keeps at most %zu registrations.",
                                   settings_.maxRegistrations));
    startThread();  // may throw: nothing is registered then
    const ClientId id = known != ids_.end() ? known->second : addClient(client);
    registrations_.add({id, connection}, node);
    clients_.at(id).unusedSince = 0;
    wake();
}

void EventPublisher::startThread() {
    if (thread_) return;
    thread_ = std::make_unique<CoThread>(
        "VT Events", [this] { run(); },
        [this] {
            stopped_ = true;
            loop_.cancel();
        });
}

EventPublisher::ClientId EventPublisher::addClient(const EventAddress& address) {
    if (clients_.size() >= settings_.maxClients) {
        const auto unused = std::find_if(clients_.begin(), clients_.end(),
                                         [](const auto& client) { return client.second.unusedSince != 0; });
        if (unused == clients_.end())
            throw CoException(
                coFormat("Cannot register for events: this server has %zu clients for them already.",
                         clients_.size()));
        forget(unused);
    }
    ++lastId_;
    clients_[lastId_] = {address, std::make_shared<EventQueue>(settings_.queue)};
    ids_[address] = lastId_;
    return lastId_;
}

void EventPublisher::unregisterEvents(const EventAddress& client, int connection, std::int64_t node) {
    const CoLock lock(mutex_);
    const auto known = ids_.find(client);
    if (known == ids_.end()) return;
    const ClientId id = known->second;
    registrations_.remove({id, connection}, node);
    noteIfUnused(id);
}

void EventPublisher::noteIfUnused(ClientId id) {
    const auto client = clients_.find(id);
    if (client == clients_.end() || registrations_.hasClient(id)) return;
    client->second.unusedSince = CoTime::getTime();
    wake();
}

EventPublisher::Clients::iterator EventPublisher::forget(Clients::iterator client) {
    ids_.erase(client->second.address);
    return clients_.erase(client);
}

void EventPublisher::removeConnection(const Target& target) {
    const CoLock lock(mutex_);
    registrations_.removeConnection(target);
    noteIfUnused(target.client);
}

void EventPublisher::removeUnreachable(ClientId id, const EventLink& link) {
    std::size_t removed = 0;
    {
        const CoLock lock(mutex_);
        removed = registrations_.removeClient(id);
        const auto client = clients_.find(id);
        if (client != clients_.end()) forget(client);
        wake();
    }
    CO_MSG_WARNING("Client %s cannot be reached for %u ms (%s): its %zu event registrations are removed",
                   link.address().text().c_str(), settings_.unreachableMs, link.reason().c_str(), removed);
}

std::size_t EventPublisher::numRegistrations() const {
    const CoLock lock(mutex_);
    return registrations_.size();
}

// --- Changes ---

void EventPublisher::nodeChanged(const NodeChange& change) noexcept try {
    const CoLock lock(mutex_);
    publish(change);
} catch (const std::exception& error) {
    CO_MSG_ERROR("Event %s of node %s is lost: %s", change.type, nodeIdText(change.node).c_str(),
                 error.what());
}

void EventPublisher::nodesDestroyed(const std::vector<std::int64_t>& nodes) noexcept try {
    const CoLock lock(mutex_);
    for (const std::int64_t node : nodes) {
        if (registrations_.targets(node) != nullptr) publish(NodeChange::gone(node));
    }
} catch (const std::exception& error) {
    CO_MSG_ERROR("Events of destroyed nodes are lost: %s", error.what());
}

void EventPublisher::publish(const NodeChange& change) {
    const auto* const targets = registrations_.targets(change.node);
    if (targets == nullptr) return;
    const auto argument = eventArgument(change);
    for (const Target& target : *targets)
        clients_.at(target.client).queue->push({target.connection, argument});
    wake();
}

void EventPublisher::wake() {
    if (!woken_.exchange(true)) loop_.cancel();
}

// --- The thread ---

void EventPublisher::run() {
    while (!stopped_) {
        woken_ = false;
        const CoTime::Microseconds now = CoTime::getTime();
        const CoTime::Microseconds removal = followClients(now);
        const CoTime::Microseconds next = earlier(removal, advanceLinks(now));
        if (loop_.callIOHandlersUntil(next == 0 ? Vantrel::CoEventLoop::NEVER : next) < 0) break;
    }
    links_.clear();
}

/// Makes the links those of the clients. Returns when the next unused client is to go; 0: none is.
CoTime::Microseconds EventPublisher::followClients(Microseconds now) {
    const CoLock lock(mutex_);
    Microseconds next = 0;
    for (auto client = clients_.begin(); client != clients_.end();) {
        const Microseconds unused = client->second.unusedSince;
        if (unused != 0 && now - unused >= KEEP_UNUSED) {
            client = forget(client);
            continue;
        }
        if (unused != 0) next = earlier(next, unused + KEEP_UNUSED);
        ++client;
    }
    for (auto link = links_.begin(); link != links_.end();)
        link = clients_.count(link->first) != 0 ? std::next(link) : links_.erase(link);
    for (const auto& [id, client] : clients_) {
        if (links_.count(id) != 0) continue;
        links_[id] =
            std::make_unique<EventLink>(loop_, client.address, client.queue, [this, id = id](int connection) {
                removeConnection({id, connection});
            });
    }
    return next;
}

/// Returns when one of them wants to go on, though nothing happens; 0: none.
CoTime::Microseconds EventPublisher::advanceLinks(Microseconds now) {
    Microseconds next = 0;
    for (const auto& [id, link] : links_) {
        link->advance(now);
        if (link->unreachableFor(now) >= settings_.unreachableMs * CoTime::PER_MILLISECOND) {
            removeUnreachable(id, *link);
        } else {
            next = earlier(next, link->nextTime());
        }
    }
    return next;
}

}  // namespace vantreld
