#pragma once

#include <atomic>
#include <exception>
#include <memory>
#include <thread>
#include <unordered_map>
#include <vector>

#include "CoMutex.h"
#include "CoThread.h"
#include "CoTime.h"
#include "VantrelEventConnection.h"
#include "VantrelEventHealthCheck.h"
#include "VantrelEventPort.h"
#include "VantrelEventServerCalls.h"
#include "rcServerContext.h"

/// Where servers deliver node events: a small remote-command server within the client, with a thread of its
/// own, "VT Event Mtr". It passes "NodeEvent" commands on to the connections that asked for them, and has
/// those connections checked (VantrelEventHealthCheck).
///
/// One for the process, started by the first connection and ended by the library's shut-down. A forked child
/// starts its own. Thread-safe.
class VantrelEventMonitor : public VantrelEventPort {
  public:
    using Connection = VantrelEventConnection;

    /// The ports that the next monitor to start tries, in order; -1 and -1, as at first: any that is free.
    static void setPortRange(int low, int high);

    /// The monitor, started where needed: never null, perhaps not usable. Throws CoException when there is
    /// none and the library is not initialised. With `destroy` it is ended and null comes back: every
    /// connection is closed, and no handler runs any more, but for the one that this very call comes from.
    static std::shared_ptr<VantrelEventMonitor> getInstance(bool destroy);
    /// The first half of that, to be called while connections to servers are still up: no handler is called
    /// any more, and servers are asked to send no more events, as far as they answer within a second in all.
    static void unregisterAll();

    /// A connection whose events the monitor passes on, which is started where needed; to be ended with
    /// VantrelEventConnection::release. Throws CoException when the monitor is of no use.
    static std::shared_ptr<Connection> open(const VantrelClientConnection::Shared& client);

    VantrelEventMonitor(int lowPort, int highPort);

    /// Whether it listens; where it does not, the log says why.
    bool isUsable() const { return thread_ != nullptr; }
    int getPort() const { return context_.getPort(); }
    /// Ends the thread soon; any thread may call it.
    void stop();

    unsigned number() const override { return static_cast<unsigned>(getPort()); }
    bool isOwnThread() const override { return threadId_ == std::this_thread::get_id(); }
    void watchSoon() override;
    void removeConnection(int id) override CO_EXCLUDES(mutex_);

  private:
    struct Holder;
    using Connections = std::unordered_map<int, std::shared_ptr<Connection>>;  // by id

    void start(const std::shared_ptr<VantrelEventMonitor>& self);
    void registerNodeEvent();
    void run() CO_EXCLUDES(mutex_);
    void serve() CO_EXCLUDES(mutex_);
    static void recover(const std::exception& error) noexcept;
    bool receive(int connectionId, Vantrel::rcParam::Array& parameters) CO_EXCLUDES(mutex_);
    void end() CO_EXCLUDES(mutex_);

    bool addConnection(const std::shared_ptr<Connection>& connection) CO_EXCLUDES(mutex_);
    std::shared_ptr<Connection> find(int id) const CO_EXCLUDES(mutex_);
    std::vector<std::shared_ptr<Connection>> connections() const CO_EXCLUDES(mutex_);

    Vantrel::rcServerContext context_;
    VantrelEventHealthCheck healthCheck_;
    VantrelEventServerCalls serverCalls_;
    std::atomic<bool> stopping_{false};
    std::atomic<std::thread::id> threadId_{};

    mutable Vantrel::CoMutex mutex_;  // never held while a connection is called
    Connections connections_ CO_GUARDED_BY(mutex_);
    bool ending_ CO_GUARDED_BY(mutex_) = false;  // no connection is added any more

    std::unique_ptr<Vantrel::CoThread> thread_;  // set before the monitor is published; last: ends first
};
