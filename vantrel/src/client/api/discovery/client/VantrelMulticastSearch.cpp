// Searching: what callers of the discovery agent send, and how long they wait for what its thread makes of
// the answers.

#include <algorithm>
#include <chrono>

#include "CoDeferral.h"
#include "CoException.h"
#include "CoIoTcpDescriptor.h"
#include "CoMsg.h"
#include "CoNameLookup.h"
#include "VantrelDaemonHost.h"
#include "VantrelMulticastClient.h"
#include "VantrelMulticastTime.h"
#include "VantrelSettings.h"

using Vantrel::CoIoTcpDescriptor;
using Vantrel::CoNameLookup;
using Vantrel::CoNetworkDispatcher;
using Vantrel::coPrintable;
using Vantrel::CoTime;
using Protocol = VantrelMulticastProtocol;

namespace {

constexpr const char* ALL_SERVERS = "";
/// So that looking a name up and waiting for answers together stay within MAX_WAIT_MS.
constexpr unsigned LOOKUP_TIMEOUT_MS =
    VantrelMulticastClient::MAX_WAIT_MS - VantrelMulticastClient::MIN_WAIT_MS;

std::atomic<VantrelMulticastClient::ListFetcher> listFetcher{nullptr};

constexpr CoTime::Microseconds fromMs(unsigned milliseconds) {
    return milliseconds * CoTime::PER_MILLISECOND;
}

std::string joined(const VantrelIPList& ips) {
    std::string text;
    for (const VantrelStr& ip : ips) {
        if (!text.empty()) text += ' ';
        text += ip.c_str();
    }
    return coPrintable(text);
}

void logResolved(const VantrelServerId& id, const VantrelDaemonInfo& info) {
    const std::string storageId = coPrintable(info.getStorageId());
    CO_MSG_DEBUG("Candidate on %s: '%s'.", coPrintable(info.getHostName()).c_str(), storageId.c_str());
    CO_MSG_DEBUG(
        "Resolved VantrelServerId( '%s' [%s:%d/%s] ):\n Display Name: %s\n Storage Id  : %s\n"
        " Ports       : %u / %u\n Metadata IPs: %s\n Data IPs    : %s",
        id.getId(), id.getIPAddr(), id.getPort(), id.getDB(), coPrintable(info.getDisplayName()).c_str(),
        storageId.c_str(), static_cast<unsigned>(info.getNodePort()),
        static_cast<unsigned>(info.getFramePort()), joined(info.metadataIPs()).c_str(),
        joined(info.dataIPs()).c_str());
}

/// The numeric addresses that a host name stands for, or a numeric address itself; the name when it cannot be
/// looked up.
std::vector<std::string> numericAddresses(const char* host, const std::function<bool()>& stopped) {
    CoNameLookup::Addresses found(nullptr, &::freeaddrinfo);
    std::vector<std::string> addresses;
    if (CoNameLookup::find(host, LOOKUP_TIMEOUT_MS, stopped, found, CoNameLookup::choiceFamily()) == 0) {
        for (const addrinfo* each = found.get(); each; each = each->ai_next) {
            addresses.push_back(CoNameLookup::toNumericText(each->ai_addr, each->ai_addrlen));
        }
    }
    if (addresses.empty()) addresses.push_back(host);
    return addresses;
}

VantrelServerId atAddress(VantrelServerId id, const std::string& address) {
    id.setIPAddr(CoIoTcpDescriptor::skipIPv4InIPv6Prefix(address.c_str()));
    return id;
}

}  // namespace

void VantrelMulticastClient::setListFetcher(ListFetcher fetcher) {
    listFetcher = fetcher;
}

bool VantrelMulticastClient::haveAtLeastOneMulticastInterface() const {
    const std::lock_guard<std::mutex> lock(socketsMutex_);
    return sockets_.haveInterface();
}

// --- Sending ---

