#include "FrameServer.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <system_error>
#include <utility>

#include "CoException.h"
#include "CoMsg.h"
#include "VantrelDaemonHost.h"

namespace vantreld {

using Vantrel::coErrorText;
using Vantrel::CoException;
using Vantrel::CoFd;
using Vantrel::coFormat;
using Vantrel::CoIoDescriptor;
using Vantrel::CoThread;
using Vantrel::CoTime;

namespace {

/// Without descriptors accepting fails at once, again and again: the time until the next try.
constexpr CoTime::Microseconds ACCEPT_BACK_OFF = 100 * CoTime::PER_MILLISECOND;

}  // namespace

struct FrameServer::Connection {
    Connection(FrameServer& server, CoFd socket)
        : session(server.store_, std::move(socket), server.settings_.stallTimeoutMs, server.settings_.version,
                  server.settings_.redirection),
          thread(
              "VT Frames",
              [this, &server] {
                  session.run();
                  done = true;
                  server.loop_.wakeUp();
              },
              [this] { session.shutDown(); }) {}

    FrameSession session;
    std::atomic<bool> done{false};  // set before the wake-up, unlike the thread's own end
    CoThread thread;                // joined before the others go away
};

FrameServer::FrameServer(NodeStore& store, const Settings& settings) : store_(store), settings_(settings) {
    // Without one the accepting thread could not be ended. The reason is logged.
    if (!loop_.canBeWoken()) throw CoException("Cannot make the frame port's wake-up descriptor.");
    const char* address = settings.bindAddress.empty() ? nullptr : settings.bindAddress.c_str();
    if (!listener_.listen(settings.port, address))
        throw CoException(
            coFormat("Cannot listen on frame port %d: %s", settings.port, listener_.lastErrorText().c_str()));
    localListener_ = std::make_unique<LocalSocket>(VantrelDaemonHost::frameMsgQPath(port()));
    acceptor_ = std::make_unique<CoThread>(
        "VT Frame Port", [this] { acceptConnections(); }, [this] { loop_.stop(); });
}

FrameServer::~FrameServer() = default;

// --- Accepting ---

FrameServer::Listener::Listener(Vantrel::CoEventLoop& loop, int descriptorId, std::function<bool()> accept)
    : loop_(loop), descriptorId_(descriptorId), accept_(std::move(accept)) {}

bool FrameServer::Listener::wantsRead() const {
    if (CoTime::getTime() >= pausedUntil_) return true;
    // Each time: the review that comes next may be another's, and before the end of this pause.
    loop_.reviewInterestsAt(pausedUntil_);
    return false;
}

bool FrameServer::Listener::handleRead() {
    if (!accept_()) pausedUntil_ = CoTime::getTime() + ACCEPT_BACK_OFF;
    return true;
}

void FrameServer::acceptConnections() {
    Listener remote(loop_, listener_.getId(), [this] { return acceptRemote(); });
    Listener local(loop_, localListener_->fd(), [this] { return acceptLocal(); });
    loop_.add(remote);
    loop_.add(local);
    while (!loop_.stopRequested()) {
        if (loop_.pass() < 0) {
            CO_MSG_ERROR("The frame port's loop failed: %s", coErrorText(errno).c_str());
            break;
        }
        reapFinished();
    }
    connections_.clear();
}

bool FrameServer::acceptRemote() {
    CoFd socket = listener_.accept();
    if (socket.isOpen()) {
        addConnection(std::move(socket));
        return true;
    }
    if (listener_.lastError() == CoIoDescriptor::IoError::Again) return true;
    CO_MSG_WARNING("Cannot accept a frame connection: %s", listener_.lastErrorText().c_str());
    return false;
}

bool FrameServer::acceptLocal() {
    CoFd socket = localListener_->accept();
    if (socket.isOpen()) {
        addConnection(std::move(socket));
        return true;
    }
    if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return true;
    CO_MSG_WARNING("Cannot accept a local frame connection: %s", coErrorText(errno).c_str());
    return false;
}

void FrameServer::addConnection(CoFd socket) {
    reapFinished();  // those that have just ended make room
    if (connections_.size() >= settings_.maxConnections) {
        CO_MSG_WARNING("Frame connection refused: %zu are open already.", connections_.size());
        return;
    }
    try {
        connections_.push_back(std::make_unique<Connection>(*this, std::move(socket)));
    } catch (const std::exception& error) {
        CO_MSG_ERROR("Cannot serve a frame connection: %s", error.what());
    }
}

void FrameServer::reapFinished() {
    const auto finished = [](const std::unique_ptr<Connection>& connection) {
        return connection->done.load();
    };
    connections_.erase(std::remove_if(connections_.begin(), connections_.end(), finished),
                       connections_.end());
}

}  // namespace vantreld
