#pragma once

namespace Vantrel {

class CoIoDescriptor;

/// Someone who serves one descriptor in an rcAppContext's loop. Every call comes on the loop's thread. A
/// callback that returns false is unregistered, and is not touched by the loop afterwards.
class CoIoHandler {
  public:
    CoIoHandler() = default;
    CoIoHandler(const CoIoHandler&) = delete;
    CoIoHandler& operator=(const CoIoHandler&) = delete;
    virtual ~CoIoHandler() = default;

    /// The descriptor to wait on; null or invalid makes the loop call handleError() and unregister.
    virtual CoIoDescriptor* getDescriptor() = 0;
    virtual bool wantsRead() const { return true; }
    virtual bool wantsWrite() const { return false; }

    virtual bool handleRead() { return true; }
    virtual bool handleWrite() { return true; }
    virtual bool handleError() { return false; }
};

}  // namespace Vantrel
