#include "VantrelClientConnection.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <utility>
#include <vector>

#include "CoAssert.h"
#include "CoDeferral.h"
#include "CoException.h"
#include "CoMsg.h"
#include "VantrelClientOperation.h"
#include "VantrelMulticastClient.h"
#include "VantrelSettings.h"

namespace {

// What login announces.
constexpr unsigned short LIBRARY_VERSION[] = {2024, 0, 0, 0};
constexpr unsigned MAX_RECONNECTS_PER_CALL = 2;

std::atomic<VantrelDisconnectCallBack> disconnectCallback{nullptr};

/// A flag that is set as long as this lives.
class TemporaryFlag {
  public:
    explicit TemporaryFlag(bool& flag) : flag_(flag), earlier_(std::exchange(flag, true)) {}
    TemporaryFlag(const TemporaryFlag&) = delete;
    TemporaryFlag& operator=(const TemporaryFlag&) = delete;
    ~TemporaryFlag() { flag_ = earlier_; }

  private:
    bool& flag_;
    const bool earlier_;
};

}  // namespace

VantrelClientConnection::VantrelClientConnection(const VantrelServerId& serverId)
    : serverId_(serverId), endpoint_(LIBRARY_VERSION, std::size(LIBRARY_VERSION)) {
    serverId_.getId();  // builds its text now, so that threads may read it at the same time later
}

VantrelClientConnection::~VantrelClientConnection() = default;

// --- Stopping ---

void VantrelClientConnection::pauseForRetry(unsigned milliseconds) {
    {
        std::unique_lock<std::mutex> lock(stopMutex_);
        stopSignal_.wait_for(lock, std::chrono::milliseconds(milliseconds),
                             [this] { return stopRequested_.load(); });
    }
    throwIfStopped();
}

void VantrelClientConnection::throwIfStopped() {
    const std::lock_guard<std::mutex> lock(stopMutex_);
    if (stopRequested_) throw Vantrel::CoException(stopReason_);
}

// After a failed connect or call of the endpoint, whose flags tell of that one.
void VantrelClientConnection::throwIfStoppedOrTimedOut() {
    throwIfStopped();
    if (endpoint_.timedOut()) throw Vantrel::CoException(lastError_);
}

// --- Calling ---

void VantrelClientConnection::callMethod(const char* method, const char* argument, bool waitForResult,
                                         std::string& result, unsigned callTimeoutMs,
                                         unsigned connectTimeoutMs, unsigned retryTimeoutMs) {
    const Vantrel::CoDeferral deferral;
    const std::lock_guard<std::recursive_mutex> lock(mutex_);
    const Operation operation(*this);
    for (unsigned reconnects = neverConnects_ ? MAX_RECONNECTS_PER_CALL : 0;; ++reconnects) {
        if (endpoint_.isConnected(false)) {
            if (endpointCall(method, argument, waitForResult, result, callTimeoutMs)) return;
            if (endpoint_.timedOut()) {
                CO_MSG_ERROR("%s timed-out", method);
                endpoint_.disconnect();
                callDisconnectCallback();
                throw Vantrel::CoException(result);
            }
            if (endpoint_.isConnected(true)) throw Vantrel::CoException(result);  // the server's own answer
            lastError_ = result;
        }
        callDisconnectCallback();
        throwIfStopped();
        if (reconnects == MAX_RECONNECTS_PER_CALL) throw Vantrel::CoException(lastError_);
        connectLocked(connectTimeoutMs, retryTimeoutMs);
    }
}

void VantrelClientConnection::callConnected(const char* method, const char* argument, std::string& result,
                                            unsigned callTimeoutMs) {
    const Vantrel::CoDeferral deferral;
    const std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (!endpoint_.isConnected(true)) throw Vantrel::CoException("Not connected");
    const TemporaryFlag neverConnects(neverConnects_);
    callMethod(method, argument, true, result, callTimeoutMs, 0, 0);
}

bool VantrelClientConnection::endpointCall(const char* method, const char* argument, bool waitForResult,
                                           std::string& result, unsigned timeoutMs) {
    const bool tracing = VantrelSettings::trace.get();
    if (tracing) CO_MSG_DEBUG("Calling %s(%s)", method, argument);
    const bool ok = endpoint_.call(0, method, argument, waitForResult, result, timeoutMs);
    simulateLatency(VantrelSettings::callExtraLatencyMs);
    if (tracing) CO_MSG_DEBUG("Finished %s() -> '%s'", method, result.c_str());
    return ok;
}

std::shared_ptr<const VantrelDaemonInfo> VantrelClientConnection::getDaemonInfo(bool refresh) {
    const Vantrel::CoDeferral deferral;
    const std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (daemonInfo_ && !refresh) return daemonInfo_;
    const Operation operation(*this);
    if (!endpoint_.isConnected(true)) {
        noteLoss();
        connectLocked(getDefaultConnectionTimeoutMs(), getDefaultConnectionRetryTimeoutMs());
        if (!refresh || askedServer_) return daemonInfo_;
    }
    std::string reply;
    callMethod(GET_DAEMON_INFO, GET_DAEMON_INFO_ARGUMENT, true, reply, daemonInfoTimeoutMs(),
               getDefaultConnectionTimeoutMs(), getDefaultConnectionRetryTimeoutMs());
    daemonInfo_ = readDaemonInfo(std::move(reply));
    return daemonInfo_;
}

