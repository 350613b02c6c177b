#include "VantrelMulticastClient.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <utility>

#include "CoDeferral.h"
#include "CoException.h"
#include "CoMsg.h"
#include "CoProcess.h"
#include "QdDsoMgr.h"
#include "VantrelDaemonHost.h"
#include "VantrelMulticastTime.h"
#include "VantrelSettings.h"

using Vantrel::CoEventLoop;
using Vantrel::CoNetworkDispatcher;
using Vantrel::coPrintable;
using Vantrel::CoTime;
using Vantrel::rcAttrStream;
using Protocol = VantrelMulticastProtocol;

namespace {

constexpr const char* THREAD_NAME = "VT Multicast";
constexpr const char* ALL_SERVERS = "";
constexpr const char* DEFAULT_DATABASE = "SXAFS";
/// Datagrams taken from one socket before the others, the clock and a stop are looked at again.
constexpr unsigned MAX_DATAGRAMS_PER_WAKE = 64;
/// An interface that came up may not send at once: the system still looks whether its address is in use.
constexpr unsigned MAX_SEARCHES_AFTER_CHANGE = 6;
constexpr CoTime::Microseconds SEARCH_AGAIN_AFTER = CoTime::PER_SECOND;
/// So that looking a name up and waiting for answers together stay within MAX_WAIT_MS.
constexpr unsigned LOOKUP_TIMEOUT_MS = VantrelSearches::MAX_WAIT_MS - VantrelSearches::MIN_WAIT_MS;

// From these values of VANTREL_MULTICAST_DEBUG on.
constexpr long DEBUG_REQUESTS = 1;
constexpr long DEBUG_WAITS = 2;

std::atomic<VantrelMulticastClient::ListFetcher> listFetcher{nullptr};

bool logs(long level) {
    return VantrelSettings::multicastDebug.get() >= level;
}

CoTime::Microseconds resyncPeriod() {
    return VantrelSettings::multicastResyncSec.get() * CoTime::PER_SECOND;
}

CoTime::Microseconds latestAnswer() {
    return CoTime::getTime() + VantrelSearches::MAX_WAIT_MS * CoTime::PER_MILLISECOND;
}

bool isForClients(Protocol::RequestType type) {
    switch (type) {
        case Protocol::DISCOVER_SERVERS:
        case Protocol::DISCOVER_SERVERS_REPLY:
        case Protocol::REMOVE_SERVER:
            return true;
        case Protocol::INVALID:
        case Protocol::START_OF_SERVICES:
        case Protocol::FIND_SERVERS:  // servers answer searches, clients do not
        case Protocol::END_OF_SERVICES:
            return false;
    }
    CO_MSG_WARNING("Unknown request type: %d.", type);
    return false;
}

std::string joined(const VantrelIPList& ips) {
    std::string text;
    for (const VantrelStr& ip : ips) {
        if (!text.empty()) text += ' ';
        text += ip.c_str();
    }
    return coPrintable(text);
}

void logCandidate(const VantrelDaemonInfo& info) {
    CO_MSG_DEBUG("Candidate on %s: '%s'.", coPrintable(info.getHostName()).c_str(),
                 coPrintable(info.getStorageId()).c_str());
}

void logResolved(const VantrelServerId& id, const VantrelDaemonInfo& info) {
    CO_MSG_DEBUG(
        "Resolved VantrelServerId( '%s' [%s:%d/%s] ):\n Display Name: %s\n Storage Id  : %s\n"
        " Ports       : %u / %u\n Metadata IPs: %s\n Data IPs    : %s",
        id.getId(), id.getIPAddr(), id.getPort(), id.getDB(), coPrintable(info.getDisplayName()).c_str(),
        coPrintable(info.getStorageId()).c_str(), static_cast<unsigned>(info.getNodePort()),
        static_cast<unsigned>(info.getFramePort()), joined(info.metadataIPs()).c_str(),
        joined(info.dataIPs()).c_str());
}

}  // namespace

