#pragma once

#include "NodeCommands.h"
#include "NodeStore.h"
#include "ServerOptions.h"
#include "rcServerContext.h"

namespace vantreld {

/// The node port: answers node commands of logged-in clients, one at a time, on the thread that drives its
/// loop. Belongs to that thread.
class NodeServer : public Vantrel::rcServerContext {
  public:
    /// Not valid when it cannot listen (logged). `store` must outlive it.
    NodeServer(NodeStore& store, const ServerOptions& options, PathTranslations translations = {});

    /// The port that clients are told to fetch frames from.
    void setFramePort(int port) { framePort_ = port; }

    /// Whether a client has told the server to end, and was answered.
    bool shutdownRequested() const { return shutdownRequested_; }

  private:
    VantrelDaemonInfo daemonInfo() const;
    void registerShutdown();

    NodeStore& store_;
    const ServerOptions options_;
    int framePort_ = 0;
    bool shutdownRequested_ = false;
    NodeCommands commands_;
};

}  // namespace vantreld
