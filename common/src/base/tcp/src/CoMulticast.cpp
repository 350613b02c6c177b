#include "CoMulticast.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "CoAssert.h"
#include "CoException.h"
#include "CoIoTcpDescriptor.h"
#include "CoMsg.h"
#include "CoNameLookup.h"
#include "CoPort.h"
#include "CoTime.h"
#include "TcpSettings.h"

namespace Vantrel {

namespace {

constexpr unsigned HIGHEST_TTL = 255;
constexpr unsigned ANY_DEVICE = 0;
constexpr const char* ALL_HOSTS_IPV6 = "ff02::1";
constexpr const char* BLANKS = " \t\r\n";
constexpr const char* BAD_ADDRESS = "Cannot initialize socket address.";
constexpr const char* ROUTE_HINT = "  Check the default/multicast/gateway route entry";

[[noreturn]] void fail(const std::string& attempted, const std::string& reason) {
    throw CoException(attempted + (attempted.back() == '.' ? " " : ": ") + reason + ".");
}

[[noreturn]] void fail(const std::string& attempted, int error) {
    fail(attempted, coErrorText(error));
}

[[noreturn]] void failFromSystem(const char* attempted) {
    fail(attempted, errno);
}

const sockaddr* toSockaddr(const sockaddr_storage& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

sockaddr* toSockaddr(sockaddr_storage& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

socklen_t sizeOf(const sockaddr_storage& address) {
    return address.ss_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
}

// The port stands at the same place in both families' addresses.
void setPort(sockaddr_storage& address, unsigned port) {
    reinterpret_cast<sockaddr_in&>(address).sin_port = htons(static_cast<uint16_t>(port));
}

unsigned portOf(const sockaddr_storage& address) {
    if (address.ss_family != AF_INET && address.ss_family != AF_INET6) return 0;
    return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

/// Reads a numeric address, for IPv6 with or without a zone. 0, or the resolver's error.
int readAddress(const char* text, int family, unsigned port, sockaddr_storage& address) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo* first = nullptr;
    const int error = ::getaddrinfo(text, nullptr, &hints, &first);
    if (error != 0) return error;
    const CoNameLookup::Addresses owner(first, &::freeaddrinfo);
    address = {};
    std::memcpy(&address, first->ai_addr, first->ai_addrlen);
    setPort(address, port);
    return 0;
}

const char* groupOf(const std::string& scope, int family) {
    return family == AF_INET6 && scope == CoMulticast::ALL_HOSTS ? ALL_HOSTS_IPV6 : scope.c_str();
}

sockaddr_storage resolveScope(const std::string& scope, unsigned port) {
    if (scope.empty()) throw CoException("Empty scope");
    if (port > unsigned{HIGHEST_PORT}) fail(BAD_ADDRESS, coFormat("%u is no port", port));
    const int family = CoMulticast::familyOf(scope);
    sockaddr_storage group{};
    const int error = readAddress(groupOf(scope, family), family, port, group);
    if (error == EAI_MEMORY) fail(BAD_ADDRESS, "Out of memory");
    if (error != 0) {
        fail(BAD_ADDRESS,
             coFormat("'%s' is no %s address", scope.c_str(), family == AF_INET6 ? "IPv6" : "IPv4"));
    }
    return group;
}

/// The number of an interface, or of the one that an alias such as "eth0:1" belongs to.
unsigned indexOf(const std::string& interface) {
    return ::if_nametoindex(interface.substr(0, interface.find(':')).c_str());
}

bool isReceptionPause(int error) {
    return error == ECONNRESET || error == EAGAIN || error == EINTR;
}

}  // namespace

int CoMulticast::familyOf(const std::string& scope) {
    return TcpSettings::ipv6.get() || scope.find(':') != std::string::npos ? AF_INET6 : AF_INET;
}

CoMulticast::CoMulticast(unsigned port, const std::string& scope, const std::string& interface)
    : port_(port), scope_(scope), interface_(interface), group_(resolveScope(scope, port)) {
    open();
}

void CoMulticast::open() {
    socket_.reset(::socket(group_.ss_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    // Without it, an IPv6 socket would take IPv4's datagrams from the IPv4 sockets of the same port.
    const bool opened = socket_.isOpen() && (!isIPv6() || ::setsockopt(socket_.get(), IPPROTO_IPV6,
                                                                       IPV6_V6ONLY, &on, sizeof on) == 0);
    if (opened) return;
    const int error = errno;
    fail(coFormat("Unable to create a datagram socket%s", isIPv6() ? " for IPv6" : " for IPv4"), error);
}

CoMulticast::Interface CoMulticast::findInterface(const std::string& name) const {
    return name.empty() ? Interface() : findNamedInterface(name);
}

CoMulticast::Interface CoMulticast::findNamedInterface(const std::string& name) const {
    if (name.size() >= IFNAMSIZ || name.find_first_of(BLANKS) != std::string::npos) {
        fail("Invalid interface specified", EINVAL);
    }
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) failFromSystem("Unable to acquire network interface list");
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(first, &::freeifaddrs);

    Interface found;
    int error = ENODEV;
    for (const ifaddrs* entry = first; entry && error != 0; entry = entry->ifa_next) {
        if (name != entry->ifa_name) continue;
        found.index = indexOf(name);
        error = EADDRNOTAVAIL;
        if (isIPv6()) {
            error = 0;
        } else if (entry->ifa_addr && entry->ifa_addr->sa_family == AF_INET) {
            const void* const address = entry->ifa_addr;
            found.address = static_cast<const sockaddr_in*>(address)->sin_addr;
            error = 0;
        }
    }
    if (error != 0) fail(coFormat("Invalid interface %s", name.c_str()), error);
    return found;
}

void CoMulticast::bind(bool isPublic) {
    if (!isPublic) return bindPrivate({0, 0});
    const Interface local = findInterface(interface_);
    sockaddr_storage address{};  // any address
    address.ss_family = group_.ss_family;
    const int on = 1;
    if (::setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
        failFromSystem("Unable to set SO_REUSEADDR option");
    }
    hearJoinedOnly();
    if (!takePort(address, port_)) failToBind(address, port_);
    if (port_ == 0) {
        port_ = getLocalPort();
        setPort(group_, port_);
    }
    if (!interface_.empty()) selectInterface(local);
}

void CoMulticast::bindPrivate(PortRange ports) {
    const Interface local = findInterface(interface_);
    sockaddr_storage address{};
    address.ss_family = group_.ss_family;
    // No address reuse here: the system could give two private sockets the same port, and the replies to one
    // would go to the other.
    if (!isIPv6()) reinterpret_cast<sockaddr_in&>(address).sin_addr = local.address;
    const unsigned count = ports.highest - ports.lowest + 1;
    const auto first = static_cast<unsigned>(CoTime::getTime() % count);  // processes hardly try the same one
    unsigned tried = 0;
    while (!takePort(address, ports.lowest + (first + tried) % count)) {
        if (errno != EADDRINUSE || ++tried == count) failToBind(address, ports.lowest);
    }
    if (!interface_.empty()) selectInterface(local);
}

bool CoMulticast::takePort(sockaddr_storage& address, unsigned port) const {
    setPort(address, port);
    return ::bind(socket_.get(), toSockaddr(address), sizeOf(address)) == 0;
}

void CoMulticast::failToBind(const sockaddr_storage& address, unsigned port) {
    const int error = errno;
    const std::string ip = CoNameLookup::toNumericText(toSockaddr(address), sizeOf(address));
    fail(coFormat("Unable to bind to %s:%u", ip.c_str(), port), error);
}

void CoMulticast::hearJoinedOnly() const {
    // By itself a socket hears groups that any socket of the host has joined. A system too old to know the
    // option goes on so: the datagrams are as good as the others.
    setOption(IP_MULTICAST_ALL, IPV6_MULTICAST_ALL, 0);
    // With IPv6, membership on one interface opens all of them: `receive` has to look where each came in.
    const int on = 1;
    if (isIPv6()) ::setsockopt(socket_.get(), IPPROTO_IPV6, IPV6_RECVPKTINFO, &on, sizeof on);
}

void CoMulticast::selectInterface(const Interface& local) const {
    int result = 0;
    if (isIPv6()) {
        result =
            ::setsockopt(socket_.get(), IPPROTO_IPV6, IPV6_MULTICAST_IF, &local.index, sizeof local.index);
    } else {
        ip_mreqn request{};
        request.imr_address = local.address;
        request.imr_ifindex = static_cast<int>(local.index);
        result = ::setsockopt(socket_.get(), IPPROTO_IP, IP_MULTICAST_IF, &request, sizeof request);
    }
    if (result == 0) return;
    const int error = errno;
    fail(coFormat("Unable to set multicast i/f to %s", interface_.c_str()), error);
}

unsigned CoMulticast::deviceOf(const Interface& local) const {
    if (local.index != 0 || !isIPv6()) return local.index;
    return reinterpret_cast<const sockaddr_in6&>(group_).sin6_scope_id;
}

int CoMulticast::changeMembership(const Interface& local, int optionIPv4, int optionIPv6) const {
    if (!isIPv6()) {
        ip_mreqn request{};
        request.imr_multiaddr = reinterpret_cast<const sockaddr_in&>(group_).sin_addr;
        request.imr_address = local.address;
        request.imr_ifindex = static_cast<int>(local.index);
        return ::setsockopt(socket_.get(), IPPROTO_IP, optionIPv4, &request, sizeof request);
    }
    ipv6_mreq request{};
    request.ipv6mr_multiaddr = reinterpret_cast<const sockaddr_in6&>(group_).sin6_addr;
    request.ipv6mr_interface = deviceOf(local);
    return ::setsockopt(socket_.get(), IPPROTO_IPV6, optionIPv6, &request, sizeof request);
}

void CoMulticast::join(const std::string& interface) {
    const Interface local = findInterface(interface);
    if (changeMembership(local, IP_ADD_MEMBERSHIP, IPV6_JOIN_GROUP) == 0) {
        joined_.push_back(deviceOf(local));
        return;
    }
    const int error = errno;
    const char* const hint = error == ENODEV ? ROUTE_HINT : "";
    fail(coFormat("Unable to join multicast group %s.%s", scope_.c_str(), hint), error);
}

void CoMulticast::drop(const std::string& interface) {
    const Interface local = findInterface(interface);
    if (changeMembership(local, IP_DROP_MEMBERSHIP, IPV6_LEAVE_GROUP) == 0) {
        const auto left = std::find(joined_.begin(), joined_.end(), deviceOf(local));
        if (left != joined_.end()) joined_.erase(left);
        return;
    }
    const int error = errno;
    fail(coFormat("Unable to leave multicast group %s", scope_.c_str()), error);
}

int CoMulticast::setOption(int optionIPv4, int optionIPv6, int value) const {
    return isIPv6() ? ::setsockopt(socket_.get(), IPPROTO_IPV6, optionIPv6, &value, sizeof value)
                    : ::setsockopt(socket_.get(), IPPROTO_IP, optionIPv4, &value, sizeof value);
}

int CoMulticast::getOption(int optionIPv4, int optionIPv6, int& value) const {
    socklen_t size = sizeof value;
    return isIPv6() ? ::getsockopt(socket_.get(), IPPROTO_IPV6, optionIPv6, &value, &size)
                    : ::getsockopt(socket_.get(), IPPROTO_IP, optionIPv4, &value, &size);
}

void CoMulticast::setTTL(unsigned ttl) {
    // The system would take a number that turns negative as its own default.
    const bool possible = ttl <= HIGHEST_TTL;
    if (possible && setOption(IP_MULTICAST_TTL, IPV6_MULTICAST_HOPS, static_cast<int>(ttl)) == 0) return;
    const int error = possible ? errno : EINVAL;
    fail(coFormat("Unable to set the time-to-live to %u", ttl), error);
}

unsigned CoMulticast::getTTL() const {
    int ttl = 0;
    if (getOption(IP_MULTICAST_TTL, IPV6_MULTICAST_HOPS, ttl) != 0) {
        failFromSystem("Unable to get the time-to-live");
    }
    return static_cast<unsigned>(ttl);
}

void CoMulticast::setLoopback(bool on) {
    if (setOption(IP_MULTICAST_LOOP, IPV6_MULTICAST_LOOP, on ? 1 : 0) == 0) return;
    const int error = errno;
    fail(coFormat("Unable to set loopback to %u", on ? 1u : 0u), error);
}

bool CoMulticast::willLoopback() const {
    int on = 0;
    if (getOption(IP_MULTICAST_LOOP, IPV6_MULTICAST_LOOP, on) != 0) {
        failFromSystem("Unable to get the loopback");
    }
    return on != 0;
}

void CoMulticast::send(const void* data, std::size_t length, const char* address, unsigned port) const {
    if (!address) return send(data, length, group_);
    sockaddr_storage to{};
    if (port > unsigned{HIGHEST_PORT} || readAddress(address, group_.ss_family, port, to) != 0) {
        fail(coFormat("Unable to send %ld bytes to %s:%u", static_cast<long>(length), address, port), EINVAL);
    }
    send(data, length, to);
}

void CoMulticast::send(const void* data, std::size_t length, const sockaddr_storage& to) const {
    const ssize_t sent =
        ::sendto(socket_.get(), data, length, MSG_DONTWAIT | MSG_NOSIGNAL, toSockaddr(to), sizeOf(to));
    if (sent >= 0) return;
    const int error = errno;
    std::string ip;
    unsigned port = 0;
    addrToIPAndPort(to, ip, port);
    fail(coFormat("Unable to send %ld bytes to %s:%u", static_cast<long>(length), ip.c_str(), port), error);
}

/// Whether a datagram to a group came in by an interface on which this socket has joined. What does not tell
/// where it came from needs no look: see hearJoinedOnly.
bool CoMulticast::isHeard(msghdr& message) const {
    const cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (!header || header->cmsg_level != IPPROTO_IPV6 || header->cmsg_type != IPV6_PKTINFO) return true;
    in6_pktinfo arrival{};
    std::memcpy(&arrival, CMSG_DATA(header), sizeof arrival);
    if (!IN6_IS_ADDR_MULTICAST(&arrival.ipi6_addr)) return true;
    return std::any_of(joined_.begin(), joined_.end(), [&arrival](unsigned device) {
        return device == ANY_DEVICE || device == arrival.ipi6_ifindex;
    });
}

bool CoMulticast::receive(void* buffer, std::size_t& length, sockaddr_storage& from, bool block) const {
    const std::size_t size = std::exchange(length, 0);
    if (!CO_ASSERT(buffer != nullptr)) return false;
    sockaddr_storage sender{};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in6_pktinfo))];
    ssize_t received = 0;
    bool heard = true;
    do {
        iovec part{buffer, size};
        msghdr message{};
        message.msg_name = &sender;
        message.msg_namelen = sizeof sender;
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        received = ::recvmsg(socket_.get(), &message, block ? 0 : MSG_DONTWAIT);
        heard = received < 0 || isHeard(message);
    } while (block && !heard);
    if (received >= 0) {
        if (!heard) return false;
        length = static_cast<std::size_t>(received);
        from = sender;
        return true;
    }
    const int error = errno;
    if (isReceptionPause(error)) return false;
    fail(coFormat("Unable to receive %ld bytes", static_cast<long>(size)), error);
}

void CoMulticast::addrToIPAndPort(const sockaddr_storage& address, std::string& ip, unsigned& port) {
    port = portOf(address);
    ip.clear();
    // What is no internet address would get a name.
    if (address.ss_family != AF_INET && address.ss_family != AF_INET6) return;
    const std::string text = CoNameLookup::toNumericText(toSockaddr(address), sizeOf(address));
    ip = CoIoTcpDescriptor::skipIPv4InIPv6Prefix(text.c_str());
}

unsigned CoMulticast::getLocalPort() const {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getsockname(socket_.get(), toSockaddr(address), &size) != 0) return 0;
    return portOf(address);
}

}  // namespace Vantrel
