#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "EventPublisher.h"
#include "NodeCommands.h"
#include "NodeStore.h"
#include "ServerOptions.h"
#include "rcServerContext.h"

namespace vantreld {

/// The node port: answers node commands of logged-in clients, one at a time, on the thread that drives its
/// loop. Belongs to that thread.
class NodeServer {
  public:
    /// Not valid when it cannot listen (logged). `store` must outlive it.
    NodeServer(NodeStore& store, const ServerOptions& options, PathTranslations translations = {});
    NodeServer(const NodeServer&) = delete;
    NodeServer& operator=(const NodeServer&) = delete;
    ~NodeServer();

    /// Whether it listens, and on which port.
    bool isValid() const { return context_.isValid(); }
    int getPort() const { return context_.getPort(); }
    /// What the server works in; others may be served by it, too.
    Vantrel::rcAppContext& loop() { return context_; }

    /// The port that clients are directed to for frames.
    void setFramePort(int port) { framePort_ = port; }

    /// What the server announces: the answer to "GetDaemonInfo", but for no client in particular.
    VantrelDaemonInfo announcedInfo() const;
    /// The other servers that "GetDaemonList" lists, behind this one; none by default.
    void setOtherServers(std::function<std::vector<VantrelDaemonInfo>()> others) {
        commands_.setOtherServers(std::move(others));
    }

    /// What sends changes of the store to clients.
    EventPublisher& events() { return events_; }

    /// Whether a client has asked the server to shut down, and was answered.
    bool shutdownRequested() const { return shutdownRequested_; }

  private:
    using Addresses = std::function<std::vector<std::string>(const std::vector<std::string>& interfaceIPs)>;

    VantrelDaemonInfo daemonInfo() const;
    VantrelDaemonInfo describe(const Addresses& addresses) const;
    void registerNodeCommands();
    void registerShutdown();
    void registerEventCommands();

    NodeStore& store_;
    const ServerOptions options_;
    const std::string boundTo_;  ///< numeric; empty: every address
    Vantrel::rcServerContext context_;
    int framePort_ = 0;
    bool shutdownRequested_ = false;
    NodeCommands commands_;
    EventPublisher events_;
};

}  // namespace vantreld
