#include "VantrelServerFinder.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <utility>
#include <vector>

#include "CoException.h"
#include "CoMsg.h"
#include "CoNameLookup.h"
#include "CoNetworkConfig.h"
#include "CoNetworkDispatcher.h"
#include "CoPort.h"
#include "VantrelCallTrace.h"
#include "VantrelCommands.h"
#include "VantrelInitCounter.h"
#include "VantrelMulticastClient.h"
#include "VantrelResolver.h"
#include "VantrelSettings.h"

using Vantrel::CoDeadline;
using Vantrel::coFormat;
using Vantrel::coPrintable;
using Vantrel::rcOutcome;

namespace {

constexpr unsigned RETRY_PAUSE_MS = 1000;

/// Ends the search: no other address, and no other attempt, would do better.
class SearchEnded : public Vantrel::CoException {
  public:
    SearchEnded(rcOutcome outcome, const std::string& text) : CoException(text), outcome_(outcome) {}
    rcOutcome outcome() const { return outcome_; }

  private:
    const rcOutcome outcome_;
};

bool isNumericAddress(const std::string& text) {
    in6_addr ignored;
    return ::inet_pton(AF_INET, text.c_str(), &ignored) == 1 ||
           ::inet_pton(AF_INET6, text.c_str(), &ignored) == 1;
}

bool isPort(int number) {
    return number >= 1 && number <= Vantrel::HIGHEST_PORT;
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

unsigned VantrelServerFinder::daemonInfoTimeoutMs() {
    return static_cast<unsigned>(VantrelSettings::daemonInfoTimeoutMs.get());
}

rcOutcome VantrelServerFinder::connect(const Terms& terms, std::string& error) {
    try {
        search(terms);
        return rcOutcome::Answered;
    } catch (const SearchEnded& end) {
        error = end.what();
        return end.outcome();
    } catch (const std::exception& failure) {
        endpoint_.disconnect();  // it may be logged in, to a server of which nothing is known
        error = failure.what();
        return rcOutcome::Lost;
    }
}

void VantrelServerFinder::search(const Terms& terms) {
    logNetwork();
    reportAddress();
    error_.clear();
    triedAddress_ = false;
    for (unsigned retryLeftMs = terms.retryTimeoutMs;;) {
        const CoDeadline limit(terms.limitMs);
        if (tryGivenAddress(terms, limit) || tryResolvedAddresses(terms, limit)) return;
        throwIfFinal(rcOutcome::Lost, limit);
        if (retryLeftMs == 0 || VantrelResolver::isUnreachableServer(serverId_)) {
            failToConnect(terms.flagsFailure);
        }
        const unsigned pauseMs = std::min(RETRY_PAUSE_MS, retryLeftMs);
        retryLeftMs -= pauseMs;
        if (!control_.pause(pauseMs)) throwIfStopped();
    }
}

void VantrelServerFinder::throwIfStopped() const {
    if (control_.isRequested()) throw SearchEnded(rcOutcome::Stopped, control_.reason());
}

/// After a failed connect or call: a server that is there but gives no answer, or one that is too long, is
/// not looked for elsewhere.
void VantrelServerFinder::throwIfFinal(rcOutcome outcome, const CoDeadline& limit) const {
    throwIfStopped();
    if (outcome != rcOutcome::Lost && outcome != rcOutcome::Refused) throw SearchEnded(outcome, error_);
    if (!limit.passed()) return;
    CO_MSG_ERROR("%s", notFound().c_str());
    throw SearchEnded(rcOutcome::Lost, notFound());
}

void VantrelServerFinder::reportAddress() {
    if (!VantrelSettings::useClientIp.get()) return;
    using Vantrel::CoNetworkDispatcher;
    for (const auto& local : CoNetworkDispatcher::getInterfaces(CoNetworkDispatcher::Role::Metadata)) {
        if (local.loopback) continue;  // these come first, and would lead a server to itself
        endpoint_.setReportedAddress(local.ip);
        return;
    }
}

std::string VantrelServerFinder::notFound() const {
    return coFormat("Server not found [%s:%u] [%s] [%s]: %s.", serverId_.getIPAddr(),
                    static_cast<unsigned>(serverId_.getPort()), serverId_.getDB(), serverId_.getStorageId(),
                    error_.c_str());
}

void VantrelServerFinder::failToConnect(bool flagsFailure) const {
    const std::string text = notFound();
    if (flagsFailure) {
        CO_MSG_ERROR("%s", text.c_str());
        VantrelResolver::flagUnreachableServer(serverId_);
    } else {
        CO_MSG_DEBUG("%s", text.c_str());
    }
    throw SearchEnded(rcOutcome::Lost, text);
}

// --- The address given ---

bool VantrelServerFinder::tryGivenAddress(const Terms& terms, const CoDeadline& limit) {
    const int port = serverId_.getPort();
    if (!*serverId_.getIPAddr() || port == 0) return false;
    if (!isPort(port)) {
        triedAddress_ = true;
        error_ = Vantrel::coErrorText(EINVAL);
        return false;
    }
    std::string address;
    if (!findAllowedAddress(std::min(terms.connectTimeoutMs, limit.leftMs()), address)) return false;
    vantrelSimulateLatency(VantrelSettings::connectExtraLatencyMs);
    throwIfStopped();
    triedAddress_ = true;
    const rcOutcome outcome =
        endpoint_.connect(address.c_str(), port, terms.connectTimeoutMs, error_, limit.leftMs());
    if (outcome != rcOutcome::Answered) {
        throwIfFinal(outcome, limit);
        return false;
    }
    reachedAddress_ = address;
    CO_MSG_NOTICE("Connected to server [%s:%u] [%s] [%s].", serverId_.getIPAddr(),
                  static_cast<unsigned>(port), serverId_.getDB(), serverId_.getStorageId());
    Info info = announcedInfo();
    askedServer_ = !info;
    if (!info && !askServer(info, limit)) return false;
    const std::string difference = mismatch(*info);
    if (!difference.empty()) {
        CO_MSG_ERROR("%s", difference.c_str());
        endpoint_.disconnect();
        throw SearchEnded(rcOutcome::Refused, difference);
    }
    reached(info);
    return true;
}

// The address to connect to; false when the IP range filters keep it out. A name is judged by the address
// that it stands for, which is then also the one connected to.
bool VantrelServerFinder::findAllowedAddress(unsigned timeoutMs, std::string& address) {
    address = serverId_.getIPAddr();
    auto& config = Vantrel::CoNetworkConfig::getInstance();
    if (!config.hasIPRangeFilters()) return true;
    if (!isNumericAddress(address)) {
        using Vantrel::CoNameLookup;
        CoNameLookup::Addresses found(nullptr, &::freeaddrinfo);
        const int error = CoNameLookup::find(
            address.c_str(), timeoutMs, [this] { return control_.isRequested(); }, found,
            CoNameLookup::choiceFamily());
        if (error != 0) {
            error_ = ::gai_strerror(error);
            return false;
        }
        const std::string text = CoNameLookup::toNumericText(found->ai_addr, found->ai_addrlen);
        address = Vantrel::CoIoTcpDescriptor::skipIPv4InIPv6Prefix(text.c_str());
    }
    if (config.isIPInValidRange(address.c_str())) return true;
    error_ = coFormat("Specified IP in server Id [%s] rejected by IP range filtering", serverId_.getId());
    CO_MSG_WARNING("%s", error_.c_str());
    return false;
}

// What discovery knows of the server at the address that was reached, if that is the server asked for. Of
// several records that claim the address and port none is believed: one may be of a server that is gone.
VantrelServerFinder::Info VantrelServerFinder::announcedInfo() const {
    const auto discovery = VantrelMulticastClient::_getInstance(false);
    if (!discovery || !isNumericAddress(reachedAddress_)) return nullptr;
    const auto claiming = discovery->known(VantrelServerId(serverId_.getPort(), reachedAddress_.c_str()));
    if (claiming.size() != 1 || !mismatch(*claiming.front().info).empty()) return nullptr;
    auto info = std::make_shared<VantrelDaemonInfo>(claiming.front().record());
    complete(*info);
    return info;
}

bool VantrelServerFinder::askServer(Info& info, const CoDeadline& limit) {
    const char* const command = VantrelCommands::GET_DAEMON_INFO.name;
    std::string reply;
    auto outcome = rcOutcome::Lost;
    {
        const VantrelCallTrace trace(command, DAEMON_INFO_ARGUMENT, reply);
        outcome = endpoint_.call(0, command, DAEMON_INFO_ARGUMENT, true, reply,
                                 std::min(daemonInfoTimeoutMs(), limit.leftMs()));
    }
    if (outcome != rcOutcome::Answered) {
        // A server that logs a client in but cannot say who it is: this address is of no use.
        error_ = reply;
        endpoint_.disconnect();  // also because a late reply would be taken for that of the next call
        throwIfFinal(outcome, limit);
        return false;
    }
    info = readDaemonInfo(std::move(reply));
    return true;
}

void VantrelServerFinder::takeDaemonInfo(std::string reply) {
    daemonInfo_ = readDaemonInfo(std::move(reply));
}

VantrelServerFinder::Info VantrelServerFinder::readDaemonInfo(std::string reply) const {
    auto info = std::make_shared<VantrelDaemonInfo>(Vantrel::rcAttrStream(std::move(reply)));
    complete(*info);
    // What was found dead was found so with the record as it was.
    if (daemonInfo_ && *info != *daemonInfo_) VantrelResolver::flagAccessible(*info);
    return info;
}

// Makes a record one that this client can use: a remote server's loopback addresses lead nowhere from here.
// Frames keep to the interfaces that the server names for them: one that names none has no frames to give.
void VantrelServerFinder::complete(VantrelDaemonInfo& info) const {
    if (info.getNodePort() == 0) info.setNodePort(VantrelDaemonInfo::DEFAULT_NODE_PORT);
    const char* reached = reachedAddress_.c_str();
    if (!VantrelOS::isLoopBackIP(reached) && !VantrelOS::isLocalIP(reached)) info.removeLoopbackIPs();
    if (!*info.getMetadataIP(0)) info.setMetadataIP(0, reached);
}

// Why this is not the server asked for; empty when it is.
std::string VantrelServerFinder::mismatch(const VantrelDaemonInfo& info) const {
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

bool VantrelServerFinder::tryResolvedAddresses(const Terms& terms, const CoDeadline& limit) {
    throwIfStopped();
    // A connection to a list's gateway may be at work yet while the library is shut down.
    const auto discovery = VantrelMulticastClient::_getInstance(VantrelInitCounter::handlesMayWork());
    if (!discovery) throw Vantrel::CoException(VantrelInitCounter::NOT_INITIALIZED);
    std::vector<VantrelDaemonInfo> found;
    const unsigned leftMs = limit.leftMs();  // the wait for discovery is not taken from it
    const bool known = discovery->resolveAll(serverId_, found, [this] { return control_.isRequested(); });
    throwIfStopped();
    if (!known) {
        if (error_.empty()) error_ = "No server is known by this id";
        return false;
    }
    const CoDeadline connecting(leftMs);
    for (const auto& [info, address] : attemptsFor(found)) {
        if (tryResolvedAddress(*info, address, terms, connecting)) return true;
    }
    if (error_.empty()) error_ = "None of its addresses can be used";
    return false;
}

// Settled before the first attempt, since records may share an address: where one is not reached, another may
// be.
VantrelServerFinder::Attempts VantrelServerFinder::attemptsFor(const std::vector<VantrelDaemonInfo>& found) {
    Attempts attempts;
    std::set<std::pair<std::string, int>> seen;
    for (const VantrelDaemonInfo& info : found) {
        const int port = info.getNodePort();
        if (!isPort(port)) {
            error_ = coFormat("It announces %d as its node port", port);
            continue;
        }
        for (const std::string& address : VantrelResolver(info).usable(VantrelResolver::Metadata)) {
            if (seen.emplace(address, port).second) attempts.emplace_back(&info, address);
        }
    }
    return attempts;
}

bool VantrelServerFinder::tryResolvedAddress(const VantrelDaemonInfo& info, const std::string& address,
                                             const Terms& terms, const CoDeadline& limit) {
    const std::string hostText = coPrintable(info.getHostName());
    const std::string storageText = coPrintable(info.getStorageId());
    const char* host = hostText.c_str();
    const char* storageId = storageText.c_str();
    const auto port = static_cast<unsigned>(info.getNodePort());
    CO_MSG_NOTICE("Connecting to server '%s' / '%s' using '%s:%u'.", host, storageId, address.c_str(), port);
    vantrelSimulateLatency(VantrelSettings::connectExtraLatencyMs);
    throwIfStopped();
    triedAddress_ = true;
    const rcOutcome outcome = endpoint_.connect(address.c_str(), info.getNodePort(), terms.connectTimeoutMs,
                                                error_, limit.leftMs());
    if (outcome != rcOutcome::Answered) {
        CO_MSG_WARNING("Could not connect to server '%s' / '%s' using '%s:%u': %s.", host, storageId,
                       address.c_str(), port, error_.c_str());
        throwIfFinal(outcome, limit);
        if (terms.flagsFailure) VantrelResolver::flagInaccessibleIP(address.c_str());
        return false;
    }
    CO_MSG_NOTICE("Connected to server '%s' / '%s' using '%s:%u'.", host, storageId, address.c_str(), port);
    reachedAddress_ = address;
    auto completed = std::make_shared<VantrelDaemonInfo>(info);
    complete(*completed);
    Info reachedInfo = std::move(completed);
    if (!settleWhoAnswers(reachedInfo, limit)) return false;
    reached(std::move(reachedInfo));
    return true;
}

// Where other servers claim the address and port that was reached as well, the server itself is asked who it
// is. False when it is not the one asked for.
bool VantrelServerFinder::settleWhoAnswers(Info& info, const CoDeadline& limit) {
    const auto discovery = VantrelMulticastClient::_getInstance(false);
    const VantrelServerId here(info->getNodePort(), reachedAddress_.c_str());
    askedServer_ = discovery && discovery->known(here).size() > 1;
    if (!askedServer_) return true;
    if (!askServer(info, limit)) return false;
    const std::string difference = mismatch(*info);
    if (difference.empty()) return true;
    CO_MSG_WARNING("%s", difference.c_str());
    error_ = difference;
    endpoint_.disconnect();
    return false;
}

void VantrelServerFinder::reached(Info info) {
    daemonInfo_ = std::move(info);
    VantrelResolver::flagReachable(serverId_, *daemonInfo_, reachedAddress_.c_str());
    if (const auto discovery = VantrelMulticastClient::_getInstance(false)) {
        discovery->connectedTo(*daemonInfo_);
    }
}
