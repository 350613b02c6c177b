#pragma once

#include <vantrel/VantrelCallbacks.h>
#include <vantrel/VantrelTypes.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CoEnv.h"
#include "VantrelDaemonInfo.h"
#include "rcAPI.h"

/// The metadata connection to one server: finds it, by its address or through discovery, connects with
/// retries, checks that it is the server asked for, performs calls with time-outs and connects again after a
/// loss. Failures are thrown as Vantrel::CoException. Thread safety: any thread may call; calls wait for each
/// other, except `stop` and `isConnected`. No lock is held while callbacks of the application run (see
/// CoDeferral).
class VantrelClientConnection {
  public:
    class Shared;

    /// Restores what the library keeps on the server when the connection was lost and is up again.
    class ConnectCallback {
      public:
        virtual ~ConnectCallback() = default;
        /// Runs on the thread that found the connection lost, before its call is sent, under the connection's
        /// lock. It may use the connection; such a call does not connect again.
        virtual void connected() = 0;
    };

    /// Connects nobody yet.
    explicit VantrelClientConnection(const VantrelServerId& serverId);
    VantrelClientConnection(const VantrelClientConnection&) = delete;
    VantrelClientConnection& operator=(const VantrelClientConnection&) = delete;
    ~VantrelClientConnection();

    /// Connects, trying again for `retryTimeoutMs`; afterwards the daemon info is known. Throws with the
    /// reason.
    void connect(unsigned connectTimeoutMs, unsigned retryTimeoutMs);

    /// Performs one call, connecting first where needed, and at most twice. Throws with the server's message
    /// or the transport's error. A call that times out closes the connection.
    void callMethod(const char* method, const char* argument, bool waitForResult, std::string& result,
                    unsigned callTimeoutMs, unsigned connectTimeoutMs, unsigned retryTimeoutMs);

    /// The same with a connection that is up: never connects. For farewells, which nobody waits for long.
    void callConnected(const char* method, const char* argument, std::string& result, unsigned callTimeoutMs);

    /// What the server said of itself when connecting, connecting now if need be; with `refresh` it is asked
    /// again. Never null. Throws with the reason.
    std::shared_ptr<const VantrelDaemonInfo> getDaemonInfo(bool refresh);

    void disconnect();
    bool isConnected() const { return endpoint_.isConnected(false); }
    void stop(const char* reason);

    /// For whoever waits for the server without calling it. True when the connection is up, or when a call is
    /// in progress on another thread, which is not waited for. One that was lost is connected again, without
    /// retries; false when that fails.
    bool restore(unsigned connectTimeoutMs);

    /// Callbacks are not owned; each is called after every reconnection. Removing waits for a callback in
    /// progress on another thread.
    void addConnectCallback(ConnectCallback* callback);
    void removeConnectCallback(ConnectCallback* callback);
    void connectCallbacks();

    const VantrelServerId& serverId() const { return serverId_; }

    static unsigned getDefaultCallTimeoutMs();
    static unsigned getDefaultConnectionTimeoutMs();
    static unsigned getDefaultConnectionRetryTimeoutMs();

    static void setDisconnectCB(VantrelDisconnectCallBack callback);
    static VantrelDisconnectCallBack getDisconnectCB();

    /// What a server answers to "GetDaemonList", on a connection made for that. For discovery.
    static std::string fetchDaemonList(const VantrelServerId& serverId, unsigned callTimeoutMs);

  private:
    class Operation;
    enum class Attempt { Connected, Failed };

    static constexpr const char* GET_DAEMON_INFO = "GetDaemonInfo";
    static constexpr const char* GET_DAEMON_INFO_ARGUMENT = "\"\"";

    // --- Connecting (VantrelClientConnect.cpp) ---

    void connectLocked(unsigned connectTimeoutMs, unsigned retryTimeoutMs);
    void reportAddress();
    Attempt tryGivenAddress(unsigned connectTimeoutMs);
    bool findAllowedAddress(unsigned timeoutMs, std::string& address);
    Attempt tryResolvedAddresses(unsigned connectTimeoutMs);
    bool tryResolvedAddress(const VantrelDaemonInfo& info, const std::string& address,
                            unsigned connectTimeoutMs);
    [[noreturn]] void failToConnect();
    std::shared_ptr<const VantrelDaemonInfo> announcedInfo() const;
    bool askServer(std::shared_ptr<const VantrelDaemonInfo>& info);
    std::shared_ptr<const VantrelDaemonInfo> readDaemonInfo(std::string reply) const;
    void complete(VantrelDaemonInfo& info) const;
    std::string mismatch(const VantrelDaemonInfo& info) const;
    void reached(std::shared_ptr<const VantrelDaemonInfo> info);

    bool endpointCall(const char* method, const char* argument, bool waitForResult, std::string& result,
                      unsigned timeoutMs);
    void pauseForRetry(unsigned milliseconds);
    void throwIfStopped();
    void throwIfStoppedOrTimedOut();
    void callDisconnectCallback() const;
    void noteLoss();
    static unsigned daemonInfoTimeoutMs();
    static void simulateLatency(const Vantrel::CoEnvInt& setting);

    const VantrelServerId serverId_;

    std::recursive_mutex mutex_;  // serialises calls and connection changes; guards what follows
    std::shared_ptr<const VantrelDaemonInfo> daemonInfo_;
    std::string reachedAddress_;
    std::string lastError_;
    bool wasConnected_ = false;   // at any time before
    bool askedServer_ = false;    // since the last connect: daemonInfo_ is the server's own answer
    bool neverConnects_ = false;  // a call now leaves a lost connection lost
    bool unasked_ = false;        // connecting for restore(): nobody is told of its failure

    std::recursive_mutex callbacksMutex_;  // held while they run; taken after mutex_
    std::vector<ConnectCallback*> connectCallbacks_;

    Vantrel::rcAPI endpoint_;  // used under mutex_, but for stop() and isConnected(false)

    std::mutex stopMutex_;  // guards what a stop() from another thread tells the operation in progress
    std::condition_variable stopSignal_;
    unsigned operations_ = 0;                 // in progress: the outermost and those nested in it
    std::atomic<bool> stopRequested_{false};  // atomic: discovery looks without the mutex
    std::string stopReason_;
};
