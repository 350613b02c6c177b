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
    int speed = 0;              ///< megabits a second, 0 when unknown or not asked for

    /// Whether a numeric address is on the subnet of this one. Every host has the addresses of loopback.
    bool subnetHolds(const std::string& address) const;
    bool operator==(const CoNetworkInterface& other) const;
    bool operator!=(const CoNetworkInterface& other) const { return !(*this == other); }
};

/// The local network interfaces, chosen by what they are used for. Thread-safe. A forked child starts with
/// no observers and a watch of its own.
class CoNetworkDispatcher {
  public:
    enum class Role { Metadata, Data, Multicast };

    /// Is notified when the interfaces chosen for a role are others than before.
    class Observer {
      public:
        virtual ~Observer() = default;
        /// Called by checkForChanges, on its caller's thread, without a lock of this class; it may add and
        /// remove observers, itself too. What it throws is logged, and the others are called.
        virtual void interfacesChanged(Role role) = 0;
    };

    /// Bring the network layer up and down; pairs may nest. The last `uninit` closes the change descriptor;
    /// nothing else depends on them. False when it cannot come up.
    static bool init();
    static void uninit();

    /// The addresses to use for a role, in network.cfg's order of preference, as `select` gives them. Empty
    /// when there are none or the system does not list them (logged as an error).
    static std::vector<CoNetworkInterface> getInterfaces(Role role);

    // --- Changes ---

    /// Observers are not owned. They hear of changes from here on: who asks `getInterfaces` after it misses
    /// none. removeObserver waits for a call in progress on another thread.
    static void addObserver(Role role, Observer* observer);
    static void removeObserver(Role role, Observer* observer);
    /// Becomes readable when the interfaces may have changed: to be waited on, never read; `checkForChanges`
    /// makes it unreadable again. Opened by the first call, or the first observer, and closed by the last
    /// `uninit`; the next call then gives another one. Negative when the system refuses it (logged once).
    static int changeDescriptor();
    /// Takes in what the system has reported since the last call, and notifies the observers of every role
    /// for which `getInterfaces` gives another answer now, be it for a change of network.cfg. Never waits;
    /// cheap when nothing was reported. On several threads at once, each change is notified by one of them.
    static void checkForChanges();

    /// Every address of every interface, IPv4 and IPv6, in the system's order. Empty as above.
    /// `withSpeed`: asks for the speeds too, which takes longer; otherwise they are 0, as everywhere else.
    static std::vector<CoNetworkInterface> getAllInterfaces(bool withSpeed = false);

    /// Those of `all` that are up, ordered by the names that network.cfg gives for `role`. For metadata and
    /// data loopbacks come first, named or not. Then come the named ones in order, where "*" stands for all
    /// that no name mentions; with no names at all, all. For multicast, "*" and no names mean those capable
    /// of it, and a loopback is used when it is named, or when there are neither names nor capable ones: a
    /// machine on its own always works.
    static std::vector<CoNetworkInterface> select(Role role, const std::vector<std::string>& names,
                                                  const std::vector<CoNetworkInterface>& all);
};

}  // namespace Vantrel
