#include "VantrelDiscoverySockets.h"

#include <algorithm>
#include <utility>

#include "CoException.h"
#include "CoMsg.h"
#include "CoNetworkConfig.h"
#include "VantrelSettings.h"

using Vantrel::CoException;
using Vantrel::CoMulticast;
using Vantrel::CoNetworkDispatcher;
using Vantrel::CoNetworkInterface;
using Vantrel::rcAttrStream;

namespace {

/// From here on VANTREL_MULTICAST_DEBUG has every datagram logged.
constexpr long DEBUG_DATAGRAMS = 2;

using Protocol = VantrelMulticastProtocol;

bool logsDatagrams() {
    return VantrelSettings::multicastDebug.get() >= DEBUG_DATAGRAMS;
}

/// A failure's text, to stand within a sentence that ends with a full stop of its own.
std::string withoutStop(const CoException& error) {
    std::string text = error.what();
    if (!text.empty() && text.back() == '.') text.pop_back();
    return text;
}

/// The datagram; empty, and logged, when receivers would cut it.
std::string makeDatagram(Protocol::RequestType type, const rcAttrStream& payload) {
    std::string text = Protocol::create(type, payload);
    if (text.size() <= Protocol::MAX_DATAGRAM_BYTES) return text;
    CO_MSG_ERROR("Could not send %s request: it has %zu bytes, and a datagram holds %zu.",
                 Protocol::getRequestTypeStr(type), text.size(), Protocol::MAX_DATAGRAM_BYTES);
    return {};
}

}  // namespace

VantrelDiscoveryGroup VantrelDiscoveryGroup::configured() {
    VantrelDiscoveryGroup group;
    Vantrel::CoNetworkConfig& config = Vantrel::CoNetworkConfig::getInstance();
    config.getSelfDiscoveryPort(group.port);
    config.getSelfDiscoveryScope(group.scope);
    config.getSelfDiscoveryTTL(group.ttl);
    return group;
}

// --- Opening and closing ---

VantrelDiscoverySockets::VantrelDiscoverySockets(VantrelDiscoveryGroup group) : group_(std::move(group)) {
    reopen();
}

VantrelDiscoverySockets::~VantrelDiscoverySockets() {
    close();
}

void VantrelDiscoverySockets::reopen() {
    close();
    if (group_.ttl == 0) return;
    for (Addresses& addresses : findInterfaces()) openPrivate(std::move(addresses));
    if (private_.empty()) {
        CO_MSG_WARNING("No multicast interface available");
        return;
    }
    openPublic();
}

void VantrelDiscoverySockets::close() {
    private_.clear();
    for (const std::string& name : joined_) {
        try {
            public_->drop(name);
        } catch (const CoException& error) {
            // The interface has gone; the socket leaves the group when it closes, whatever is said here.
            CO_MSG_NOTICE("Could not uninitialize public multicast socket ['%s']: %s", group_.scope.c_str(),
                          error.what());
        }
    }
    joined_.clear();
    public_.reset();
}

/// The addresses of each interface to use, in order of preference.
std::vector<VantrelDiscoverySockets::Addresses> VantrelDiscoverySockets::findInterfaces() const {
    const int family = CoMulticast::familyOf(group_.scope);
    std::vector<Addresses> found;
    bool loopbackLogged = false;
    for (CoNetworkInterface& each :
         CoNetworkDispatcher::getInterfaces(CoNetworkDispatcher::Role::Multicast)) {
        if (each.family != family) continue;
        if (each.loopback && family == AF_INET6) {
            // The system has no route for it: whatever is sent fails.
            if (!std::exchange(loopbackLogged, true))
                CO_MSG_WARNING("IPv6 multicast does not work on '%s': not used.", each.name.c_str());
            continue;
        }
        const auto known = std::find_if(found.begin(), found.end(), [&each](const Addresses& addresses) {
            return addresses.front().name == each.name;
        });
        Addresses& addresses = known != found.end() ? *known : found.emplace_back();
        addresses.push_back(std::move(each));
    }
    return found;
}

void VantrelDiscoverySockets::openPrivate(Addresses addresses) {
    const char* const name = addresses.front().name.c_str();
    const char* const ip = addresses.front().ip.c_str();
    try {
        CoMulticast socket(group_.port, group_.scope, name);
        CoMulticast::PortRange ports{};
        Vantrel::CoNetworkConfig::getInstance().getDynamicPortRange(ports.lowest, ports.highest);
        socket.bindPrivate(ports);
        socket.setTTL(group_.ttl);
        socket.setLoopback(true);  // programs of one machine hear each other
        CO_MSG_DEBUG("Vantrel Multicast: opened private socket '%d' on  '%s' '%s:%u/%s/%u'.", socket.getId(),
                     name, ip, group_.port, group_.scope.c_str(), group_.ttl);
        private_.push_back({std::move(socket), std::move(addresses)});
    } catch (const CoException& error) {
        CO_MSG_ERROR("Could not bind private multicast socket on '%s' '%s:%u/%s/%u': %s", name, ip,
                     group_.port, group_.scope.c_str(), group_.ttl, error.what());
    }
}

