#pragma once

#include <sys/types.h>

#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "CoIoTcpDescriptor.h"
#include "CoMutex.h"
#include "CoTime.h"
#include "rcCommand.h"
#include "rcOutcome.h"

namespace Vantrel {

/// Client endpoint of the remote-command protocol: opens a connection, logs in and performs one call at a
/// time. Not thread-safe, except `stop` and `isConnected(false)`, which any thread may call. After a fork the
/// child's copy counts as not connected; the parent's is not disturbed.
class rcAPI {
  public:
    rcAPI();
    /// `version` holds up to four 16-bit numbers, which login announces; missing ones are 0.
    rcAPI(const unsigned short* version, unsigned count);
    rcAPI(const rcAPI&) = delete;
    rcAPI& operator=(const rcAPI&) = delete;
    ~rcAPI();

    /// Connects and logs in, closing an earlier connection first. The TCP part ends within `timeoutMs` cut to
    /// whole seconds, the login within `timeoutMs` more, and both within `limitMs`. A server that has no
    /// login is accepted. Answered, or the endpoint is disconnected and `error` says why; TimedOut means that
    /// the login got no answer, where a TCP connection that cannot be made in time is a Lost one.
    rcOutcome connect(const char* host, int port, unsigned timeoutMs, std::string& error,
                      unsigned limitMs = UINT_MAX);

    /// Sends a command and, when `waitForResult`, takes its reply: `result` becomes the reply's text when it
    /// was Answered or Refused, otherwise the reason. Handing in the same string again saves allocations.
    /// The connection stays open when the server answered or when the reply did not come in time, and is
    /// closed otherwise, also when an exception ended the call, which has Failed then. After a time-out the
    /// late reply may still come, and the next call would take it for its own: disconnect first. A command
    /// that could not be sent in time is Lost: it was not performed.
    rcOutcome call(int objectId, const char* method, const char* argument, bool waitForResult,
                   std::string& result, unsigned timeoutMs);

    /// Whether the command of the last call went out whole, so that the server may perform it.
    bool wasSent() const { return sent_; }

    /// `checkAlive` also asks the system whether the peer has closed.
    bool isConnected(bool checkAlive) const;

    /// Ends the connect or call in progress on another thread, which is then Stopped, with `reason` (null:
    /// the system's text for an interrupted call) as its error. Without one it has no effect.
    void stop(const char* reason) CO_EXCLUDES(stopMutex_);

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

    /// Text that replaces the socket's own address in the login record of later connects; empty: the
    /// socket's.
    void setReportedAddress(const std::string& ip);

  private:
    static constexpr std::size_t RECEIVE_BUFFER_SIZE = 32768;

    bool allocateBuffer();
    rcOutcome login(unsigned timeoutMs, std::string& error);
    bool isCallPossible(std::string& reason);
    template <typename Transfer>
    rcOutcome closingOnException(std::string& reason, Transfer transfer);
    rcOutcome performCall(int objectId, std::string_view method, std::string_view argument,
                          bool waitForResult, std::string& result, unsigned timeoutMs);
    rcOutcome writeLine(const CoDeadline& deadline, std::string& result);
    rcOutcome readReply(const CoDeadline& deadline, std::string& result);
    rcOutcome takeReply(std::string& result);
    void clearStop();
    rcOutcome failTransfer(std::string& result) CO_EXCLUDES(stopMutex_);

    const std::uint64_t version_;
    std::string reportedAddress_;
    CoIoTcpDescriptor
        descriptor_;  ///< invalid while disconnected; never replaced, so that stop() needs no lock
    uid_t userId_ = 0;
    gid_t groupId_ = 0;
    std::atomic<unsigned> forkGeneration_{0};
    std::unique_ptr<char[]> buffer_;
    std::string line_;
    bool sent_ = false;
    rcResult result_;

    std::atomic<bool> connecting_{false};
    std::atomic<bool> operating_{false};
    std::atomic<bool> stopped_{false};

    CoMutex stopMutex_;
    std::string stopReason_ CO_GUARDED_BY(stopMutex_);
};

}  // namespace Vantrel
