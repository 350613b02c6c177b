#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "VantrelDaemonInfo.h"
#include "VantrelFrameInterface.h"
#include "VantrelRawDataClientConnection.h"
#include "VantrelRedirectionsCache.h"

/// The client side of the frame protocol: one request and its reply at a time, on the raw-data connection to
/// the server or, for a frame that it has redirected, on one to the server that holds the frame. Failures,
/// the server's own errors included, are thrown as Vantrel::CoException. After a transport failure the
/// connection is closed and the next request opens it again. Thread safety: used under the lock of the server
/// handle, but `stop`, which any thread may call.
class VantrelFrameClientAPI : public VantrelFrameInterface {
  public:
    /// `connection` leads to the server that `info` describes, and must outlive this object. The server's age
    /// decides how frames are read, and whether it is asked for redirections.
    VantrelFrameClientAPI(VantrelRawDataClientConnection& connection, const VantrelDaemonInfo& info);

    /// Ends the operation in progress with "Operation aborted.", wherever it reads from.
    void stop();
    /// Closes every connection, those to redirection targets included.
    void disconnect();

    void noOp();
    void invalidateCache();

    /// Reads exactly `size` bytes into `buffer`; `parameters` may be null when their size is 0. The two
    /// read-ahead ids may be null; where the server redirects one, that is remembered for the reading of that
    /// frame. A null or empty frame id, a null buffer or a size of 0 asks for the read-aheads alone.
    /// A redirected frame whose server cannot be connected is read from this one, and that is logged.
    void readFrame(const char* frameId, void* buffer, std::size_t size, const void* parameters,
                   std::size_t parametersSize, const char* readAheadId1, const char* readAheadId2);
    /// Announces to the server that the frame will be read soon. The server to read it from, when it answers
    /// with a redirection.
    std::optional<VantrelDaemonInfo> readAhead(const char* frameId, const void* parameters,
                                               std::size_t parametersSize, std::size_t size);
    void writeFrame(const char* frameId, const void* data, std::size_t size);

    /// Reads up to `count` elements of `elementSize` bytes from element `position` on; `count` becomes the
    /// number that the server has.
    void readStream(const char* streamId, void* buffer, std::size_t size, std::size_t position,
                    std::size_t elementSize, unsigned long& count);

    void pushFile(const char* remoteName, const char* localPath);
    /// A failure leaves no partial file, and an earlier file of that name as it was.
    void pullFile(const char* remoteName, const char* localPath);

    static constexpr std::size_t DATA_BUFFER_BYTES = 262144;
    /// Most bytes taken of the description of a redirection target.
    static constexpr std::size_t MAX_REDIRECTION_BYTES = 65536;

  private:
    using Connection = VantrelRawDataClientConnection;
    class Trace;
    struct FrameRead;

    static void writeMethodStringAndSize(Connection& connection, Method method, const char* text,
                                         std::size_t size);
    static void writeMethod(Connection& connection, Method method);
    static void writeParameters(Connection& connection, const void* parameters, std::size_t size);
    static void handleReturnCode(Connection& connection);
    static std::size_t readSize(Connection& connection);

    bool readRedirectedFrame(const FrameRead& frame, const Connection::Operation& operation);
    static void readFrameFrom(Connection& connection, const FrameRead& frame, bool withoutAcknowledgement);
    static void throwFastAckError(const char* buffer, std::size_t size);
    std::optional<VantrelDaemonInfo> readRedirection();
    char* getDataBuffer();

    Connection& connection_;
    const bool readWithoutAcknowledgement_;
    const bool redirectionsEnabled_;
    VantrelRedirectionsCache redirections_;
    std::unique_ptr<char[]> dataBuffer_;
};
