#include "VantrelClientConnection.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iterator>
#include <optional>
#include <thread>
#include <vector>

#include "CoDeferral.h"
#include "CoException.h"
#include "CoMsg.h"
#include "CoNetworkConfig.h"
#include "CoNetworkDispatcher.h"
#include "VantrelSettings.h"

using Vantrel::coFormat;

namespace {

// What login announces.
constexpr unsigned short LIBRARY_VERSION[] = {2024, 0, 0, 0};
constexpr unsigned MAX_RECONNECTS_PER_CALL = 2;
constexpr unsigned RETRY_PAUSE_MS = 1000;
constexpr int DEFAULT_NODE_PORT = 7549;

constexpr const char* GET_DAEMON_INFO = "GetDaemonInfo";
constexpr const char* GET_DAEMON_INFO_ARGUMENT = "\"\"";

std::atomic<VantrelDisconnectCallBack> disconnectCallback{nullptr};

unsigned getDaemonInfoTimeoutMs() {
    return static_cast<unsigned>(VantrelSettings::daemonInfoTimeoutMs.get());
}

bool isNumericAddress(const std::string& text) {
    in6_addr ignored;
    return ::inet_pton(AF_INET, text.c_str(), &ignored) == 1 ||
           ::inet_pton(AF_INET6, text.c_str(), &ignored) == 1;
}

void simulateLatency(const Vantrel::CoEnvInt& setting) {
    const long milliseconds = setting.get();
    if (milliseconds <= 0) return;
    if (VantrelSettings::trace.get()) {
        CO_MSG_DEBUG("Simulating extra latency of %d ms", static_cast<int>(milliseconds));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void logInterfaces(const char* familyName, int family) {
    std::vector<Vantrel::CoNetworkInterface> found;
    for (const auto& entry : Vantrel::CoNetworkDispatcher::getAllInterfaces()) {
        if (entry.family == family) found.push_back(entry);
    }
    if (found.empty()) {
        CO_MSG_USER("Could not retrieve %s interfaces", familyName);
        return;
    }
    int nameWidth = 0;
    int addressWidth = 0;
    for (const auto& entry : found) {
        nameWidth = std::max(nameWidth, static_cast<int>(entry.name.size()));
        addressWidth = std::max(addressWidth, static_cast<int>(entry.ip.size()));
    }
    CO_MSG_USER("Local %s interfaces", familyName);
    for (const auto& entry : found) {
        CO_MSG_USER("  (%-*s) %-*s [%5d Mb/s]  %-*s  [%s]", nameWidth, entry.name.c_str(), addressWidth,
                    entry.ip.c_str(), entry.speed, 4, entry.up ? "up" : "down",
                    entry.loopback    ? "loopback"
                    : entry.multicast ? "multicast"
                                      : "unicast");
    }
}

void logNetwork() {
    if (!VantrelSettings::networkDebug.get()) return;
    logInterfaces("IPv4", AF_INET);
    logInterfaces("IPv6", AF_INET6);
    CO_MSG_USER("%s", Vantrel::CoNetworkConfig::getInstance().getIPRangeFiltersInfo().c_str());
}

}  // namespace

// Marks a connect or a call in progress, so that a stop() at any moment of it is noticed.
class VantrelClientConnection::Operation {
  public:
    explicit Operation(VantrelClientConnection& connection) : connection_(connection) {
        const std::lock_guard<std::mutex> lock(connection_.stopMutex_);
        endpointOperation_.emplace(connection_.endpoint_);
        connection_.operating_ = true;
        connection_.stopRequested_ = false;
    }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;
    ~Operation() {
        const std::lock_guard<std::mutex> lock(connection_.stopMutex_);
        connection_.operating_ = false;
        endpointOperation_.reset();
    }

  private:
    VantrelClientConnection& connection_;
    std::optional<Vantrel::rcAPI::Operation> endpointOperation_;
};

VantrelClientConnection::VantrelClientConnection(const VantrelServerId& serverId)
    : serverId_(serverId), endpoint_(LIBRARY_VERSION, std::size(LIBRARY_VERSION)) {}

VantrelClientConnection::~VantrelClientConnection() = default;

// --- Connecting ---

void VantrelClientConnection::connect(unsigned connectTimeoutMs, unsigned retryTimeoutMs) {
    const Vantrel::CoDeferral deferral;
    const std::lock_guard<std::mutex> lock(mutex_);
    const Operation operation(*this);
    connectLocked(connectTimeoutMs, retryTimeoutMs);
}

void VantrelClientConnection::connectLocked(unsigned connectTimeoutMs, unsigned retryTimeoutMs) {
    logNetwork();
    if (VantrelSettings::useClientIp.get()) {
        VantrelStrList addresses;
        if (VantrelOS::getLocalMetadataIPs(addresses) && addresses.size() > 0) {
            endpoint_.setReportedAddress(addresses.getStr(0));
        }
    }
    for (unsigned retryLeftMs = retryTimeoutMs;;) {
        if (tryGivenAddress(connectTimeoutMs) == Attempt::Connected) return;
        if (retryLeftMs == 0) break;
        const unsigned pauseMs = std::min(RETRY_PAUSE_MS, retryLeftMs);
        retryLeftMs -= pauseMs;
        pauseForRetry(pauseMs);
    }
    const std::string text = coFormat("Server not found [%s:%u] [%s] [%s]: %s.", serverId_.getIPAddr(),
                                      static_cast<unsigned>(serverId_.getPort()), serverId_.getDB(),
                                      serverId_.getStorageId(), lastError_.c_str());
    CO_MSG_ERROR("%s", text.c_str());
    throw Vantrel::CoException(text);
}

VantrelClientConnection::Attempt VantrelClientConnection::tryGivenAddress(unsigned connectTimeoutMs) {
    const int port = serverId_.getPort();
    if (!*serverId_.getIPAddr() || port == 0) {
        lastError_ = "No address and port given";
        return Attempt::Failed;
    }
    std::string address;
    if (!findAllowedAddress(connectTimeoutMs, address)) return Attempt::Failed;
    simulateLatency(VantrelSettings::connectExtraLatencyMs);
    throwIfStopped();
    if (!endpoint_.connect(address.c_str(), port, connectTimeoutMs)) {
        lastError_ = endpoint_.lastError();
        throwIfStoppedOrTimedOut();
        return Attempt::Failed;
    }
    reachedAddress_ = address;
    return identifyServer();
}

// The address to connect to; false when the IP range filters keep it out. A name is judged by the address
// that it stands for, which is then also the one connected to.
bool VantrelClientConnection::findAllowedAddress(unsigned timeoutMs, std::string& address) {
    address = serverId_.getIPAddr();
    auto& config = Vantrel::CoNetworkConfig::getInstance();
    Vantrel::CoNetworkConfig::IPRangeFilters accept;
    Vantrel::CoNetworkConfig::IPRangeFilters reject;
    config.getIPRangeFilters(accept, reject);
    if (accept.empty() && reject.empty()) return true;
    if (!isNumericAddress(address)) {
        try {
            address = Vantrel::CoIoTcpDescriptor::getIpAddrFromHostName(address.c_str(), timeoutMs);
        } catch (const Vantrel::CoException& error) {
            lastError_ = error.what();
            return false;
        }
    }
    if (config.isIPInValidRange(address.c_str())) return true;
    lastError_ = coFormat("Specified IP in server Id [%s] rejected by IP range filtering", serverId_.getId());
    CO_MSG_WARNING("%s", lastError_.c_str());
    return false;
}

VantrelClientConnection::Attempt VantrelClientConnection::identifyServer() {
    CO_MSG_NOTICE("Connected to server [%s:%u] [%s] [%s].", serverId_.getIPAddr(),
                  static_cast<unsigned>(serverId_.getPort()), serverId_.getDB(), serverId_.getStorageId());
    std::string reply;
    if (!endpointCall(GET_DAEMON_INFO, GET_DAEMON_INFO_ARGUMENT, true, reply, getDaemonInfoTimeoutMs())) {
        // A server that logs a client in but cannot say who it is: this address is of no use.
        lastError_ = reply;
        endpoint_.disconnect();  // also because a late reply would be taken for that of the next call
        throwIfStoppedOrTimedOut();
        return Attempt::Failed;
    }
    const auto info = readDaemonInfo(std::move(reply));
    checkIdentity(*info);
    daemonInfo_ = info;
    return Attempt::Connected;
}

// The record as this client can use it: a remote server's loopback addresses lead nowhere from here, and the
// address that was reached serves for frames when the record names no other.
std::shared_ptr<const VantrelDaemonInfo> VantrelClientConnection::readDaemonInfo(std::string reply) const {
    auto info = std::make_shared<VantrelDaemonInfo>(Vantrel::rcAttrStream(std::move(reply)));
    if (info->getNodePort() == 0) info->setNodePort(DEFAULT_NODE_PORT);
    const char* reached = reachedAddress_.c_str();
    if (!VantrelOS::isLoopBackIP(reached) && !VantrelOS::isLocalIP(reached)) info->removeLoopbackIPs();
    if (!*info->getMetadataIP(0)) info->setMetadataIP(0, reached);
    if (!*info->getDataIP(0)) info->setDataIP(0, reached);
    return info;
}

void VantrelClientConnection::checkIdentity(const VantrelDaemonInfo& info) {
    const char* database = serverId_.getDB();
    const char* storageId = serverId_.getStorageId();
    const bool otherDatabase = *database && std::strcmp(database, info.getDatabase()) != 0;
    const bool otherStorage = *storageId && std::strcmp(storageId, info.getStorageId()) != 0;
    if (!otherDatabase && !otherStorage) return;
    const char* reason =
        otherStorage ? "Another storage answers at this address" : "Another database answers at this address";
    const std::string text = coFormat("Mismatching server information [%s:%u] [%s vs %s] [%s vs %s]: %s.",
                                      serverId_.getIPAddr(), static_cast<unsigned>(serverId_.getPort()),
                                      database, info.getDatabase(), storageId, info.getStorageId(), reason);
    CO_MSG_ERROR("%s", text.c_str());
    endpoint_.disconnect();
    throw Vantrel::CoException(text);
}

void VantrelClientConnection::pauseForRetry(unsigned milliseconds) {
    {
        std::unique_lock<std::mutex> lock(stopMutex_);
        stopSignal_.wait_for(lock, std::chrono::milliseconds(milliseconds),
                             [this] { return stopRequested_; });
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
    const std::lock_guard<std::mutex> lock(mutex_);
    const Operation operation(*this);
    for (unsigned reconnects = 0;; ++reconnects) {
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
        if (reconnects == MAX_RECONNECTS_PER_CALL) throw Vantrel::CoException(result);
        connectLocked(connectTimeoutMs, retryTimeoutMs);
    }
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
    {
        const Vantrel::CoDeferral deferral;
        const std::lock_guard<std::mutex> lock(mutex_);
        if (daemonInfo_ && !refresh) return daemonInfo_;
        if (!endpoint_.isConnected(true)) {
            const Operation operation(*this);
            connectLocked(getDefaultConnectionTimeoutMs(), getDefaultConnectionRetryTimeoutMs());
            return daemonInfo_;
        }
    }
    std::string reply;
    callMethod(GET_DAEMON_INFO, GET_DAEMON_INFO_ARGUMENT, true, reply, getDaemonInfoTimeoutMs(),
               getDefaultConnectionTimeoutMs(), getDefaultConnectionRetryTimeoutMs());
    const std::lock_guard<std::mutex> lock(mutex_);
    daemonInfo_ = readDaemonInfo(std::move(reply));
    return daemonInfo_;
}

void VantrelClientConnection::disconnect() {
    stop(nullptr);  // whoever is in a call leaves it, and the mutex
    const Vantrel::CoDeferral deferral;
    const std::lock_guard<std::mutex> lock(mutex_);
    endpoint_.disconnect();
}

void VantrelClientConnection::stop(const char* reason) {
    const Vantrel::CoDeferral deferral;
    const std::lock_guard<std::mutex> lock(stopMutex_);
    if (!operating_) return;
    stopRequested_ = true;
    stopReason_ = reason ? reason : Vantrel::coErrorText(EINTR);
    stopSignal_.notify_all();
    endpoint_.stop(stopReason_.c_str());
}

// --- Settings and callbacks ---

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
