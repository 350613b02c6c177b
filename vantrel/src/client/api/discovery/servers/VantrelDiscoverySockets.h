#pragma once

#include <poll.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "CoMulticast.h"
#include "CoNetworkDispatcher.h"
#include "VantrelMulticastProtocol.h"

/// Where discovery takes place.
struct VantrelDiscoveryGroup {
    static const char* DEFAULT_SCOPE() { return Vantrel::CoMulticast::ALL_HOSTS; }

    unsigned port = 7555;  ///< UDP
    std::string scope = DEFAULT_SCOPE();
    unsigned ttl = 1;  ///< 0: no discovery

    /// The defaults above, each replaced by what network.cfg gives.
    static VantrelDiscoveryGroup configured();
};

/// The sockets of one party of discovery, client or server. One private socket per interface that network.cfg
/// selects for multicast, on a port of its dynamic range: searches and announcements leave by them, and the
/// answers come back to them. One public socket, a member of the group on all those interfaces: it hears what
/// is sent to the group.
///
/// Whatever fails is logged and left out; nothing is thrown. Without any multicast interface, or with TTL 0,
/// there are no sockets; with IPv6, loopback is none. Parties on one machine hear each other, and each hears
/// what it sends to the group. Thread safety: one thread at a time, but `send` and `receive` may run at once.
/// Ownership: the sockets, which are close-on-exec; they close with the object.
class VantrelDiscoverySockets {
  public:
    /// A datagram that was received.
    struct Datagram {
        std::string text;   ///< without what goes beyond MAX_DATAGRAM_BYTES; may hold any bytes
        std::string ip;     ///< the sender's numeric address, a link-local one with its zone
        unsigned port = 0;  ///< the sender's; to answer to
    };

    /// Opens the sockets.
    explicit VantrelDiscoverySockets(VantrelDiscoveryGroup group);
    VantrelDiscoverySockets(const VantrelDiscoverySockets&) = delete;
    VantrelDiscoverySockets& operator=(const VantrelDiscoverySockets&) = delete;
    ~VantrelDiscoverySockets();

    /// Closes all sockets and opens them on the interfaces as they are now.
    void reopen();
    /// Leaves the group and closes all sockets.
    void close();

    const VantrelDiscoveryGroup& group() const { return group_; }
    /// Whether any private socket is open: there is somewhere to send to.
    bool haveInterface() const { return !private_.empty(); }

    /// Appends the descriptors to wait on, for POLLIN, the public one last: a caller that reads them in
    /// this order takes a server's answers before the deregistration that it sent after them. `reopen` and
    /// `close` end their use.
    void addTo(std::vector<pollfd>& polled) const;
    /// Takes one datagram from a descriptor that `addTo` gave. False when there is none, or when the
    /// descriptor is none of these sockets. Never waits.
    bool receive(int descriptor, Datagram& datagram) const;

    /// To the group, by every private socket. True when at least one took it; failures are logged. A datagram
    /// above MAX_DATAGRAM_BYTES is refused and logged.
    bool send(VantrelMulticastProtocol::RequestType type, const Vantrel::rcAttrStream& payload) const;
    /// To one numeric address, from the private socket whose subnet holds it, otherwise from the first. True
    /// when the system took it, as above.
    bool send(VantrelMulticastProtocol::RequestType type, const Vantrel::rcAttrStream& payload,
              const std::string& ip, unsigned port) const;

  private:
    /// The socket of one interface, and the interface's addresses of the group's family, never none.
    struct Private {
        Vantrel::CoMulticast socket;
        std::vector<Vantrel::CoNetworkInterface> addresses;

        const std::string& name() const { return addresses.front().name; }
        const std::string& ip() const { return addresses.front().ip; }
    };
    using Addresses = std::vector<Vantrel::CoNetworkInterface>;

    std::vector<Addresses> findInterfaces() const;
    void openPrivate(Addresses addresses);
    void openPublic();
    void logPublicFailure(const char* reason) const;
    bool take(const Vantrel::CoMulticast& socket, Datagram& datagram) const;
    const Private& senderFor(const std::string& ip) const;

    const VantrelDiscoveryGroup group_;
    std::vector<Private> private_;
    std::optional<Vantrel::CoMulticast> public_;
    std::vector<std::string> joined_;  ///< interfaces on which the public socket hears the group
};
