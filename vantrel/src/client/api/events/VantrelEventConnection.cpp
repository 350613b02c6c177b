#include "VantrelEventConnection.h"

#include <algorithm>
#include <limits>
#include <random>
#include <utility>

#include "CoException.h"
#include "CoMsg.h"
#include "CoProcess.h"
#include "VantrelInitCounter.h"
#include "VantrelSettings.h"

using Vantrel::coFormat;
using Vantrel::CoMsg;

namespace {

constexpr const char* INVALID_HANDLER = "Invalid handler pointer";
constexpr const char* CLOSED = "Event connection is closed";

/// Long for a network, short for those whose events wait meanwhile.
constexpr unsigned RESTORE_TIMEOUT_MS = 1000;

constexpr unsigned FIRST_IDS = 1U << 30;

/// From a random number on: what a server still sends to a process that had the port before, and crashed, is
/// told from what this one wants.
int nextId() {
    static std::atomic<int> last{static_cast<int>(std::random_device()() % FIRST_IDS)};
    return ++last;
}

}  // namespace

// --- Opening and closing ---

VantrelEventMonitor::Connection::Connection(const std::shared_ptr<VantrelEventMonitor>& monitor,
                                            const VantrelClientConnection::Shared& client)
    : id_(nextId()),
      forkGeneration_(Vantrel::CoProcess::forkGeneration()),
      port_(static_cast<unsigned>(monitor->getPort())),
      monitor_(monitor),
      client_(client),
      dispatcher_(static_cast<std::size_t>(VantrelSettings::maxQueuedEvents.get())) {}

VantrelEventMonitor::Connection::~Connection() {
    client_->removeConnectCallback(this);
}

std::shared_ptr<VantrelEventMonitor::Connection> VantrelEventMonitor::Connection::open(
    const VantrelClientConnection::Shared& client) {
    const auto monitor = VantrelEventMonitor::getInstance(false);
    if (!monitor->isUsable()) throw Vantrel::CoException(NOT_USABLE);
    std::shared_ptr<Connection> connection(new Connection(monitor, client));
    if (!monitor->addConnection(connection)) throw Vantrel::CoException(VantrelInitCounter::NOT_INITIALIZED);
    client->addConnectCallback(connection.get());
    return connection;
}

void VantrelEventMonitor::Connection::letGo(std::shared_ptr<Connection> connection) {
    if (!connection) return;
    if (connection->isForeign()) {
        // Its locks may be held by threads that exist only in the parent: it is never destroyed.
        static_cast<void>(new std::shared_ptr<Connection>(std::move(connection)));
    } else {
        connection->close();
    }
}

void VantrelEventMonitor::Connection::close() {
    // Handlers of this connection that run on other threads may want the server's answer, or a lock of their
    // program: nothing is held here.
    unregister(retire(), Vantrel::CoDeadline(FAREWELL_TIME_MS));
    client_->removeConnectCallback(this);
    if (const auto monitor = monitor_.lock()) monitor->removeConnection(id_);
    dispatcher_.awaitEnd(nullptr);
}

std::vector<VantrelEventSubject> VantrelEventMonitor::Connection::retire() {
    closed_ = true;
    return dispatcher_.removeAll();
}

bool VantrelEventMonitor::Connection::isForeign() const {
    return forkGeneration_ != Vantrel::CoProcess::forkGeneration();
}

bool VantrelEventMonitor::Connection::isOpen() const {
    return !closed_ && !isForeign();
}

// --- Handlers ---

bool VantrelEventMonitor::Connection::registerEventHandler(const VantrelNodeId& nodeId, Handler* handler,
                                                           const char* format, const char* meta) {
    CO_MSG_DEBUG("Registering event handler %p for '%s'", static_cast<void*>(handler), nodeId.id());
    const auto monitor = monitor_.lock();
    if (!handler || !isOpen() || !monitor) {
        lastError_ = handler ? CLOSED : INVALID_HANDLER;
        return false;
    }
    const VantrelEventSubject subject{nodeId.id(), format ? format : "", meta ? meta : ""};
    // Before the server knows: its first event may come before its answer.
    const auto addition = dispatcher_.add(subject, handler);
    VantrelBaseClientAPI api(*client_.get());
    if (api.registerEventsOn(port_, id_, subject)) {
        monitor->wakeUp();
        return true;
    }
    dispatcher_.undo(subject, handler, addition);
    lastError_ = api.lastError();
    return false;
}

bool VantrelEventMonitor::Connection::unregisterEventHandler(const VantrelNodeId& nodeId,
                                                             const Handler* handler) {
    if (isForeign()) {
        lastError_ = CLOSED;
        return false;
    }
    const auto removal = dispatcher_.remove(nodeId.id(), handler);
    if (removal == VantrelEventDispatcher::Removal::Unknown) {
        lastError_ = coFormat("Event handler %p is not registered for '%s'",
                              static_cast<const void*>(handler), nodeId.id());
        return false;
    }
    if (removal == VantrelEventDispatcher::Removal::OthersLeft || !isOpen()) return true;
    VantrelBaseClientAPI api(*client_.get());
    if (api.unregisterEventsOn(port_, id_, nodeId)) return true;
    lastError_ = api.lastError();
    return false;
}

