// The discovery agent's thread: what arrives, what is known by it, what is forgotten.

#include "VantrelMulticastClient.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <limits>
#include <utility>

#include "CoDeferral.h"
#include "CoMsg.h"
#include "CoProcess.h"
#include "QdDsoMgr.h"
#include "VantrelDaemonHost.h"
#include "VantrelMulticastTime.h"
#include "VantrelSettings.h"

using Vantrel::CoDeferral;
using Vantrel::coErrorText;
using Vantrel::CoNetworkDispatcher;
using Vantrel::coPrintable;
using Vantrel::CoTime;
using Vantrel::rcAttrStream;
using Change = VantrelKnownServers::Change;
using Protocol = VantrelMulticastProtocol;

namespace {

constexpr const char* THREAD_NAME = "VT Multicast";
constexpr char WAKE_BYTE = '\n';
constexpr const char* DEFAULT_DATABASE = "SXAFS";
/// Datagrams taken from one socket before the others, the clock and a stop are looked at again.
constexpr unsigned MAX_DATAGRAMS_PER_WAKE = 64;
/// An interface that came up may not send at once: the system still looks whether its address is in use.
constexpr unsigned MAX_SEARCHES_AFTER_CHANGE = 6;
constexpr CoTime::Microseconds SEARCH_AGAIN_AFTER = CoTime::PER_SECOND;
constexpr std::chrono::seconds POLL_FAILURE_PAUSE{1};
constexpr CoTime::Microseconds NEVER = std::numeric_limits<CoTime::Microseconds>::max();

// From these values of VANTREL_MULTICAST_DEBUG on.
constexpr long DEBUG_REQUESTS = 1;
constexpr long DEBUG_WAITS = 2;

enum Polled : std::size_t { CONTROL, CHANGES, SOCKETS };

bool logs(long level) {
    return VantrelSettings::multicastDebug.get() >= level;
}

CoTime::Microseconds resyncPeriod() {
    return VantrelSettings::multicastResyncSec.get() * CoTime::PER_SECOND;
}

int pollTimeoutMs(CoTime::Microseconds timeout) {
    const CoTime::Microseconds roundedUp = (timeout + CoTime::PER_MILLISECOND - 1) / CoTime::PER_MILLISECOND;
    return static_cast<int>(std::clamp<CoTime::Microseconds>(roundedUp, 0, INT_MAX));
}

}  // namespace

// --- Life ---

VantrelMulticastClient::VantrelMulticastClient(VantrelDiscoveryGroup group)
    : generation_(Vantrel::CoProcess::forkGeneration()),
      port_(group.port),
      nextResyncAt_(CoTime::getTime() + resyncPeriod()),
      nextSearchAt_(NEVER),
      sockets_(std::move(group)),
      known_(static_cast<std::size_t>(VantrelSettings::maxServers.get())),
      lastSearchAt_(CoTime::getTime() - SEARCH_VALID_MS * CoTime::PER_MILLISECOND) {}

VantrelMulticastClient::~VantrelMulticastClient() {
    closeControlPipe();
}

void VantrelMulticastClient::start() {
    Vantrel::QdDsoMgr::keepLoaded();  // a host may unload the library while the thread runs
    try {
        if (openControlPipe()) {
            thread_ = std::make_unique<Vantrel::CoThread>(
                THREAD_NAME, [self = shared_from_this()] { self->threadCB(); }, [this] { requestStop(); });
            return;
        }
    } catch (const std::exception& error) {
        CO_MSG_ERROR("Vantrel Multicast: could not start the thread: %s", error.what());
    }
    sockets_.close();  // nobody would ever read them
    closeControlPipe();
}

void VantrelMulticastClient::stopThread() {
    CoNetworkDispatcher::removeObserver(CoNetworkDispatcher::Role::Multicast, &networkObserver_);
    requestStop();
    if (thread_) thread_->join();
}

bool VantrelMulticastClient::isOurProcess() const {
    return Vantrel::CoProcess::forkGeneration() == generation_;
}

void VantrelMulticastClient::requestStop() {
    if (!isOurProcess()) return;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }
    wakeUp();
}

// --- Control pipe ---

