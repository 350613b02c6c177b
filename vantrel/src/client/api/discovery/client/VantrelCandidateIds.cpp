#include "VantrelCandidateIds.h"

#include <string>

#include "CoIoTcpDescriptor.h"
#include "CoNameLookup.h"
#include "CoNetworkDispatcher.h"
#include "VantrelDaemonHost.h"

using Vantrel::CoNameLookup;

namespace {

/// The numeric addresses that a host name stands for, or a numeric address itself; the name when it cannot be
/// looked up.
std::vector<std::string> numericAddresses(const char* host, unsigned timeoutMs,
                                          const std::function<bool()>& stopped) {
    CoNameLookup::Addresses found(nullptr, &::freeaddrinfo);
    std::vector<std::string> addresses;
    if (CoNameLookup::find(host, timeoutMs, stopped, found, CoNameLookup::choiceFamily()) == 0) {
        for (const addrinfo* each = found.get(); each; each = each->ai_next) {
            addresses.push_back(CoNameLookup::toNumericText(each->ai_addr, each->ai_addrlen));
        }
    }
    if (addresses.empty()) addresses.push_back(host);
    return addresses;
}

VantrelServerId atAddress(VantrelServerId id, const std::string& address) {
    id.setIPAddr(Vantrel::CoIoTcpDescriptor::skipIPv4InIPv6Prefix(address.c_str()));
    return id;
}

}  // namespace

bool VantrelCandidateId::admits(const VantrelDaemonInfo& info) const {
    return !onlyLocal || VantrelDaemonHost::isLocal(info);
}

std::vector<VantrelCandidateId> vantrelCandidateIds(const VantrelServerId& serverId, unsigned timeoutMs,
                                                    const std::function<bool()>& stopped) {
    if (*serverId.getStorageId()) return {{serverId, false}};
    if (!*serverId.getIPAddr()) return {};
    std::vector<VantrelCandidateId> candidates;
    bool isLocal = false;
    for (const std::string& address : numericAddresses(serverId.getIPAddr(), timeoutMs, stopped)) {
        candidates.push_back({atAddress(serverId, address), false});
        isLocal = isLocal || VantrelOS::isLocalIP(address.c_str());
    }
    if (!isLocal) return candidates;
    for (const auto& own : Vantrel::CoNetworkDispatcher::getAllInterfaces()) {
        candidates.push_back({atAddress(serverId, own.ip), true});
    }
    return candidates;
}
