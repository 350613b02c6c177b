#include "VantrelClientConnection.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <optional>
#include <utility>

#include "CoAssert.h"
#include "CoDeferral.h"
#include "CoException.h"
#include "CoMsg.h"
#include "VantrelCallTrace.h"
#include "VantrelCommands.h"
#include "VantrelSettings.h"
#include "VantrelVersion.h"

using Vantrel::CoDeadline;
using Vantrel::CoDeferral;
using Vantrel::CoLock;
using Vantrel::rcOutcome;
using Operation = VantrelStopControl::Operation;
using Call = VantrelStops::Call;

namespace {

// What login announces.
const unsigned short LIBRARY_VERSION[] = {static_cast<unsigned short>(VANTREL_RELEASE.major),
                                          static_cast<unsigned short>(VANTREL_RELEASE.minor),
                                          static_cast<unsigned short>(VANTREL_RELEASE.patch)};
constexpr unsigned MAX_RECONNECTS_PER_CALL = 2;

constexpr const char* NOT_CONNECTED = "Not connected";

std::atomic<VantrelDisconnectCallBack> disconnectCallback{nullptr};

}  // namespace

VantrelClientConnection::Limits VantrelClientConnection::Limits::byDefault() {
    return {static_cast<unsigned>(VantrelSettings::callTimeoutMs.get()),
            static_cast<unsigned>(VantrelSettings::connectionTimeoutMs.get()),
            static_cast<unsigned>(VantrelSettings::connectionRetryTimeoutMs.get())};
}

VantrelClientConnection::Limits VantrelClientConnection::OwnLimits::get() const {
    Limits limits = Limits::byDefault();
    const auto set = [](unsigned& limit, const Value& own) {
        const std::int64_t value = own;
        if (value != UNSET) limit = static_cast<unsigned>(value);
    };
    set(limits.callMs, callMs_);
    set(limits.connectMs, connectMs_);
    set(limits.retryMs, retryMs_);
    return limits;
}

VantrelClientConnection::VantrelClientConnection(const VantrelServerId& serverId)
    : serverId_(serverId),
      endpoint_(LIBRARY_VERSION, std::size(LIBRARY_VERSION)),
      control_(endpoint_),
      finder_(serverId_, endpoint_, control_) {
    serverId_.getId();  // builds its text now, so that threads may read it at the same time later
}

VantrelClientConnection::~VantrelClientConnection() = default;

// --- Calling ---

VantrelCallOutcome VantrelClientConnection::callMethod(const char* method, const char* argument,
                                                       std::string& result, const Limits& limits) {
    const CoDeferral deferral;
    const Call call(control_.stops());
    const CoLock lock(mutex_);
    const Operation operation(control_);
    unsigned leftMs = limits.callMs;
    std::optional<CoDeadline> retrying;
    bool sent = false;  // on any of the connections
    for (unsigned reconnects = 0;; ++reconnects) {
        if (isStopped(result)) return {rcOutcome::Stopped, sent};
        if (endpoint_.isConnected(false)) {
            const CoDeadline answer(leftMs);
            const VantrelCallOutcome outcome = callOnce(method, argument, result, leftMs);
            sent = sent || outcome.sent();
            if (outcome != rcOutcome::Lost) return {outcome, sent};
            leftMs = answer.leftMs();
            if (leftMs == 0 && !control_.isRequested()) return {outcome, sent};
        } else {
            callDisconnectCallback();
        }
        if (isStopped(result)) return {rcOutcome::Stopped, sent};
        if (reconnects == MAX_RECONNECTS_PER_CALL) {
            if (result.empty()) result = NOT_CONNECTED;  // lost by a connect callback's own call each time
            return {rcOutcome::Lost, sent};
        }
        if (!retrying) retrying.emplace(limits.retryMs);
        const auto connected = connect({limits.connectMs, retrying->leftMs(), true, leftMs}, result, sent);
        if (connected != rcOutcome::Answered) return connected;
    }
}

VantrelCallOutcome VantrelClientConnection::callConnected(const char* method, const char* argument,
                                                          std::string& result, unsigned callTimeoutMs) {
    const CoDeferral deferral;
    const Call call(control_.stops());
    const CoLock lock(mutex_);
    const Operation operation(control_);
    if (isStopped(result)) return {rcOutcome::Stopped, false};
    if (!endpoint_.isConnected(true)) {
        result = NOT_CONNECTED;
        return {rcOutcome::Lost, false};
    }
    return callOnce(method, argument, result, callTimeoutMs);
}

// On a connection that may turn out to be lost. Unless the server answered, it is closed afterwards.
VantrelCallOutcome VantrelClientConnection::callOnce(const char* method, const char* argument,
                                                     std::string& result, unsigned timeoutMs) {
    auto outcome = rcOutcome::Lost;
    {
        const VantrelCallTrace trace(method, argument, result);
        outcome = endpoint_.call(0, method, argument, true, result, timeoutMs);
    }
    const VantrelCallOutcome fate(outcome, endpoint_.wasSent());
    if (outcome == rcOutcome::Answered || outcome == rcOutcome::Refused) return fate;
    if (outcome == rcOutcome::TimedOut) CO_MSG_ERROR("%s timed-out", method);
    endpoint_.disconnect();  // a late reply would be taken for that of the next call
    callDisconnectCallback();
    return fate;
}

bool VantrelClientConnection::isStopped(std::string& reason) const {
    if (!control_.isRequested()) return false;
    reason = control_.reason();
    return true;
}