void VantrelDiscoverySockets::openPublic() {
    try {
        CoMulticast socket(group_.port, group_.scope, "");
        socket.bind(CoMulticast::PUBLIC);
        public_ = std::move(socket);
    } catch (const CoException& error) {
        return logPublicFailure(error.what());
    }
    std::vector<unsigned> devices;
    for (const Private& each : private_) {
        // A device has one membership, however many aliases it has.
        const unsigned device = each.addresses.front().index;
        if (std::find(devices.begin(), devices.end(), device) != devices.end()) continue;
        try {
            public_->join(each.name());
            devices.push_back(device);
            joined_.push_back(each.name());
        } catch (const CoException& error) {
            logPublicFailure(error.what());
        }
    }
}

void VantrelDiscoverySockets::logPublicFailure(const char* reason) const {
    CO_MSG_ERROR("Could not bind/join public multicast socket on '%u/%s/%u': %s", group_.port,
                 group_.scope.c_str(), group_.ttl, reason);
}

// --- Receiving ---

void VantrelDiscoverySockets::addTo(std::vector<pollfd>& polled) const {
    for (const Private& each : private_) polled.push_back({each.socket.getId(), POLLIN, 0});
    if (public_) polled.push_back({public_->getId(), POLLIN, 0});
}

bool VantrelDiscoverySockets::receive(int descriptor, Datagram& datagram) const {
    if (public_ && public_->getId() == descriptor) {
        if (!take(*public_, datagram)) return false;
        if (logsDatagrams()) {
            CO_MSG_DEBUG("Vantrel Multicast: received on public socket '%d' on '%u/%s/%u'.", descriptor,
                         group_.port, group_.scope.c_str(), group_.ttl);
        }
    } else {
        const auto found = std::find_if(private_.begin(), private_.end(), [descriptor](const Private& each) {
            return each.socket.getId() == descriptor;
        });
        if (found == private_.end() || !take(found->socket, datagram)) return false;
        if (logsDatagrams()) {
            CO_MSG_DEBUG("Vantrel Multicast: received on private socket '%d' on '%s' '%s:%u/%s/%u'.",
                         descriptor, found->name().c_str(), found->ip().c_str(), group_.port,
                         group_.scope.c_str(), group_.ttl);
        }
    }
    if (logsDatagrams()) {
        CO_MSG_DEBUG("Vantrel Multicast: received %ld bytes from '%s:%u': \"%s\".",
                     static_cast<long>(datagram.text.size()), datagram.ip.c_str(), datagram.port,
                     Vantrel::coPrintable(datagram.text).c_str());
    }
    return true;
}

bool VantrelDiscoverySockets::take(const CoMulticast& socket, Datagram& datagram) const {
    char buffer[Protocol::MAX_DATAGRAM_BYTES];
    std::size_t length = sizeof buffer;
    sockaddr_storage from{};
    try {
        if (!socket.receive(buffer, length, from, false)) return false;
    } catch (const CoException& error) {
        CO_MSG_ERROR("Vantrel Multicast: %s", error.what());
        return false;
    }
    datagram.text.assign(buffer, length);
    CoMulticast::addrToIPAndPort(from, datagram.ip, datagram.port);
    return true;
}

// --- Sending ---

bool VantrelDiscoverySockets::send(Protocol::RequestType type, const rcAttrStream& payload) const {
    if (private_.empty()) return false;
    const std::string datagram = makeDatagram(type, payload);
    if (datagram.empty()) return false;
    const char* const typeName = Protocol::getRequestTypeStr(type);
    bool sent = false;
    for (const Private& each : private_) {
        CO_MSG_DEBUG("Vantrel Multicast: Sending '%s' to '%s:%u' on %s.", typeName, group_.scope.c_str(),
                     group_.port, each.name().c_str());
        try {
            each.socket.send(datagram.data(), datagram.size(), nullptr, 0);
            sent = true;
        } catch (const CoException& error) {
            CO_MSG_ERROR("Could not broadcast %s request on %s: %s.", typeName, each.name().c_str(),
                         withoutStop(error).c_str());
        }
    }
    return sent;
}

bool VantrelDiscoverySockets::send(Protocol::RequestType type, const rcAttrStream& payload,
                                   const std::string& ip, unsigned port) const {
    if (private_.empty()) return false;
    const std::string datagram = makeDatagram(type, payload);
    if (datagram.empty()) return false;
    const char* const typeName = Protocol::getRequestTypeStr(type);
    CO_MSG_DEBUG("Vantrel Multicast: Sending '%s'.", typeName);
    try {
        senderFor(ip).socket.send(datagram.data(), datagram.size(), ip.c_str(), port);
        return true;
    } catch (const CoException& error) {
        CO_MSG_ERROR("Could not unicast %s request to %s: %s", typeName, ip.c_str(), error.what());
        return false;
    }
}

const VantrelDiscoverySockets::Private& VantrelDiscoverySockets::senderFor(const std::string& ip) const {
    // A link-local address is on every link; only its zone, the interface's name, says which one is meant.
    const std::size_t percent = ip.find('%');
    const std::string address = ip.substr(0, percent);
    const std::string zone = percent != std::string::npos ? ip.substr(percent + 1) : std::string();
    for (const Private& each : private_) {
        if (!zone.empty() && zone != each.name()) continue;
        const bool isNear =
            std::any_of(each.addresses.begin(), each.addresses.end(),
                        [&address](const auto& subnet) { return subnet.subnetHolds(address); });
        if (isNear) return each;
    }
    return private_.front();
}
