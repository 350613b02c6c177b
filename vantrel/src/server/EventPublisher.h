#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "CoMutex.h"
#include "CoThread.h"
#include "EventLink.h"
#include "EventQueue.h"
#include "EventRegistrations.h"
#include "NodeChange.h"
#include "ServerLimits.h"
#include "rcAppContext.h"

namespace vantreld {

/// Keeps what clients have registered for, and sends them the changes on a thread of its own, which starts
/// with the first registration. A client that is slow or dead delays no other. Thread-safe.
class EventPublisher : public NodeObserver {
  public:
    static constexpr unsigned DEFAULT_UNREACHABLE_MS = 30000;

    struct Settings {
        /// A client that could not be connected to for so long loses its registrations.
        unsigned unreachableMs = DEFAULT_UNREACHABLE_MS;
        std::size_t maxClients = MAX_EVENT_CLIENTS;
        std::size_t maxRegistrations = MAX_EVENT_REGISTRATIONS;
        EventQueue::Limits queue{MAX_QUEUED_EVENTS, MAX_QUEUED_EVENT_BYTES};
    };

    EventPublisher() : EventPublisher(Settings{}) {}
    explicit EventPublisher(const Settings& settings) : settings_(settings) {}
    /// What is not sent by then is lost. It must observe no store any more.
    ~EventPublisher() override;

    /// From now on the client's connection is sent the changes of the node. Registering again changes
    /// nothing. CoException when there are too many registrations already; what the system throws when it has
    /// no thread to give. Nothing is registered then.
    void registerEvents(const EventAddress& client, int connection, std::int64_t node);
    /// Success, too, when there was no such registration.
    void unregisterEvents(const EventAddress& client, int connection, std::int64_t node);

    void nodeChanged(const NodeChange& change) noexcept override;
    void nodesDestroyed(const std::vector<std::int64_t>& nodes) noexcept override;

    std::size_t numRegistrations() const;

  private:
    using ClientId = EventRegistrations::ClientId;
    using Target = EventRegistrations::Target;
    using Microseconds = Vantrel::CoTime::Microseconds;
    struct Client {
        EventAddress address;
        std::shared_ptr<EventQueue> queue;
        Microseconds unusedSince = 0;  ///< 0: it has registrations
    };
    using Clients = std::map<ClientId, Client>;

    void startThread() CO_REQUIRES(mutex_);
    ClientId addClient(const EventAddress& address) CO_REQUIRES(mutex_);
    void noteIfUnused(ClientId id) CO_REQUIRES(mutex_);
    Clients::iterator forget(Clients::iterator client) CO_REQUIRES(mutex_);
    void publish(const NodeChange& change) CO_REQUIRES(mutex_);

    void wake();
    void run();
    Microseconds followClients(Microseconds now) CO_EXCLUDES(mutex_);
    Microseconds advanceLinks(Microseconds now) CO_EXCLUDES(mutex_);
    void removeUnreachable(ClientId id, const EventLink& link) CO_EXCLUDES(mutex_);
    void removeConnection(const Target& target) CO_EXCLUDES(mutex_);

    const Settings settings_;
    std::atomic<bool> stopped_{false};
    std::atomic<bool> woken_{false};  ///< the thread has yet to look

    mutable Vantrel::CoMutex mutex_;
    EventRegistrations registrations_ CO_GUARDED_BY(mutex_);
    Clients clients_ CO_GUARDED_BY(mutex_);
    std::map<EventAddress, ClientId> ids_ CO_GUARDED_BY(mutex_);
    ClientId lastId_ CO_GUARDED_BY(mutex_) = 0;

    // The thread's.
    Vantrel::rcAppContext loop_;
    std::map<ClientId, std::unique_ptr<EventLink>> links_;

    std::unique_ptr<Vantrel::CoThread> thread_ CO_GUARDED_BY(mutex_);  ///< last: it uses all the others
};

}  // namespace vantreld
