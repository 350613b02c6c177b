#include "ServerAddresses.h"

#include <vantrel/VantrelTypes.h>

#include <algorithm>
#include <iterator>

#include "CoIoTcpDescriptor.h"

namespace vantreld {

namespace {

constexpr const char* EVERY_IPV4 = "0.0.0.0";
constexpr const char* EVERY_ADDRESS = "::";

bool isIPv6(const std::string& address) {
    return address.find(':') != std::string::npos;
}

/// fe80::/10
bool isLinkLocalIPv6(const std::string& address) {
    return address.size() > 3 && address.compare(0, 2, "fe") == 0 && address[2] >= '8' && address[2] <= 'b';
}

/// Those of the host's addresses that a listener on `bindAddress` is reached at.
std::vector<std::string> listening(const std::string& bindAddress,
                                   const std::vector<std::string>& interfaceAddresses) {
    if (bindAddress.empty() || bindAddress == EVERY_ADDRESS) return interfaceAddresses;
    if (bindAddress != EVERY_IPV4) return {bindAddress};
    std::vector<std::string> addresses;
    std::remove_copy_if(interfaceAddresses.begin(), interfaceAddresses.end(), std::back_inserter(addresses),
                        isIPv6);
    return addresses;
}

}  // namespace

std::vector<std::string> serverAddresses(const std::string& reachedAt, const std::string& bindAddress,
                                         const std::vector<std::string>& interfaceAddresses) {
    std::vector<std::string> addresses;
    const auto add = [&addresses](const std::string& address) {
        const std::string bare = Vantrel::CoIoTcpDescriptor::skipIPv4InIPv6Prefix(address.c_str());
        if (!bare.empty() && std::find(addresses.begin(), addresses.end(), bare) == addresses.end())
            addresses.push_back(bare);
    };
    add(reachedAt);
    const bool local = VantrelOS::isLoopBackIP(bindAddress.c_str()) ||
                       (!addresses.empty() && VantrelOS::isLoopBackIP(addresses.front().c_str()));
    for (const std::string& address : listening(bindAddress, interfaceAddresses)) {
        if (local || !VantrelOS::isLoopBackIP(address.c_str())) add(address);
    }
    return addresses;
}

std::vector<std::string> announcedAddresses(const std::string& bindAddress,
                                            const std::vector<std::string>& interfaceAddresses) {
    std::vector<std::string> addresses = listening(bindAddress, interfaceAddresses);
    addresses.erase(std::remove_if(addresses.begin(), addresses.end(), isLinkLocalIPv6), addresses.end());
    return addresses;
}

}  // namespace vantreld
