#include "CoIoTcpDescriptor.h"

#include <fcntl.h>
#include <ifaddrs.h>
#include <limits.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "CoAssert.h"
#include "CoException.h"
#include "CoMsg.h"
#include "CoNameLookup.h"
#include "CoPort.h"
#include "CoTime.h"
#include "CoUser.h"

namespace Vantrel {

namespace {

constexpr unsigned MS_PER_SECOND = 1000;
constexpr char IPV4_IN_IPV6_PREFIX[] = "::ffff:";

// The address with `port` set; false when it is neither IPv4 nor IPv6.
bool withPort(const addrinfo& address, int port, sockaddr_storage& result) {
    if (address.ai_addrlen > sizeof result) return false;
    std::memcpy(&result, address.ai_addr, address.ai_addrlen);
    const in_port_t networkPort = htons(static_cast<uint16_t>(port));
    if (address.ai_family == AF_INET6) {
        reinterpret_cast<sockaddr_in6&>(result).sin6_port = networkPort;
    } else if (address.ai_family == AF_INET) {
        reinterpret_cast<sockaddr_in&>(result).sin_port = networkPort;
    } else {
        return false;
    }
    return true;
}

using AddressQuery = int (*)(int, sockaddr*, socklen_t*);

bool queryIP(int id, AddressQuery query, std::string& ip) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (query(id, generic, &size) != 0) return false;
    if (address.ss_family != AF_INET && address.ss_family != AF_INET6) return false;
    const std::string text = CoNameLookup::toNumericText(generic, size);
    if (text.empty()) return false;
    ip = CoIoTcpDescriptor::skipIPv4InIPv6Prefix(text.c_str());
    return true;
}

// Numeric address of an interface if its flags, masked, are `flags`; otherwise empty.
std::string interfaceIP(const ifaddrs& entry, int family, unsigned mask, unsigned flags) {
    if (!entry.ifa_addr || entry.ifa_addr->sa_family != family || (entry.ifa_flags & mask) != flags)
        return {};
    const socklen_t size = family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    return CoNameLookup::toNumericText(entry.ifa_addr, size);
}

}  // namespace

bool CoIoTcpDescriptor::connect(const char* remoteHost, int port, int sendBufSize, int rcvBufSize,
                                int connectionTimeoutSec, unsigned limitMs) {
    close();
    clearLastError();
    if (!CO_ASSERT(remoteHost != nullptr) || !CO_ASSERT(port >= 0 && port <= HIGHEST_PORT) ||
        !CO_ASSERT(sendBufSize >= 0) || !CO_ASSERT(rcvBufSize >= 0) ||
        !CO_ASSERT(connectionTimeoutSec >= 0)) {
        setLastError(IoError::Invalid);
        return false;
    }
    CO_MSG_DEBUG("Connecting to '%s:%d [%d/%d/%ds]", remoteHost, port, sendBufSize, rcvBufSize,
                 connectionTimeoutSec);
    const StopScope scope(*this);
    const unsigned seconds = std::min(static_cast<unsigned>(connectionTimeoutSec), INT_MAX / MS_PER_SECOND);
    const CoDeadline deadline(std::min(seconds * MS_PER_SECOND, limitMs));
    if (!connectAny(remoteHost, {port, sendBufSize, rcvBufSize}, deadline)) {
        close();
        return false;
    }
    clearLastError();
    CO_MSG_DEBUG("Connected to %s:%d [fd:%d]", remoteHost, port, getId());
    return true;
}

bool CoIoTcpDescriptor::connectAny(const char* host, const Options& options, const CoDeadline& deadline) {
    CoNameLookup::Addresses addresses(nullptr, &::freeaddrinfo);
    const int error = CoNameLookup::find(
        host, deadline.leftMs(), [this] { return stopRequested(); }, addresses);
    if (error != 0) {
        if (stopRequested()) {
            setLastError(IoError::Aborted);
        } else if (error == EAI_AGAIN && deadline.passed()) {
            setLastError(IoError::TimedOut);
        } else {
            setLastError(IoError::Other, ::gai_strerror(error));
        }
        CO_MSG_ERROR("Could not get info on '%s': %s", host, lastErrorText().c_str());
        return false;
    }
    // A host may serve only some of its addresses: a server that listens on IPv4 alone is often reached by a
    // name whose first address is an IPv6 one.
    const addrinfo* address = addresses.get();
    do {
        if (connectTo(*address, options, deadline)) return true;
        address = address->ai_next;
    } while (address && !stopRequested() && !deadline.passed());
    return false;
}

