#pragma once

#include <string>
#include <vector>

namespace Vantrel {

/// One address of a local network interface. An interface with several addresses stands in a list once for
/// each.
struct CoNetworkInterface {
    std::string name;
    std::string ip;   ///< numeric, without a scope
    bool up = false;  ///< switched on and connected
    bool loopback = false;
    bool multicast = false;     ///< says of itself that it can do multicast
    int family = 0;             ///< AF_INET or AF_INET6
    unsigned index = 0;         ///< the system's number of the interface
    unsigned prefixLength = 0;  ///< bits of the address that name its subnet
    int speed = 0;              ///< megabits a second, 0 when unknown
};

/// The local network interfaces, chosen by what they are used for. Thread-safe.
class CoNetworkDispatcher {
  public:
    enum class Role { Metadata, Data, Multicast };

    /// Bring the network layer up and down; pairs may nest. False when it cannot come up.
    static bool init();
    static void uninit();

    /// The addresses to use for a role, in network.cfg's order of preference, as `select` gives them. Empty
    /// when there are none or the system does not list them (logged).
    static std::vector<CoNetworkInterface> getInterfaces(Role role);

    /// Every address of every interface, IPv4 and IPv6, in the system's order. Empty as above.
    static std::vector<CoNetworkInterface> getAllInterfaces();

    /// Those of `all` that are up, ordered by the names that network.cfg gives for `role`. For metadata and
    /// data loopbacks come first, named or not. Then come the named ones in order, where "*" stands for all
    /// that no name mentions; with no names at all, all. For multicast, "*" and no names mean those capable
    /// of it, and a loopback is used when it is named, or when there are neither names nor capable ones: a
    /// machine on its own always works.
    static std::vector<CoNetworkInterface> select(Role role, const std::vector<std::string>& names,
                                                  const std::vector<CoNetworkInterface>& all);
};

}  // namespace Vantrel
