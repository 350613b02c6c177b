#pragma once

namespace Vantrel {

/// What serves one descriptor in a CoEventLoop. Every call comes on the loop's thread. A callback that
/// returns false takes the handler out of the loop, which calls `released` and does not touch it afterwards.
class CoIoHandler {
  public:
    CoIoHandler() = default;
    CoIoHandler(const CoIoHandler&) = delete;
    CoIoHandler& operator=(const CoIoHandler&) = delete;
    virtual ~CoIoHandler() = default;

    /// The number of the descriptor to wait on; a negative one makes the loop call handleError() and release
    /// the handler.
    virtual int descriptorId() const = 0;
    virtual bool wantsRead() const { return true; }
    virtual bool wantsWrite() const { return false; }

    virtual bool handleRead() { return true; }
    virtual bool handleWrite() { return true; }
    virtual bool handleError() { return false; }

    /// The loop has given the handler up, which may be destroyed here.
    virtual void released() {}
};

}  // namespace Vantrel
