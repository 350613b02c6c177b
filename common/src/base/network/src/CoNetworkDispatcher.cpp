#include "CoNetworkDispatcher.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <optional>

#include "CoAssert.h"
#include "CoDeferral.h"
#include "CoInterfaceReports.h"
#include "CoMsg.h"
#include "CoMutex.h"
#include "CoNetworkConfig.h"
#include "CoObserverList.h"
#include "CoPerProcess.h"

namespace Vantrel {

namespace {

constexpr const char* ANY_INTERFACE = "*";
constexpr std::size_t ROLES = 3;

using Interfaces = std::vector<CoNetworkInterface>;
using Role = CoNetworkDispatcher::Role;

unsigned countBits(const unsigned char* bytes, std::size_t size) {
    unsigned bits = 0;
    for (std::size_t i = 0; i < size; ++i) bits += static_cast<unsigned>(__builtin_popcount(bytes[i]));
    return bits;
}

/// Whether the first `bits` bits are equal.
bool samePrefix(const unsigned char* left, const unsigned char* right, unsigned bits) {
    const unsigned whole = bits / 8;
    if (std::memcmp(left, right, whole) != 0) return false;
    const unsigned rest = bits % 8;
    return rest == 0 || (left[whole] ^ right[whole]) >> (8 - rest) == 0;
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

/// Nothing, and logged, when the system does not list them.
std::optional<Interfaces> list() {
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) {
        CO_MSG_ERROR("Could not list the network interfaces: %s", coErrorText(errno).c_str());
        return std::nullopt;
    }
    Interfaces interfaces;
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

std::vector<std::string> configuredNames(Role role) {
    CoNetworkConfig& config = CoNetworkConfig::getInstance();
    std::vector<std::string> names;
    switch (role) {
        case Role::Metadata:
            config.getMetadataInterfaces(names);
            break;
        case Role::Data:
            config.getDataInterfaces(names);
            break;
        case Role::Multicast:
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

const char* nameOf(Role role) {
    switch (role) {
        case Role::Metadata:
            return "metadata";
        case Role::Data:
            return "data";
        case Role::Multicast:
            return "multicast";
    }
    return "";
}

// --- Changes ---

/// What a role's observers were last notified of.
struct Look {
    std::vector<std::string> names;
    Interfaces interfaces;
};

struct Watch {
    /// Removing one waits for its call, which may want the mutex: so never under it.
    CoObserverList<CoNetworkDispatcher::Observer> observers[ROLES];

    CoMutex mutex;
    unsigned users CO_GUARDED_BY(mutex) = 0;
    CoInterfaceReports reports CO_GUARDED_BY(mutex);
    bool listFailed CO_GUARDED_BY(mutex) = false;     ///< what was reported is still to be looked at
    std::map<Role, Look> looks CO_GUARDED_BY(mutex);  ///< of the roles that have observers

    auto& observersOf(Role role) { return observers[static_cast<std::size_t>(role)]; }
    std::vector<Role> takeChanges() CO_REQUIRES(mutex);
};

Watch& watch() {
    return CoPerProcess<Watch>::get();
}

/// Looks at what was reported. Gives the roles whose observers are to be notified.
std::vector<Role> Watch::takeChanges() {
    std::vector<Role> changed;
    if (looks.empty()) return changed;
    const bool reported = reports.take() || listFailed;
    std::optional<Interfaces> all;
    for (auto& [role, look] : looks) {
        std::vector<std::string> names = configuredNames(role);
        if (!reported && names == look.names) continue;
        if (!all) all = list();
        listFailed = !all;
        if (listFailed) break;
        Interfaces interfaces = CoNetworkDispatcher::select(role, names, *all);
        if (interfaces != look.interfaces) changed.push_back(role);
        look = {std::move(names), std::move(interfaces)};
    }
    return changed;
}

}  // namespace

bool CoNetworkInterface::subnetHolds(const std::string& address) const {
    unsigned char own[sizeof(in6_addr)] = {};
    unsigned char other[sizeof(in6_addr)] = {};
    // A prefix of no bits names no subnet: it would take every address.
    return prefixLength > 0 && ::inet_pton(family, ip.c_str(), own) == 1 &&
           ::inet_pton(family, address.c_str(), other) == 1 && samePrefix(own, other, prefixLength);
}

bool CoNetworkInterface::operator==(const CoNetworkInterface& other) const {
    return name == other.name && ip == other.ip && up == other.up && loopback == other.loopback &&
           multicast == other.multicast && family == other.family && index == other.index &&
           prefixLength == other.prefixLength && speed == other.speed;
}

bool CoNetworkDispatcher::init() {
    Watch& state = watch();
    const CoLock lock(state.mutex);
    ++state.users;
    return true;
}

void CoNetworkDispatcher::uninit() {
    Watch& state = watch();
    const CoLock lock(state.mutex);
    if (state.users > 0 && --state.users == 0) state.reports.close();
}

void CoNetworkDispatcher::addObserver(Role role, Observer* observer) {
    if (!CO_ASSERT(observer != nullptr)) return;
    Watch& state = watch();
    const CoDeferral deferral;
    const CoLock lock(state.mutex);
    state.reports.open();
    auto& observers = state.observersOf(role);
    if (observers.isEmpty()) {
        std::vector<std::string> names = configuredNames(role);
        Interfaces interfaces = select(role, names, list().value_or(Interfaces()));
        state.looks[role] = {std::move(names), std::move(interfaces)};
    }
    observers.add(observer);
}

void CoNetworkDispatcher::removeObserver(Role role, Observer* observer) {
    Watch& state = watch();
    auto& observers = state.observersOf(role);
    observers.remove(observer);
    const CoLock lock(state.mutex);
    if (observers.isEmpty()) state.looks.erase(role);
}

int CoNetworkDispatcher::changeDescriptor() {
    Watch& state = watch();
    const CoDeferral deferral;
    const CoLock lock(state.mutex);
    return state.reports.open();
}

void CoNetworkDispatcher::checkForChanges() {
    Watch& state = watch();
    std::vector<Role> changed;
    {
        const CoDeferral deferral;
        const CoLock lock(state.mutex);
        changed = state.takeChanges();
    }
    for (const Role role : changed) {
        const std::string who = coFormat("An observer of the %s network interfaces", nameOf(role));
        state.observersOf(role).notify(who.c_str(),
                                       [role](Observer& observer) { observer.interfacesChanged(role); });
    }
}

// --- Listing and choosing ---

Interfaces CoNetworkDispatcher::getInterfaces(Role role) {
    const std::optional<Interfaces> all = list();
    if (all) return select(role, configuredNames(role), *all);
    CO_MSG_ERROR("Unable to retrieve local %s network interfaces.", nameOf(role));
    return {};
}

Interfaces CoNetworkDispatcher::getAllInterfaces(bool withSpeed) {
    Interfaces interfaces = list().value_or(Interfaces());
    if (!withSpeed) return interfaces;
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