bool VantrelMulticastClient::openControlPipe() {
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        CO_MSG_ERROR("Could not create the control pipe: %s", coErrorText(errno).c_str());
        return false;
    }
    const std::lock_guard<std::mutex> lock(pipeMutex_);
    controlOut_ = ends[0];
    controlIn_ = ends[1];
    return true;
}

void VantrelMulticastClient::wakeUp() {
    int error = 0;
    {
        const std::lock_guard<std::mutex> lock(pipeMutex_);
        if (controlIn_ < 0) return;
        while (::write(controlIn_, &WAKE_BYTE, 1) < 0) {
            error = errno;
            if (error != EINTR) break;
        }
    }
    // A full pipe wakes the thread as well as one more byte would.
    if (error != 0 && error != EINTR && error != EAGAIN) {
        CO_MSG_ERROR("Could not write on control pipe: %s", coErrorText(error).c_str());
    }
}

void VantrelMulticastClient::drainControlPipe() const {
    char bytes[64];
    const std::lock_guard<std::mutex> lock(pipeMutex_);
    while (::read(controlOut_, bytes, sizeof bytes) > 0) {
    }
}

void VantrelMulticastClient::closeControlPipe() {
    const std::lock_guard<std::mutex> lock(pipeMutex_);
    for (int* end : {&controlOut_, &controlIn_}) {
        if (*end >= 0) ::close(std::exchange(*end, -1));
    }
}

// --- The thread ---

void VantrelMulticastClient::threadCB() {
    while (!stopping_) {
        try {
            const Microseconds now = CoTime::getTime();
            if (reopen_.exchange(false)) {
                reopenSockets();
            } else if (nextSearchAt_ <= now) {
                searchAgain(now);
            } else if (now < nextResyncAt_) {
                receive(std::min(nextResyncAt_, nextSearchAt_) - now);
            } else {
                resync(now);
            }
        } catch (const std::exception& error) {
            CO_MSG_ERROR("Vantrel Multicast: %s", error.what());
        }
    }
    const CoDeferral deferral;
    const std::lock_guard<std::mutex> lock(socketsMutex_);
    sockets_.close();
    closeControlPipe();
}

VantrelMulticastClient::NetworkObserver::NetworkObserver(VantrelMulticastClient& client) : client_(client) {
    CoNetworkDispatcher::addObserver(CoNetworkDispatcher::Role::Multicast, this);
}

VantrelMulticastClient::NetworkObserver::~NetworkObserver() {
    if (!client_.isOurProcess()) return;
    CoNetworkDispatcher::removeObserver(CoNetworkDispatcher::Role::Multicast, this);
}

void VantrelMulticastClient::NetworkObserver::interfacesChanged(CoNetworkDispatcher::Role role) {
    if (role != CoNetworkDispatcher::Role::Multicast || !client_.isOurProcess()) return;
    client_.reopen_ = true;
    client_.wakeUp();
}

void VantrelMulticastClient::reopenSockets() {
    {
        const CoDeferral deferral;
        const std::lock_guard<std::mutex> lock(socketsMutex_);
        sockets_.reopen();
    }
    searchesLeft_ = haveAtLeastOneMulticastInterface() ? MAX_SEARCHES_AFTER_CHANGE : 0;
    searchAgain(CoTime::getTime());
}

void VantrelMulticastClient::searchAgain(Microseconds now) {
    nextSearchAt_ = NEVER;
    if (searchesLeft_ == 0) return;
    --searchesLeft_;
    if (!find(nullptr) && searchesLeft_ > 0) nextSearchAt_ = now + SEARCH_AGAIN_AFTER;
}

void VantrelMulticastClient::resync(Microseconds now) {
    const Microseconds threshold = now - 2 * resyncPeriod();
    const std::string thresholdText = vantrelTimeText(threshold);
    if (logs(DEBUG_WAITS)) {
        CO_MSG_DEBUG("Vantrel Multicast: discarding servers inactive since %s.", thresholdText.c_str());
    }
    VantrelKnownServers::Servers removed;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        removed = known_.removeOlder(threshold);
    }
    for (const VantrelKnownServer& each : removed) {
        CO_MSG_NOTICE("Vantrel Multicast: discarding '%s' (%s < %s).",
                      coPrintable(each.info->getStorageId()).c_str(),
                      vantrelTimeText(each.lastUpdate).c_str(), thresholdText.c_str());
        notifyObservers(Event::Removed, *each.info);
    }
    nextResyncAt_ = threshold + 3 * resyncPeriod();
}

