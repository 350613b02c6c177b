#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "CoException.h"
#include "CoFd.h"
#include "StorageFile.h"

namespace vantreld {

/// The peer went away, stalled, or this side was closed: nothing more can be said on the connection.
class ConnectionLost : public Vantrel::CoException {
  public:
    using CoException::CoException;
};

/// One accepted frame connection: buffered reads of a request's texts, bulk transfers of its data. A transfer
/// that moves no byte for the stall time-out, and every other failure, throws ConnectionLost. Used by one
/// thread, except shutDown.
class FrameSocket {
  public:
    FrameSocket(Vantrel::CoFd fd, unsigned stallTimeoutMs);

    /// Waits without limit for the first byte of a request; false when the peer has closed.
    bool waitForRequest();

    /// Reads up to a NUL, which is taken and not part of `text`. False when `limit` bytes came without one.
    bool readText(std::string& text, std::size_t limit);
    /// Reads at least one byte and at most `length`.
    std::size_t readSome(char* data, std::size_t length);

    /// `more` says that more follows at once, so that both can leave in one packet.
    enum class More { No, Yes };
    void write(const void* data, std::size_t length, More more = More::No);
    void writeZeros(std::uint64_t length);
    /// Sends `length` bytes of a file. ConnectionLost also when the file turns out shorter.
    void sendFile(const ReadableFile& file, std::uint64_t start, std::uint64_t length);

    /// A lingering close: what was written last still reaches the peer, though it may still be sending.
    void closeLingering();
    /// Breaks every wait, present and later. Any thread may call it, for as long as the object exists.
    void shutDown();

  private:
    void wait(short events, int timeoutMs);
    /// recv; 0 when the peer has closed.
    std::size_t receive(char* data, std::size_t length, int timeoutMs);

    const Vantrel::CoFd fd_;
    const int stallTimeoutMs_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;  ///< bytes received and not read yet: buffer_[begin_] up to buffer_[end_]
    std::size_t end_ = 0;
};

}  // namespace vantreld
