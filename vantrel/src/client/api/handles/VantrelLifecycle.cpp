#include <vantrel/VantrelClientAPI.h>

#include <exception>

#include "CoDeferral.h"
#include "CoFileMonitor.h"
#include "CoMsg.h"
#include "CoNetworkConfig.h"
#include "CoNetworkDispatcher.h"
#include "CoSharedCancelPipe.h"
#include "CoThreadMgr.h"
#include "QdDsoMgr.h"
#include "VantrelCallbackRouter.h"
#include "VantrelEventMonitor.h"
#include "VantrelInitCounter.h"
#include "VantrelMulticastClient.h"
#include "VantrelServerImp.h"
#include "VantrelSharedConnection.h"
#include "VantrelVersion.h"

using Vantrel::CoMsg;

namespace {

// A host program that exports these two C functions shares its log with the library.
void adoptHostLog() {
    using GetFilterLevel = int (*)(int);
    using GetRouter = CoMsg::Router* (*)();
    const auto getFilterLevel =
        reinterpret_cast<GetFilterLevel>(Vantrel::QdDsoMgr::findInHost("CoMsg_getFilterLevel"));
    CoMsg::setFilterLevel(getFilterLevel ? getFilterLevel(0) : int{CoMsg::USER});

    const auto getRouter = reinterpret_cast<GetRouter>(Vantrel::QdDsoMgr::findInHost("CoMsg_getRouter"));
    CoMsg::Router* hostRouter = getRouter ? getRouter() : nullptr;
    const char* logPath = hostRouter ? hostRouter->logPath() : nullptr;
    CoMsg::setRouter(logPath && *logPath ? hostRouter : &VantrelCallbackRouter::instance());
}

}  // namespace

bool VantrelClientInit() {
    if (VantrelInitCounter::add(1) > 0) return true;
    const Vantrel::CoDeferral deferral;
    adoptHostLog();
    if (!Vantrel::CoNetworkDispatcher::init()) return false;
    try {
        if (!Vantrel::CoSharedCancelPipe::get().open()) return false;
    } catch (const std::exception&) {
        return false;
    }
    VantrelClientConnection::Shared::init();
    VantrelMulticastClient::setListFetcher(&VantrelClientConnection::fetchDaemonList);
    Vantrel::CoFileMonitor::start();
    return true;
}

void VantrelClientUninit() {
    if (VantrelInitCounter::add(-1) - 1 > 0) return;
    const Vantrel::CoDeferral deferral;
    Vantrel::CoFileMonitor::stop();
    VantrelServerImp::stopAllTransfers();  // at once: what follows may take its time
    VantrelEventMonitor::unregisterAll();  // while servers can still be called
    VantrelClientConnection::Shared::uninit();
    VantrelServerImp::disconnectAll();
    VantrelMulticastClient::stop();
    VantrelEventMonitor::getInstance(true);
    Vantrel::CoThreadMgr::getInstance().stopAll();
    Vantrel::CoNetworkDispatcher::uninit();
}

bool VantrelClientIsInitialized() {
    return VantrelInitCounter::isInitialized();
}

void VantrelClientGetVersion(int& major, int& minor, int& patch) {
    major = VANTREL_RELEASE.major;
    minor = VANTREL_RELEASE.minor;
    patch = VANTREL_RELEASE.patch;
}

// --- Log and callbacks ---

void VantrelSetLogLevel(VantrelLogLevel level) {
    if (level < VANTREL_LOG_USER || level > VANTREL_LOG_DEBUG) return;
    VantrelCallbackRouter::instance();
    CoMsg::setFilterLevel(level);
}

void VantrelRegisterLogCallBack(VantrelLogCallBack callBack) {
    VantrelCallbackRouter::instance().setCallback(callBack);
}

void VantrelRegisterDisconnectCallBack(VantrelDisconnectCallBack callBack) {
    VantrelClientConnection::setDisconnectCB(callBack);
}

// --- Connections and configuration ---

void VantrelClientReleaseUnusedConnections(bool all) {
    const Vantrel::CoDeferral deferral;
    VantrelClientConnection::Shared::releaseUnusedConnections(all);
}

void VantrelClientSetEventsPortRange(int first, int last) {
    VantrelEventMonitor::setPortRange(first, last);
}

bool VantrelCreateNetworkConfig(VantrelStr* error) {
    const Vantrel::CoDeferral deferral;
    struct NetworkLayer {
        NetworkLayer() { Vantrel::CoNetworkDispatcher::init(); }
        ~NetworkLayer() { Vantrel::CoNetworkDispatcher::uninit(); }
    } const network;
    auto& config = Vantrel::CoNetworkConfig::getInstance();
    const bool ok = config.createIfMissing();
    if (!ok && error) *error = config.lastError().c_str();
    return ok;
}

bool VantrelWriteNetworkConfigTemplate(const char* path) {
    const Vantrel::CoDeferral deferral;
    std::string error;
    if (path && Vantrel::CoNetworkConfig::writeTemplate(path, error)) return true;
    CO_MSG_ERROR("%s", path ? error.c_str() : "No path for the network configuration given");
    return false;
}

// --- VantrelClient ---

VantrelClient::VantrelClient(bool defer) : initialized_(!defer && VantrelClientInit()) {}

VantrelClient::~VantrelClient() {
    if (initialized_) VantrelClientUninit();
}

bool VantrelClient::init() {
    if (!initialized_) initialized_ = VantrelClientInit();
    return initialized_;
}
