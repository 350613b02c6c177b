#include <errno.h>
#include <vantrel/VantrelNodeHandle.h>
#include <vantrel/VantrelServerHandle.h>

#include <cstring>
#include <string>
#include <utility>

#include "CoAssert.h"
#include "CoMsg.h"
#include "CoNeverDestroyed.h"
#include "VantrelKeptText.h"
#include "VantrelServerImp.h"

// --- Construction ---

VantrelServerHandle::VantrelServerHandle(const VantrelServerId& id) : imp_(new VantrelServerImp(id)) {}

VantrelServerHandle::VantrelServerHandle(const VantrelServerHandle& other)
    : imp_(new VantrelServerImp(other.getId())) {}

VantrelServerHandle::VantrelServerHandle(VantrelServerHandle&& other) noexcept
    : imp_(std::exchange(other.imp_, nullptr)) {}

VantrelServerHandle::~VantrelServerHandle() {
    const Vantrel::CoDeferral deferral;
    delete imp_;
}

VantrelServerHandle& VantrelServerHandle::operator=(const VantrelServerHandle& other) {
    if (this != &other) *this = VantrelServerHandle(other);
    return *this;
}

VantrelServerHandle& VantrelServerHandle::operator=(VantrelServerHandle&& other) noexcept {
    const Vantrel::CoDeferral deferral;
    if (this != &other) delete std::exchange(imp_, std::exchange(other.imp_, nullptr));
    return *this;
}

const char* VantrelServerHandle::lastError() const {
    const VantrelServerImp* server = imp();
    return server ? VantrelKeptText::keep(server->lastFailure().text) : "";
}

VantrelErrorCode VantrelServerHandle::lastErrorCode() const {
    const VantrelServerImp* server = imp();
    return server ? server->lastFailure().code : VANTREL_ERROR_NONE;
}

bool VantrelServerHandle::mayHaveExecuted() const {
    const VantrelServerImp* server = imp();
    if (!server) return false;
    const VantrelFailure failure = server->lastFailure();
    return failure.sent && failure.code != VANTREL_ERROR_REFUSED;
}

// --- Connection ---

bool VantrelServerHandle::isConnected() const {
    const VantrelServerImp* server = imp();
    return server && server->isConnected();
}

void VantrelServerHandle::disconnect() const {
    if (VantrelServerImp* server = imp()) server->disconnect();
}

void VantrelServerHandle::stop(const char* reason) const {
    if (VantrelServerImp* server = imp()) server->stop(reason);
}

void VantrelServerHandle::setCallTimeout(unsigned int milliseconds) const {
    if (VantrelServerImp* server = imp()) server->limits().setCall(milliseconds);
}

void VantrelServerHandle::setConnectTimeout(unsigned int milliseconds) const {
    if (VantrelServerImp* server = imp()) server->limits().setConnect(milliseconds);
}

void VantrelServerHandle::setConnectRetryTimeout(unsigned int milliseconds) const {
    if (VantrelServerImp* server = imp()) server->limits().setRetry(milliseconds);
}

bool VantrelServerHandle::ping(unsigned int retryTimeoutMs) const {
    const VantrelServerImp::Session session(imp());
    return session && session.base().ping(retryTimeoutMs);
}

// --- Identity ---

const VantrelServerId& VantrelServerHandle::getId() const {
    static Vantrel::CoNeverDestroyed<VantrelServerId> noId;  // a moved-from handle may ask late
    VantrelServerImp* server = imp();
    if (!server) return *noId;
    server->init();
    return server->serverId();
}

const char* VantrelServerHandle::getIdStr() const {
    return getId().getId();
}

namespace {

// Reads fields of the daemon info; false when there is none.
template <typename Read>
bool readInfo(VantrelServerImp* server, Read read) {
    const auto info = server ? server->daemonInfo() : nullptr;
    if (info) read(*info);
    return info != nullptr;
}

bool queryText(VantrelServerImp* server, bool (VantrelNodeClientAPI::*query)(std::string&), VantrelStr& out) {
    const VantrelServerImp::Session session(server);
    std::string text;
    if (!session || !(session.nodes().*query)(text)) return false;
    out = text.c_str();
    return true;
}

// The server, or null, with the reason as its last error, when there is no handler.
VantrelServerImp* checkHandler(VantrelServerImp* server, const VantrelNodeEvent::Handler* hdlr) {
    if (!server || CO_ASSERT(hdlr)) return server;
    server->setLastError(VANTREL_ERROR_INVALID_ARGUMENT, "Invalid handler pointer");
    return nullptr;
}

// What servers have had since streams exist.
template <typename Call>
bool streamRequest(VantrelServerImp* server, Call call) {
    return server &&
           server->requireVersion(VantrelFrameInterface::since(VantrelFrameInterface::READ_STREAM),
                                  Vantrel::coErrorText(EACCES)) &&
           server->frameRequest(call);
}

}  // namespace

const char* VantrelServerHandle::getHostUUID() const {
    const char* text = nullptr;
    readInfo(imp(), [&](const VantrelDaemonInfo& info) { text = VantrelKeptText::keep(info.getHostUUID()); });
    return text;
}

const char* VantrelServerHandle::getHostName() const {
    const char* text = nullptr;
    readInfo(imp(), [&](const VantrelDaemonInfo& info) { text = VantrelKeptText::keep(info.getHostName()); });
    return text;
}

