// How a connection finds its server: the address that it was given, then those that discovery knows.

#include "VantrelClientConnection.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>
#include <vector>

#include "CoDeferral.h"
#include "CoException.h"
#include "CoMsg.h"
#include "CoNetworkConfig.h"
#include "CoNetworkDispatcher.h"
#include "VantrelClientOperation.h"
#include "VantrelInitCounter.h"
#include "VantrelMulticastClient.h"
#include "VantrelResolver.h"
#include "VantrelSettings.h"

using Vantrel::coFormat;
using Vantrel::coPrintable;

namespace {

constexpr unsigned RETRY_PAUSE_MS = 1000;
constexpr int HIGHEST_PORT = 65535;

bool isNumericAddress(const std::string& text) {
    in6_addr ignored;
    return ::inet_pton(AF_INET, text.c_str(), &ignored) == 1 ||
           ::inet_pton(AF_INET6, text.c_str(), &ignored) == 1;
}

void logInterfaces(const char* familyName, int family) {
    std::vector<Vantrel::CoNetworkInterface> found;
    for (const auto& entry : Vantrel::CoNetworkDispatcher::getAllInterfaces(true)) {
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

void VantrelClientConnection::simulateLatency(const Vantrel::CoEnvInt& setting) {
    const long milliseconds = setting.get();
    if (milliseconds <= 0) return;
    if (VantrelSettings::trace.get()) {
        CO_MSG_DEBUG("Simulating extra latency of %d ms", static_cast<int>(milliseconds));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void VantrelClientConnection::connect(unsigned connectTimeoutMs, unsigned retryTimeoutMs) {
    const Vantrel::CoDeferral deferral;
    const std::lock_guard<std::recursive_mutex> lock(mutex_);
    const Operation operation(*this);
    connectLocked(connectTimeoutMs, retryTimeoutMs);
}

void VantrelClientConnection::connectLocked(unsigned connectTimeoutMs, unsigned retryTimeoutMs) {
    logNetwork();
    reportAddress();
    lastError_.clear();
    for (unsigned retryLeftMs = retryTimeoutMs;;) {
        if (tryGivenAddress(connectTimeoutMs) == Attempt::Connected ||
            tryResolvedAddresses(connectTimeoutMs) == Attempt::Connected)
            break;
        if (retryLeftMs == 0 || VantrelResolver::isUnreachableServer(serverId_)) failToConnect();
        const unsigned pauseMs = std::min(RETRY_PAUSE_MS, retryLeftMs);
        retryLeftMs -= pauseMs;
        pauseForRetry(pauseMs);
    }
    if (std::exchange(wasConnected_, true)) connectCallbacks();
}

void VantrelClientConnection::reportAddress() {
    if (!VantrelSettings::useClientIp.get()) return;
    VantrelStrList addresses;
    if (VantrelOS::getLocalMetadataIPs(addresses) && addresses.size() > 0) {
        endpoint_.setReportedAddress(addresses.getStr(0));
    }
}

void VantrelClientConnection::failToConnect() {
    const std::string text = coFormat("Server not found [%s:%u] [%s] [%s]: %s.", serverId_.getIPAddr(),
                                      static_cast<unsigned>(serverId_.getPort()), serverId_.getDB(),
                                      serverId_.getStorageId(), lastError_.c_str());
    if (unasked_) {
        CO_MSG_DEBUG("%s", text.c_str());
    } else {
        CO_MSG_ERROR("%s", text.c_str());
        VantrelResolver::flagUnreachableServer(serverId_);
    }
    throw Vantrel::CoException(text);
}

// --- The address given ---

VantrelClientConnection::Attempt VantrelClientConnection::tryGivenAddress(unsigned connectTimeoutMs) {
    const int port = serverId_.getPort();
    if (!*serverId_.getIPAddr() || port == 0) return Attempt::Failed;
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
    CO_MSG_NOTICE("Connected to server [%s:%u] [%s] [%s].", serverId_.getIPAddr(),
                  static_cast<unsigned>(port), serverId_.getDB(), serverId_.getStorageId());
    std::shared_ptr<const VantrelDaemonInfo> info = announcedInfo();
    askedServer_ = !info;
    if (!info && !askServer(info)) return Attempt::Failed;
    const std::string difference = mismatch(*info);
    if (!difference.empty()) {
        CO_MSG_ERROR("%s", difference.c_str());
        endpoint_.disconnect();
        throw Vantrel::CoException(difference);
    }
    reached(info);
    return Attempt::Connected;
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

// What discovery knows of the server at the address that was reached, if that is the server asked for. An
// older record, of a server that is gone, is not believed against the one that answers now.
std::shared_ptr<const VantrelDaemonInfo> VantrelClientConnection::announcedInfo() const {
    const auto discovery = VantrelMulticastClient::_getInstance(false);
    if (!discovery || !isNumericAddress(reachedAddress_)) return nullptr;
    auto info = std::make_shared<VantrelDaemonInfo>();
    const VantrelServerId here(serverId_.getPort(), reachedAddress_.c_str());
    if (!discovery->known(here, *info) || !mismatch(*info).empty()) return nullptr;
    complete(*info);
    return info;
}

bool VantrelClientConnection::askServer(std::shared_ptr<const VantrelDaemonInfo>& info) {
    std::string reply;
    if (!endpointCall(GET_DAEMON_INFO, GET_DAEMON_INFO_ARGUMENT, true, reply, daemonInfoTimeoutMs())) {
        // A server that logs a client in but cannot say who it is: this address is of no use.
        lastError_ = reply;
        endpoint_.disconnect();  // also because a late reply would be taken for that of the next call
        throwIfStoppedOrTimedOut();
        return false;
    }
    info = readDaemonInfo(std::move(reply));
    return true;
}

std::shared_ptr<const VantrelDaemonInfo> VantrelClientConnection::readDaemonInfo(std::string reply) const {
    auto info = std::make_shared<VantrelDaemonInfo>(Vantrel::rcAttrStream(std::move(reply)));
    complete(*info);
    // What was found dead was found so with the record as it was.
    if (daemonInfo_ && *info != *daemonInfo_) VantrelResolver::flagAccessible(*info);
    return info;
}

// Makes a record one that this client can use: a remote server's loopback addresses lead nowhere from here,
// and the address that was reached serves for frames when the record names no other.
void VantrelClientConnection::complete(VantrelDaemonInfo& info) const {
    if (info.getNodePort() == 0) info.setNodePort(VantrelDaemonInfo::DEFAULT_NODE_PORT);
    const char* reached = reachedAddress_.c_str();
    if (!VantrelOS::isLoopBackIP(reached) && !VantrelOS::isLocalIP(reached)) info.removeLoopbackIPs();
    if (!*info.getMetadataIP(0)) info.setMetadataIP(0, reached);
    if (!*info.getDataIP(0)) info.setDataIP(0, reached);
}

// Why this is not the server asked for; empty when it is.
std::string VantrelClientConnection::mismatch(const VantrelDaemonInfo& info) const {
    const char* database = serverId_.getDB();
    const char* storageId = serverId_.getStorageId();
    const bool otherDatabase = *database && std::strcmp(database, info.getDatabase()) != 0;
    const bool otherStorage = *storageId && std::strcmp(storageId, info.getStorageId()) != 0;
    if (!otherDatabase && !otherStorage) return {};
    const char* reason =
        otherStorage ? "Another storage answers at this address" : "Another database answers at this address";
    return coFormat("Mismatching server information [%s:%u] [%s vs %s] [%s vs %s]: %s.",
                    serverId_.getIPAddr(), static_cast<unsigned>(serverId_.getPort()), database,
                    coPrintable(info.getDatabase()).c_str(), storageId,
                    coPrintable(info.getStorageId()).c_str(), reason);
}

// --- The addresses that discovery knows ---

VantrelClientConnection::Attempt VantrelClientConnection::tryResolvedAddresses(unsigned connectTimeoutMs) {
    throwIfStopped();
    // A connection to a list's gateway may be at work yet while the library is shut down.
    const auto discovery = VantrelMulticastClient::_getInstance(VantrelInitCounter::handlesMayWork());
    if (!discovery) throw Vantrel::CoException(VantrelInitCounter::NOT_INITIALIZED);
    VantrelDaemonInfo info;
    const bool found = discovery->resolve(serverId_, info, [this] { return stopRequested_.load(); });
    throwIfStopped();
    if (!found) {
        if (lastError_.empty()) lastError_ = "No server is known by this id";
        return Attempt::Failed;
    }
    if (info.getNodePort() < 1 || info.getNodePort() > HIGHEST_PORT) {
        lastError_ = coFormat("It announces %d as its node port", info.getNodePort());
        return Attempt::Failed;
    }
    VantrelResolver resolver(info);
    const auto attempt = [&](const std::string& address) {
        return tryResolvedAddress(info, address, connectTimeoutMs);
    };
    const bool connected = resolver.tryEach(VantrelResolver::Metadata, attempt, !unasked_);
    if (!connected && lastError_.empty()) lastError_ = "None of its addresses can be used";
    return connected ? Attempt::Connected : Attempt::Failed;
}

bool VantrelClientConnection::tryResolvedAddress(const VantrelDaemonInfo& info, const std::string& address,
                                                 unsigned connectTimeoutMs) {
    const std::string hostText = coPrintable(info.getHostName());
    const std::string storageText = coPrintable(info.getStorageId());
    const char* host = hostText.c_str();
    const char* storageId = storageText.c_str();
    const auto port = static_cast<unsigned>(info.getNodePort());
    CO_MSG_NOTICE("Connecting to server '%s' / '%s' using '%s:%u'.", host, storageId, address.c_str(), port);
    simulateLatency(VantrelSettings::connectExtraLatencyMs);
    throwIfStopped();
    if (!endpoint_.connect(address.c_str(), info.getNodePort(), connectTimeoutMs)) {
        lastError_ = endpoint_.lastError();
        CO_MSG_WARNING("Could not connect to server '%s' / '%s' using '%s:%u': %s.", host, storageId,
                       address.c_str(), port, lastError_.c_str());
        throwIfStoppedOrTimedOut();
        return false;
    }
    CO_MSG_NOTICE("Connected to server '%s' / '%s' using '%s:%u'.", host, storageId, address.c_str(), port);
    reachedAddress_ = address;
    askedServer_ = false;
    auto completed = std::make_shared<VantrelDaemonInfo>(info);
    complete(*completed);
    reached(std::move(completed));
    return true;
}

void VantrelClientConnection::reached(std::shared_ptr<const VantrelDaemonInfo> info) {
    daemonInfo_ = std::move(info);
    VantrelResolver::flagReachable(serverId_, reachedAddress_.c_str());
    if (const auto discovery = VantrelMulticastClient::_getInstance(false)) {
        discovery->connectedTo(*daemonInfo_);
    }
}
