#pragma once

#include <functional>

#include "CoIoHandler.h"
#include "CoIoTcpServerDescriptor.h"
#include "CoTime.h"

namespace Vantrel {

/// Accepts the connections of one listening socket in an event loop and hands each on. When the
/// system cannot accept (no descriptors left, say) it logs why and pauses instead of spinning. Used on the
/// loop's thread.
class CoIoTcpServerHandler : public CoIoHandler {
  public:
    using ConnectionHandler = std::function<void(CoFd connection)>;
    /// Is called, when the loop asks for interests during a pause, with the milliseconds left of it.
    using PauseHandler = std::function<void(unsigned pauseMs)>;

    CoIoTcpServerHandler(ConnectionHandler handleConnection, PauseHandler handlePause);

    CoIoTcpServerDescriptor& server() { return server_; }
    const CoIoTcpServerDescriptor& server() const { return server_; }

    int descriptorId() const override { return server_.getId(); }
    bool wantsRead() const override;
    bool handleRead() override;
    bool handleError() override;

  private:
    bool acceptOne();

    CoIoTcpServerDescriptor server_;
    ConnectionHandler handleConnection_;
    PauseHandler handlePause_;
    CoTime::Microseconds pausedUntil_ = 0;
    bool failing_ = false;  ///< the failure was logged already
};

}  // namespace Vantrel
