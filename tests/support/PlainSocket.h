#pragma once

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

namespace Vantrel {

/// A system call's result; throws when it failed.
inline int checked(int result, const char* what) {
    if (result < 0) throw std::system_error(errno, std::generic_category(), what);
    return result;
}

/// Owner of a descriptor for what stands on the other side of a test, which must not rest on the library.
class PlainFd {
  public:
    explicit PlainFd(int id = -1) : id_(id) {}
    PlainFd(PlainFd&& other) noexcept : id_(std::exchange(other.id_, -1)) {}
    PlainFd& operator=(PlainFd&& other) noexcept {
        const PlainFd earlier(std::exchange(id_, std::exchange(other.id_, -1)));
        return *this;
    }
    ~PlainFd() {
        if (id_ >= 0) ::close(id_);
    }
    operator int() const { return id_; }
    bool isOpen() const { return id_ >= 0; }
    void close() { *this = PlainFd(); }

  private:
    int id_;
};

struct PlainPipe {
    explicit PlainPipe(int flags = 0) {
        int ends[2];
        checked(::pipe2(ends, O_CLOEXEC | flags), "pipe2");
        read = PlainFd(ends[0]);
        write = PlainFd(ends[1]);
    }
    PlainFd read;
    PlainFd write;
};

/// An address of 127.0.0.1, for the socket calls.
class LoopbackAddress {
  public:
    explicit LoopbackAddress(int port) {
        address_.sin_family = AF_INET;
        address_.sin_port = htons(static_cast<std::uint16_t>(port));
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address_); }
    static constexpr socklen_t SIZE = sizeof(sockaddr_in);

  private:
    sockaddr_in address_{};
};

enum class PortUse { Alone, Shared };

/// A socket that is bound to a port of 127.0.0.1; 0: one that the system chooses.
inline PlainFd boundSocket(int type, int port = 0, PortUse use = PortUse::Alone) {
    PlainFd bound(checked(::socket(AF_INET, type | SOCK_CLOEXEC, 0), "socket"));
    const int reuse = use == PortUse::Shared ? 1 : 0;
    ::setsockopt(bound, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
    checked(::bind(bound, LoopbackAddress(port).get(), LoopbackAddress::SIZE), "bind");
    return bound;
}

inline int portOf(int bound) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    checked(::getsockname(bound, reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
    return ntohs(address.sin_port);
}

}  // namespace Vantrel
