#include "CoIoTcpServerDescriptor.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "CoAssert.h"
#include "CoNameLookup.h"
#include "CoPort.h"

namespace Vantrel {

bool CoIoTcpServerDescriptor::listen(int port, const char* bindAddress) {
    close();
    clearLastError();
    if (!CO_ASSERT(port >= 0 && port <= HIGHEST_PORT)) {
        setLastError(IoError::Invalid);
        return false;
    }
    if (!bindAddress || !*bindAddress) return listenOnEvery(port);

    CoNameLookup::Addresses found(nullptr, &::freeaddrinfo);
    const int error = CoNameLookup::find(bindAddress, DEFAULT_LOOKUP_TIMEOUT_MS, nullptr, found,
                                         CoNameLookup::choiceFamily());
    if (error != 0) {
        setLastError(IoError::Other, ::gai_strerror(error));
        return false;
    }
    sockaddr_storage address{};
    std::memcpy(&address, found->ai_addr, found->ai_addrlen);
    // The port stands at the same place in both families' addresses.
    reinterpret_cast<sockaddr_in&>(address).sin_port = htons(static_cast<uint16_t>(port));
    return listenOn(found->ai_family, &address, found->ai_addrlen);
}

bool CoIoTcpServerDescriptor::listenOnEvery(int port) {
    const in_port_t networkPort = htons(static_cast<uint16_t>(port));
    const int family = CoNameLookup::choiceFamily();
    if (family != AF_INET) {
        sockaddr_in6 any{};
        any.sin6_family = AF_INET6;
        any.sin6_port = networkPort;
        any.sin6_addr = in6addr_any;
        if (listenOn(AF_INET6, &any, sizeof any)) return true;
        // Only a system without IPv6 is a reason to do with IPv4.
        if (family == AF_INET6 || (errno != EAFNOSUPPORT && errno != EADDRNOTAVAIL)) return false;
        clearLastError();
    }
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_port = networkPort;
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    return listenOn(AF_INET, &any, sizeof any);
}

bool CoIoTcpServerDescriptor::listenOn(int family, const void* address, unsigned size) {
    setId(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int off = 0;
    const bool listening =
        isValid() && setReuseAddressSocketOption(true) &&
        (family != AF_INET6 || ::setsockopt(getId(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off) == 0) &&
        ::bind(getId(), static_cast<const sockaddr*>(address), size) == 0 &&
        ::listen(getId(), SOMAXCONN) == 0;
    if (listening) return true;
    const int error = errno;
    setLastErrorFromSystem();
    close();
    errno = error;  // the caller decides by it
    return false;
}

int CoIoTcpServerDescriptor::getPort() const {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getsockname(getId(), reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
    if (address.ss_family != AF_INET && address.ss_family != AF_INET6) return 0;
    return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

CoFd CoIoTcpServerDescriptor::accept() {
    clearLastError();
    CoFd accepted;
    do {
        accepted.reset(::accept4(getId(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    } while (!accepted.isOpen() && errno == EINTR);
    if (!accepted.isOpen()) {
        // A connection that its peer gave up while it waited is no failure of ours: there just is none now.
        if (errno == ECONNABORTED) errno = EAGAIN;
        // A full descriptor table lasts: no warning of an unknown error for each attempt.
        setLastError(errno == EAGAIN ? IoError::Again : IoError::Other);
        return accepted;
    }
    const int on = 1;
    ::setsockopt(accepted.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return accepted;
}

}  // namespace Vantrel
