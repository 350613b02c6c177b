#pragma once

#include <cstddef>
#include <mutex>
#include <string>

#include "CoCache.h"
#include "CoNetworkDispatcher.h"
#include "VantrelMulticastClient.h"

/// The addresses, ports of addresses and servers that could not be reached lately; one for all of the
/// process. An entry ends by its time, by a sign of life of its server, or by a change of the local
/// interfaces: a server that goes on announcing what is known may be asked for again, its addresses are dead
/// until there is news. It listens to discovery where that runs, and never starts it. Thread-safe.
class VantrelUnresolvableCache : private VantrelMulticastClient::Observer,
                                 private Vantrel::CoNetworkDispatcher::Observer {
  public:
    /// The one of this process.
    static VantrelUnresolvableCache& get();

    /// For `get`.
    VantrelUnresolvableCache();

    static constexpr int ANY_PORT = 0;

    bool holds(const std::string& ip, int port = ANY_PORT);
    bool holds(const VantrelServerId& serverId);
    /// An entry that is there already keeps its time.
    void add(const std::string& ip, int port = ANY_PORT);
    void add(const VantrelServerId& serverId);
    void remove(const std::string& ip, int port = ANY_PORT);
    void remove(const VantrelServerId& serverId);
    /// Removes the record's addresses and the ids that denote its server. Nothing is looked up.
    void removeAllOf(const VantrelDaemonInfo& info);
    /// The ids only.
    void removeIdsOf(const VantrelDaemonInfo& info);

  private:
    /// An address, one of its ports, or a whole server id.
    struct Key {
        std::string ip;  ///< empty in the key of a server
        int port = ANY_PORT;
        VantrelServerId serverId;
        bool isThisHost = false;  ///< the server id's address is one of this host

        bool operator==(const Key& other) const {
            return ip == other.ip && port == other.port && serverId == other.serverId;
        }
    };
    /// That there is an entry is all that it tells.
    struct Mark {};
    using Cache = Vantrel::CoCache<Key, Mark>;

    static Key keyOf(const std::string& ip, int port);
    static Key keyOf(const VantrelServerId& serverId);
    bool holds(const Key& key);
    void add(const Key& key);
    void observe();
    static bool denotes(const Key& key, const VantrelDaemonInfo& info);

    void serverEvent(VantrelMulticastClient::Event event, const VantrelDaemonInfo& info) override;
    void serverHeard(const VantrelDaemonInfo& info) override { removeIdsOf(info); }
    void interfacesChanged(Vantrel::CoNetworkDispatcher::Role role) override;

    const std::size_t capacity_;
    const std::size_t evictedAtOnce_;
    Cache cache_;
    std::once_flag observing_;
};
