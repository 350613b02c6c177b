#pragma once

#include <vantrel/VantrelClientAPI.h>
#include <vantrel/VantrelTypes.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "VantrelDaemonInfo.h"
#include "rcAPI.h"

/// The metadata connection to one server: finds it, connects with retries, checks that it is the server asked
/// for, performs calls with time-outs and connects again after a loss. Failures are thrown as
/// Vantrel::CoException. Thread safety: any thread may call; calls wait for each other, except `stop` and
/// `isConnected`. No lock is held while callbacks of the application run (see CoDeferral).
class VantrelClientConnection {
  public:
    class Shared;

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

    /// What the server said of itself when connecting, connecting now if need be; with `refresh` it is asked
    /// again. Never null. Throws with the reason.
    std::shared_ptr<const VantrelDaemonInfo> getDaemonInfo(bool refresh);

    void disconnect();
    bool isConnected() const { return endpoint_.isConnected(false); }
    void stop(const char* reason);

    const VantrelServerId& serverId() const { return serverId_; }

    static unsigned getDefaultCallTimeoutMs();
    static unsigned getDefaultConnectionTimeoutMs();
    static unsigned getDefaultConnectionRetryTimeoutMs();

    static void setDisconnectCB(VantrelDisconnectCallBack callback);
    static VantrelDisconnectCallBack getDisconnectCB();

  private:
    class Operation;
    enum class Attempt { Connected, Failed };

    void connectLocked(unsigned connectTimeoutMs, unsigned retryTimeoutMs);
    Attempt tryGivenAddress(unsigned connectTimeoutMs);
    bool findAllowedAddress(unsigned timeoutMs, std::string& address);
    Attempt identifyServer();
    std::shared_ptr<const VantrelDaemonInfo> readDaemonInfo(std::string reply) const;
    void checkIdentity(const VantrelDaemonInfo& info);
    bool endpointCall(const char* method, const char* argument, bool waitForResult, std::string& result,
                      unsigned timeoutMs);
    void pauseForRetry(unsigned milliseconds);
    void throwIfStopped();
    void throwIfStoppedOrTimedOut();
    void callDisconnectCallback() const;

    const VantrelServerId serverId_;

    std::mutex mutex_;  // serialises calls and connection changes; guards what follows
    std::shared_ptr<const VantrelDaemonInfo> daemonInfo_;
    std::string reachedAddress_;
    std::string lastError_;

    Vantrel::rcAPI endpoint_;  // used under mutex_, but for stop() and isConnected(false)

    std::mutex stopMutex_;  // guards what a stop() from another thread tells the operation in progress
    std::condition_variable stopSignal_;
    bool operating_ = false;
    bool stopRequested_ = false;
    std::string stopReason_;
};
