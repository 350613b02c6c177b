#pragma once

#include <functional>
#include <string>
#include <vector>

#include "VantrelDaemonInfo.h"

/// Gives the addresses of one server in the order to try them, without those that network.cfg filters out or
/// that were found dead lately. What is dead is known to all resolvers of the process. Thread safety: one
/// resolver is used by one thread at a time; the static operations are thread-safe.
class VantrelResolver {
  public:
    enum Type { Metadata = 1, Data = 2 };

    /// Keeps a copy of `info`.
    explicit VantrelResolver(const VantrelDaemonInfo& info);

    /// The usable address at position `index`, empty when there are no more. Addresses on a subnet of this
    /// host's interfaces for that traffic come first, otherwise the record's order holds. What was flagged
    /// since the last call does not count any more, so a caller that flags an address asks for the same
    /// index again.
    std::string getIP(int type, unsigned index);

    /// All usable addresses, in the same order.
    std::vector<std::string> usable(int type);

    /// Tries the usable addresses in turn until `attempt(address)` is true, and flags each for which it is
    /// false: a data address with the frame port only, since a host that refuses one port may serve others.
    /// Every address is tried once at most. False when none worked; what `attempt` throws ends it.
    bool tryEach(int type, const std::function<bool(const std::string& address)>& attempt);

    /// The address is not offered for VANTREL_UNRESOLVABLE_CACHE_TIMEOUT_SEC, unless it is reached some other
    /// way, there is news of its server or a local interface changes.
    static void flagInaccessibleIP(const char* ip);

    /// The same for a whole server, which need only be heard of again. Asking flags nothing.
    static bool isUnreachableServer(const VantrelServerId& serverId);
    static void flagUnreachableServer(const VantrelServerId& serverId);

    /// Signs of life end what was flagged: a server was reached at an address, where its frame port is then
    /// tried again as well; a record is news.
    static void flagReachable(const VantrelServerId& serverId, const VantrelDaemonInfo& info, const char* ip);
    static void flagAccessible(const VantrelDaemonInfo& info);

  private:
    /// Those of the record's addresses that network.cfg allows, in the order to try them.
    struct Allowed {
        std::vector<std::string> ips;
        bool known = false;
    };

    const std::vector<std::string>& allowed(Type type);
    bool isDead(Type type, const std::string& ip) const;

    const VantrelDaemonInfo info_;
    Allowed metadata_;
    Allowed data_;
};
