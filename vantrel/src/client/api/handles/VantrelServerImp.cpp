#include "VantrelServerImp.h"

#include <exception>
#include <utility>

#include "CoObserverList.h"
#include "CoPerProcess.h"
#include "CoProcess.h"
#include "VantrelEventMonitor.h"
#include "VantrelInitCounter.h"

namespace {

constexpr const char* NO_HANDLERS = "No event handler is registered";

/// Those that have a frame client.
using FrameUsers = Vantrel::CoPerProcess<Vantrel::CoObserverList<VantrelServerImp>>;

std::atomic<std::uint64_t> lastSerial{0};

}  // namespace

VantrelServerImp::VantrelServerImp(const VantrelServerId& serverId)
    : serverId_(serverId), serial_(++lastSerial), frameTarget_(*this), rawData_(frameTarget_) {
    serverId_.getId();  // builds its text now, so that threads may read it at the same time later
}

// The events go first: handlers that run until then may use everything else.
VantrelServerImp::~VantrelServerImp() {
    VantrelEventConnection::release(std::move(events_));
    if (frameUserOf_) FrameUsers::get().remove(this);
}

// --- Calls ---

VantrelServerImp::CallLock::CallLock(VantrelServerImp& server)
    : call_(server.stops_), connectionCall_(server.connectionStops()), lock_(server.mutex_) {}

// The connection is taken before the call waits for its turn, so that a stop of it at any moment counts.
const VantrelStops* VantrelServerImp::connectionStops() {
    return init() ? &connectionNow_.load()->stops() : nullptr;
}

bool VantrelServerImp::begin() {
    if (!init()) return false;
    if (!stops_.isCallStopped()) return true;
    lastFailure_ = stopped();
    return false;
}

// Of a call that was stopped while it waited for its turn.
VantrelFailure VantrelServerImp::stopped() const {
    return {stops_.reason(), VANTREL_ERROR_STOPPED, false};
}

bool VantrelServerImp::init() {
    if (!VantrelInitCounter::handlesMayWork()) {
        setLastError(VANTREL_ERROR_NOT_INITIALIZED, VantrelInitCounter::NOT_INITIALIZED);
        return false;
    }
    if (connectionNow_) return true;
    const Lock lock(*this);
    if (connectionNow_) return true;
    try {
        connection_.reset(&serverId_);
    } catch (const std::exception& error) {
        lastFailure_ = {error.what(), VANTREL_ERROR_NOT_INITIALIZED, false};
        return false;
    }
    baseClient_.emplace(*connection_.get(), lastFailure_, limits_);
    nodeClient_.emplace(*connection_.get(), lastFailure_, limits_);
    connectionNow_ = connection_.get();
    return true;
}

VantrelServerImp::Session::Session(VantrelServerImp* server) {
    if (!server) return;
    lock_.emplace(*server);
    server->mutex_.assertHeld();
    if (!server->begin()) return;
    nodes_ = &*server->nodeClient_;
    base_ = &*server->baseClient_;
}

bool VantrelServerImp::isConnected() const {
    const VantrelClientConnection* connection = connectionNow_;
    return connection && connection->isConnected();
}

void VantrelServerImp::disconnect() {
    const VantrelStops::Barrier barrier(stops_, VantrelStops::textOf(nullptr));
    stop(nullptr);  // a thread that is in a call leaves it, and releases the lock
    const Lock lock(*this);
    if (frameClient_) frameClient_->disconnect();
    if (VantrelClientConnection* connection = connectionNow_) connection->disconnect();
}

// Those of the handle's calls that wait for its lock know of it by `stops_`, those that are past that by the
// connection that they are on.
void VantrelServerImp::stop(const char* reason) {
    stops_.stop(VantrelStops::textOf(reason));
    if (VantrelClientConnection* connection = connectionNow_) connection->stop(reason);
    if (VantrelFrameClientAPI* frames = frameClientNow_) frames->stop();
}

void VantrelServerImp::stopAllTransfers() {
    FrameUsers::get().notify("Ending frame transfers", [](VantrelServerImp& server) {
        if (VantrelFrameClientAPI* frames = server.frameClientNow_) frames->stop();
    });
}

void VantrelServerImp::disconnectAll() {
    FrameUsers::get().notify("Closing frame connections",
                             [](VantrelServerImp& server) { server.disconnect(); });
}

VantrelFailure VantrelServerImp::lastFailure() const {
    const Lock lock(*this);
    return lastFailure_;
}

void VantrelServerImp::setLastError(VantrelErrorCode code, std::string text) {
    const Lock lock(*this);
    lastFailure_ = {std::move(text), code, false};
}

