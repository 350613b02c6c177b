#pragma once

#include <string>

#include "CoIoTcpDescriptor.h"

namespace Vantrel {

/// A listening TCP socket. Thread safety and ownership as its base class.
class CoIoTcpServerDescriptor : public CoIoTcpDescriptor {
  public:
    /// Listens on `port` (0: any free one) of `bindAddress` (a numeric address or a name); null or empty
    /// means every address, IPv4 and IPv6 where the system has both. The port may be in use by connections
    /// that are closing. False with the last error set when it cannot; the descriptor is then closed.
    bool listen(int port, const char* bindAddress = nullptr);

    /// The port it listens on, or 0.
    int getPort() const;

    /// Accepts one waiting connection (non-blocking, close-on-exec, without delay). Not open, with the last
    /// error set, when there is none: Again when none waits.
    CoFd accept();

  private:
    bool listenOnEvery(int port);
    bool listenOn(int family, const void* address, unsigned size);
};

}  // namespace Vantrel