void VantrelEventMonitor::Connection::unregister(const std::vector<VantrelEventSubject>& subjects,
                                                 const Vantrel::CoDeadline& limit) {
    VantrelBaseClientAPI api(*client_.get());
    for (const VantrelEventSubject& subject : subjects) {
        // Nobody connects to a server only to say good-bye.
        const unsigned leftMs = limit.leftMs();
        if (!client_->isConnected() || leftMs == 0) return;
        if (!api.unregisterEventsOn(port_, id_, VantrelNodeId(subject.nodeId.c_str()), leftMs)) {
            CO_MSG_NOTICE("Could not unregister from the events of '%s': %s", subject.nodeId.c_str(),
                          api.lastError());
        }
    }
}

// --- After a loss ---

void VantrelEventMonitor::Connection::reconnect() {
    // Taken now, under the connection's lock: what is unregistered from here on is sent after this.
    const auto subjects = dispatcher_.subjects();
    {
        const std::lock_guard<std::mutex> lock(refusedMutex_);
        refused_.clear();
    }
    registerAgain(subjects, Again::AfterLoss);
    ++reconnections_;
}

/// How long the server may take for an answer. The monitor's thread has events to serve.
unsigned VantrelEventMonitor::Connection::answerLimitMs() const {
    const auto monitor = monitor_.lock();
    return monitor && monitor->isOwnThread() ? RESTORE_TIMEOUT_MS : std::numeric_limits<unsigned>::max();
}

bool VantrelEventMonitor::Connection::registerNow(VantrelBaseClientAPI& api,
                                                  const VantrelEventSubject& subject, Again occasion) const {
    const VantrelNodeId nodeId(subject.nodeId.c_str());
    const unsigned limitMs = answerLimitMs();
    // Unregistering first: the server may not have noticed the loss. One that restarted has nothing to
    // unregister, and may say so. A renewal must not miss events where the registration still stands.
    if (occasion != Again::Renewal && !api.unregisterEventsOn(port_, id_, nodeId, limitMs) &&
        !client_->isConnected())
        return false;
    if (!api.registerEventsOn(port_, id_, subject, limitMs)) return false;
    if (dispatcher_.subject(subject.nodeId)) return true;
    // The last handler has gone meanwhile, and its unregistration may have come before.
    api.unregisterEventsOn(port_, id_, nodeId, limitMs);
    // Or another has come, and its registration was just undone.
    const auto wanted = dispatcher_.subject(subject.nodeId);
    return !wanted || api.registerEventsOn(port_, id_, *wanted, limitMs);
}

/// What the server refuses is kept in refused_.
bool VantrelEventMonitor::Connection::registerAgain(const std::vector<VantrelEventSubject>& subjects,
                                                    Again occasion) {
    const int logLevel = occasion == Again::AfterRefusal ? CoMsg::DEBUG : CoMsg::ERROR;
    VantrelBaseClientAPI api(*client_.get());
    bool all = true;
    for (const VantrelEventSubject& subject : subjects) {
        const bool ok = registerNow(api, subject, occasion);
        if (!ok) {
            CO_MSG_AT(logLevel, "Could not register again for the events of '%s': %s", subject.nodeId.c_str(),
                      api.lastError());
        }
        if (!client_->isConnected()) return false;  // lost again: everything starts anew when it is back
        all = all && ok;
        const std::lock_guard<std::mutex> lock(refusedMutex_);
        if (ok) {
            refused_.erase(subject.nodeId);
        } else {
            refused_.insert(subject.nodeId);
        }
        if (closed_) break;
    }
    return all;
}

std::vector<VantrelEventSubject> VantrelEventMonitor::Connection::refusedSubjects() const {
    const std::lock_guard<std::mutex> lock(refusedMutex_);
    if (refused_.empty()) return {};
    auto subjects = dispatcher_.subjects();
    const auto isFine = [this](const VantrelEventSubject& subject) {
        return refused_.count(subject.nodeId) == 0;
    };
    subjects.erase(std::remove_if(subjects.begin(), subjects.end(), isFine), subjects.end());
    return subjects;
}

bool VantrelEventMonitor::Connection::restore() {
    const unsigned reconnectionsBefore = reconnections_;
    if (!client_->restore(RESTORE_TIMEOUT_MS)) return false;
    // Not connected now: whoever is connecting registers, and if the connection was closed on purpose,
    // whoever opens it.
    if (!client_->isConnected()) return true;
    const bool renewing = std::exchange(renewal_, false);
    if (reconnections_ != reconnectionsBefore) return refusedSubjects().empty();
    return renewing ? registerAgain(dispatcher_.subjects(), Again::Renewal)
                    : registerAgain(refusedSubjects(), Again::AfterRefusal);
}
