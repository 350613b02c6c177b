#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "CoIoTcpDescriptor.h"
#include "CoMutex.h"
#include "CoTime.h"
#include "rcCommand.h"

namespace Vantrel {

/// Client endpoint of the remote-command protocol: opens a connection, logs in and performs one call at a
/// time. Not thread-safe, except `stop`, `isConnected(false)`, `timedOut`, `wasStopped` and `lastError`,
/// which any thread may call. After a fork the child's copy counts as not connected; the parent's is not
/// disturbed.
class rcAPI {
  public:
    rcAPI();
    /// `version` holds up to four 16-bit numbers, which login announces; missing ones are 0.
    rcAPI(const unsigned short* version, unsigned count);
    rcAPI(const rcAPI&) = delete;
    rcAPI& operator=(const rcAPI&) = delete;
    ~rcAPI();

    /// Connects and logs in, closing an earlier connection first. The TCP part ends within `timeoutMs` cut to
    /// whole seconds, the login within `timeoutMs` more. A server that has no login is accepted. False with
    /// the last error set: the endpoint is then disconnected.
    bool connect(const char* host, int port, unsigned timeoutMs);

    /// Sends a command and, when `waitForResult`, takes its reply: `result` becomes the reply's text, and
    /// whether the server called it a success is what is returned. On any other failure `result` and the last
    /// error say why. Handing in the same string again saves allocations.
    /// The connection stays open when the server answered or when the reply did not come in time
    /// (`timedOut`), and is closed otherwise. After a time-out the late reply may still come, and the next
    /// call would take it for its own: disconnect first.
    bool call(int objectId, const char* method, const char* argument, bool waitForResult, std::string& result,
              unsigned timeoutMs);

    /// `checkAlive` also asks the system whether the peer has closed.
    bool isConnected(bool checkAlive) const;

    /// Ends the connect or call in progress on another thread, which then fails with `reason` (null: the
    /// system's text for an interrupted call) as its error. Without one only the last error changes.
    void stop(const char* reason) CO_EXCLUDES(errorMutex_);

    /// While it lives, one operation of several calls and connects is in progress: a stop() between two of
    /// them ends the next one. Held by the thread that performs them; they do not nest.
    class Operation {
      public:
        explicit Operation(rcAPI& endpoint);
        Operation(const Operation&) = delete;
        Operation& operator=(const Operation&) = delete;
        ~Operation();

      private:
        rcAPI& endpoint_;
        const CoIoDescriptor::StopScope stopScope_;
    };

    /// Closes the connection. Safe when there is none.
    void disconnect();

    bool timedOut() const { return timedOut_; }   ///< the last call, or connect's login, got no reply in time
    bool wasStopped() const { return stopped_; }  ///< the last call or connect was ended by stop()
    std::string lastError() const CO_EXCLUDES(errorMutex_);

    /// Text that replaces the socket's own address in the login record of later connects; empty: the
    /// socket's.
    void setReportedAddress(const std::string& ip);

  private:
    static constexpr std::size_t RECEIVE_BUFFER_SIZE = 32768;

    bool allocateBuffer();
    bool login(unsigned timeoutMs);
    bool isCallPossible(std::string& result);
    bool performCall(int objectId, std::string_view method, std::string_view argument, bool waitForResult,
                     std::string& result, unsigned timeoutMs);
    bool writeLine(const CoDeadline& deadline, std::string& result);
    bool readReply(const CoDeadline& deadline, std::string& result);
    bool takeReply(std::string& result);
    void clearFlags();
    bool fail(const std::string& error, std::string& result);
    bool failTransfer(std::string& result) CO_EXCLUDES(errorMutex_);
    void setLastError(const std::string& error) CO_EXCLUDES(errorMutex_);

    const std::uint64_t version_;
    std::string reportedAddress_;
    CoIoTcpDescriptor
        descriptor_;  ///< invalid while disconnected; never replaced, so that stop() needs no lock
    uid_t userId_ = 0;
    gid_t groupId_ = 0;
    std::atomic<unsigned> forkGeneration_{0};
    std::unique_ptr<char[]> buffer_;
    std::string line_;
    rcResult result_;

    std::atomic<bool> connecting_{false};
    std::atomic<bool> operating_{false};
    std::atomic<bool> timedOut_{false};
    std::atomic<bool> stopped_{false};

    mutable CoMutex errorMutex_;  ///< guards the texts, which stop() sets from another thread
    std::string lastError_ CO_GUARDED_BY(errorMutex_);
    std::string stopReason_ CO_GUARDED_BY(errorMutex_);
};

}  // namespace Vantrel
