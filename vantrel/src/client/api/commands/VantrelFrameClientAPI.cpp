#include "VantrelFrameClientAPI.h"

#include <algorithm>
#include <cstring>

#include "CoAssert.h"
#include "CoException.h"
#include "CoMsg.h"
#include "VantrelFailure.h"
#include "VantrelFrameTrace.h"
#include "VantrelSettings.h"

using Failed = VantrelFailureException;
using Vantrel::CoException;
using Vantrel::coFormat;

namespace {

constexpr const char* NO_NAME = "No frame, stream or file name given";

bool hasMethod(const VantrelDaemonInfo& info, VantrelFrameInterface::Method method) {
    return VantrelVersion::ofProtocol(info) >= VantrelFrameInterface::since(method);
}

unsigned redirectionCapacity(const VantrelDaemonInfo& info) {
    if (!hasMethod(info, VantrelFrameInterface::READ_AHEAD_REDIRECT)) return 0;
    return static_cast<unsigned>(VantrelSettings::redirectionCacheSize.get());
}

}  // namespace

struct VantrelFrameClientAPI::FrameRead {
    const char* id;
    char* buffer;
    std::size_t size;
    const void* parameters;
    std::size_t parametersSize;
};

VantrelFrameClientAPI::VantrelFrameClientAPI(VantrelRawDataClientConnection& connection,
                                             const VantrelDaemonInfo& info)
    : connection_(connection),
      readWithoutAcknowledgement_(hasMethod(info, READ_FRAME_NO_ACK)),
      redirectionsEnabled_(redirectionCapacity(info) > 0),
      redirections_(redirectionCapacity(info)) {}

void VantrelFrameClientAPI::stop() {
    connection_.stop();  // before the others: see readRedirectedFrame
    redirections_.stop();
}

void VantrelFrameClientAPI::disconnect() {
    connection_.disconnect();
    redirections_.disconnect();
}

// --- Wire primitives ---

void VantrelFrameClientAPI::writeMethodStringAndSize(Connection& connection, Method method, const char* text,
                                                     std::size_t size) {
    if (!CO_ASSERT(text != nullptr)) throw Failed(VANTREL_ERROR_INVALID_ARGUMENT, NO_NAME, false);
    const std::string bytes = header(method, text, static_cast<long>(size));
    connection.write(bytes.data(), bytes.size());
}

void VantrelFrameClientAPI::writeMethod(Connection& connection, Method method) {
    const std::string bytes = bareMethod(method);
    connection.write(bytes.data(), bytes.size());
}

void VantrelFrameClientAPI::writeParameters(Connection& connection, const void* parameters,
                                            std::size_t size) {
    const std::string text = sizeText(size);
    connection.write(text.data(), text.size());
    if (size > 0) connection.write(static_cast<const char*>(parameters), size);
}

void VantrelFrameClientAPI::handleReturnCode(Connection& connection) {
    std::string text;
    if (!connection.readText(text, MAX_RETURN_CODE)) connection.disconnect();  // the rest would be misread
    if (!text.empty()) throw Failed(VANTREL_ERROR_REFUSED, text, true);
}

std::size_t VantrelFrameClientAPI::readSize(Connection& connection) {
    std::string text;
    const bool complete = connection.readText(text, MAX_SIZE_TEXT);
    const auto size = complete ? parseSize(text) : std::nullopt;
    if (!size) {
        connection.disconnect();
        throw Failed(VANTREL_ERROR_INVALID_REPLY, coFormat("Invalid size reply: '%s'.", text.c_str()), true);
    }
    return *size;
}

// --- Frames ---

void VantrelFrameClientAPI::noOp() {
    const VantrelRawDataClientConnection::Request request(connection_);
    const Trace trace(NO_OP);
    writeMethod(connection_, NO_OP);
}

void VantrelFrameClientAPI::invalidateCache() {
    const VantrelRawDataClientConnection::Request request(connection_);
    const Trace trace(INVALIDATE_CACHE);
    writeMethod(connection_, INVALIDATE_CACHE);
    handleReturnCode(connection_);
}

void VantrelFrameClientAPI::readFrame(const char* frameId, void* buffer, std::size_t size,
                                      const void* parameters, std::size_t parametersSize,
                                      const char* readAheadId1, const char* readAheadId2) {
    const Connection::Operation operation(connection_);
    for (const char* ahead : {readAheadId1, readAheadId2}) {
        if (!ahead || !*ahead) continue;
        const auto target = readAhead(ahead, parameters, parametersSize, size);
        if (target) redirections_.add(ahead, *target);
    }
    if (!frameId || !*frameId || !buffer || size == 0) return;

    const FrameRead frame{frameId, static_cast<char*>(buffer), size, parameters, parametersSize};
    if (readRedirectedFrame(frame, operation)) return;
    const Connection::Request request(connection_);
    readFrameFrom(connection_, frame, readWithoutAcknowledgement_);
}