// --- Life ---

VantrelMulticastClient::VantrelMulticastClient(VantrelDiscoveryGroup group)
    : generation_(Vantrel::CoProcess::forkGeneration()),
      groupPort_(group.port),
      nextResyncAt_(CoTime::getTime() + resyncPeriod()),
      registry_(static_cast<std::size_t>(VantrelSettings::maxServers.get()),
                [this](Event event, const VantrelDaemonInfo& info) {
                    if (event != Event::Removed) searches_.recheck();
                    notifyObservers(event, info);
                }),
      port_(loop_, std::move(group)) {}

void VantrelMulticastClient::start() {
    Vantrel::QdDsoMgr::keepLoaded();  // a host may unload the library while the thread runs
    try {
        if (loop_.canBeWoken()) {
            thread_ = std::make_unique<Vantrel::CoThread>(
                THREAD_NAME, [self = shared_from_this()] { self->threadCB(); }, [this] { requestStop(); });
            return;
        }
    } catch (const std::exception& error) {
        CO_MSG_ERROR("Vantrel Multicast: could not start the thread: %s", error.what());
    }
    port_.close();  // its sockets would never be read
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
    stopping_ = true;
    searches_.stop();
    wakeUp();
}

void VantrelMulticastClient::wakeUp() {
    if (loop_.canBeWoken() && !loop_.wakeUp()) {
        CO_MSG_ERROR("Could not write on control pipe: %s", Vantrel::coErrorText(errno).c_str());
    }
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
    port_.close();
}

void VantrelMulticastClient::reopenSockets() {
    port_.reopen();
    searchesLeft_ = port_.haveInterface() ? MAX_SEARCHES_AFTER_CHANGE : 0;
    searchAgain(CoTime::getTime());
}

void VantrelMulticastClient::searchAgain(Microseconds now) {
    nextSearchAt_ = CoEventLoop::NEVER;
    if (searchesLeft_ == 0) return;
    --searchesLeft_;
    if (!find(nullptr) && searchesLeft_ > 0) nextSearchAt_ = now + SEARCH_AGAIN_AFTER;
}

void VantrelMulticastClient::resync(Microseconds now) {
    const Microseconds threshold = now - 2 * resyncPeriod();
    if (logs(DEBUG_WAITS)) {
        CO_MSG_DEBUG("Vantrel Multicast: discarding servers inactive since %s.",
                     vantrelTimeText(threshold).c_str());
    }
    registry_.removeOlder(threshold);
    nextResyncAt_ = threshold + 3 * resyncPeriod();
}

void VantrelMulticastClient::receive(Microseconds timeout) {
    const Microseconds deadline = CoTime::getTime() + timeout;
    if (logs(DEBUG_WAITS)) {
        CO_MSG_DEBUG("Vantrel Multicast: waiting for sockets activity until %s.",
                     vantrelTimeText(deadline).c_str());
    }
    if (!port_.wait(deadline)) return;
    const Vantrel::CoDeferral deferral;
    // All of them, since what came before a deregistration may have come after its socket was looked at.
    for (const int descriptor : port_.descriptors()) {
        for (unsigned n = 0; n < MAX_DATAGRAMS_PER_WAKE && readFrom(descriptor); ++n) {
        }
    }
}

bool VantrelMulticastClient::readFrom(int descriptor) {
    VantrelDiscoverySockets::Datagram datagram;
    if (!port_.receive(descriptor, datagram)) return false;
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
    if (!isForClients(type)) return;
    if (logs(DEBUG_REQUESTS)) {
        CO_MSG_DEBUG("Vantrel Multicast: received '%s' from '%s:%u'.", Protocol::getRequestTypeStr(type),
                     fromAddress, fromPort);
    }
    VantrelDaemonInfo info(payload);
    // The same as below for other hosts' daemons, at less cost: one look at this host's addresses, not one
    // for each of theirs.
    const bool mayBeLocal = *info.getHostUUID() || !info.hasLoopbackIP() || VantrelOS::isLocalIP(fromAddress);
    if (!mayBeLocal) info.removeLoopbackIPs();
    if (type == Protocol::REMOVE_SERVER) {
        // Else a remote server's loopback address would denote one of this host.
        removeForeignLoopbackIPs(info);
        remove(info);
        return;
    }
    fixVantrelDaemonInfo(info);
    if (type == Protocol::DISCOVER_SERVERS_REPLY) searches_.noteReply();
    if (add(info) == VantrelKnownServers::Change::None) notifyHeard(info);
}