bool VantrelMulticastClient::sendSearch(const std::string& storageId) {
    VantrelDaemonInfo criteria;
    criteria.setStorageId(storageId.c_str());
    return send(Protocol::FIND_SERVERS, criteria.toAttrStream(), nullptr, 0);
}

bool VantrelMulticastClient::find(const char* storageId) {
    if (!storageId || !*storageId) {
        // Whoever asks for the list next takes part in this search.
        const std::lock_guard<std::mutex> lock(mutex_);
        joinSearch(ALL_SERVERS);
        lastSearchAt_ = CoTime::getTime();
    }
    return sendSearch(storageId ? storageId : "");
}

// --- Waiting ---

VantrelMulticastClient::Microseconds VantrelMulticastClient::endOf(const Search& search) const {
    const Microseconds quiet =
        std::max(search.startedAt + fromMs(MIN_WAIT_MS), lastReplyAt_ + fromMs(QUIET_MS));
    return std::min(quiet, search.startedAt + fromMs(MAX_WAIT_MS));
}

bool VantrelMulticastClient::isRunning(const Search& search, Microseconds now) const {
    return !search.over && now < endOf(search);
}

// The search that is in progress, or a new one. With mutex_ held.
std::shared_ptr<VantrelMulticastClient::Search> VantrelMulticastClient::joinSearch(
    const std::string& storageId) {
    std::shared_ptr<Search>& search = searches_[storageId];
    const Microseconds now = CoTime::getTime();
    if (!search || !isRunning(*search, now)) search = std::make_shared<Search>(Search{now});
    return search;
}

// Takes part in a search until nothing more is to be expected of it, until `latest`, or until `done`, which
// is asked with mutex_ held, is true. Gives back when that search began. Those who come later and begin
// another one do not make this one longer.
VantrelMulticastClient::Microseconds VantrelMulticastClient::searchAndWait(
    const std::string& storageId, Microseconds latest, const std::function<bool()>& done) {
    std::shared_ptr<Search> search;
    bool sends = false;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        search = joinSearch(storageId);
        const Microseconds now = CoTime::getTime();
        // Servers that came up since a search was sent have not heard it.
        sends = search.use_count() == 2 || now - search->startedAt > fromMs(QUIET_MS);
        if (sends && storageId.empty()) lastSearchAt_ = now;
    }
    if (sends) sendSearch(storageId);
    CO_MSG_DEBUG("Vantrel Multicast: waiting on sockets until %s.", vantrelTimeText(latest).c_str());

    const Vantrel::CoDeferral deferral;  // for what `done` may log
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_ && !done()) {
        const Microseconds now = CoTime::getTime();
        search->over = search->over || endOf(*search) <= now;
        if (search->over || latest <= now) break;
        changed_.wait_for(lock, std::chrono::microseconds(std::min(endOf(*search), latest) - now));
    }
    const auto kept = searches_.find(storageId);
    const bool isLast = kept != searches_.end() && kept->second == search && search.use_count() == 2;
    if (isLast && !storageId.empty()) searches_.erase(kept);
    return search->startedAt;
}

// When the last search is so fresh that the list is as good without waiting; the search is sent all the same.
bool VantrelMulticastClient::searchWithoutWaiting() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const Microseconds now = CoTime::getTime();
        const bool fresh = now - lastSearchAt_ < fromMs(SEARCH_VALID_MS);
        const auto search = searches_.find(ALL_SERVERS);
        if (!fresh || (search != searches_.end() && isRunning(*search->second, now))) return false;
        lastSearchAt_ = now;
    }
    sendSearch(ALL_SERVERS);
    return true;
}

void VantrelMulticastClient::reportMissingLocalDaemon(Microseconds searchedAt) const {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_ || localUUID_.empty() || localHeardAt_ >= searchedAt) return;
    }
    CO_MSG_WARNING("Unable to find a local Vantrel daemon on %s (time-out).",
                   VantrelOS::getHostName().c_str());
}

// --- All servers ---