bool CoIoTcpDescriptor::connectTo(const addrinfo& address, const Options& options,
                                  const CoDeadline& deadline) {
    const int error = startConnecting(address, options);
    if (error == 0) return true;
    if (error == EINPROGRESS) return waitUntilConnected(deadline);
    if (error == ETIMEDOUT) CO_MSG_ERROR("Timed out on connect");
    errno = error;
    setLastErrorFromSystem();
    return false;
}

bool CoIoTcpDescriptor::beginConnect(const char* ip, int port, const KeepAlive& keepAlive) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int unknown = ::getaddrinfo(ip, nullptr, &hints, &found);
    const CoNameLookup::Addresses address(unknown == 0 ? found : nullptr, &::freeaddrinfo);
    const int error = unknown == 0 ? startConnecting(*address, {port, 0, 0}) : EINVAL;
    if (error == 0 || error == EINPROGRESS) {
        setKeepAliveSocketOption(keepAlive);
        clearLastError();  // without an option the connection still works
        return true;
    }
    close();
    setLastError(IoError::Other, unknown == 0 ? coErrorText(error) : ::gai_strerror(unknown));
    return false;
}

// 0 when it is connected at once, EINPROGRESS when it is under way, otherwise the system's error number.
int CoIoTcpDescriptor::startConnecting(const addrinfo& address, const Options& options) {
    sockaddr_storage target{};
    if (!withPort(address, options.port, target)) return EINVAL;
    setId(::socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!isValid()) return errno;
    // Without these a connection still works: their failure does not fail it.
    setNoDelaySocketOption(true);
    if (options.sendBufferBytes > 0) setSendBufferSizeSocketOption(options.sendBufferBytes);
    if (options.receiveBufferBytes > 0) setReceiveBufferSizeSocketOption(options.receiveBufferBytes);
    const auto* const generic = reinterpret_cast<const sockaddr*>(&target);
    return ::connect(getId(), generic, address.ai_addrlen) == 0 ? 0 : errno;
}

bool CoIoTcpDescriptor::waitUntilConnected(const CoDeadline& deadline) {
    for (;;) {
        const unsigned leftMs = deadline.leftMs();
        CO_MSG_DEBUG("Waiting %ld.%lds for connection on %d...", static_cast<long>(leftMs / MS_PER_SECOND),
                     static_cast<long>(leftMs % MS_PER_SECOND * CoTime::PER_MILLISECOND), getId());
        short occurred = 0;
        const WaitResult result = waitFor(POLLOUT, static_cast<int>(leftMs), occurred);
        if (result == WaitResult::Stopped) {
            setLastError(IoError::Aborted);
            return false;
        }
        if (result == WaitResult::Failed) {
            setLastErrorFromSystem();
            return false;
        }
        if (occurred & POLLHUP) {
            setLastErrorFromSocket();
            setLastError(IoError::NotConnected, lastErrorText());
            return false;
        }
        if (occurred & POLLNVAL) {
            setLastError(IoError::BadDescriptor);
            return false;
        }
        if (occurred & (POLLERR | POLLOUT)) return checkConnected();
        if (deadline.passed()) {
            setLastError(IoError::TimedOut);
            return false;
        }
    }
}

bool CoIoTcpDescriptor::checkConnected() {
    int status = 0;
    socklen_t size = sizeof status;
    if (::getsockopt(getId(), SOL_SOCKET, SO_ERROR, &status, &size) != 0) {
        CO_MSG_ERROR("Could not get status code for new connection: %s", coErrorText(errno).c_str());
        setLastErrorFromSystem();
        return false;
    }
    if (status == 0) return true;
    errno = status;
    setLastErrorFromSystem();
    return false;
}

bool CoIoTcpDescriptor::setNoDelaySocketOption(bool on) {
    const int value = on ? 1 : 0;
    if (::setsockopt(getId(), IPPROTO_TCP, TCP_NODELAY, &value, sizeof value) == 0) return true;
    setLastErrorFromSystem();
    return false;
}

bool CoIoTcpDescriptor::setNonBlocking(bool on) {
    const int flags = ::fcntl(getId(), F_GETFL);
    if (flags >= 0 && ::fcntl(getId(), F_SETFL, on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK) == 0)
        return true;
    setLastErrorFromSystem();
    return false;
}

bool CoIoTcpDescriptor::setReuseAddressSocketOption(bool on) {
    const int value = on ? 1 : 0;
    if (::setsockopt(getId(), SOL_SOCKET, SO_REUSEADDR, &value, sizeof value) == 0) return true;
    setLastErrorFromSystem();
    return false;
}

