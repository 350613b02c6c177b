#pragma once

#include <vantrel/VantrelErrorCode.h>

class VantrelDaemonInfo;

/// Holder of the daemon info of one server, through which frame connections learn where to connect. Each
/// implementation states its own thread safety.
class VantrelDaemonInfoMgr {
  public:
    virtual ~VantrelDaemonInfoMgr() = default;

    /// The server's record, fetched when the holder has none that is fresh. True: `info` points at it; it
    /// belongs to the holder and is valid until the next call of `getDaemonInfo` or `clearDaemonInfo`. False:
    /// `lastError` says why and `info` is untouched.
    [[nodiscard]] virtual bool getDaemonInfo(const VantrelDaemonInfo*& info) = 0;
    /// Forgets the record: the next `getDaemonInfo` fetches it again.
    virtual void clearDaemonInfo() = 0;
    /// Why the last failing call failed; never null.
    virtual const char* lastError() const = 0;
    virtual VantrelErrorCode lastErrorCode() const { return VANTREL_ERROR_UNREACHABLE; }
};
