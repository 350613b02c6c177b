#pragma once

#include <string>
#include <vector>

namespace vantreld {

/// Where a client should look for this server, best first: the address at which it reached the server on this
/// connection (`reachedAt`, may be empty), then `bindAddress` (numeric) or, when that is empty or any
/// address, the addresses of this host's interfaces. A loopback address is given only to clients that came by
/// one: any other would find its own host.
std::vector<std::string> serverAddresses(const std::string& reachedAt, const std::string& bindAddress,
                                         const std::vector<std::string>& interfaceAddresses);

/// Where anyone should look for it, best first: as above, but for no client in particular. Loopback is among
/// them: a client of another host knows to leave it out. Link-local IPv6 addresses are not: without an
/// interface they lead nowhere.
std::vector<std::string> announcedAddresses(const std::string& bindAddress,
                                            const std::vector<std::string>& interfaceAddresses);

}  // namespace vantreld
