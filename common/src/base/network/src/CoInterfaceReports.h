#pragma once

#include "CoFd.h"

namespace Vantrel {

/// The system's reports that interfaces or addresses came, changed or went: a netlink socket. What a report
/// says is not read, since the interfaces are listed again anyway. The socket is close-on-exec. Not
/// thread-safe.
class CoInterfaceReports {
  public:
    /// The descriptor, opened when it is not; negative when the system refuses it (logged the first time).
    int open();
    void close();

    /// Whether anything was reported since the last call. Also true after the descriptor was closed: reports
    /// were missed. Never waits.
    bool take();

  private:
    CoFd socket_;
    bool loggedRefusal_ = false;
    bool missedSome_ = false;
};

}  // namespace Vantrel
