#include "VantrelEventConnection.h"

#include <random>
#include <utility>

#include "CoMsg.h"
#include "CoProcess.h"

using Vantrel::coFormat;

namespace {

constexpr const char* INVALID_HANDLER = "Invalid handler pointer";
constexpr const char* CLOSED = "Event connection is closed";

/// Only the port's thread queues events, and waits for the handlers: a few at most are ever queued.
constexpr std::size_t MAX_QUEUED_EVENTS = 100000;

constexpr unsigned FIRST_IDS = 1U << 30;

/// From a random number on: a server may still send events to a process that had the port before, and
/// crashed; their ids are then unknown here.
int nextId() {
    static std::atomic<int> last{static_cast<int>(std::random_device()() % FIRST_IDS)};
    return ++last;
}

}  // namespace

// --- Opening and closing ---

std::shared_ptr<VantrelEventConnection> VantrelEventConnection::make(
    const std::shared_ptr<VantrelEventPort>& port, const VantrelClientConnection::Shared& client) {
    auto connection = std::make_shared<VantrelEventConnection>(port, client);
    client->addConnectCallback(connection.get());
    return connection;
}

VantrelEventConnection::VantrelEventConnection(const std::shared_ptr<VantrelEventPort>& port,
                                               const VantrelClientConnection::Shared& client)
    : id_(nextId()),
      forkGeneration_(Vantrel::CoProcess::forkGeneration()),
      port_(port),
      dispatcher_(MAX_QUEUED_EVENTS),
      registrations_(port, id_, client, dispatcher_) {}

VantrelEventConnection::~VantrelEventConnection() {
    registrations_.client().removeConnectCallback(this);
}

void VantrelEventConnection::release(std::shared_ptr<VantrelEventConnection> connection) {
    if (!connection) return;
    if (connection->isForeign()) {
        // Its locks may be held by threads that exist only in the parent: it is never destroyed.
        static_cast<void>(new std::shared_ptr<VantrelEventConnection>(std::move(connection)));
    } else {
        connection->close();
    }
}

void VantrelEventConnection::close() {
    // Handlers of this connection that run on other threads may want the server's answer, or a lock of their
    // program: nothing is held here.
    registrations_.remove(retire(), Vantrel::CoDeadline(DEREGISTRATION_TIME_MS));
    registrations_.client().removeConnectCallback(this);
    if (const auto port = port_.lock()) port->removeConnection(id_);
    dispatcher_.awaitEnd(nullptr);
}

std::vector<VantrelEventSubject> VantrelEventConnection::retire() {
    closed_ = true;
    registrations_.close();
    return dispatcher_.removeAll();
}

bool VantrelEventConnection::isForeign() const {
    return forkGeneration_ != Vantrel::CoProcess::forkGeneration();
}

// --- Handlers ---

bool VantrelEventConnection::registerEventHandler(const VantrelNodeId& nodeId, Handler* handler,
                                                  const char* format, const char* meta) {
    CO_MSG_DEBUG("Registering event handler %p for '%s'", static_cast<void*>(handler), nodeId.id());
    const auto port = port_.lock();
    if (!handler || !isOpen() || !port) {
        if (handler) lastFailure_ = {CLOSED, VANTREL_ERROR_NOT_INITIALIZED, false};
        if (!handler) lastFailure_ = {INVALID_HANDLER, VANTREL_ERROR_INVALID_ARGUMENT, false};
        return false;
    }
    const VantrelEventSubject subject{nodeId.id(), format ? format : "", meta ? meta : ""};
    // Before the server knows: its first event may come before its answer.
    const auto addition = dispatcher_.add(subject, handler);
    if (registrations_.add(subject, lastFailure_)) {
        port->watchSoon();
        return true;
    }
    dispatcher_.undo(subject, handler, addition);
    return false;
}

bool VantrelEventConnection::unregisterEventHandler(const VantrelNodeId& nodeId, const Handler* handler) {
    if (isForeign()) {
        lastFailure_ = {CLOSED, VANTREL_ERROR_NOT_INITIALIZED, false};
        return false;
    }
    const auto removal = dispatcher_.remove(nodeId.id(), handler);
    if (removal == VantrelEventDispatcher::Removal::Unknown) {
        lastFailure_ = {coFormat("Event handler %p is not registered for '%s'",
                                 static_cast<const void*>(handler), nodeId.id()),
                        VANTREL_ERROR_NOT_FOUND, false};
        return false;
    }
    if (removal == VantrelEventDispatcher::Removal::OthersLeft || !isOpen()) return true;
    return registrations_.remove(nodeId, lastFailure_);
}
