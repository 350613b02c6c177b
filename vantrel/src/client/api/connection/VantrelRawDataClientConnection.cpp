#include "VantrelRawDataClientConnection.h"

#include <algorithm>

#include "CoMsg.h"
#include "CoPort.h"
#include "CoProcess.h"
#include "VantrelDaemonHost.h"
#include "VantrelDaemonInfoMgr.h"
#include "VantrelFailure.h"
#include "VantrelResolver.h"
#include "VantrelSettings.h"

using Failed = VantrelFailureException;
using Vantrel::coFormat;
using Vantrel::CoIoDescriptor;
using Vantrel::coPrintable;

namespace {

constexpr int CONNECT_TIMEOUT_SEC = 10;
/// A server of this host accepts at once, or is in trouble: the error of TCP then says more.
constexpr unsigned LOCAL_CONNECT_TIMEOUT_MS = 1000;
constexpr int MAX_REASON_BYTES = 255;

std::size_t pieceOf(std::size_t length) {
    return std::min(length, static_cast<std::size_t>(VantrelSettings::frameIoBytes.get()));
}

unsigned stallTimeoutMs() {
    return static_cast<unsigned>(VantrelSettings::frameStallTimeoutMs.get());
}

}  // namespace

void VantrelRawDataClientConnection::Operation::throwIfStopped() const {
    if (tcp_.stopRequested() || local_.stopRequested()) throw Failed(VANTREL_ERROR_STOPPED, ABORTED, false);
}

VantrelRawDataClientConnection::Request::Request(VantrelRawDataClientConnection& connection)
    : Operation(connection) {
    // A forked child closes its copy of the parent's socket, and speaks on one of its own.
    const bool ours = connection.forkGeneration_ == Vantrel::CoProcess::forkGeneration();
    if (!ours || !connection.socket().isActive()) {
        connection.disconnect();
        connection.connect();
    }
}

void VantrelRawDataClientConnection::disconnect() {
    tcp_.close();
    local_.close();
}

void VantrelRawDataClientConnection::stop() {
    tcp_.stop();
    local_.stop();
}

bool VantrelRawDataClientConnection::isToThisHost() const {
    std::string address;
    if (!tcp_.getPeerIP(address)) return local_.isValid();
    return VantrelOS::isLoopBackIP(address.c_str()) || VantrelOS::isLocalIP(address.c_str());
}

CoIoDescriptor& VantrelRawDataClientConnection::socket() {
    if (local_.isValid()) return local_;
    return tcp_;
}

void VantrelRawDataClientConnection::connect() {
    const VantrelDaemonInfo* info = nullptr;
    if (!server_->getDaemonInfo(info)) throw Failed(server_->lastErrorCode(), server_->lastError(), false);
    disconnect();
    if (connectLocally(*info)) return;
    const int port =
        info->getFramePort() != 0 ? info->getFramePort() : int{VantrelDaemonInfo::DEFAULT_FRAME_PORT};
    if (port < 0 || port > Vantrel::HIGHEST_PORT) {
        CO_MSG_WARNING("Server '%s' names %d as its frame port.", coPrintable(info->getDisplayName()).c_str(),
                       port);
    } else if (VantrelResolver(*info).tryEach(VantrelResolver::Data, [&](const std::string& address) {
                   return connectTo(*info, address.c_str(), port);
               })) {
        return;
    }
    server_->clearDaemonInfo();  // the server may have moved: ask it before the next attempt
    throw Failed(VANTREL_ERROR_UNREACHABLE, "No data interface found", false);
}

bool VantrelRawDataClientConnection::connectLocally(const VantrelDaemonInfo& info) {
    const std::string path = VantrelDaemonHost::getFrameMsgQ(info);
    if (path.empty() || !VantrelDaemonHost::isLocal(info)) return false;
    const std::string name = coPrintable(info.getDisplayName());
    const std::string storageId = coPrintable(info.getStorageId());
    CO_MSG_NOTICE("Connecting to server '%s' / '%s' using '%s'.", name.c_str(), storageId.c_str(),
                  path.c_str());
    if (!local_.connect(path.c_str(), LOCAL_CONNECT_TIMEOUT_MS)) {
        if (local_.wasStopped()) throw Failed(VANTREL_ERROR_STOPPED, ABORTED, false);
        CO_MSG_WARNING("Could not connect to socket pipe file '%s': %s", path.c_str(),
                       local_.lastErrorText().c_str());
        return false;
    }
    forkGeneration_ = Vantrel::CoProcess::forkGeneration();
    CO_MSG_NOTICE("Connected to server '%s' / '%s' using '%s'.", name.c_str(), storageId.c_str(),
                  path.c_str());
    return true;
}

