#include "FrameServer.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <system_error>

#include "CoException.h"
#include "CoMsg.h"

namespace vantreld {

using Vantrel::coErrorText;
using Vantrel::CoException;
using Vantrel::coFormat;
using Vantrel::CoIoDescriptor;
using Vantrel::CoThread;

namespace {

/// Without descriptors accepting fails at once, again and again: the time until the next try.
constexpr int ACCEPT_BACK_OFF_MS = 100;

}  // namespace

struct FrameServer::Connection {
    Connection(FrameServer& server, UniqueFd socket)
        : session(server.store_, std::move(socket), server.settings_.stallTimeoutMs, server.settings_.version,
                  server.settings_.redirection),
          thread(
              "VT Frames",
              [this, &server] {
                  session.run();
                  done = true;
                  server.wake();
              },
              [this] { session.shutDown(); }) {}

    FrameSession session;
    std::atomic<bool> done{false};  // set before the wake-up, unlike the thread's own end
    CoThread thread;                // joined before the others go away
};

FrameServer::FrameServer(NodeStore& store, const Settings& settings)
    : store_(store), settings_(settings), wakeUp_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wakeUp_.isOpen())
        throw CoException(
            coFormat("Cannot make the frame port's wake-up descriptor: %s", coErrorText(errno).c_str()));
    const char* address = settings.bindAddress.empty() ? nullptr : settings.bindAddress.c_str();
    if (!listener_.listen(settings.port, address))
        throw CoException(
            coFormat("Cannot listen on frame port %d: %s", settings.port, listener_.lastErrorText().c_str()));
    localListener_ = std::make_unique<LocalSocket>(VantrelDaemonInfo::frameMsgQPath(port()));
    acceptor_ = std::make_unique<CoThread>(
        "VT Frame Port", [this] { acceptConnections(); },
        [this] {
            stopped_ = true;
            wake();
        });
}

FrameServer::~FrameServer() = default;

void FrameServer::wake() {
    const std::uint64_t one = 1;
    // Full means woken already.
    if (::write(wakeUp_.get(), &one, sizeof one) < 0 && errno != EAGAIN)
        CO_MSG_ERROR("Cannot wake the frame port: %s", coErrorText(errno).c_str());
}

void FrameServer::acceptConnections() {
    bool backOff = false;
    while (!stopped_) {
        pollfd polled[] = {
            {wakeUp_.get(), POLLIN, 0}, {listener_.getId(), POLLIN, 0}, {localListener_->fd(), POLLIN, 0}};
        ::poll(polled, backOff ? 1 : 3, backOff ? ACCEPT_BACK_OFF_MS : -1);
        std::uint64_t count = 0;
        if (::read(wakeUp_.get(), &count, sizeof count) > 0) reapFinished();
        const bool remoteFailed = polled[1].revents != 0 && !acceptRemote();
        const bool localFailed = polled[2].revents != 0 && !acceptLocal();
        backOff = remoteFailed || localFailed;
    }
    connections_.clear();
}

bool FrameServer::acceptRemote() {
    const int id = listener_.accept();
    if (id != CoIoDescriptor::INVALID_ID) {
        addConnection(UniqueFd(id));
        return true;
    }
    if (listener_.lastError() == CoIoDescriptor::IoError::Again) return true;
    CO_MSG_WARNING("Cannot accept a frame connection: %s", listener_.lastErrorText().c_str());
    return false;
}

bool FrameServer::acceptLocal() {
    UniqueFd socket = localListener_->accept();
    if (socket.isOpen()) {
        addConnection(std::move(socket));
        return true;
    }
    if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return true;
    CO_MSG_WARNING("Cannot accept a local frame connection: %s", coErrorText(errno).c_str());
    return false;
}

void FrameServer::addConnection(UniqueFd socket) {
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
