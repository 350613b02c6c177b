#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "VantrelFrameInterface.h"
#include "VantrelRawDataClientConnection.h"

/// The client side of the frame protocol: one request and its reply at a time on one raw-data connection.
/// Failures, the server's own errors included, are thrown as Vantrel::CoException. After a transport failure
/// the connection is closed and the next request opens it again. Thread safety: none; used under the lock of
/// the server handle.
class VantrelFrameClientAPI : public VantrelFrameInterface {
  public:
    /// `connection` must outlive this object. `readWithoutAcknowledgement`: what the server's age allows.
    VantrelFrameClientAPI(VantrelRawDataClientConnection& connection, bool readWithoutAcknowledgement);

    void noOp();
    void invalidateCache();

    /// Reads exactly `size` bytes into `buffer`; `parameters` may be null when their size is 0. The two
    /// read-ahead ids may be null. A null or empty frame id, a null buffer or a size of 0 asks for the
    /// read-aheads alone.
    void readFrame(const char* frameId, void* buffer, std::size_t size, const void* parameters,
                   std::size_t parametersSize, const char* readAheadId1, const char* readAheadId2);
    void readAhead(const char* frameId, const void* parameters, std::size_t parametersSize, std::size_t size);
    void writeFrame(const char* frameId, const void* data, std::size_t size);

    /// Reads up to `count` elements of `elementSize` bytes from element `position` on; `count` becomes the
    /// number that the server has.
    void readStream(const char* streamId, void* buffer, std::size_t size, std::size_t position,
                    std::size_t elementSize, unsigned long& count);

    void pushFile(const char* remoteName, const char* localPath);
    /// A failure leaves no partial file, and an earlier file of that name as it was.
    void pullFile(const char* remoteName, const char* localPath);

    static constexpr std::size_t DATA_BUFFER_BYTES = 262144;

  private:
    class Trace;

    void writeHeader(Method method, const char* text, std::size_t size);
    void writeParameters(const void* parameters, std::size_t size);
    void handleReturnCode();
    std::size_t readSize();
    void throwFastAckError(const char* buffer, std::size_t size);
    char* getDataBuffer();

    VantrelRawDataClientConnection& connection_;
    const bool readWithoutAcknowledgement_;
    std::unique_ptr<char[]> dataBuffer_;
};
