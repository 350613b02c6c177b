#pragma once

#include <string>
#include <vector>

namespace vantreld {

/// Where a client should look for this server, best first: the address at which it reached the server on this
/// connection (`reachedAt`, may be empty), then `bindAddress` or, when that is empty, the addresses of this
/// host's interfaces. A loopback address is told only to clients that came by one: anyone else would find
/// himself.
std::vector<std::string> serverAddresses(const std::string& reachedAt, const std::string& bindAddress,
                                         const std::vector<std::string>& interfaceAddresses);

}  // namespace vantreld