void VantrelMulticastClient::receive(Microseconds timeout) {
    if (logs(DEBUG_WAITS)) {
        CO_MSG_DEBUG("Vantrel Multicast: waiting for sockets activity until %s.",
                     vantrelTimeText(CoTime::getTime() + timeout).c_str());
    }
    // Both descriptors may be missing: a negative one is not looked at.
    std::vector<pollfd> polled{{controlOut_, POLLIN, 0},
                               {CoNetworkDispatcher::changeDescriptor(), POLLIN, 0}};
    sockets_.addTo(polled);
    const int ready = ::poll(polled.data(), polled.size(), pollTimeoutMs(timeout));
    if (ready < 0 && errno != EINTR) return pauseAfterPollFailure(errno);
    if (ready <= 0) return;
    pollFailed_ = false;

    const CoDeferral deferral;
    if (polled[CONTROL].revents != 0) drainControlPipe();
    if (polled[CHANGES].revents != 0) CoNetworkDispatcher::checkForChanges();
    // All of them, since what came before a farewell may have come after poll had looked at its socket.
    for (std::size_t i = SOCKETS; i < polled.size(); ++i) {
        for (unsigned n = 0; n < MAX_DATAGRAMS_PER_WAKE && readFrom(polled[i].fd); ++n) {
        }
    }
}

// So that a failure that stays does not keep the processor busy.
void VantrelMulticastClient::pauseAfterPollFailure(int error) {
    if (!std::exchange(pollFailed_, true)) {
        CO_MSG_ERROR("Vantrel Multicast: could not wait for sockets activity: %s",
                     coErrorText(error).c_str());
    }
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, POLL_FAILURE_PAUSE, [this] { return stopping_.load(); });
}

bool VantrelMulticastClient::readFrom(int descriptor) {
    VantrelDiscoverySockets::Datagram datagram;
    if (!sockets_.receive(descriptor, datagram)) return false;
    if (const auto request = Protocol::parse(datagram.text)) {
        handle(request->type, request->payload, datagram.ip.c_str(), datagram.port);
    } else {
        CO_MSG_WARNING("Invalid/Corrupted packet received from '%s:%u': %s.", datagram.ip.c_str(),
                       datagram.port, coPrintable(datagram.text).c_str());
    }
    return true;
}

void VantrelMulticastClient::handle(Protocol::RequestType type, const rcAttrStream& payload,
                                    const char* fromAddress, unsigned fromPort) {
    switch (type) {
        case Protocol::DISCOVER_SERVERS:
        case Protocol::DISCOVER_SERVERS_REPLY:
        case Protocol::REMOVE_SERVER:
            break;
        case Protocol::INVALID:
        case Protocol::START_OF_SERVICES:
        case Protocol::FIND_SERVERS:  // servers answer searches, clients do not
        case Protocol::END_OF_SERVICES:
            return;
        default:
            CO_MSG_WARNING("Unknown request type: %d.", type);
            return;
    }
    if (logs(DEBUG_REQUESTS)) {
        CO_MSG_DEBUG("Vantrel Multicast: received '%s' from '%s:%u'.", Protocol::getRequestTypeStr(type),
                     fromAddress, fromPort);
    }
    VantrelDaemonInfo info(payload);
    // The same as below for strangers, at less cost: one look at this host's addresses, not one for each of
    // theirs.
    const bool mayBeLocal = *info.getHostUUID() || !info.hasLoopbackIP() || VantrelOS::isLocalIP(fromAddress);
    if (!mayBeLocal) info.removeLoopbackIPs();
    if (type == Protocol::REMOVE_SERVER) {
        // Else a remote server's loopback address would denote one of this host.
        removeForeignLoopbackIPs(info);
        remove(info);
        return;
    }
    fixVantrelDaemonInfo(info);
    if (type == Protocol::DISCOVER_SERVERS_REPLY) {
        const std::lock_guard<std::mutex> lock(mutex_);
        lastReplyAt_ = CoTime::getTime();
    }
    if (add(info) == Change::None) notifyHeard(info);
}