bool VantrelRawDataClientConnection::connectTo(const VantrelDaemonInfo& info, const char* address, int port) {
    const std::string name = coPrintable(info.getDisplayName());
    const std::string storageId = coPrintable(info.getStorageId());
    CO_MSG_NOTICE("Connecting to server '%s' / '%s' using '%s:%u'.", name.c_str(), storageId.c_str(), address,
                  static_cast<unsigned>(port));
    const int bufferBytes = static_cast<int>(VantrelSettings::frameSocketBufferBytes.get());
    if (!tcp_.connect(address, port, bufferBytes, bufferBytes, CONNECT_TIMEOUT_SEC)) {
        if (tcp_.wasStopped()) throw Failed(VANTREL_ERROR_STOPPED, ABORTED, false);
        return false;
    }
    forkGeneration_ = Vantrel::CoProcess::forkGeneration();
    if (!tcp_.setNonBlocking(false)) {
        CO_MSG_WARNING("Couldn't set socket as blocking: %s", tcp_.lastErrorText().c_str());
    }
    CO_MSG_NOTICE("Connected to server '%s' / '%s'.", name.c_str(), storageId.c_str());
    return true;
}

void VantrelRawDataClientConnection::read(char* buffer, std::size_t length) {
    if (!isConnected()) connect();
    while (length > 0) {
        const std::size_t piece = pieceOf(length);
        CoIoDescriptor& from = socket();
        const ssize_t moved = from.blockingRead(buffer, piece, stallTimeoutMs());
        if (moved != static_cast<ssize_t>(piece)) {
            const bool aborted = from.wasStopped();
            const bool stalled = from.lastError() == CoIoDescriptor::IoError::TimedOut;
            const std::string reason = from.lastErrorText();
            disconnect();
            if (aborted) throw Failed(VANTREL_ERROR_STOPPED, ABORTED, true);
            if (moved == 0) throw Failed(VANTREL_ERROR_MAYBE_EXECUTED, "Connection closed", true);
            throw Failed(stalled ? VANTREL_ERROR_TIMED_OUT : VANTREL_ERROR_MAYBE_EXECUTED,
                         coFormat("Cannot read data on socket: %.*s", MAX_REASON_BYTES, reason.c_str()),
                         true);
        }
        buffer += piece;
        length -= piece;
    }
}

void VantrelRawDataClientConnection::write(const char* buffer, std::size_t length) {
    if (!isConnected()) connect();
    while (length > 0) {
        const std::size_t piece = pieceOf(length);
        CoIoDescriptor& to = socket();
        const ssize_t moved = to.blockingWrite(buffer, piece, stallTimeoutMs());
        if (moved != static_cast<ssize_t>(piece)) {
            const bool aborted = to.wasStopped();
            const bool stalled = to.lastError() == CoIoDescriptor::IoError::TimedOut;
            const std::string reason = stalled ? ": " + to.lastErrorText() : std::string();
            disconnect();
            if (aborted) throw Failed(VANTREL_ERROR_STOPPED, ABORTED, true);
            throw Failed(stalled ? VANTREL_ERROR_TIMED_OUT : VANTREL_ERROR_MAYBE_EXECUTED,
                         coFormat("ret: %d writing %d bytes%s", static_cast<int>(moved),
                                  static_cast<int>(piece), reason.c_str()),
                         true);
        }
        buffer += piece;
        length -= piece;
    }
}

bool VantrelRawDataClientConnection::readText(std::string& text, std::size_t maxLength) {
    text.clear();
    while (text.size() < maxLength) {
        char byte = 0;
        read(&byte, 1);
        if (byte == '\0') return true;
        text.push_back(byte);
    }
    return false;
}
