#include "VantrelFrameClientAPI.h"

#include <algorithm>
#include <cstring>

#include "CoAssert.h"
#include "CoException.h"
#include "CoMsg.h"
#include "VantrelFrameTrace.h"

using Vantrel::CoException;
using Vantrel::coFormat;

VantrelFrameClientAPI::VantrelFrameClientAPI(VantrelRawDataClientConnection& connection,
                                             bool readWithoutAcknowledgement)
    : connection_(connection), readWithoutAcknowledgement_(readWithoutAcknowledgement) {}

// --- Wire primitives ---

void VantrelFrameClientAPI::writeHeader(Method method, const char* text, std::size_t size) {
    if (!CO_ASSERT(text != nullptr)) throw CoException("No frame, stream or file name given");
    const std::string bytes = header(method, text, static_cast<long>(size));
    connection_.write(bytes.data(), bytes.size());
}

void VantrelFrameClientAPI::writeParameters(const void* parameters, std::size_t size) {
    const std::string text = sizeText(size);
    connection_.write(text.data(), text.size());
    if (size > 0) connection_.write(static_cast<const char*>(parameters), size);
}

void VantrelFrameClientAPI::handleReturnCode() {
    std::string text;
    if (!connection_.readText(text, MAX_RETURN_CODE)) connection_.disconnect();  // the rest would be misread
    if (!text.empty()) throw CoException(text);
}

std::size_t VantrelFrameClientAPI::readSize() {
    std::string text;
    const bool complete = connection_.readText(text, MAX_SIZE_TEXT);
    const auto size = complete ? parseSize(text) : std::nullopt;
    if (!size) {
        connection_.disconnect();
        throw CoException(coFormat("Invalid size reply: '%s'.", text.c_str()));
    }
    return *size;
}

// --- Frames ---

void VantrelFrameClientAPI::noOp() {
    const VantrelRawDataClientConnection::Request request(connection_);
    const Trace trace(NO_OP);
    const std::string bytes = bareMethod(NO_OP);
    connection_.write(bytes.data(), bytes.size());
}

void VantrelFrameClientAPI::invalidateCache() {
    const VantrelRawDataClientConnection::Request request(connection_);
    const Trace trace(INVALIDATE_CACHE);
    const std::string bytes = bareMethod(INVALIDATE_CACHE);
    connection_.write(bytes.data(), bytes.size());
    handleReturnCode();
}

void VantrelFrameClientAPI::readFrame(const char* frameId, void* buffer, std::size_t size,
                                      const void* parameters, std::size_t parametersSize,
                                      const char* readAheadId1, const char* readAheadId2) {
    for (const char* ahead : {readAheadId1, readAheadId2}) {
        if (ahead && *ahead) readAhead(ahead, parameters, parametersSize, size);
    }
    if (!frameId || !*frameId || !buffer || size == 0) return;

    // The error that may stand in place of the frame must fit.
    const bool acknowledged = !readWithoutAcknowledgement_ || size <= std::strlen(FAST_ACK_ERROR_PREFIX());
    const Method method = parametersSize > 0 ? (acknowledged ? READ_FRAME_PARAMS : READ_FRAME_PARAMS_NO_ACK)
                                             : (acknowledged ? READ_FRAME : READ_FRAME_NO_ACK);
    const VantrelRawDataClientConnection::Request request(connection_);
    const Trace trace(method, frameId, size);
    writeHeader(method, frameId, size);
    if (parametersSize > 0) writeParameters(parameters, parametersSize);
    if (acknowledged) handleReturnCode();
    connection_.read(static_cast<char*>(buffer), size);
    if (!acknowledged) throwFastAckError(static_cast<const char*>(buffer), size);
}

void VantrelFrameClientAPI::throwFastAckError(const char* buffer, std::size_t size) {
    const std::size_t prefixLength = std::strlen(FAST_ACK_ERROR_PREFIX());
    if (!CO_ASSERT(prefixLength < size)) return;
    if (std::memcmp(buffer, FAST_ACK_ERROR_PREFIX(), prefixLength) != 0) return;
    const char* text = buffer + prefixLength;
    throw CoException(std::string(text, ::strnlen(text, size - prefixLength)));
}

void VantrelFrameClientAPI::readAhead(const char* frameId, const void* parameters, std::size_t parametersSize,
                                      std::size_t size) {
    const Method method = parametersSize > 0 ? READ_AHEAD_PARAMS : READ_AHEAD;
    const VantrelRawDataClientConnection::Request request(connection_);
    const Trace trace(method, frameId, size);
    writeHeader(method, frameId, size);
    if (parametersSize > 0) writeParameters(parameters, parametersSize);
}

void VantrelFrameClientAPI::writeFrame(const char* frameId, const void* data, std::size_t size) {
    const VantrelRawDataClientConnection::Request request(connection_);
    const Trace trace(WRITE_FRAME, frameId, size);
    writeHeader(WRITE_FRAME, frameId, size);
    connection_.write(static_cast<const char*>(data), size);
    handleReturnCode();
}

// --- Streams and files ---

void VantrelFrameClientAPI::readStream(const char* streamId, void* buffer, std::size_t size,
                                       std::size_t position, std::size_t elementSize, unsigned long& count) {
    const VantrelRawDataClientConnection::Request request(connection_);
    const Trace trace(READ_STREAM, streamId, size);
    writeHeader(READ_STREAM, streamId, size);
    const std::string sizes = sizeText(position) + sizeText(elementSize) + sizeText(count);
    connection_.write(sizes.data(), sizes.size());
    handleReturnCode();
    const std::size_t available = readSize();
    count = available;
    if (elementSize > 0 && available > size / elementSize) {
        connection_.disconnect();  // the elements are on their way, and are not read
        throw CoException("Buffer too small.");
    }
    connection_.read(static_cast<char*>(buffer), available * elementSize);
}
