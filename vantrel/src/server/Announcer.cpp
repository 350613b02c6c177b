#include "Announcer.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "CoMsg.h"
#include "VantrelMulticastProtocol.h"
#include "VantrelSettings.h"

namespace vantreld {

using Vantrel::CoNetworkDispatcher;
using Vantrel::CoTime;
using Protocol = VantrelMulticastProtocol;
using Role = CoNetworkDispatcher::Role;

namespace {

constexpr CoTime::Microseconds ANNOUNCE_EVERY = 60 * CoTime::PER_SECOND;
/// An interface that came up may not send at once: the system still looks whether its address is in use.
constexpr unsigned MAX_RETRIES = 5;
constexpr CoTime::Microseconds RETRY_AFTER = CoTime::PER_SECOND;
constexpr Role ROLES[] = {Role::Multicast, Role::Metadata, Role::Data};

/// What anyone can send is bounded: datagrams taken in one pass of the loop and in a second (more are left to
/// the system, which drops them), and answers to searches, whose senders may be forged to flood another host.
constexpr std::size_t DATAGRAMS_PER_PASS = 32;
constexpr unsigned DATAGRAMS_PER_SECOND = 5000;
constexpr unsigned ANSWERS_PER_SECOND = 200;
/// Searches beyond them are answered by one announcement to everybody, so long after the first of them.
constexpr CoTime::Microseconds COMMON_ANSWER_AFTER = CoTime::PER_SECOND;
/// Logged; beyond that, only what is sure to be understood is looked at.
constexpr unsigned INVALID_PER_SECOND = 5;

constexpr char ZONE = '%';  ///< before the interface of a link-local address

/// Others fetch the list of what is known, this server included, and take no more.
constexpr std::size_t MAX_KNOWN_SERVERS = Protocol::MAX_LIST_NODES - 1;

/// Whether the text is a datagram exactly as every known sender writes it: reading it then logs nothing.
bool isPlain(const std::string& text) {
    unsigned type = 0;
    unsigned length = 0;
    if (std::sscanf(text.c_str(), "Version 1 1Type 2 %2uData %4u", &type, &length) != 2) return false;
    const std::string start =
        "Version 1 1Type 2 " + std::to_string(type) + "Data " + std::to_string(length) + " ";
    return type >= Protocol::START_OF_SERVICES && type <= Protocol::END_OF_SERVICES &&
           text.compare(0, start.size(), start) == 0 && text.size() == start.size() + length;
}

/// Whether a numeric address, a link-local one with its zone, is one of this host.
bool isOwnIP(const std::string& ip) {
    return VantrelOS::isLocalIP(ip.substr(0, ip.find(ZONE)).c_str());
}

bool isReachedByThisHostOnly(const VantrelDaemonInfo& info) {
    return std::all_of(info.metadataIPs().begin(), info.metadataIPs().end(),
                       [](const VantrelStr& ip) { return VantrelOS::isLoopBackIP(ip.c_str()); });
}

bool othersHearUs() {
    const auto interfaces = CoNetworkDispatcher::getInterfaces(Role::Multicast);
    return std::any_of(interfaces.begin(), interfaces.end(),
                       [](const auto& interface) { return !interface.loopback; });
}

// Every request type has two digits, so what fits for one fits for all.
bool fits(const VantrelDaemonInfo& info) {
    return Protocol::create(Protocol::DISCOVER_SERVERS, info.toAttrStream()).size() <=
           Protocol::MAX_DATAGRAM_BYTES;
}

}  // namespace

VantrelDaemonInfo fitIntoDatagram(VantrelDaemonInfo info, bool& cut) {
    cut = false;
    unsigned metadata = info.metadataIPs().size();
    unsigned data = info.dataIPs().size();
    while (metadata + data > 1 && !fits(info)) {
        cut = true;
        if (data >= metadata) {
            info.setDataIP(--data, "");
        } else {
            info.setMetadataIP(--metadata, "");
        }
    }
    return info;
}

Announcer::Announcer(Vantrel::rcAppContext& loop, VantrelDiscoveryGroup group, Describe describe)
    : loop_(loop),
      describe_(std::move(describe)),
      known_(std::min(MAX_KNOWN_SERVERS, static_cast<std::size_t>(VantrelSettings::maxServers.get()))),
      incoming_(DATAGRAMS_PER_SECOND),
      invalid_(INVALID_PER_SECOND),
      answers_(ANSWERS_PER_SECOND) {
    for (const Role role : ROLES) CoNetworkDispatcher::addObserver(role, this);
    sockets_.emplace(std::move(group));
    watchSockets();
}

Announcer::~Announcer() {
    unwatchSockets();
    loop_.unregisterIOHandler(&interfaces_);
    for (const Role role : ROLES) CoNetworkDispatcher::removeObserver(role, this);
    withdraw();
}

unsigned Announcer::work() {
    if (socketsStale_) {
        socketsStale_ = false;
        unwatchSockets();
        sockets_->reopen();
        watchSockets();
        searchDue_ = true;
        retries_ = 0;
    }
    const CoTime::Microseconds now = CoTime::getTime();
    if (now >= announceAt_) announceAndSearch(now);
    const CoTime::Microseconds resync = VantrelSettings::multicastResyncSec.get() * CoTime::PER_SECOND;
    if (now >= expireAt_) {
        known_.removeOlder(now - 2 * resync);
        expireAt_ = now + resync;
    }
    const auto untilDue = std::min(announceAt_, expireAt_) - now;
    const auto waitMs = static_cast<unsigned>(untilDue / CoTime::PER_MILLISECOND + 1);
    const unsigned pauseMs = incoming_.waitMs();
    return pauseMs != 0 ? std::min(pauseMs, waitMs) : waitMs;
}

std::vector<VantrelDaemonInfo> Announcer::others() const {
    std::vector<VantrelDaemonInfo> servers;
    servers.reserve(known_.size());
    for (const VantrelKnownServer& each : known_.list()) servers.push_back(each.record());
    return servers;
}

// --- Sockets ---

void Announcer::watchSockets() {
    std::vector<pollfd> polled;
    sockets_->addTo(polled);
    for (const pollfd& each : polled) loop_.registerIOHandler(&readers_.emplace_back(*this, each.fd));
    if (interfaces_.descriptorId() >= 0) loop_.registerIOHandler(&interfaces_);
}

void Announcer::unwatchSockets() {
    for (Reader& each : readers_) loop_.unregisterIOHandler(&each);
    readers_.clear();
}

void Announcer::interfacesChanged(Role role) {
    // The pass in progress still uses the sockets.
    if (role == Role::Multicast) socketsStale_ = true;
    announceAt_ = 0;
}

bool Announcer::Reader::handleRead() {
    // Each socket gets its share, so that a flood on one does not silence the others.
    announcer_.takeFrom(descriptorId_, 1 + DATAGRAMS_PER_PASS / announcer_.readers_.size());
    return true;
}

bool Announcer::Reader::handleError() {
    int error = 0;
    socklen_t size = sizeof error;
    // Takes the error away, which a reader that pauses would be called for again and again, but no datagram.
    ::getsockopt(descriptorId_, SOL_SOCKET, SO_ERROR, &error, &size);
    return true;
}

// --- Sending ---

void Announcer::announceAndSearch(CoTime::Microseconds now) {
    if (searchDue_) searchDue_ = !search();
    const bool failed = !announce() || searchDue_;
    const bool retry = failed && sockets_->haveInterface() && retries_ < MAX_RETRIES;
    if (retry) ++retries_;
    announceAt_ = now + (retry ? RETRY_AFTER : ANNOUNCE_EVERY);
}

/// False when the announcement was not sent, though it should be.
bool Announcer::announce() {
    bool cut = false;
    self_ = fitIntoDatagram(describe_(), cut);
    fits_ = fits(self_);
    quiet_ = isReachedByThisHostOnly(self_) && othersHearUs();
    const bool wasLogged = std::exchange(cutLogged_, cut || !fits_);
    if (!fits_ && !wasLogged) {
        CO_MSG_ERROR("This server is not announced: its names are too long for a datagram.");
    } else if (cut && !wasLogged) {
        CO_MSG_WARNING("Not all addresses of this server fit into its announcement: %u and %u are told.",
                       self_.metadataIPs().size(), self_.dataIPs().size());
    }
    return !fits_ || quiet_ || sockets_->send(Protocol::DISCOVER_SERVERS, self_.toAttrStream());
}

bool Announcer::search() {
    return sockets_->send(Protocol::FIND_SERVERS, VantrelDaemonInfo().toAttrStream());
}

void Announcer::withdraw() {
    if (fits_) sockets_->send(Protocol::REMOVE_SERVER, self_.toAttrStream());
}

// --- Receiving ---

void Announcer::takeFrom(int descriptor, std::size_t limit) {
    VantrelDiscoverySockets::Datagram datagram;
    while (limit-- > 0 && incoming_.waitMs() == 0 && sockets_->receive(descriptor, datagram)) {
        incoming_.take();
        handle(datagram);
    }
}

void Announcer::handle(const VantrelDiscoverySockets::Datagram& datagram) {
    if (invalid_.waitMs() != 0 && !isPlain(datagram.text)) return;
    const auto request = Protocol::parse(datagram.text);
    if (!request) {
        invalid_.take();
        CO_MSG_WARNING("Invalid discovery datagram of %zu bytes from '%s:%u'.", datagram.text.size(),
                       datagram.ip.c_str(), datagram.port);
        return;
    }
    const Protocol::RequestType type = request->type;
    VantrelDaemonInfo info(request->payload);
    if (type == Protocol::FIND_SERVERS) return answer(info, datagram.ip, datagram.port);
    if (isSelf(info)) return;
    // Another host's 127.0.0.1 means nothing here, and would make one server of several.
    if (info.hasLoopbackIP() && !isOwnIP(datagram.ip)) info.removeLoopbackIPs();
    if (type == Protocol::DISCOVER_SERVERS || type == Protocol::DISCOVER_SERVERS_REPLY) {
        known_.add(info);
    } else if (type == Protocol::REMOVE_SERVER) {
        known_.remove(info.getServerId());
    }
}

void Announcer::answer(const VantrelDaemonInfo& wanted, const std::string& ip, unsigned port) {
    const auto matches = [](const char* criterion, const char* own) {
        return *criterion == '\0' || std::string(criterion) == own;
    };
    if (!matches(wanted.getStorageId(), self_.getStorageId())) return;
    if (!matches(wanted.getDatabase(), self_.getDatabase())) return;
    if (!fits_ || port == 0) return;
    if (!answers_.take()) {
        if (!quiet_) announceAt_ = std::min(announceAt_, CoTime::getTime() + COMMON_ANSWER_AFTER);
        return;
    }
    if (quiet_ && !isOwnIP(ip)) return;
    sockets_->send(Protocol::DISCOVER_SERVERS_REPLY, self_.toAttrStream(), ip, port);
}

bool Announcer::isSelf(const VantrelDaemonInfo& info) const {
    return *info.getStorageId() != '\0' && std::string(info.getStorageId()) == self_.getStorageId();
}

}  // namespace vantreld
