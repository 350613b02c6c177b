#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Vantrel {

/// A port of 127.0.0.1 whose queue is full: the system drops what else wants to connect, as if the host did
/// not exist.
class SilentListener {
  public:
    SilentListener() {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const generic = reinterpret_cast<sockaddr*>(&address_);
        socklen_t size = sizeof address_;
        static_cast<void>(::bind(listener_, generic, size));
        static_cast<void>(::listen(listener_, 0));
        ::getsockname(listener_, generic, &size);
        for (int& filler : fillers_) {
            filler = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            static_cast<void>(::connect(filler, generic, size));
        }
    }
    SilentListener(const SilentListener&) = delete;
    SilentListener& operator=(const SilentListener&) = delete;
    ~SilentListener() {
        for (const int filler : fillers_) ::close(filler);
        ::close(listener_);
    }
    int port() const { return ntohs(address_.sin_port); }

  private:
    sockaddr_in address_{};
    const int listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int fillers_[8] = {};
};

}  // namespace Vantrel
