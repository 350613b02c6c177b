#pragma once

namespace Vantrel {

/// The system's reports that interfaces or addresses came, changed or went: a netlink socket. What a report
/// says is not read, since the interfaces are listed afresh anyway. Used under its owner's lock; owns the
/// socket, which is close-on-exec.
class CoInterfaceReports {
  public:
    CoInterfaceReports() = default;
    CoInterfaceReports(const CoInterfaceReports&) = delete;
    CoInterfaceReports& operator=(const CoInterfaceReports&) = delete;
    ~CoInterfaceReports() { close(); }

    /// The descriptor, opened when it is not; negative when the system refuses it (logged the first time).
    int open();
    void close();

    /// Whether anything was reported since the last call. Also true after the descriptor was closed: nobody
    /// listened meanwhile. Never waits.
    bool take();

  private:
    int id_ = -1;
    bool toldRefusal_ = false;
    bool missedSome_ = false;
};

}  // namespace Vantrel
