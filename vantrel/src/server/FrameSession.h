#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "FrameSocket.h"
#include "NodeStore.h"
#include "VantrelFrameInterface.h"
#include "VantrelVersion.h"

namespace vantreld {

/// Answers the frame port requests of one connection, one after the other, until the peer leaves. A request
/// that fails is answered with its error, and the connection goes on when it is known where the next request
/// begins; otherwise it ends. Used by one thread, except shutDown.
class FrameSession {
  public:
    /// Methods that a server of `version` lacks are unknown. `redirection` is the record of the server that
    /// read-aheads are redirected to, as it travels; empty: none. `store` and `redirection` must outlive the
    /// session.
    FrameSession(NodeStore& store, Vantrel::CoFd socket, unsigned stallTimeoutMs, VantrelVersion version,
                 const std::string& redirection);

    /// Returns when the connection has ended.
    void run();
    /// Makes run() return soon; any thread may call it.
    void shutDown() { socket_.shutDown(); }

  private:
    using Method = VantrelFrameInterface::Method;
    struct Request;

    void answerRequest();
    Request readRequest();
    std::uint64_t readNumber(const Request& request, const char* what);
    void skip(std::uint64_t length);

    void readFrame(const Request& request, bool acknowledged);
    void writeFrame(const Request& request);
    void readAhead(const Request& request);
    void prefetch(const Request& request);
    void readStream(const Request& request);
    void pushFile(const Request& request);
    void pullFile(const Request& request);

    /// Moves `length` bytes from the connection into `file`. Takes them from the connection even when the
    /// file cannot be written, so that the next request is found; throws the reason then.
    void receiveInto(NewFile* file, std::uint64_t length);

    void returnSuccess(FrameSocket::More more = FrameSocket::More::No);
    void returnError(std::string_view text);
    void returnErrorAsFrame(std::string_view text, std::uint64_t size);

    NodeStore& store_;
    FrameSocket socket_;
    const VantrelVersion version_;
    const std::string& redirection_;
    std::vector<char> piece_;  ///< for uploads; made with the first one
};

}  // namespace vantreld
