#include "ServerAddresses.h"

#include <vantrel/VantrelTypes.h>

#include <algorithm>

#include "CoIoTcpDescriptor.h"

namespace vantreld {

std::vector<std::string> serverAddresses(const std::string& reachedAt, const std::string& bindAddress,
                                         const std::vector<std::string>& interfaceAddresses) {
    std::vector<std::string> addresses;
    const auto add = [&addresses](const std::string& address) {
        const std::string bare = Vantrel::CoIoTcpDescriptor::skipIPv4InIPv6Prefix(address.c_str());
        if (!bare.empty() && std::find(addresses.begin(), addresses.end(), bare) == addresses.end())
            addresses.push_back(bare);
    };
    add(reachedAt);
    if (!bindAddress.empty()) {
        add(bindAddress);
        return addresses;
    }
    const bool local = !addresses.empty() && VantrelOS::isLoopBackIP(addresses.front().c_str());
    for (const std::string& address : interfaceAddresses) {
        if (local || !VantrelOS::isLoopBackIP(address.c_str())) add(address);
    }
    return addresses;
}

}  // namespace vantreld
