#include "VantrelResolver.h"

#include <algorithm>

#include "CoAssert.h"
#include "CoIoTcpDescriptor.h"
#include "CoNetworkConfig.h"
#include "CoNetworkDispatcher.h"
#include "VantrelDaemonHost.h"
#include "VantrelUnresolvableCache.h"

using Vantrel::CoIoTcpDescriptor;
using Vantrel::CoNetworkDispatcher;
using Vantrel::CoNetworkInterface;

namespace {

using Role = CoNetworkDispatcher::Role;

constexpr char ZONE_SEPARATOR = '%';  // of a link-local address

VantrelUnresolvableCache& unresolvable() {
    return VantrelUnresolvableCache::get();
}

int framePortOf(const VantrelDaemonInfo& info) {
    return info.getFramePort() != 0 ? info.getFramePort() : int{VantrelDaemonInfo::DEFAULT_FRAME_PORT};
}

}  // namespace

VantrelResolver::VantrelResolver(const VantrelDaemonInfo& info) : info_(info) {}

// --- Addresses ---

/// What network.cfg allows of the record's addresses, those nearby first.
const std::vector<std::string>& VantrelResolver::allowed(Type type) {
    Allowed& list = type == Metadata ? metadata_ : data_;
    if (list.known) return list.ips;
    for (const VantrelStr& ip : type == Metadata ? info_.metadataIPs() : info_.dataIPs()) {
        if (Vantrel::CoNetworkConfig::getInstance().isIPInValidRange(ip)) list.ips.emplace_back(ip.c_str());
    }
    list.known = true;
    if (list.ips.size() < 2) return list.ips;
    const std::vector<CoNetworkInterface> interfaces =
        CoNetworkDispatcher::getInterfaces(type == Metadata ? Role::Metadata : Role::Data);
    const bool isLocal = VantrelDaemonHost::isLocal(info_);
    std::stable_partition(list.ips.begin(), list.ips.end(), [&](const std::string& each) {
        const std::string ip =
            CoIoTcpDescriptor::skipIPv4InIPv6Prefix(each.substr(0, each.find(ZONE_SEPARATOR)).c_str());
        return std::any_of(interfaces.begin(), interfaces.end(), [&](const CoNetworkInterface& interface) {
            // A remote server's loopback address is not on this host's.
            return (isLocal || !interface.loopback) && interface.subnetHolds(ip);
        });
    });
    return list.ips;
}

bool VantrelResolver::isDead(Type type, const std::string& ip) const {
    return unresolvable().holds(ip) || (type == Data && unresolvable().holds(ip, framePortOf(info_)));
}

std::vector<std::string> VantrelResolver::usable(int type) {
    std::vector<std::string> ips;
    if (!CO_ASSERT_NAMED(type == Metadata || type == Data, "Unhandled IP type")) return ips;
    for (const std::string& ip : allowed(static_cast<Type>(type))) {
        if (!isDead(static_cast<Type>(type), ip)) ips.push_back(ip);
    }
    return ips;
}

std::string VantrelResolver::getIP(int type, unsigned index) {
    const std::vector<std::string> ips = usable(type);
    return index < ips.size() ? ips[index] : std::string();
}

bool VantrelResolver::tryEach(int type, const std::function<bool(const std::string& address)>& attempt) {
    const int port = type == Data ? framePortOf(info_) : VantrelUnresolvableCache::ANY_PORT;
    for (const std::string& ip : usable(type)) {
        if (attempt(ip)) {
            unresolvable().remove(ip);
            unresolvable().remove(ip, port);
            return true;
        }
        unresolvable().add(ip, port);
    }
    return false;
}

// --- What is dead ---

void VantrelResolver::flagInaccessibleIP(const char* ip) {
    if (ip) unresolvable().add(std::string(ip));
}

bool VantrelResolver::isUnreachableServer(const VantrelServerId& serverId) {
    return unresolvable().holds(serverId);
}

void VantrelResolver::flagUnreachableServer(const VantrelServerId& serverId) {
    unresolvable().add(serverId);
}

void VantrelResolver::flagReachable(const VantrelServerId& serverId, const VantrelDaemonInfo& info,
                                    const char* ip) {
    unresolvable().remove(serverId);
    if (!ip) return;
    unresolvable().remove(std::string(ip));
    unresolvable().remove(std::string(ip), framePortOf(info));
}

void VantrelResolver::flagAccessible(const VantrelDaemonInfo& info) {
    unresolvable().removeAllOf(info);
}
