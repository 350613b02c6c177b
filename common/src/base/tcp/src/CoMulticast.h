#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <string>
#include <vector>

#include "CoFd.h"

namespace Vantrel {

/// A UDP socket for one multicast group and port, optionally tied to one local interface, or a member of the
/// group on several. IPv4; IPv6 when the group is an IPv6 address or QD_TCP_IPV6 is set.
///
/// Interfaces are named as the system lists them: "eth0", or an alias such as "eth0:1". An alias stands for
/// its own address where that matters (the sender's), and for its device where only the device matters (a
/// membership): a socket can be a member on "eth0" or on "eth0:1", not on both.
///
/// Every operation that fails throws CoException with what was attempted and the system's reason, and leaves
/// the socket usable.
/// Thread safety: set-up on one thread; then `send` and `receive` may run on different threads at once.
/// Ownership: the socket, which is close-on-exec, moves with the object. One that was moved from holds none,
/// and its operations fail.
class CoMulticast {
  public:
    /// What `bind` sets up.
    static constexpr bool PUBLIC = true;
    static constexpr bool PRIVATE = false;

    /// The group of every host of the link.
    static constexpr const char* ALL_HOSTS = "224.0.0.1";

    /// `scope` is the group's numeric address. With IPv6, ALL_HOSTS stands for its counterpart "ff02::1";
    /// other IPv4 groups have none and fail. Port 0: see `bind`. An empty `interface`
    /// means any.
    CoMulticast(unsigned port, const std::string& scope, const std::string& interface);

    /// AF_INET6 or AF_INET: what a socket for that group works over.
    static int familyOf(const std::string& scope);

    /// PUBLIC: receives what is sent to the group's port on any address of this host, beside the other
    /// processes that do so; port 0 takes a free one, which then is the group's. Of what is sent to groups it
    /// hears only what comes in by interfaces on which it has joined, whatever other sockets of this host
    /// have joined elsewhere. PRIVATE: takes a free port (with IPv4 and an interface, on its address), so
    /// that replies to what it sends come to it alone. With an interface, what is sent to groups leaves by
    /// it.
    void bind(bool isPublic);
    /// PRIVATE with a free port of a range, for hosts that let only some ports in; 0 to 0 is any port.
    struct PortRange {
        unsigned lowest;
        unsigned highest;
    };
    void bindPrivate(PortRange ports);

    /// Joins and leaves the group on the interface; with any, on the one that the system routes the group
    /// through. Joining twice, or leaving without having joined, fails.
    void join() { join(interface_); }
    void drop() { drop(interface_); }
    /// The same on another interface, beside those joined before. A host with several is heard on all of them
    /// by a socket that joins on each.
    void join(const std::string& interface);
    void drop(const std::string& interface);

    /// Routers that datagrams to groups may pass plus 1, at most 255: 1 stays on the subnet, 0 on this host.
    void setTTL(unsigned ttl);
    unsigned getTTL() const;
    /// Whether datagrams to groups also come to sockets of this host.
    void setLoopback(bool on);
    bool willLoopback() const;

    /// Sends one datagram of `length` bytes, to the group when `address` is null (`port` then has no
    /// meaning), otherwise to a numeric address. Never waits: a full send buffer is a failure.
    void send(const void* data, std::size_t length, const char* address, unsigned port) const;
    void send(const void* data, std::size_t length, const sockaddr_storage& to) const;

    /// Receives one datagram into `buffer` of `length` bytes; `length` becomes its size, a longer one is cut.
    /// True when one came, an empty one too. False, with length 0 and `from` as it was, when there was none,
    /// or none that this socket is to hear (see `bind`): with `block` that is only after a signal. Blocking
    /// waits without limit.
    bool receive(void* buffer, std::size_t& length, sockaddr_storage& from, bool block) const;

    /// Numeric address, an IPv4-mapped one as IPv4, and port; empty and 0 for what is no internet address.
    static void addrToIPAndPort(const sockaddr_storage& address, std::string& ip, unsigned& port);

    /// The descriptor, to wait on; negative after a move.
    int getId() const { return socket_.get(); }
    unsigned getPort() const { return port_; }
    /// The port that the socket itself is bound to; 0 when it is not.
    unsigned getLocalPort() const;
    const std::string& getScope() const { return scope_; }
    const std::string& getInterface() const { return interface_; }

  private:
    /// The local end of what goes to groups; all zero: the system chooses.
    struct Interface {
        in_addr address{};
        unsigned index = 0;
    };

    bool isIPv6() const { return group_.ss_family == AF_INET6; }
    Interface findInterface(const std::string& name) const;
    Interface findNamedInterface(const std::string& name) const;
    void open();
    bool takePort(sockaddr_storage& address, unsigned port) const;
    [[noreturn]] static void failToBind(const sockaddr_storage& address, unsigned port);
    void hearJoinedOnly() const;
    void selectInterface(const Interface& local) const;
    unsigned deviceOf(const Interface& local) const;
    int changeMembership(const Interface& local, int optionIPv4, int optionIPv6) const;
    bool isHeard(msghdr& message) const;
    int setOption(int optionIPv4, int optionIPv6, int value) const;
    int getOption(int optionIPv4, int optionIPv6, int& value) const;

    unsigned port_;
    std::string scope_;
    std::string interface_;
    sockaddr_storage group_;
    CoFd socket_;
    std::vector<unsigned> joined_;  ///< numbers of the devices, 0 where the system chose
};

}  // namespace Vantrel
