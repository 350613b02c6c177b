#include "VantrelDaemonHost.h"

#include <sys/stat.h>

#include <algorithm>
#include <string_view>

#include "CoException.h"
#include "CoIoTcpDescriptor.h"
#include "CoMsg.h"
#include "CoNetworkConfig.h"
#include "CoNetworkDispatcher.h"
#include "CoTime.h"
#include "VantrelSettings.h"

using Vantrel::CoDeadline;
using Vantrel::CoIoTcpDescriptor;

namespace {

bool startsWithLetter(const char* text) {
    return (*text >= 'a' && *text <= 'z') || (*text >= 'A' && *text <= 'Z');
}

/// The address that records are compared by; the text itself for a name that cannot be looked up in time.
std::string numericAddress(const char* address, const CoDeadline& deadline) {
    if (!startsWithLetter(address)) return CoIoTcpDescriptor::skipIPv4InIPv6Prefix(address);
    const unsigned leftMs = deadline.leftMs();
    if (leftMs == 0) return address;
    try {
        const std::string found = CoIoTcpDescriptor::getIpAddrFromHostName(address, leftMs);
        return CoIoTcpDescriptor::skipIPv4InIPv6Prefix(found.c_str());
    } catch (const Vantrel::CoException&) {
        return address;
    }
}

/// Metadata addresses first, then data addresses.
template <typename Test>
bool anyIP(const VantrelDaemonInfo& info, Test test) {
    const auto& metadata = info.metadataIPs();
    const auto& data = info.dataIPs();
    return std::any_of(metadata.begin(), metadata.end(), test) || std::any_of(data.begin(), data.end(), test);
}

bool hasHost(const VantrelDaemonInfo& info, const std::string& numericAddress) {
    if (numericAddress.empty()) return false;
    const auto isThat = [&numericAddress](const VantrelStr& ip) {
        return numericAddress == CoIoTcpDescriptor::skipIPv4InIPv6Prefix(ip.c_str());
    };
    if (anyIP(info, isThat)) return true;
    return VantrelOS::isLocalIP(numericAddress.c_str()) && VantrelDaemonHost::isLocal(info);
}

bool hasHostOf(const VantrelDaemonInfo& info, const VantrelDaemonInfo& other, const CoDeadline& deadline) {
    return anyIP(other,
                 [&](const VantrelStr& ip) { return hasHost(info, numericAddress(ip.c_str(), deadline)); });
}

bool areEqual(const char* left, const char* right) {
    return std::string_view(left) == right;
}

}  // namespace

bool VantrelDaemonHost::isLocal(const VantrelDaemonInfo& info) {
    if (*info.getHostUUID()) {
        std::string localUUID;
        return Vantrel::CoNetworkConfig::getInstance().getUUID(localUUID) && localUUID == info.getHostUUID();
    }
    // Listed once: a record has many addresses.
    const auto own = Vantrel::CoNetworkDispatcher::getAllInterfaces();
    const VantrelStr ownName = VantrelOS::getHostName();
    return anyIP(info, [&own, &ownName](const VantrelStr& ip) {
        // Every host has the loopback addresses: they say nothing.
        if (VantrelOS::isLoopBackIP(ip.c_str())) return false;
        const std::string_view bare = CoIoTcpDescriptor::skipIPv4InIPv6Prefix(ip.c_str());
        return ownName == ip ||
               std::any_of(own.begin(), own.end(), [bare](const auto& each) { return each.ip == bare; });
    });
}

bool VantrelDaemonHost::isSameHost(const VantrelDaemonInfo& info, const char* address) {
    if (!address || !*address) return false;
    return hasHost(info, numericAddress(address, CoDeadline(LOOKUP_TIMEOUT_MS)));
}

bool VantrelDaemonHost::isSameHost(const VantrelDaemonInfo& info, const VantrelDaemonInfo& other) {
    const CoDeadline deadline(LOOKUP_TIMEOUT_MS);
    return hasHostOf(info, other, deadline) || hasHost(info, numericAddress(other.getHostName(), deadline));
}

bool VantrelDaemonHost::isSameServer(const VantrelDaemonInfo& info, const VantrelDaemonInfo& other) {
    if (*info.getStorageId() || *other.getStorageId())
        return areEqual(info.getStorageId(), other.getStorageId());
    if (!areEqual(info.getDatabase(), other.getDatabase())) return false;
    if (*info.getHostUUID() || *other.getHostUUID()) return areEqual(info.getHostUUID(), other.getHostUUID());
    return hasHostOf(info, other, CoDeadline(LOOKUP_TIMEOUT_MS));
}

bool VantrelDaemonHost::isSameServer(const VantrelDaemonInfo& info, const VantrelServerId& serverId) {
    if (*serverId.getStorageId()) return areEqual(info.getStorageId(), serverId.getStorageId());
    if (serverId.getPort() != 0 && serverId.getPort() != info.getNodePort()) return false;
    if (*serverId.getDB() && !areEqual(info.getDatabase(), serverId.getDB())) return false;
    return isSameHost(info, serverId.getIPAddr());
}

std::string VantrelDaemonHost::frameMsgQPath(int framePort) {
    return Vantrel::coFormat("%s/vantrel-frame.%d", VantrelSettings::frameSocketDir.get(), framePort);
}

std::string VantrelDaemonHost::getFrameMsgQ(const VantrelDaemonInfo& info) {
    const std::string path = frameMsgQPath(info.getFramePort());
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) ? path : std::string();
}
