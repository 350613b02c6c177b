#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "CoThread.h"
#include "CoTime.h"
#include "VantrelEventSubject.h"
#include "rcServerContext.h"

/// Where servers deliver node events: a small remote-command server within the client, with a thread of its
/// own, "VT Event Mtr". It passes "NodeEvent" commands on to the connections that asked for them, and looks
/// after those: a process that only waits for events makes no call that would find a connection lost.
///
/// One for the process, started by the first connection and ended by the library's shut-down. A forked child
/// starts its own. Thread-safe, but for what it inherits.
class VantrelEventMonitor : public Vantrel::rcServerContext {
  public:
    class Connection;

    /// The ports that the next monitor to start tries, in order; -1 and -1, as at first: any that is free.
    static void setPortRange(int low, int high);

    /// The monitor, started where needed: never null, perhaps not usable. Throws CoException when there is
    /// none and the library is not initialised. With `destroy` it is ended and null comes back: every
    /// connection is closed, and no handler runs any more, but for the one that this very call comes from.
    static std::shared_ptr<VantrelEventMonitor> getInstance(bool destroy);
    /// The first half of that, to be called while connections to servers are still up: no handler is called
    /// any more, and servers are told so, as far as they answer within a second in all.
    static void unregisterAll();

    VantrelEventMonitor(int lowPort, int highPort);
    ~VantrelEventMonitor() override;

    /// Whether it listens; where it does not, the log tells why.
    bool isUsable() const { return thread_ != nullptr; }
    /// Ends the thread soon; any thread may call it.
    void stop();

    /// Commands for the connection's id reach it from now on. False when the monitor is about to end.
    bool addConnection(const std::shared_ptr<Connection>& connection);
    void removeConnection(int id);
    /// A connection has something to look after: look soon.
    void wakeUp();

    /// How long servers are told, all together, that their events are not wanted any more.
    static constexpr unsigned FAREWELL_TIME_MS = 1000;
    static constexpr const char* NOT_USABLE = "Vantrel client not correctly configured to receive events.";

  private:
    struct Holder;
    /// What a connection had registered when the monitor ended.
    struct Farewell {
        std::shared_ptr<Connection> connection;
        std::vector<VantrelEventSubject> subjects;
    };
    class Calling;
    using Microseconds = Vantrel::CoTime::Microseconds;

    static Holder& holder();

    void start(const std::shared_ptr<VantrelEventMonitor>& self);
    bool receive(const void* object, Vantrel::rcParam::Array& parameters);
    std::shared_ptr<Connection> find(int id) const;
    std::vector<std::shared_ptr<Connection>> connections() const;
    void clientGone(unsigned clientId) override;

    // --- The thread ---

    void run();
    void waitForEvents();
    void lookAfterConnections(Microseconds now);
    void renewAfterLoss(Microseconds now);
    bool restoreOne(const std::shared_ptr<Connection>& connection);
    void sayGoodbye();
    bool isOwnThread() const { return threadId_ == std::this_thread::get_id(); }

    // --- The end ---

    void leave();
    void awaitGoodbye(std::vector<Farewell> farewells);

    std::atomic<bool> stopping_{false};
    std::atomic<bool> lookSoon_{false};
    std::atomic<bool> clientLost_{false};  // and registrations perhaps with it
    std::atomic<std::thread::id> threadId_{};
    Microseconds nextLook_;         // the thread's
    Microseconds lastLook_ = 0;     // the same
    Microseconds nextRenewal_ = 0;  // the same: not before

    mutable std::mutex mutex_;  // guards what follows; never held while a connection is called
    std::unordered_map<int, std::shared_ptr<Connection>> connections_;  // by id
    bool leaving_ = false;                                              // nothing is added any more
    std::vector<Farewell> farewells_;
    std::optional<Vantrel::CoDeadline> farewellLimit_;
    std::shared_ptr<Connection> calling_;  // the thread calls its server now
    bool restoring_ = false;               // in order to connect it again
    std::condition_variable callEnded_;

    std::unique_ptr<Vantrel::CoThread> thread_;  // set before anybody knows the monitor; last: ends first
};
