#include "CoIoTcpServerHandler.h"

#include <utility>

#include "CoMsg.h"

namespace Vantrel {

namespace {

/// Connections accepted in one go, so that a flood of them leaves time for the others in the loop.
constexpr int ACCEPT_BATCH = 16;
/// Long enough not to burn the processor, short enough that no client's connect times out.
constexpr unsigned ACCEPT_PAUSE_MS = 100;

}  // namespace

CoIoTcpServerHandler::CoIoTcpServerHandler(ConnectionHandler handleConnection, PauseHandler handlePause)
    : handleConnection_(std::move(handleConnection)), handlePause_(std::move(handlePause)) {}

bool CoIoTcpServerHandler::wantsRead() const {
    if (pausedUntil_ == 0) return true;
    const CoTime::Microseconds left = pausedUntil_ - CoTime::getTime();
    if (left <= 0) return true;
    // Each time: the loop's next look at the interests may be another's, and before the end of this pause.
    handlePause_(static_cast<unsigned>(left / CoTime::PER_MILLISECOND) + 1);
    return false;
}

bool CoIoTcpServerHandler::handleRead() {
    for (int i = 0; i < ACCEPT_BATCH && acceptOne(); ++i) {
    }
    return true;
}

bool CoIoTcpServerHandler::handleError() {
    CO_MSG_ERROR("Connections on port %d are not accepted any more: %s", server_.getPort(),
                 server_.getLastSocketErrorStr().c_str());
    return false;
}

bool CoIoTcpServerHandler::acceptOne() {
    CoFd connection = server_.accept();
    if (connection.isOpen()) {
        pausedUntil_ = 0;
        failing_ = false;
        handleConnection_(std::move(connection));
        return true;
    }
    if (server_.lastError() == CoIoDescriptor::IoError::Again) return false;
    if (!failing_) {
        CO_MSG_ERROR("Could not accept a connection on port %d: %s", server_.getPort(),
                     server_.lastErrorText().c_str());
    }
    failing_ = true;
    pausedUntil_ = CoTime::getTime() + ACCEPT_PAUSE_MS * CoTime::PER_MILLISECOND;
    return false;
}

}  // namespace Vantrel
