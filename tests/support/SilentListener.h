#pragma once

#include "PlainSocket.h"

namespace Vantrel {

/// A port of 127.0.0.1 whose queue is full: the system drops what else wants to connect, as if the host did
/// not exist.
class SilentListener {
  public:
    SilentListener() {
        checked(::listen(listener_, 0), "listen");
        for (PlainFd& filler : fillers_) {
            filler = PlainFd(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
            static_cast<void>(::connect(filler, LoopbackAddress(port()).get(), LoopbackAddress::SIZE));
        }
    }
    int port() const { return portOf(listener_); }

  private:
    const PlainFd listener_ = boundSocket(SOCK_STREAM);
    PlainFd fillers_[8];
};

}  // namespace Vantrel
