#pragma once

#include <vantrel/VantrelNodeEvent.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "VantrelBaseClientAPI.h"
#include "VantrelEventDispatcher.h"
#include "VantrelEventMonitor.h"
#include "VantrelSharedConnection.h"

/// The events of one server handle: its handlers, and their registrations with the server, which are made
/// again whenever the connection to it was lost and is up again. It holds its reference to that connection,
/// so that the cache does not drop it while handlers wait for events.
///
/// Thread safety: registering, unregistering and `lastError` one thread at a time (the server handle's lock);
/// everything else from any. No lock of its own is held while the server is called or a handler runs.
class VantrelEventMonitor::Connection : private VantrelClientConnection::ConnectCallback {
  public:
    using Handler = VantrelNodeEvent::Handler;

    /// A connection that the monitor knows; throws CoException when the monitor is of no use. To be let go
    /// with letGo().
    static std::shared_ptr<Connection> open(const VantrelClientConnection::Shared& client);
    /// Closes it, telling the server within FAREWELL_TIME_MS and waiting for a handler that runs; so not
    /// under a lock that handlers may want. In a child forked since, leaves it and its parent's locks alone.
    /// `connection` may be null.
    static void letGo(std::shared_ptr<Connection> connection);
    ~Connection() override;

    /// The object id under which the server addresses it; of the process, never used twice.
    int getId() const { return id_; }
    /// False once it was closed, by letGo or by the end of the monitor, and in a forked child.
    bool isOpen() const;

    /// The server is told of every registration. On failure the handler is not registered: see `lastError`.
    bool registerEventHandler(const VantrelNodeId& nodeId, Handler* handler, const char* format,
                              const char* meta);
    /// The handler is removed in any case; false when it was not registered, or the server not told.
    bool unregisterEventHandler(const VantrelNodeId& nodeId, const Handler* handler);
    const char* lastError() const { return lastError_.c_str(); }
    /// Waits for a call of `handler` in progress on another thread. Not under a lock that handlers may want.
    void awaitHandler(const Handler* handler) {
        if (!isForeign()) dispatcher_.awaitEnd(handler);
    }

    /// See VantrelEventDispatcher.
    void notify(VantrelNodeEvent event) { dispatcher_.notify(std::move(event)); }
    void flushQueuedEvents() { dispatcher_.flushQueuedEvents(); }

    /// Registers everything with the server again, logging failures; they are left to `restore`.
    void reconnect();

    // --- For the monitor ---

    bool hasHandlers() const { return dispatcher_.hasHandlers(); }
    VantrelClientConnection& client() const { return *client_.get(); }
    /// Connects again when the connection was lost, registers again what failed before, or, after
    /// `renewLater`, all; false when anything fails. May take a second and more.
    bool restore();
    /// From now on no handler is called; returns what is registered with the server.
    std::vector<VantrelEventSubject> retire();
    /// The server may have dropped what is registered with it.
    void renewLater() { renewal_ = true; }
    /// Tells the server, while the connection is up and `limit` has not passed.
    void unregister(const std::vector<VantrelEventSubject>& subjects, const Vantrel::CoDeadline& limit);

    /// When `restore` is to be tried next: pauses grow while it fails. The monitor thread's.
    struct Pause {
        unsigned lengthMs = 0;
        Vantrel::CoTime::Microseconds end = 0;
    };
    Pause pause;

  private:
    Connection(const std::shared_ptr<VantrelEventMonitor>& monitor,
               const VantrelClientConnection::Shared& client);

    void connected() override {
        if (isOpen()) reconnect();
    }
    void close();
    bool isForeign() const;
    enum class Again { AfterLoss, Renewal, AfterRefusal };
    bool registerAgain(const std::vector<VantrelEventSubject>& subjects, Again occasion);
    bool registerNow(VantrelBaseClientAPI& api, const VantrelEventSubject& subject, Again occasion) const;
    unsigned answerLimitMs() const;
    std::vector<VantrelEventSubject> refusedSubjects() const;

    const int id_;
    const unsigned forkGeneration_;
    const unsigned port_;
    const std::weak_ptr<VantrelEventMonitor> monitor_;
    const VantrelClientConnection::Shared client_;
    std::atomic<bool> closed_{false};
    VantrelEventDispatcher dispatcher_;
    std::string lastError_;
    std::atomic<unsigned> reconnections_{0};
    bool renewal_ = false;  // the monitor thread's

    mutable std::mutex refusedMutex_;  // guards refused_
    std::set<std::string> refused_;    // nodes that could not be registered again
};
