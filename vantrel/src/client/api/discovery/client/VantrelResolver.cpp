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

std::string VantrelResolver::getIP(int type, unsigned index) {
    if (!CO_ASSERT_NAMED(type == Metadata || type == Data, "Unhandled IP type")) return {};
    for (const std::string& ip : allowed(static_cast<Type>(type))) {
        if (!unresolvable().holds(ip) && index-- == 0) return ip;
    }
    return {};
}

bool VantrelResolver::tryEach(int type, const std::function<bool(const std::string& address)>& attempt,
                              bool flags) {
    if (!CO_ASSERT_NAMED(type == Metadata || type == Data, "Unhandled IP type")) return false;
    for (const std::string& ip : allowed(static_cast<Type>(type))) {
        if (unresolvable().holds(ip)) continue;
        if (attempt(ip)) return true;
        if (flags) flagInaccessibleIP(ip.c_str());
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

void VantrelResolver::flagReachable(const VantrelServerId& serverId, const char* ip) {
    unresolvable().remove(serverId);
    if (ip) unresolvable().remove(std::string(ip));
}

void VantrelResolver::flagAccessible(const VantrelDaemonInfo& info) {
    unresolvable().removeAllOf(info);
}
