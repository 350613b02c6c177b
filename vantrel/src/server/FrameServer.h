#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CoEventLoop.h"
#include "CoFd.h"
#include "CoIoTcpServerDescriptor.h"
#include "CoThread.h"
#include "FrameSession.h"
#include "LocalSocket.h"
#include "NodeStore.h"
#include "ServerLimits.h"
#include "ServerOptions.h"

namespace vantreld {

/// The frame port and the local socket beside it: accepts connections on a thread of its own and serves each
/// on one more. It serves from its construction to its destruction, which ends every connection. Thread-safe.
class FrameServer {
  public:
    static constexpr unsigned DEFAULT_STALL_TIMEOUT_MS = 60000;

    struct Settings {
        int port = 0;             ///< 0: any free one
        std::string bindAddress;  ///< empty: every address
        VantrelVersion version = VANTREL_RELEASE;
        std::string redirection;  ///< record of the server to redirect to, as it travels; empty: none
        /// A transfer that moves no byte for so long ends its connection.
        unsigned stallTimeoutMs = DEFAULT_STALL_TIMEOUT_MS;
        /// Connections beyond are closed at once, with a logged warning.
        std::size_t maxConnections = MAX_FRAME_CONNECTIONS;
    };

    /// Throws CoException when it cannot listen. `store` must outlive it.
    FrameServer(NodeStore& store, const Settings& settings);
    FrameServer(const FrameServer&) = delete;
    FrameServer& operator=(const FrameServer&) = delete;
    ~FrameServer();

    int port() const { return listener_.getPort(); }

  private:
    struct Connection;

    /// One of the two sockets that connections come in at. When nothing can be accepted, for want of
    /// descriptors, say, it pauses instead of failing again and again.
    class Listener : public Vantrel::CoIoHandler {
      public:
        /// `accept` takes one waiting connection; false when that failed.
        Listener(Vantrel::CoEventLoop& loop, int descriptorId, std::function<bool()> accept);
        int descriptorId() const override { return descriptorId_; }
        bool wantsRead() const override;
        bool handleRead() override;

      private:
        Vantrel::CoEventLoop& loop_;
        const int descriptorId_;
        const std::function<bool()> accept_;
        Vantrel::CoTime::Microseconds pausedUntil_ = 0;
    };

    void acceptConnections();
    bool acceptRemote();
    bool acceptLocal();
    void addConnection(Vantrel::CoFd socket);
    void reapFinished();

    NodeStore& store_;
    const Settings settings_;
    Vantrel::CoIoTcpServerDescriptor listener_;
    std::unique_ptr<LocalSocket> localListener_;
    Vantrel::CoEventLoop loop_;                             ///< of the accepting thread
    std::vector<std::unique_ptr<Connection>> connections_;  ///< of the accepting thread
    std::unique_ptr<Vantrel::CoThread> acceptor_;           ///< last: it uses all the others
};

}  // namespace vantreld