VantrelCallOutcome VantrelClientConnection::connect(const Terms& terms, std::string& error, bool sent) {
    const rcOutcome outcome = finder_.connect(terms, error);
    if (outcome == rcOutcome::Answered && std::exchange(wasConnected_, true)) runConnectCallbacks();
    return VantrelCallOutcome::ofConnecting(outcome, finder_.triedAddress(), sent);
}

// --- What the server is ---

VantrelCallOutcome VantrelClientConnection::getDaemonInfo(bool refresh,
                                                          std::shared_ptr<const VantrelDaemonInfo>& info,
                                                          std::string& error, const Limits& limits) {
    const CoDeferral deferral;
    const Call call(control_.stops());
    const CoLock lock(mutex_);
    const VantrelCallOutcome outcome = updateDaemonInfo(refresh, error, limits);
    if (outcome == rcOutcome::Answered) info = finder_.daemonInfo();
    return outcome;
}

VantrelCallOutcome VantrelClientConnection::getProtocolVersion(VantrelVersion& version, std::string& error,
                                                               const Limits& limits) {
    const CoDeferral deferral;
    const Call call(control_.stops());
    const CoLock lock(mutex_);
    const VantrelCallOutcome outcome = updateDaemonInfo(false, error, limits);
    if (outcome == rcOutcome::Answered) version = VantrelVersion::ofProtocol(*finder_.daemonInfo());
    return outcome;
}

VantrelCallOutcome VantrelClientConnection::updateDaemonInfo(bool refresh, std::string& error,
                                                             Limits limits) {
    if (finder_.daemonInfo() && !refresh) return {rcOutcome::Answered, false};
    const Operation operation(control_);
    if (isStopped(error)) return {rcOutcome::Stopped, false};
    if (!endpoint_.isConnected(true)) {
        endpoint_.disconnect();
        callDisconnectCallback();  // as for a first connect by any other call
        const auto outcome = connect({limits.connectMs, limits.retryMs, true, limits.callMs}, error);
        if (outcome != rcOutcome::Answered || !refresh || finder_.askedServer()) return outcome;
    }
    limits.callMs = std::min(limits.callMs, VantrelServerFinder::daemonInfoTimeoutMs());
    const auto outcome = callMethod(VantrelCommands::GET_DAEMON_INFO.name,
                                    VantrelServerFinder::DAEMON_INFO_ARGUMENT, error, limits);
    if (outcome == rcOutcome::Answered) finder_.takeDaemonInfo(std::move(error));
    return outcome;
}

std::string VantrelClientConnection::fetchDaemonList(const VantrelServerId& serverId,
                                                     unsigned callTimeoutMs) {
    VantrelClientConnection connection(serverId);
    Limits limits = Limits::byDefault();
    std::string reply;
    std::shared_ptr<const VantrelDaemonInfo> info;
    rcOutcome outcome = connection.getDaemonInfo(false, info, reply, limits);  // connects, as for any call
    if (outcome == rcOutcome::Answered) {
        limits.callMs = callTimeoutMs;
        outcome = connection.callMethod(VantrelCommands::GET_DAEMON_LIST.name, "", reply, limits);
    }
    if (outcome != rcOutcome::Answered) throw Vantrel::CoException(reply);
    return reply;
}

// --- Losing it, and connecting again ---

// The connection has been found lost outside a call.
void VantrelClientConnection::noteLoss() {
    if (!endpoint_.isConnected(false)) return;
    endpoint_.disconnect();
    callDisconnectCallback();
}

bool VantrelClientConnection::restore(unsigned connectTimeoutMs) {
    const CoDeferral deferral;
    if (!mutex_.try_lock()) return true;
    const CoLock lock(mutex_, std::adopt_lock);
    if (endpoint_.isConnected(true)) return true;
    const Operation operation(control_);
    noteLoss();
    std::string logged;
    return connect({connectTimeoutMs, 0, false}, logged) == rcOutcome::Answered &&
           endpoint_.isConnected(false);  // a connect callback may have lost it again
}

void VantrelClientConnection::disconnect() {
    const VantrelStops::Barrier barrier(control_.stops(), VantrelStops::textOf(nullptr));
    stop(nullptr);  // a thread that is in a call leaves it, and releases the mutex
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    endpoint_.disconnect();
}

// --- Callbacks ---

void VantrelClientConnection::addConnectCallback(ConnectCallback* callback) {
    if (!CO_ASSERT(callback)) return;
    const CoLock lock(callbacksMutex_);
    connectCallbacks_.push_back(callback);
}

void VantrelClientConnection::removeConnectCallback(ConnectCallback* callback) {
    const CoLock lock(callbacksMutex_);
    connectCallbacks_.erase(std::remove(connectCallbacks_.begin(), connectCallbacks_.end(), callback),
                            connectCallbacks_.end());
}

void VantrelClientConnection::runConnectCallbacks() {
    const CoLock lock(callbacksMutex_);
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

void VantrelClientConnection::setDisconnectCB(VantrelDisconnectCallBack callback) {
    disconnectCallback = callback;
}

VantrelDisconnectCallBack VantrelClientConnection::getDisconnectCB() {
    return disconnectCallback;
}

void VantrelClientConnection::callDisconnectCallback() const {
    const VantrelDisconnectCallBack callback = getDisconnectCB();
    if (!callback) return;
    const auto& info = finder_.daemonInfo();
    CoDeferral::callOut([callback, id = info ? info->getServerId() : serverId_] { callback(id); });
}