bool CoIoTcpDescriptor::setKeepAliveSocketOption(const KeepAlive& keepAlive) {
    const auto set = [this](int level, int option, int value) {
        return ::setsockopt(getId(), level, option, &value, sizeof value) == 0;
    };
    if (set(IPPROTO_TCP, TCP_KEEPIDLE, keepAlive.idleSec) &&
        set(IPPROTO_TCP, TCP_KEEPINTVL, keepAlive.intervalSec) &&
        set(IPPROTO_TCP, TCP_KEEPCNT, keepAlive.probes) &&
        (keepAlive.unansweredSec == 0 ||
         set(IPPROTO_TCP, TCP_USER_TIMEOUT, keepAlive.unansweredSec * static_cast<int>(MS_PER_SECOND))) &&
        set(SOL_SOCKET, SO_KEEPALIVE, 1)) {
        return true;
    }
    setLastErrorFromSystem();
    return false;
}

bool CoIoTcpDescriptor::getSocketIP(std::string& ip) const {
    return queryIP(
        getId(), [](int id, sockaddr* address, socklen_t* size) { return ::getsockname(id, address, size); },
        ip);
}

bool CoIoTcpDescriptor::getPeerIP(std::string& ip) const {
    return queryIP(
        getId(), [](int id, sockaddr* address, socklen_t* size) { return ::getpeername(id, address, size); },
        ip);
}

std::string CoIoTcpDescriptor::getLastSocketErrorStr() const {
    int pending = 0;
    socklen_t size = sizeof pending;
    const bool found = ::getsockopt(getId(), SOL_SOCKET, SO_ERROR, &pending, &size) == 0 && pending != 0;
    return found ? coErrorText(pending) : lastErrorText();
}

std::string CoIoTcpDescriptor::getIpAddrFromHostName(const char* hostName, unsigned timeoutMs) {
    if (!CO_ASSERT(hostName != nullptr)) throw CoException(::gai_strerror(EAI_NONAME));
    CoNameLookup::Addresses addresses(nullptr, &::freeaddrinfo);
    const int error =
        CoNameLookup::find(hostName, timeoutMs, nullptr, addresses, CoNameLookup::choiceFamily());
    if (error != 0) throw CoException(::gai_strerror(error));
    const std::string text = CoNameLookup::toNumericText(addresses->ai_addr, addresses->ai_addrlen);
    return skipIPv4InIPv6Prefix(text.c_str());
}

std::string CoIoTcpDescriptor::getHostNameFromIpAddr(const char* ip, bool numericWhenUnknown) {
    if (!CO_ASSERT(ip != nullptr)) throw CoException(::gai_strerror(EAI_NONAME));
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    int error = ::getaddrinfo(ip, nullptr, &hints, &found);
    if (error != 0) throw CoException(::gai_strerror(error));
    const CoNameLookup::Addresses address(found, &::freeaddrinfo);
    std::string name;
    error = CoNameLookup::findName(address->ai_addr, address->ai_addrlen, NI_NAMEREQD,
                                   DEFAULT_LOOKUP_TIMEOUT_MS, name);
    if (error == 0) return name;
    if (numericWhenUnknown) return ip;
    throw CoException(::gai_strerror(error));
}

std::string CoIoTcpDescriptor::getLocalIP() {
    const int family = CoNameLookup::choiceFamily() == AF_INET6 ? AF_INET6 : AF_INET;
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) == 0) {
        const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> list(first, &::freeifaddrs);
        for (const ifaddrs* entry = first; entry; entry = entry->ifa_next) {
            const std::string ip = interfaceIP(*entry, family, IFF_UP | IFF_LOOPBACK, IFF_UP);
            if (!ip.empty()) return ip;
        }
    }
    return family == AF_INET6 ? "::1" : "127.0.0.1";
}

std::string CoIoTcpDescriptor::getHostName() {
    std::string name;
    return CoUser::getHostName(name) ? name : std::string();
}

const char* CoIoTcpDescriptor::skipIPv4InIPv6Prefix(const char* address) {
    if (!address) return "";
    constexpr std::size_t length = sizeof IPV4_IN_IPV6_PREFIX - 1;
    // "::ffff:1:2" is an IPv6 address of its own: only one with dots after the prefix holds an IPv4 one.
    const bool mapped = ::strncasecmp(address, IPV4_IN_IPV6_PREFIX, length) == 0 &&
                        std::strchr(address + length, '.') != nullptr;
    return mapped ? address + length : address;
}

}  // namespace Vantrel
