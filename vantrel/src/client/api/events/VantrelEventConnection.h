#pragma once

#include <vantrel/VantrelNodeEvent.h>

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "VantrelEventDispatcher.h"
#include "VantrelEventPort.h"
#include "VantrelEventRegistrations.h"
#include "VantrelSharedConnection.h"

/// The events of one server handle: its handlers, and their registrations with the server.
///
/// Thread safety: registering, unregistering and `lastFailure` one thread at a time (the server handle's
/// lock); everything else from any. No lock of its own is held while the server is called or a handler runs.
class VantrelEventConnection : private VantrelClientConnection::ConnectCallback {
  public:
    using Handler = VantrelNodeEvent::Handler;

    /// One whose events come in at `port`; to be ended with `release`.
    static std::shared_ptr<VantrelEventConnection> make(const std::shared_ptr<VantrelEventPort>& port,
                                                        const VantrelClientConnection::Shared& client);
    /// Closes it: deregisters from the server within DEREGISTRATION_TIME_MS and waits for a handler that
    /// runs; so not under a lock that handlers may want. In a child forked since it was made, leaves it and
    /// its parent's locks alone. `connection` may be null.
    static void release(std::shared_ptr<VantrelEventConnection> connection);
    VantrelEventConnection(const std::shared_ptr<VantrelEventPort>& port,
                           const VantrelClientConnection::Shared& client);
    ~VantrelEventConnection() override;

    /// The object id under which the server addresses it; of the process, never used twice.
    int getId() const { return id_; }
    /// False once it was closed, by `release` or by the end of the port, and in a forked child.
    bool isOpen() const { return !closed_ && !isForeign(); }

    /// Every registration is passed on to the server. On failure the handler is not registered: see
    /// `lastFailure`.
    bool registerEventHandler(const VantrelNodeId& nodeId, Handler* handler, const char* format,
                              const char* meta);
    /// The handler is removed in any case; false when it was not registered, or the server did not take the
    /// deregistration.
    bool unregisterEventHandler(const VantrelNodeId& nodeId, const Handler* handler);
    const VantrelFailure& lastFailure() const { return lastFailure_; }
    /// Waits for a call of `handler` in progress on another thread. Not under a lock that handlers may want.
    void awaitHandler(const Handler* handler) {
        if (!isForeign()) dispatcher_.awaitEnd(handler);
    }

    /// See VantrelEventDispatcher.
    void notify(VantrelNodeEvent event) { dispatcher_.notify(std::move(event)); }
    void flushQueuedEvents() { dispatcher_.flushQueuedEvents(); }
    bool hasHandlers() const { return dispatcher_.hasHandlers(); }

    /// From now on no handler is called; returns what is registered with the server.
    std::vector<VantrelEventSubject> retire();
    VantrelEventRegistrations& registrations() { return registrations_; }

    /// How long deregistrations may take, all together, when events are not wanted any more.
    static constexpr unsigned DEREGISTRATION_TIME_MS = 1000;

  private:
    void connected() override {
        if (isOpen()) registrations_.reconnected();
    }
    void close();
    bool isForeign() const;

    const int id_;
    const unsigned forkGeneration_;
    const std::weak_ptr<VantrelEventPort> port_;
    std::atomic<bool> closed_{false};
    VantrelEventDispatcher dispatcher_;
    VantrelEventRegistrations registrations_;
    VantrelFailure lastFailure_;
};