/// False when the frame is to be read from the server itself. `operation` is the one in progress there.
bool VantrelFrameClientAPI::readRedirectedFrame(const FrameRead& frame,
                                                const Connection::Operation& operation) {
    if (!redirectionsEnabled_) return false;
    Connection* holder = redirections_.find(frame.id, &connection_);
    if (holder == &connection_) return false;
    const VantrelDaemonInfo* target = redirections_.target(frame.id);
    // A record without a version comes from a server of the same age as the one that gave it.
    const bool withoutAcknowledgement =
        target && VantrelVersion::ofProtocol(*target) >= VantrelVersion{0, 0, 0, 1}
            ? hasMethod(*target, READ_FRAME_NO_ACK)
            : readWithoutAcknowledgement_;

    const Connection::Operation redirected(*holder);
    operation.throwIfStopped();  // a later stop() meets `redirected`
    std::optional<Connection::Request> request;
    try {
        request.emplace(*holder);
    } catch (const CoException& error) {
        redirected.throwIfStopped();
        CO_MSG_WARNING("Frame '%s' was redirected to a server that cannot be connected: %s", frame.id,
                       error.what());
        return false;
    }
    readFrameFrom(*holder, frame, withoutAcknowledgement);
    return true;
}

void VantrelFrameClientAPI::readFrameFrom(Connection& connection, const FrameRead& frame,
                                          bool withoutAcknowledgement) {
    // The error that may stand in place of the frame must fit.
    const bool acknowledged = !withoutAcknowledgement || frame.size <= std::strlen(FAST_ACK_ERROR_PREFIX());
    const bool hasParameters = frame.parametersSize > 0;
    const Method method = hasParameters ? (acknowledged ? READ_FRAME_PARAMS : READ_FRAME_PARAMS_NO_ACK)
                                        : (acknowledged ? READ_FRAME : READ_FRAME_NO_ACK);
    const Trace trace(method, frame.id, frame.size);
    writeMethodStringAndSize(connection, method, frame.id, frame.size);
    if (hasParameters) writeParameters(connection, frame.parameters, frame.parametersSize);
    if (acknowledged) handleReturnCode(connection);
    connection.read(frame.buffer, frame.size);
    if (!acknowledged) throwFastAckError(frame.buffer, frame.size);
}

void VantrelFrameClientAPI::throwFastAckError(const char* buffer, std::size_t size) {
    const std::size_t prefixLength = std::strlen(FAST_ACK_ERROR_PREFIX());
    if (!CO_ASSERT(prefixLength < size)) return;
    if (std::memcmp(buffer, FAST_ACK_ERROR_PREFIX(), prefixLength) != 0) return;
    const char* text = buffer + prefixLength;
    throw Failed(VANTREL_ERROR_REFUSED, std::string(text, ::strnlen(text, size - prefixLength)), true);
}

std::optional<VantrelDaemonInfo> VantrelFrameClientAPI::readAhead(const char* frameId, const void* parameters,
                                                                  std::size_t parametersSize,
                                                                  std::size_t size) {
    const Method method = redirectionsEnabled_ ? READ_AHEAD_REDIRECT
                          : parametersSize > 0 ? READ_AHEAD_PARAMS
                                               : READ_AHEAD;
    const Connection::Request request(connection_);
    const Trace trace(method, frameId, size);
    writeMethodStringAndSize(connection_, method, frameId, size);
    // The redirecting form carries the size of the parameters even when there are none.
    if (method != READ_AHEAD) writeParameters(connection_, parameters, parametersSize);
    return method == READ_AHEAD_REDIRECT ? readRedirection() : std::nullopt;
}

std::optional<VantrelDaemonInfo> VantrelFrameClientAPI::readRedirection() {
    const std::size_t length = readSize(connection_);
    if (length == 0) return std::nullopt;
    if (length > MAX_REDIRECTION_BYTES) {
        connection_.disconnect();
        throw Failed(
            VANTREL_ERROR_INVALID_REPLY,
            coFormat("Redirection of %zu bytes; at most %zu are taken.", length, MAX_REDIRECTION_BYTES),
            true);
    }
    std::string text(length, '\0');
    connection_.read(text.data(), text.size());
    VantrelDaemonInfo target{Vantrel::rcAttrStream(std::move(text))};
    // From another host they would lead back to this one.
    if (!connection_.isToThisHost()) target.removeLoopbackIPs();
    return target;
}

void VantrelFrameClientAPI::writeFrame(const char* frameId, const void* data, std::size_t size) {
    const VantrelRawDataClientConnection::Request request(connection_);
    const Trace trace(WRITE_FRAME, frameId, size);
    writeMethodStringAndSize(connection_, WRITE_FRAME, frameId, size);
    connection_.write(static_cast<const char*>(data), size);
    handleReturnCode(connection_);
}

// --- Streams and files ---

void VantrelFrameClientAPI::readStream(const char* streamId, void* buffer, std::size_t size,
                                       std::size_t position, std::size_t elementSize, unsigned long& count) {
    const VantrelRawDataClientConnection::Request request(connection_);
    const Trace trace(READ_STREAM, streamId, size);
    writeMethodStringAndSize(connection_, READ_STREAM, streamId, size);
    const std::string sizes = sizeText(position) + sizeText(elementSize) + sizeText(count);
    connection_.write(sizes.data(), sizes.size());
    handleReturnCode(connection_);
    const std::size_t available = readSize(connection_);
    count = available;
    if (elementSize > 0 && available > size / elementSize) {
        connection_.disconnect();  // the elements are on their way, and are not read
        throw Failed(VANTREL_ERROR_INVALID_ARGUMENT, "Buffer too small.", true);
    }
    connection_.read(static_cast<char*>(buffer), available * elementSize);
}