void VantrelMulticastClient::removeForeignLoopbackIPs(VantrelDaemonInfo& info) {
    // Finding out whether a daemon is local costs more than looking for such an address.
    if (!info.hasLoopbackIP()) return;
    if (VantrelSettings::noLoopback.get() || !VantrelDaemonHost::isLocal(info)) info.removeLoopbackIPs();
}

void VantrelMulticastClient::fixVantrelDaemonInfo(VantrelDaemonInfo& info) {
    removeForeignLoopbackIPs(info);
    if (info.getNodePort() == 0) info.setNodePort(VantrelDaemonInfo::DEFAULT_NODE_PORT);
    if (!*info.getDatabase()) info.setDatabase(DEFAULT_DATABASE);
}

// --- Searching ---

bool VantrelMulticastClient::sendSearch(const std::string& storageId) {
    VantrelDaemonInfo criteria;
    criteria.setStorageId(storageId.c_str());
    return send(Protocol::FIND_SERVERS, criteria.toAttrStream(), nullptr, 0);
}

bool VantrelMulticastClient::find(const char* storageId) {
    if (!storageId || !*storageId) searches_.beginForAll();
    return sendSearch(storageId ? storageId : ALL_SERVERS);
}

void VantrelMulticastClient::searchForAll() {
    const auto send = [this] { sendSearch(ALL_SERVERS); };
    if (searches_.renewForAll()) return send();
    reportMissingLocalDaemon(searches_.wait(ALL_SERVERS, latestAnswer(), send, [] { return false; }));
}

void VantrelMulticastClient::reportMissingLocalDaemon(Microseconds searchedAt) const {
    if (stopping_ || !registry_.missesLocalDaemon(searchedAt)) return;
    CO_MSG_WARNING("Unable to find a local Vantrel daemon on %s (time-out).",
                   VantrelOS::getHostName().c_str());
}

void VantrelMulticastClient::getServers(VantrelKnownServers::Servers& servers, const char* selector,
                                        const char* gatewayIP, int gatewayPort) {
    CoNetworkDispatcher::checkForChanges();
    if (haveAtLeastOneMulticastInterface()) {
        CO_MSG_DEBUG("Vantrel Multicast: finding servers on %d.", static_cast<int>(groupPort_));
        searchForAll();
    }
    if (gatewayIP && *gatewayIP && !stopping_) {
        const int port = gatewayPort != 0 ? gatewayPort : VantrelDaemonInfo::DEFAULT_NODE_PORT;
        fetchListFromServer(VantrelServerId(port, gatewayIP), selector);
    }
    servers = registry_.list(selector);
}

void VantrelMulticastClient::setListFetcher(ListFetcher fetcher) {
    listFetcher = fetcher;
}

void VantrelMulticastClient::fetchListFromServer(const VantrelServerId& serverId, const char* database) {
    const VantrelServerId server(serverId);  // its text is built here, while others may read the caller's
    CO_MSG_DEBUG("Vantrel Multicast: fetching servers list from '%s'.", server.getId());
    std::vector<VantrelDaemonInfo> list;
    try {
        const ListFetcher fetch = listFetcher;
        if (!fetch) throw Vantrel::CoException("No connection to servers");
        const auto timeoutMs = static_cast<unsigned>(VantrelSettings::daemonListTimeoutMs.get());
        Protocol::decode(fetch(server, timeoutMs), list, database);
    } catch (const std::exception& error) {
        CO_MSG_ERROR("Vantrel Multicast: GetDaemonList to '%s' failed: %s", server.getId(), error.what());
        return;
    }
    CO_MSG_DEBUG("Vantrel Multicast: fetched %ld servers from '%s'.", static_cast<long>(list.size()),
                 server.getId());
    for (VantrelDaemonInfo& info : list) {
        fixVantrelDaemonInfo(info);
        add(info);
    }
}