bool VantrelMulticastClient::send(Protocol::RequestType type, const rcAttrStream& payload,
                                  const char* address, unsigned port) {
    const CoDeferral deferral;
    const std::lock_guard<std::mutex> lock(socketsMutex_);
    return address ? sockets_.send(type, payload, address, port) : sockets_.send(type, payload);
}

// --- The known servers ---

void VantrelMulticastClient::removeForeignLoopbackIPs(VantrelDaemonInfo& info) {
    // Telling whether a daemon is local costs more than looking for such an address.
    if (!info.hasLoopbackIP()) return;
    if (VantrelSettings::noLoopback.get() || !VantrelDaemonHost::isLocal(info)) info.removeLoopbackIPs();
}

void VantrelMulticastClient::fixVantrelDaemonInfo(VantrelDaemonInfo& info) {
    removeForeignLoopbackIPs(info);
    if (info.getNodePort() == 0) info.setNodePort(VantrelDaemonInfo::DEFAULT_NODE_PORT);
    if (!*info.getDatabase()) info.setDatabase(DEFAULT_DATABASE);
}

Change VantrelMulticastClient::add(const VantrelDaemonInfo& info) {
    Change change;
    {
        const CoDeferral deferral;
        const std::lock_guard<std::mutex> lock(mutex_);
        change = known_.add(info);
        if (change == Change::Added || change == Change::Changed) changed_.notify_all();
    }
    if (change == Change::Refused) return change;
    if (logs(DEBUG_REQUESTS)) {
        CO_MSG_DEBUG("Vantrel Multicast: %s '%s'.", change == Change::Added ? "adding" : "updating",
                     coPrintable(info.getStorageId()).c_str());
    }
    noteLocalDaemon(info, change);
    if (change == Change::Added) notifyObservers(Event::Added, info);
    if (change == Change::Changed) notifyObservers(Event::Changed, info);
    return change;
}

// A search that this host's own daemon does not answer is worth a message, once there was one.
void VantrelMulticastClient::noteLocalDaemon(const VantrelDaemonInfo& info, Change change) {
    const char* const uuid = info.getHostUUID();
    const bool local = *uuid && change != Change::None && VantrelDaemonHost::isLocal(info);
    const std::lock_guard<std::mutex> lock(mutex_);
    if (local) localUUID_ = uuid;
    if (*uuid && localUUID_ == uuid) localHeardAt_ = CoTime::getTime();
}

void VantrelMulticastClient::remove(const VantrelServerId& serverId) {
    VantrelKnownServers::Servers removed;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        removed = known_.remove(serverId);
        for (const VantrelKnownServer& each : removed) {
            // A daemon that took its leave is not missed.
            if (localUUID_ == each.info->getHostUUID()) localUUID_.clear();
        }
    }
    for (const VantrelKnownServer& each : removed) {
        CO_MSG_DEBUG("Vantrel Multicast: Removing '%s'.", coPrintable(each.info->getStorageId()).c_str());
        notifyObservers(Event::Removed, *each.info);
    }
}

void VantrelMulticastClient::setServers(const std::vector<VantrelDaemonInfo>& servers) {
    const CoDeferral deferral;
    const std::lock_guard<std::mutex> lock(mutex_);
    known_.assign(servers);
    changed_.notify_all();
}

void VantrelMulticastClient::connectedTo(const VantrelDaemonInfo& info) {
    const std::lock_guard<std::mutex> lock(mutex_);
    known_.stamp(info);
}

void VantrelMulticastClient::dump() const {
    VantrelKnownServers::Servers servers;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        servers = known_.list();
    }
    CO_MSG_NOTICE("Vantrel Multicast: %zu servers are known.", servers.size());
    for (const VantrelKnownServer& each : servers) {
        const VantrelDaemonInfo& info = *each.info;
        CO_MSG_NOTICE("  '%s' '%s' '%s' %s:%d, last heard of %s.", coPrintable(info.getDisplayName()).c_str(),
                      coPrintable(info.getDatabase()).c_str(), coPrintable(info.getStorageId()).c_str(),
                      coPrintable(info.getMetadataIP(0)).c_str(), info.getNodePort(),
                      vantrelTimeText(each.lastUpdate).c_str());
    }
}
