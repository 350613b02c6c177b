#pragma once

#include <vantrel/VantrelCallbacks.h>
#include <vantrel/VantrelTypes.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "CoDeferral.h"
#include "CoMutex.h"
#include "VantrelCallOutcome.h"
#include "VantrelServerFinder.h"
#include "VantrelStopControl.h"
#include "VantrelVersion.h"
#include "rcAPI.h"

/// The metadata connection to one server: performs calls with time-outs, connecting first where needed, and
/// again after a loss. What became of a call is its outcome; the text beside it is the reply or the reason.
/// Thread safety: any thread may call; calls wait for each other, except `stop` and `isConnected`. No lock is
/// held while callbacks of the application run (see CoDeferral).
class VantrelClientConnection {
  public:
    class Shared;

    /// Restores what the library keeps on the server when the connection was lost and is up again.
    class ConnectCallback {
      public:
        virtual ~ConnectCallback() = default;
        /// Runs on the thread that found the connection lost, before its call is sent, under the connection's
        /// lock. It may use the connection by `callConnected`, which does not connect again.
        virtual void connected() = 0;
    };

    /// How long a call may take. Connecting to one address after the other gets no more than the call has
    /// left, between two pauses.
    struct Limits {
        unsigned callMs;     ///< for the answer, however often the call is sent
        unsigned connectMs;  ///< cut to seconds, for a TCP connection, and again for the login
        unsigned retryMs;    ///< for the pauses between attempts to connect

        /// As the environment sets them.
        static Limits byDefault();
    };

    /// Limits that a user of the connection has set; for the others the environment's hold. Thread-safe.
    class OwnLimits {
      public:
        void setCall(unsigned ms) { callMs_ = ms; }
        void setConnect(unsigned ms) { connectMs_ = ms; }
        void setRetry(unsigned ms) { retryMs_ = ms; }
        Limits get() const;

      private:
        using Value = std::atomic<std::int64_t>;
        static constexpr std::int64_t UNSET = -1;

        Value callMs_{UNSET};
        Value connectMs_{UNSET};
        Value retryMs_{UNSET};
    };

    /// Connects to no server yet.
    explicit VantrelClientConnection(const VantrelServerId& serverId);
    VantrelClientConnection(const VantrelClientConnection&) = delete;
    VantrelClientConnection& operator=(const VantrelClientConnection&) = delete;
    ~VantrelClientConnection();

    /// Performs one call, connecting first where needed, and at most twice: only a call that was Lost is sent
    /// again, while time is left for it. `result` is the server's reply, or the reason of a failure. A call
    /// that times out closes the connection.
    VantrelCallOutcome callMethod(const char* method, const char* argument, std::string& result,
                                  const Limits& limits);

    /// The same with a connection that is up: never connects.
    VantrelCallOutcome callConnected(const char* method, const char* argument, std::string& result,
                                     unsigned callTimeoutMs);

    /// Runs `action`, which may call the server, while no other thread does; false when one does so now.
    template <typename Action>
    [[nodiscard]] bool tryUse(Action action) {
        const Vantrel::CoDeferral deferral;
        if (!mutex_.try_lock()) return false;
        const Vantrel::CoLock lock(mutex_, std::adopt_lock);
        action();
        return true;
    }

    /// What the server said of itself when connecting, connecting now if need be; with `refresh` it is asked
    /// again. `info` is not null when it was Answered, else `error` says why.
    VantrelCallOutcome getDaemonInfo(bool refresh, std::shared_ptr<const VantrelDaemonInfo>& info,
                                     std::string& error, const Limits& limits);
    /// The server's version, from the same record.
    VantrelCallOutcome getProtocolVersion(VantrelVersion& version, std::string& error, const Limits& limits);

    /// Neither waits behind calls: those that run, and those that wait for them, fail.
    void disconnect();
    void stop(const char* reason) { control_.stop(reason); }
    bool isConnected() const { return control_.isConnected(); }
    /// For those that have more to wait for before they call.
    const VantrelStops& stops() { return control_.stops(); }

    /// The health check of those who wait for the server without calling it. True when the connection is up,
    /// or when a call is in progress on another thread, which is not waited for. One that was lost is
    /// connected again, without retries; false when that fails.
    [[nodiscard]] bool restore(unsigned connectTimeoutMs);

    /// Callbacks are not owned; each is called after every reconnection. Removing waits for a callback in
    /// progress on another thread.
    void addConnectCallback(ConnectCallback* callback);
    void removeConnectCallback(ConnectCallback* callback);

    static void setDisconnectCB(VantrelDisconnectCallBack callback);
    static VantrelDisconnectCallBack getDisconnectCB();

    /// What a server answers to "GetDaemonList", on a connection made for that; throws Vantrel::CoException
    /// with the reason of a failure. For discovery.
    static std::string fetchDaemonList(const VantrelServerId& serverId, unsigned callTimeoutMs);

  private:
    using Terms = VantrelServerFinder::Terms;

    VantrelCallOutcome callOnce(const char* method, const char* argument, std::string& result,
                                unsigned timeoutMs) CO_REQUIRES(mutex_);
    VantrelCallOutcome connect(const Terms& terms, std::string& error, bool sent = false) CO_REQUIRES(mutex_);
    VantrelCallOutcome updateDaemonInfo(bool refresh, std::string& error, Limits limits) CO_REQUIRES(mutex_);
    bool isStopped(std::string& reason) const;
    void runConnectCallbacks() CO_REQUIRES(mutex_);
    void noteLoss() CO_REQUIRES(mutex_);
    void callDisconnectCallback() const CO_REQUIRES(mutex_);

    const VantrelServerId serverId_;

    Vantrel::CoRecursiveMutex mutex_;  // serialises calls and connection changes
    Vantrel::CoRecursiveMutex callbacksMutex_ CO_ACQUIRED_AFTER(mutex_);  // held while they run

    Vantrel::rcAPI endpoint_ CO_GUARDED_BY(mutex_);
    VantrelStopControl control_;  // reaches the endpoint from any thread
    VantrelServerFinder finder_ CO_GUARDED_BY(mutex_);
    bool wasConnected_ CO_GUARDED_BY(mutex_) = false;  // at any time before
    std::vector<ConnectCallback*> connectCallbacks_ CO_GUARDED_BY(callbacksMutex_);
};