VantrelKnownServers::Servers VantrelMulticastClient::findKnown(
    const std::vector<VantrelCandidateId>& candidates) const {
    VantrelKnownServers::Servers all;
    std::set<const VantrelDaemonInfo*> seen;
    for (const VantrelCandidateId& candidate : candidates) {
        for (VantrelKnownServer& each : registry_.find(candidate.id)) {
            const bool isNew = seen.insert(each.info.get()).second;
            if (isNew && candidate.admits(*each.info)) all.push_back(std::move(each));
        }
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const auto& left, const auto& right) { return *left.info < *right.info; });
    return all;
}

bool VantrelMulticastClient::resolve(const VantrelServerId& serverId, VantrelDaemonInfo& info) {
    std::vector<VantrelDaemonInfo> all;
    if (!resolveAll(serverId, all)) return false;
    info = std::move(all.front());
    return true;
}

bool VantrelMulticastClient::resolveAll(const VantrelServerId& serverId,
                                        std::vector<VantrelDaemonInfo>& infos,
                                        const std::function<bool()>& cancelled) {
    VantrelServerId id;
    id = serverId;  // its text is built here, while others may read the caller's
    CO_MSG_DEBUG("Resolving VantrelServerId( '%s' [%s:%d/%s] ).", id.getId(), id.getIPAddr(), id.getPort(),
                 id.getDB());
    const auto isCancelled = [&] { return cancelled && cancelled(); };
    const Microseconds latest = latestAnswer();
    const auto candidates =
        vantrelCandidateIds(id, LOOKUP_TIMEOUT_MS, [&] { return stopping_ || isCancelled(); });
    VantrelKnownServers::Servers found = findKnown(candidates);
    if (found.empty() && !candidates.empty()) {
        CoNetworkDispatcher::checkForChanges();
        if (haveAtLeastOneMulticastInterface()) {
            const auto send = [&] { sendSearch(id.getStorageId()); };
            const auto look = [&] { return !(found = findKnown(candidates)).empty() || isCancelled(); };
            searches_.wait(id.getStorageId(), latest, send, look);
        }
    }
    if (found.empty()) {
        CO_MSG_DEBUG("Unable to resolve VantrelServerId( '%s' [%s:%d/%s] ).", id.getId(), id.getIPAddr(),
                     id.getPort(), id.getDB());
        return false;
    }
    infos.clear();
    for (const VantrelKnownServer& each : found) {
        infos.push_back(each.record());
        logCandidate(infos.back());
    }
    logResolved(id, infos.front());
    return true;
}

// --- The known servers ---

void VantrelMulticastClient::setServers(const std::vector<VantrelDaemonInfo>& servers) {
    registry_.assign(servers);
    searches_.recheck();
}

void VantrelMulticastClient::dump() const {
    const VantrelKnownServers::Servers servers = registry_.list();
    CO_MSG_NOTICE("Vantrel Multicast: %zu servers are known.", servers.size());
    for (const VantrelKnownServer& each : servers) {
        const VantrelDaemonInfo& info = *each.info;
        CO_MSG_NOTICE("  '%s' '%s' '%s' %s:%d, last heard of %s.", coPrintable(info.getDisplayName()).c_str(),
                      coPrintable(info.getDatabase()).c_str(), coPrintable(info.getStorageId()).c_str(),
                      coPrintable(info.getMetadataIP(0)).c_str(), info.getNodePort(),
                      vantrelTimeText(each.lastUpdate).c_str());
    }
}
