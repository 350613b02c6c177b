#include "FrameSession.h"

#include <fcntl.h>

#include <algorithm>
#include <utility>

#include "CoException.h"
#include "CoMsg.h"
#include "FrameStream.h"
#include "ServerLimits.h"

namespace vantreld {

using Vantrel::CoException;
using Vantrel::CoFd;
using Vantrel::coFormat;

namespace {

constexpr std::size_t PIECE_SIZE = std::size_t(1) << 20;

/// The peer and this side disagree about where the next request begins: answered, then the connection ends.
class ProtocolError : public CoException {
  public:
    using CoException::CoException;
};

bool hasParameters(VantrelFrameInterface::Method method) {
    switch (method) {
        case VantrelFrameInterface::READ_FRAME_PARAMS:
        case VantrelFrameInterface::READ_FRAME_PARAMS_NO_ACK:
        case VantrelFrameInterface::READ_AHEAD_PARAMS:
        case VantrelFrameInterface::READ_AHEAD_REDIRECT:
            return true;
        default:
            return false;
    }
}

bool standsAlone(VantrelFrameInterface::Method method) {
    return method == VantrelFrameInterface::NO_OP || method == VantrelFrameInterface::INVALIDATE_CACHE;
}

}  // namespace

struct FrameSession::Request {
    Method method = VantrelFrameInterface::NO_OP;
    std::string text;        ///< frame id, stream id or file name
    std::uint64_t size = 0;  ///< bytes asked for, or announced
};

FrameSession::FrameSession(NodeStore& store, CoFd socket, unsigned stallTimeoutMs, VantrelVersion version,
                           const std::string& redirection)
    : store_(store),
      socket_(std::move(socket), stallTimeoutMs),
      version_(version),
      redirection_(redirection) {}

void FrameSession::run() {
    try {
        while (socket_.waitForRequest()) answerRequest();
    } catch (const ProtocolError& error) {
        CO_MSG_WARNING("Frame connection ends: %s", error.what());
        try {
            returnError(error.what());
            socket_.closeLingering();
        } catch (const ConnectionLost&) {
            CO_MSG_DEBUG("Frame connection was lost before its last error was sent.");
        }
    } catch (const ConnectionLost& error) {
        CO_MSG_NOTICE("Frame connection lost: %s", error.what());
    } catch (const std::exception& error) {
        CO_MSG_ERROR("Frame connection ends: %s", error.what());
    }
    socket_.shutDown();
}

void FrameSession::answerRequest() {
    const Request request = readRequest();
    CO_MSG_DEBUG("Frame request %s(%s, %lu)", VantrelFrameInterface::methodToStr(request.method),
                 request.text.c_str(), static_cast<unsigned long>(request.size));
    switch (request.method) {
        case VantrelFrameInterface::NO_OP:
            return;
        case VantrelFrameInterface::INVALIDATE_CACHE:
            return returnSuccess();  // frames are read from their files
        case VantrelFrameInterface::READ_FRAME:
        case VantrelFrameInterface::READ_FRAME_PARAMS:
            return readFrame(request, true);
        case VantrelFrameInterface::READ_FRAME_NO_ACK:
        case VantrelFrameInterface::READ_FRAME_PARAMS_NO_ACK:
            return readFrame(request, false);
        case VantrelFrameInterface::READ_AHEAD:
        case VantrelFrameInterface::READ_AHEAD_PARAMS:
        case VantrelFrameInterface::READ_AHEAD_REDIRECT:
            return readAhead(request);
        case VantrelFrameInterface::WRITE_FRAME:
            return writeFrame(request);
        case VantrelFrameInterface::READ_STREAM:
            return readStream(request);
        case VantrelFrameInterface::PUSH_FILE:
            return pushFile(request);
        case VantrelFrameInterface::PULL_FILE:
            return pullFile(request);
    }
}

FrameSession::Request FrameSession::readRequest() {
    std::string text;
    if (!socket_.readText(text, MAX_METHOD_BYTES)) throw ProtocolError("The request's method is too long.");
    const auto method = VantrelFrameInterface::strToMethod(text);
    if (!method || !(version_ >= VantrelFrameInterface::since(*method)))
        throw ProtocolError("Unknown method: " + text);
    Request request;
    request.method = *method;
    if (standsAlone(request.method)) return request;
    if (!socket_.readText(request.text, MAX_REQUEST_TEXT_BYTES))
        throw ProtocolError(coFormat("The text of a %s request has more than %zu bytes.", text.c_str(),
                                     MAX_REQUEST_TEXT_BYTES));
    request.size = readNumber(request, "size");
    if (!hasParameters(request.method)) return request;
    const std::uint64_t parameterSize = readNumber(request, "parameter size");
    if (parameterSize > MAX_PARAMETER_BYTES)
        throw ProtocolError(coFormat("%lu bytes of %s parameters; at most %lu are taken.",
                                     static_cast<unsigned long>(parameterSize), text.c_str(),
                                     static_cast<unsigned long>(MAX_PARAMETER_BYTES)));
    // This server has no use for them: every frame is sent as it was written.
    skip(parameterSize);
    return request;
}

std::uint64_t FrameSession::readNumber(const Request& request, const char* what) {
    std::string text;
    const bool complete = socket_.readText(text, VantrelFrameInterface::MAX_SIZE_TEXT);
    const auto number = VantrelFrameInterface::parseSize(text);
    if (complete && number) return *number;
    throw ProtocolError(coFormat("Invalid %s '%s' in a %s request.", what, text.c_str(),
                                 VantrelFrameInterface::methodToStr(request.method)));
}

void FrameSession::skip(std::uint64_t length) {
    receiveInto(nullptr, length);
}

void FrameSession::receiveInto(NewFile* file, std::uint64_t length) {
    if (piece_.empty() && length > 0) piece_.resize(PIECE_SIZE);
    std::string failure;
    while (length > 0) {
        const std::size_t received =
            socket_.readSome(piece_.data(), std::min<std::uint64_t>(length, piece_.size()));
        length -= received;
        if (file == nullptr || !failure.empty()) continue;
        try {
            file->write(piece_.data(), received);
        } catch (const CoException& error) {
            failure = error.what();
        }
    }
    if (!failure.empty()) throw CoException(failure);
}

void FrameSession::readFrame(const Request& request, bool acknowledged) {
    ReadableFile frame;
    try {
        frame = store_.openFrame(request.text);
        if (request.size > frame.size)
            throw CoException(coFormat("Frame has %zu bytes, %zu asked.", frame.size,
                                       static_cast<std::size_t>(request.size)));
    } catch (const CoException& error) {
        return acknowledged ? returnError(error.what()) : returnErrorAsFrame(error.what(), request.size);
    }
    if (acknowledged) returnSuccess(request.size > 0 ? FrameSocket::More::Yes : FrameSocket::More::No);
    socket_.sendFile(frame, 0, request.size);
}

void FrameSession::writeFrame(const Request& request) {
    if (request.size > MAX_FRAME_BYTES)
        throw ProtocolError(coFormat("Cannot write frame '%s': it has %lu bytes, at most %lu are taken.",
                                     request.text.c_str(), static_cast<unsigned long>(request.size),
                                     static_cast<unsigned long>(MAX_FRAME_BYTES)));
    try {
        std::unique_ptr<NewFile> content;
        try {
            content = store_.beginFrame(request.text);
        } catch (const CoException&) {
            skip(request.size);
            throw;
        }
        receiveInto(content.get(), request.size);
        store_.commitFrame(request.text, *content);
    } catch (const ConnectionLost&) {
        throw;
    } catch (const CoException& error) {
        return returnError(error.what());
    }
    returnSuccess();
}

void FrameSession::readAhead(const Request& request) {
    if (request.method != VantrelFrameInterface::READ_AHEAD_REDIRECT) return prefetch(request);
    if (redirection_.empty()) prefetch(request);
    const std::string reply = VantrelFrameInterface::sizeText(redirection_.size()) + redirection_;
    socket_.write(reply.data(), reply.size());
}

void FrameSession::prefetch(const Request& request) {
    try {
        const ReadableFile frame = store_.openFrame(request.text);
        const std::uint64_t length = std::min<std::uint64_t>(request.size, frame.size);
        if (length > 0) ::posix_fadvise(frame.fd.get(), 0, static_cast<off_t>(length), POSIX_FADV_WILLNEED);
    } catch (const CoException& error) {
        // A hint has no answer; the read that follows has.
        CO_MSG_DEBUG("Cannot read ahead: %s", error.what());
    }
}

void FrameSession::readStream(const Request& request) {
    const std::uint64_t position = readNumber(request, "position");
    const std::uint64_t elementSize = readNumber(request, "element size");
    const std::uint64_t count = readNumber(request, "count");
    try {
        const FrameStream stream(store_, request.text, position, elementSize, count);
        returnSuccess(FrameSocket::More::Yes);
        // A client whose buffer is too small for that many elements takes none of them.
        const bool sends = stream.length() > 0 && stream.length() <= request.size;
        const std::string elements = VantrelFrameInterface::sizeText(stream.elements());
        socket_.write(elements.data(), elements.size(),
                      sends ? FrameSocket::More::Yes : FrameSocket::More::No);
        if (sends) stream.send(socket_);
    } catch (const ConnectionLost&) {
        throw;
    } catch (const CoException& error) {
        returnError(error.what());
    }
}

void FrameSession::pushFile(const Request& request) {
    std::unique_ptr<NewFile> file;
    try {
        if (request.size > MAX_FILE_BYTES)
            throw CoException(coFormat("Cannot store '%s': it has %lu bytes, at most %lu are taken.",
                                       request.text.c_str(), static_cast<unsigned long>(request.size),
                                       static_cast<unsigned long>(MAX_FILE_BYTES)));
        file = store_.remoteFiles().begin(request.text);
    } catch (const CoException& error) {
        // The client sends the bytes only after a success.
        return returnError(error.what());
    }
    returnSuccess();
    try {
        receiveInto(file.get(), request.size);
        store_.remoteFiles().publish(*file, request.text);
    } catch (const ConnectionLost&) {
        throw;
    } catch (const CoException& error) {
        return returnError(error.what());
    }
    returnSuccess();
}

void FrameSession::pullFile(const Request& request) {
    ReadableFile file;
    std::string failure;
    try {
        file = store_.remoteFiles().open(request.text);
    } catch (const CoException& error) {
        failure = error.what();
    }
    const std::string size = VantrelFrameInterface::sizeText(file.size);
    socket_.write(size.data(), size.size(), FrameSocket::More::Yes);
    if (!failure.empty()) return returnError(failure);
    socket_.sendFile(file, 0, file.size);
    returnSuccess();
}

void FrameSession::returnSuccess(FrameSocket::More more) {
    socket_.write("", 1, more);
}

void FrameSession::returnError(std::string_view text) {
    std::string code(text.substr(0, VantrelFrameInterface::MAX_RETURN_CODE));
    code.push_back('\0');
    socket_.write(code.data(), code.size());
}

void FrameSession::returnErrorAsFrame(std::string_view text, std::uint64_t size) {
    const std::string error = VantrelFrameInterface::FAST_ACK_ERROR_PREFIX() + std::string(text);
    const std::size_t sent = std::min<std::uint64_t>(error.size(), size);
    socket_.write(error.data(), sent, sent < size ? FrameSocket::More::Yes : FrameSocket::More::No);
    if (size > MAX_FRAME_BYTES)
        throw ConnectionLost(coFormat("a read asked for %lu bytes", static_cast<unsigned long>(size)));
    socket_.writeZeros(size - sent);
}

}  // namespace vantreld
