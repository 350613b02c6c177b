#include "CoNetworkDispatcher.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <memory>

#include "CoMsg.h"
#include "CoNetworkConfig.h"

namespace Vantrel {

namespace {

constexpr const char* ANY_INTERFACE = "*";

using Interfaces = std::vector<CoNetworkInterface>;

unsigned countBits(const unsigned char* bytes, std::size_t size) {
    unsigned bits = 0;
    for (std::size_t i = 0; i < size; ++i) bits += static_cast<unsigned>(__builtin_popcount(bytes[i]));
    return bits;
}

/// The raw bytes of an IPv4 or IPv6 address, or null.
const void* addressBytes(const sockaddr* address) {
    if (!address) return nullptr;
    const void* const any = address;
    if (address->sa_family == AF_INET) return &static_cast<const sockaddr_in*>(any)->sin_addr;
    if (address->sa_family == AF_INET6) return &static_cast<const sockaddr_in6*>(any)->sin6_addr;
    return nullptr;
}

/// "eth0" of the alias "eth0:1".
std::string deviceName(const std::string& name) {
    return name.substr(0, name.find(':'));
}

int readSpeed(const std::string& name) {
    std::ifstream file("/sys/class/net/" + deviceName(name) + "/speed");
    int speed = 0;
    return file >> speed && speed > 0 ? speed : 0;  // -1 for what has no speed
}

CoNetworkInterface describe(const ifaddrs& entry, const void* bytes) {
    CoNetworkInterface found;
    found.name = entry.ifa_name;
    found.family = entry.ifa_addr->sa_family;
    char ip[INET6_ADDRSTRLEN] = {};
    ::inet_ntop(found.family, bytes, ip, sizeof ip);
    found.ip = ip;
    found.up = (entry.ifa_flags & IFF_UP) != 0 && (entry.ifa_flags & IFF_RUNNING) != 0;
    found.loopback = (entry.ifa_flags & IFF_LOOPBACK) != 0;
    found.multicast = (entry.ifa_flags & IFF_MULTICAST) != 0;
    found.index = ::if_nametoindex(deviceName(found.name).c_str());
    if (const void* const mask = addressBytes(entry.ifa_netmask)) {
        found.prefixLength = countBits(static_cast<const unsigned char*>(mask),
                                       found.family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr));
    }
    return found;
}

Interfaces list() {
    Interfaces interfaces;
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) {
        CO_MSG_ERROR("Could not list the network interfaces: %s", coErrorText(errno).c_str());
        return interfaces;
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(first, &::freeifaddrs);
    for (const ifaddrs* entry = first; entry; entry = entry->ifa_next) {
        if (const void* const bytes = addressBytes(entry->ifa_addr)) {
            interfaces.push_back(describe(*entry, bytes));
        }
    }
    return interfaces;
}

bool isNamed(const CoNetworkInterface& candidate, const std::string& name) {
    return candidate.name == name || deviceName(candidate.name) == name;
}

std::vector<std::string> configuredNames(CoNetworkDispatcher::Role role) {
    CoNetworkConfig& config = CoNetworkConfig::getInstance();
    std::vector<std::string> names;
    switch (role) {
        case CoNetworkDispatcher::Role::Metadata:
            config.getMetadataInterfaces(names);
            break;
        case CoNetworkDispatcher::Role::Data:
            config.getDataInterfaces(names);
            break;
        case CoNetworkDispatcher::Role::Multicast:
            config.getMulticastInterfaces(names);
            break;
    }
    return names;
}

/// Moves what satisfies `wanted` from one list to the end of the other, in order.
template <typename Wanted>
void move(Interfaces& from, Interfaces& to, Wanted wanted) {
    const auto rest =
        std::stable_partition(from.begin(), from.end(), [&](const auto& each) { return !wanted(each); });
    std::move(rest, from.end(), std::back_inserter(to));
    from.erase(rest, from.end());
}

}  // namespace

bool CoNetworkDispatcher::init() {
    // Interfaces are listed when they are asked for; nothing has to be kept open yet.
    return true;
}

void CoNetworkDispatcher::uninit() {}

Interfaces CoNetworkDispatcher::getInterfaces(Role role) {
    return select(role, configuredNames(role), list());
}

Interfaces CoNetworkDispatcher::getAllInterfaces() {
    Interfaces interfaces = list();
    for (CoNetworkInterface& each : interfaces) each.speed = readSpeed(each.name);
    return interfaces;
}

Interfaces CoNetworkDispatcher::select(Role role, const std::vector<std::string>& names,
                                       const Interfaces& all) {
    Interfaces left;
    std::copy_if(all.begin(), all.end(), std::back_inserter(left), [](const auto& each) { return each.up; });
    const auto isLoopback = [](const auto& each) { return each.loopback; };
    const auto isUsable = [role](const auto& each) { return role != Role::Multicast || each.multicast; };
    const auto isMentioned = [&names](const auto& each) {
        return std::any_of(names.begin(), names.end(), [&](const auto& name) { return isNamed(each, name); });
    };

    Interfaces chosen;
    if (role != Role::Multicast) move(left, chosen, isLoopback);
    for (const std::string& name : names) {
        if (name == ANY_INTERFACE) {
            move(left, chosen, [&](const auto& each) { return isUsable(each) && !isMentioned(each); });
        } else {
            move(left, chosen, [&](const auto& each) { return isNamed(each, name); });
        }
    }
    if (names.empty()) {
        move(left, chosen, isUsable);
        if (chosen.empty()) move(left, chosen, isLoopback);
    }
    return chosen;
}

}  // namespace Vantrel
