#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <string>
#include <utility>

#include "CoFd.h"
#include "CoStopRequest.h"

namespace Vantrel {

class CoSharedCancelPipe;

/// One file descriptor (socket, pipe or local socket) with reads and writes that end within a time-out and
/// that another thread can stop. Owns the descriptor: close-on-exec is its opener's duty, closing is its own.
/// Thread safety: one thread does I/O at a time; `stop`, `isValid` and `getId` may be called from any thread.
class CoIoDescriptor {
  public:
    using SharedCancelPipe = CoSharedCancelPipe;

    static constexpr int INVALID_ID = CoFd::NONE;

    /// The library's error numbers, each tied to one of the system's.
    enum class IoError : int {
        None = 0,
        Other = 1,  ///< the current errno
        NoEntry = 2,
        BadDescriptor = 3,
        Interrupted = 4,
        Again = 5,
        NotConnected = 6,
        Aborted = 7,  ///< cancelled through stop()
        ConnectionReset = 8,
        TimedOut = 9,
        ConnectionRefused = 10,
        NoDevice = 11,
        Invalid = 12,
    };

    CoIoDescriptor() = default;
    explicit CoIoDescriptor(int id) : fd_(id) {}
    explicit CoIoDescriptor(CoFd fd) : fd_(std::move(fd)) {}
    CoIoDescriptor(const CoIoDescriptor&) = delete;
    CoIoDescriptor& operator=(const CoIoDescriptor&) = delete;
    virtual ~CoIoDescriptor() = default;

    /// Takes over an open descriptor, closing the one held before.
    void setId(int id);
    int getId() const { return fd_.get(); }
    bool isValid() const { return fd_.isOpen(); }
    /// Valid and not closed by the peer.
    bool isActive() const;
    void close() { setId(INVALID_ID); }

    /// Waits up to `timeoutMs` for data, then reads once. Bytes read; 0 for a time-out or nothing available,
    /// and also, before the time-out, when a signal or another descriptor's stop() ended the wait; -1 on
    /// error, with the last error set: NotConnected, Aborted (stopped), ConnectionReset (peer closed).
    int nonBlockingReadWithTimeout(void* buffer, unsigned length, unsigned timeoutMs);
    /// Writes once what is accepted, waiting up to `timeoutMs` only when nothing is. Results as above.
    int nonBlockingWriteWithTimeout(const void* buffer, unsigned length, unsigned timeoutMs);

    /// Lets nonBlockingReadWithTimeout wait in the read itself at first, which spares a poll where the answer
    /// comes soon. For a socket that this object alone reads and that a stop() ends the use of: a stop during
    /// such a wait shuts it down for reading. It is switched to blocking, and its time-outs may come 10 ms
    /// early. False, and nothing is changed for this object, when the system refuses; ends with `setId` and
    /// `close`.
    bool enableWaitInRead();

    /// Transfers `length` bytes. `length` when all went; fewer (perhaps 0) with last error Aborted when
    /// stopped; otherwise 0 with ConnectionReset when the peer closed, and -1 for any other failure. A
    /// transfer that moves no byte for `stallTimeoutMs` fails with TimedOut; 0 waits without limit.
    /// Works alike on descriptors that are switched to blocking.
    ssize_t blockingRead(void* buffer, std::size_t length, unsigned stallTimeoutMs = 0);
    ssize_t blockingWrite(const void* buffer, std::size_t length, unsigned stallTimeoutMs = 0);

    /// Reads up to a line feed, which becomes a NUL; the line's length without it. At most `size` - 1 bytes
    /// are kept; later bytes of a longer line overwrite the last position. 0 with ConnectionReset when a read
    /// fails, with Aborted when it was stopped. Waits without limit.
    int readLine(char* buffer, int size);
    /// Writes the text without its terminator; true when all of it went.
    bool writeStr(const char* text);

    /// Ends the wait in progress, or the StopScope held, with Aborted. Without one it has no effect. The
    /// descriptor must outlive the call.
    void stop();
    bool wasStopped() const { return lastError_ == IoError::Aborted; }

    IoError lastError() const { return lastError_; }
    const std::string& lastErrorText() const { return lastErrorText_; }

    bool setSendBufferSizeSocketOption(int bytes);
    bool setReceiveBufferSizeSocketOption(int bytes);

    /// Maps errno; an unknown one gives Other and a logged warning "Unexpected error %d: %s".
    static IoError getIoError();
    /// The system's text for an error, cut to `size` bytes, always terminated. None gives an empty text.
    static void getIoError(IoError error, char* text, int size);

    /// While it lives, one operation of several waits is in progress on the descriptor: a stop() at any
    /// moment of it, between two waits too, ends the next or current wait. Held by the thread that does I/O.
    class StopScope {
      public:
        explicit StopScope(CoIoDescriptor& descriptor);
        StopScope(const StopScope&) = delete;
        StopScope& operator=(const StopScope&) = delete;
        ~StopScope();

        /// Whether stop() was called since it began.
        bool stopRequested() const { return descriptor_.stop_.requested(); }

      private:
        CoIoDescriptor& descriptor_;
    };

    /// Faults that tests switch on for every descriptor of the process: the most bytes that one system call
    /// moves. 0 means no limit.
    struct Faults {
        std::atomic<unsigned> maxReadBytes{0};
        std::atomic<unsigned> maxWriteBytes{0};
    };
    static Faults& faults();

  protected:
    enum class WaitResult {
        Ready,     ///< the descriptor has events
        TimedOut,  ///< nothing for the whole time
        Woken,     ///< ended early by a signal or by another descriptor's stop request
        Stopped,   ///< stop() was called
        Failed     ///< errno says why
    };
    static constexpr int NO_TIMEOUT = -1;

    /// One poll of this descriptor and the cancel pipe. To be called within a StopScope.
    WaitResult waitFor(short events, int timeoutMs, short& occurred);
    bool stopRequested() { return stop_.requested(); }

    void clearLastError();
    void setLastError(IoError error);
    void setLastError(IoError error, std::string text);
    /// From errno: its number in this class's numbering, and its text.
    void setLastErrorFromSystem();
    /// From the error that is pending on the socket.
    void setLastErrorFromSocket();

  private:
    ssize_t fail(IoError error);
    int outcomeOf(WaitResult result);
    bool waitReady(short event, unsigned timeoutMs, int& outcome);
    ssize_t readOnce(void* buffer, std::size_t length);
    WaitResult waitInRead(void* buffer, std::size_t length, ssize_t& count);
    ssize_t writeOnce(const void* buffer, std::size_t length);
    template <typename Step>
    ssize_t transferAll(std::size_t length, short event, unsigned stallTimeoutMs, Step step);

    CoFd fd_;
    bool waitsInRead_ = false;
    CoStopRequest stop_;
    IoError lastError_ = IoError::None;
    std::string lastErrorText_;
};

}  // namespace Vantrel