bool VantrelServerHandle::getStorageId(VantrelStr& storageId) const {
    return readInfo(imp(), [&](const VantrelDaemonInfo& info) { storageId = info.getStorageId(); });
}

bool VantrelServerHandle::getDisplayName(VantrelStr& displayName) const {
    return readInfo(imp(), [&](const VantrelDaemonInfo& info) { displayName = info.getDisplayName(); });
}

bool VantrelServerHandle::getInfo(VantrelServerInfo& out) const {
    return readInfo(imp(), [&](const VantrelDaemonInfo& info) { out = info; });
}

bool VantrelServerHandle::isDatabase(const char* name) const {
    bool same = false;
    readInfo(imp(), [&](const VantrelDaemonInfo& info) {
        same = name && std::strcmp(info.getDatabase(), name) == 0;
    });
    return same;
}

bool VantrelServerHandle::getVendor(VantrelStr& vendor) const {
    return queryText(imp(), &VantrelNodeClientAPI::queryNodePlugInVendor, vendor);
}

bool VantrelServerHandle::getProduct(VantrelStr& product) const {
    return queryText(imp(), &VantrelNodeClientAPI::queryNodePlugInProduct, product);
}

bool VantrelServerHandle::getVersion(int& major, int& minor) const {
    const VantrelServerImp::Session session(imp());
    return session && session.nodes().queryNodePlugInVersion(major, minor);
}

bool VantrelServerHandle::getProtocolVersion(int& major, int& minor) const {
    return readInfo(imp(), [&](const VantrelDaemonInfo& info) {
        major = info.getVersionMajor();
        minor = info.getVersionMinor();
    });
}

bool VantrelServerHandle::compareVersion(bool& atLeast, int a, int b, int c, int d) const {
    return readInfo(imp(), [&](const VantrelDaemonInfo& info) {
        atLeast = VantrelVersion::ofProtocol(info) >= VantrelVersion{a, b, c, d};
    });
}

bool VantrelServerHandle::compareProductVersion(bool& atLeast, int major, int minor, int maintenance,
                                                int build) const {
    return readInfo(imp(), [&](const VantrelDaemonInfo& info) {
        atLeast = VantrelVersion::ofProduct(info) >= VantrelVersion{major, minor, maintenance, build};
    });
}

// --- Nodes ---

bool VantrelServerHandle::getRootNode(VantrelNodeHandle& node) const {
    VantrelNodeId root;
    {
        const VantrelServerImp::Session session(imp());
        if (!session || !node.imp() || !session.nodes().getRootNode(root)) return false;
    }
    node.setServer(*this);
    node.setNodeId(root);
    return true;
}

// --- Frames ---

bool VantrelServerHandle::readFrame(const char* frameId, void* buffer, unsigned long size,
                                    const char* readAheadId1, const char* readAheadId2) const {
    return readFrame(frameId, nullptr, 0, buffer, size, readAheadId1, readAheadId2);
}

bool VantrelServerHandle::readFrame(const char* frameId, const void* request, unsigned long requestSize,
                                    void* buffer, unsigned long size, const char* readAheadId1,
                                    const char* readAheadId2) const {
    VantrelServerImp* server = imp();
    return server && server->frameRequest([&](VantrelFrameClientAPI& client) {
        client.readFrame(frameId, buffer, size, request, requestSize, readAheadId1, readAheadId2);
    });
}

bool VantrelServerHandle::writeFrame(const char* frameId, const void* data, unsigned long size) const {
    VantrelServerImp* server = imp();
    return server && server->frameRequest(
                         [&](VantrelFrameClientAPI& client) { client.writeFrame(frameId, data, size); });
}

bool VantrelServerHandle::readStream(const char* streamId, void* buffer, unsigned long size,
                                     unsigned long position, unsigned long elementSize,
                                     unsigned long& count) const {
    return streamRequest(imp(), [&](VantrelFrameClientAPI& client) {
        client.readStream(streamId, buffer, size, position, elementSize, count);
    });
}

bool VantrelServerHandle::pushStream(const char* remoteName, const char* localPath) const {
    return streamRequest(imp(), [&](VantrelFrameClientAPI& client) {
        client.pushFile(remoteName, localPath ? localPath : "");
    });
}

bool VantrelServerHandle::pullStream(const char* remoteName, const char* localPath) const {
    return streamRequest(imp(), [&](VantrelFrameClientAPI& client) {
        client.pullFile(remoteName, localPath ? localPath : "");
    });
}

// --- Events ---

bool VantrelServerHandle::registerEventHandler(const VantrelNodeId& nodeId,
                                               VantrelNodeEvent::Handler* handler, const char* format,
                                               const char* meta) const {
    VantrelServerImp* server = checkHandler(imp(), handler);
    return server && server->registerEventHandler(nodeId, handler, format, meta);
}

bool VantrelServerHandle::unregisterEventHandler(const VantrelNodeId& nodeId,
                                                 VantrelNodeEvent::Handler* handler) const {
    VantrelServerImp* server = checkHandler(imp(), handler);
    return server && server->unregisterEventHandler(nodeId, handler);
}

bool VantrelServerHandle::invalidateCache() const {
    VantrelServerImp* server = imp();
    VantrelVersion version{};
    if (!server || !server->protocolVersion(version)) return false;
    if (!(version >= VantrelFrameInterface::since(VantrelFrameInterface::INVALIDATE_CACHE))) return true;
    return server->frameRequest([](VantrelFrameClientAPI& client) { client.invalidateCache(); });
}