void VantrelMulticastClient::getServers(VantrelKnownServers::Servers& servers, const char* selector,
                                        const char* gatewayIP, int gatewayPort) {
    CoNetworkDispatcher::checkForChanges();
    if (haveAtLeastOneMulticastInterface()) {
        CO_MSG_DEBUG("Vantrel Multicast: finding servers on %d.", static_cast<int>(port_));
        if (!searchWithoutWaiting()) {
            const Microseconds latest = CoTime::getTime() + fromMs(MAX_WAIT_MS);
            reportMissingLocalDaemon(searchAndWait(ALL_SERVERS, latest, [] { return false; }));
        }
    }
    if (gatewayIP && *gatewayIP && !stopping_) {
        const int port = gatewayPort != 0 ? gatewayPort : VantrelDaemonInfo::DEFAULT_NODE_PORT;
        fetchListFromServer(VantrelServerId(port, gatewayIP), selector);
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    servers = known_.list(selector);
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

// --- One server ---

bool VantrelMulticastClient::resolve(const VantrelServerId& serverId, VantrelDaemonInfo& info,
                                     const std::function<bool()>& cancelled) {
    VantrelServerId id;
    id = serverId;  // its text is built here, while others may read the caller's
    CO_MSG_DEBUG("Resolving VantrelServerId( '%s' [%s:%d/%s] ).", id.getId(), id.getIPAddr(), id.getPort(),
                 id.getDB());
    const auto isCancelled = [&] { return cancelled && cancelled(); };
    const Microseconds latest = CoTime::getTime() + fromMs(MAX_WAIT_MS);
    const Meanings meanings = meaningsOf(id, [&] { return stopping_ || isCancelled(); });
    bool found = false;
    const auto look = [&] { return found = findKnown(meanings, info); };
    {
        const Vantrel::CoDeferral deferral;
        const std::lock_guard<std::mutex> lock(mutex_);
        look();
    }
    if (!found && !meanings.empty()) {
        CoNetworkDispatcher::checkForChanges();
        if (haveAtLeastOneMulticastInterface()) {
            searchAndWait(id.getStorageId(), latest, [&] { return look() || isCancelled(); });
        }
    }
    if (found) {
        logResolved(id, info);
    } else {
        CO_MSG_DEBUG("Unable to resolve VantrelServerId( '%s' [%s:%d/%s] ).", id.getId(), id.getIPAddr(),
                     id.getPort(), id.getDB());
    }
    return found;
}

bool VantrelMulticastClient::known(const VantrelServerId& serverId, VantrelDaemonInfo& info) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const VantrelKnownServer* found = known_.find(serverId);
    if (found) info = found->record();
    return found != nullptr;
}

// The numeric ids that an id stands for; none when it denotes no server at all. An address of this host
// stands for all of them: the daemon need not announce the one that was given.
VantrelMulticastClient::Meanings VantrelMulticastClient::meaningsOf(
    const VantrelServerId& serverId, const std::function<bool()>& cancelled) const {
    if (*serverId.getStorageId()) return {{serverId, false}};
    if (!*serverId.getIPAddr()) return {};
    Meanings meanings;
    bool isLocal = false;
    for (const std::string& address : numericAddresses(serverId.getIPAddr(), cancelled)) {
        meanings.push_back({atAddress(serverId, address), false});
        isLocal = isLocal || VantrelOS::isLocalIP(address.c_str());
    }
    if (!isLocal) return meanings;
    for (const auto& own : CoNetworkDispatcher::getAllInterfaces()) {
        meanings.push_back({atAddress(serverId, own.ip), true});
    }
    return meanings;
}

bool VantrelMulticastClient::findKnown(const Meanings& meanings, VantrelDaemonInfo& info) const {
    for (const Meaning& meaning : meanings) {
        const VantrelKnownServer* found = known_.find(meaning.id);
        if (!found || (meaning.onlyLocal && !VantrelDaemonHost::isLocal(*found->info))) continue;
        info = found->record();
        return true;
    }
    return false;
}
