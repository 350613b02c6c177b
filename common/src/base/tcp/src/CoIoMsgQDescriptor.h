#pragma once

#include <sys/types.h>

#include <utility>

#include "CoIoDescriptor.h"

namespace Vantrel {

/// A local stream socket, for servers of this host: no network stack between the two ends.
/// Thread safety and ownership as its base class.
class CoIoMsgQDescriptor : public CoIoDescriptor {
  public:
    CoIoMsgQDescriptor() = default;
    explicit CoIoMsgQDescriptor(int id) : CoIoDescriptor(id) {}
    explicit CoIoMsgQDescriptor(CoFd fd) : CoIoDescriptor(std::move(fd)) {}

    /// Connects to the socket file `path`, trying again while its queue is full: ends within `timeoutMs`, or
    /// when stopped. Any user may place a file, so it must belong to root or to this process's effective
    /// user, and so must the process that listens on it.
    /// True when connected: the socket is then non-blocking and close-on-exec. False otherwise, with the
    /// last error set: the descriptor is then closed.
    bool connect(const char* path, unsigned timeoutMs);

  private:
    bool connectOnce(const void* address, unsigned size);
    bool isTrusted(uid_t owner);
    bool isPeerTrusted();
};

}  // namespace Vantrel