// --- Events ---

// A connection is of no use any more when the library was shut down since it was opened, or when this is a
// forked child. It becomes `old`, to be released without the lock: that waits for a handler, which may want
// it.
VantrelEventConnection& VantrelServerImp::eventConnection(EventConnection& old) {
    if (!events_ || !events_->isOpen()) {
        old = std::exchange(events_, nullptr);
        events_ = VantrelEventMonitor::open(connection_);
    }
    return *events_;
}

bool VantrelServerImp::registerEventHandler(const VantrelNodeId& nodeId, VantrelNodeEvent::Handler* handler,
                                            const char* format, const char* meta) {
    EventConnection old;
    EventConnection events;
    bool ok = false;
    {
        const CallLock lock(*this);
        if (!begin()) return false;
        try {
            ok = eventConnection(old).registerEventHandler(nodeId, handler, format, meta);
            if (!ok) lastFailure_ = events_->lastFailure();
        } catch (const std::exception& error) {
            lastFailure_ = VantrelFailure::of(error);
        }
        events = events_;
    }
    VantrelEventConnection::release(std::move(old));
    // An event may have come between the attempt and its failure.
    if (!ok && events) events->awaitHandler(handler);
    return ok;
}

bool VantrelServerImp::unregisterEventHandler(const VantrelNodeId& nodeId,
                                              const VantrelNodeEvent::Handler* handler) {
    EventConnection events;
    bool ok = false;
    {
        const CallLock lock(*this);
        const bool mayWork = init();
        if (!events_) {
            if (mayWork) lastFailure_ = {NO_HANDLERS, VANTREL_ERROR_NOT_FOUND, false};
            return false;
        }
        events = events_;
        ok = events->unregisterEventHandler(nodeId, handler);
        if (!ok) lastFailure_ = events->lastFailure();
    }
    events->awaitHandler(handler);
    return ok;
}

// --- Daemon info ---

std::shared_ptr<const VantrelDaemonInfo> VantrelServerImp::daemonInfo() {
    const CallLock lock(*this);
    // The first answer may be the connection's; one that went stale is not asked of it again.
    const bool ok = begin() && baseClient_->getDaemonInfo(daemonInfo_, daemonInfo_ && daemonInfoStale_);
    daemonInfoStale_ = !ok;
    return ok ? daemonInfo_ : nullptr;
}

bool VantrelServerImp::protocolVersion(VantrelVersion& version) {
    const auto info = daemonInfo();
    if (info) version = VantrelVersion::ofProtocol(*info);
    return info != nullptr;
}

bool VantrelServerImp::requireVersion(const VantrelVersion& needed, const std::string& refusal) {
    VantrelVersion version{};
    if (!protocolVersion(version)) return false;
    if (version >= needed) return true;
    setLastError(VANTREL_ERROR_NOT_SUPPORTED, refusal);
    return false;
}

// --- Frames ---

VantrelFrameClientAPI& VantrelServerImp::frameApi() {
    if (!begin()) throw VantrelFailureException(lastFailure_);
    if (!frameClient_) {
        const auto info = daemonInfo();
        if (!info) throw VantrelFailureException(lastFailure_);
        frameClient_ = std::make_unique<VantrelFrameClientAPI>(rawData_, *info);
        frameClientNow_ = frameClient_.get();
    }
    joinFrameUsers();
    return *frameClient_;
}

// So that the library's end is this object's connections' end, in a forked child too. The library may have
// been shut down just before.
void VantrelServerImp::joinFrameUsers() {
    const unsigned process = Vantrel::CoProcess::forkGeneration();
    if (frameUserOf_ == process) return;
    FrameUsers::get().add(this);
    frameUserOf_ = process;
    if (!init()) throw VantrelFailureException(lastFailure_);
}

// A frame connection asks on behalf of a request, which holds the lock.

bool VantrelServerImp::FrameTarget::getDaemonInfo(const VantrelDaemonInfo*& info) {
    server_.mutex_.assertHeld();
    if (!server_.daemonInfo()) return false;
    info = server_.daemonInfo_.get();
    return true;
}

void VantrelServerImp::FrameTarget::clearDaemonInfo() {
    server_.mutex_.assertHeld();
    server_.daemonInfoStale_ = true;
}

const char* VantrelServerImp::FrameTarget::lastError() const {
    server_.mutex_.assertHeld();
    return server_.lastFailure_.text.c_str();
}

VantrelErrorCode VantrelServerImp::FrameTarget::lastErrorCode() const {
    server_.mutex_.assertHeld();
    return server_.lastFailure_.code;
}
