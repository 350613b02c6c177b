#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace Vantrel {

/// A UDP port that nobody uses now, for parties that must agree on one beforehand.
inline unsigned freeUdpPort() {
    const int id = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    const bool good = ::bind(id, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                      ::getsockname(id, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    ::close(id);
    if (!good) throw std::runtime_error(std::strerror(errno));
    return ntohs(address.sin_port);
}

}  // namespace Vantrel