// The connection has been found lost outside a call.
void VantrelClientConnection::noteLoss() {
    if (!endpoint_.isConnected(false)) return;
    endpoint_.disconnect();
    callDisconnectCallback();
}

bool VantrelClientConnection::restore(unsigned connectTimeoutMs) {
    const Vantrel::CoDeferral deferral;
    const std::unique_lock<std::recursive_mutex> lock(mutex_, std::try_to_lock);
    if (!lock || endpoint_.isConnected(true)) return true;
    const Operation operation(*this);
    noteLoss();
    // Not to be held against the server when the application calls it.
    const TemporaryFlag unasked(unasked_);
    try {
        connectLocked(connectTimeoutMs, 0);
        return endpoint_.isConnected(false);  // a connect callback may have lost it again
    } catch (const std::exception&) {
        return false;  // logged
    }
}

void VantrelClientConnection::disconnect() {
    stop(nullptr);  // whoever is in a call leaves it, and the mutex
    const Vantrel::CoDeferral deferral;
    const std::lock_guard<std::recursive_mutex> lock(mutex_);
    endpoint_.disconnect();
}

void VantrelClientConnection::stop(const char* reason) {
    const Vantrel::CoDeferral deferral;
    const std::lock_guard<std::mutex> lock(stopMutex_);
    if (operations_ == 0) return;
    stopRequested_ = true;
    stopReason_ = reason ? reason : Vantrel::coErrorText(EINTR);
    stopSignal_.notify_all();
    VantrelMulticastClient::recheckWaits();
    endpoint_.stop(stopReason_.c_str());
}

std::string VantrelClientConnection::fetchDaemonList(const VantrelServerId& serverId,
                                                     unsigned callTimeoutMs) {
    VantrelClientConnection connection(serverId);
    std::string reply;
    connection.callMethod("GetDaemonList", "", true, reply, callTimeoutMs, getDefaultConnectionTimeoutMs(),
                          getDefaultConnectionRetryTimeoutMs());
    return reply;
}

// --- Callbacks ---

void VantrelClientConnection::addConnectCallback(ConnectCallback* callback) {
    if (!CO_ASSERT(callback)) return;
    const std::lock_guard<std::recursive_mutex> lock(callbacksMutex_);
    connectCallbacks_.push_back(callback);
}

void VantrelClientConnection::removeConnectCallback(ConnectCallback* callback) {
    const std::lock_guard<std::recursive_mutex> lock(callbacksMutex_);
    connectCallbacks_.erase(std::remove(connectCallbacks_.begin(), connectCallbacks_.end(), callback),
                            connectCallbacks_.end());
}

void VantrelClientConnection::connectCallbacks() {
    const Vantrel::CoDeferral deferral;
    const std::lock_guard<std::recursive_mutex> lock(mutex_);
    const std::lock_guard<std::recursive_mutex> callbacksLock(callbacksMutex_);
    const TemporaryFlag neverConnects(neverConnects_);
    const std::vector<ConnectCallback*> callbacks = connectCallbacks_;
    for (ConnectCallback* callback : callbacks) {
        // One of those before it may have removed it.
        const auto& now = connectCallbacks_;
        if (std::find(now.begin(), now.end(), callback) == now.end()) continue;
        try {
            callback->connected();
        } catch (const std::exception& error) {
            CO_MSG_ERROR("Could not restore what was kept on the server: %s", error.what());
        }
    }
}

// --- Settings ---

unsigned VantrelClientConnection::daemonInfoTimeoutMs() {
    return static_cast<unsigned>(VantrelSettings::daemonInfoTimeoutMs.get());
}

unsigned VantrelClientConnection::getDefaultCallTimeoutMs() {
    return static_cast<unsigned>(VantrelSettings::callTimeoutMs.get());
}

unsigned VantrelClientConnection::getDefaultConnectionTimeoutMs() {
    return static_cast<unsigned>(VantrelSettings::connectionTimeoutMs.get());
}

unsigned VantrelClientConnection::getDefaultConnectionRetryTimeoutMs() {
    return static_cast<unsigned>(VantrelSettings::connectionRetryTimeoutMs.get());
}

void VantrelClientConnection::setDisconnectCB(VantrelDisconnectCallBack callback) {
    disconnectCallback = callback;
}

VantrelDisconnectCallBack VantrelClientConnection::getDisconnectCB() {
    return disconnectCallback;
}

void VantrelClientConnection::callDisconnectCallback() const {
    const VantrelDisconnectCallBack callback = getDisconnectCB();
    if (!callback) return;
    Vantrel::CoDeferral::callOut(
        [callback, id = daemonInfo_ ? daemonInfo_->getServerId() : serverId_] { callback(id); });
}
