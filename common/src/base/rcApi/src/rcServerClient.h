#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "CoIoTcpDescriptor.h"
#include "CoMutex.h"
#include "rcServerContext.h"

namespace Vantrel {

/// One accepted connection of a server context: assembles its commands and sends its results. A client that
/// does not read its results is not read from either, so what it can make the server hold is bounded. Belongs
/// to the context and its loop's thread, except returnDelayed, which any thread may call.
class rcServerContext::Client : public CoIoHandler {
  public:
    Client(rcServerContext& context, unsigned id, CoFd connection);

    unsigned getId() const { return id_; }
    const CoIoTcpDescriptor& descriptor() const { return descriptor_; }
    const rcConnectionInfo& getConnectionInfo() const { return info_; }
    void setConnectionInfo(const rcConnectionInfo& info) { info_ = info; }
    bool isLoggedIn() const { return loggedIn_; }
    /// Logging out gives new time to log in again.
    void setLoggedIn(bool loggedIn);

    /// None, so that the loop drops it, when the time to log in is over. What has come by then is read first:
    /// the loop may have been busy since.
    int descriptorId() const override CO_EXCLUDES(mutex_);
    bool wantsRead() const override CO_EXCLUDES(mutex_);
    bool wantsWrite() const override CO_EXCLUDES(mutex_);
    bool handleRead() override CO_EXCLUDES(mutex_);
    bool handleWrite() override CO_EXCLUDES(mutex_);
    bool handleError() override CO_EXCLUDES(mutex_);
    void released() override { context_.drop(*this); }

    /// From now on it waits for a delayed return; no command of it is processed until that has come.
    void awaitReturn() CO_EXCLUDES(mutex_);
    /// Ends that without an answer; false when it was not waiting.
    bool cancelReturn() CO_EXCLUDES(mutex_);
    /// Answers the delayed command; false when it is not waiting for that.
    bool returnDelayed(rcResult::Code code, const char* text) CO_EXCLUDES(mutex_);

    /// Closes the connection at once.
    void close() CO_EXCLUDES(mutex_);

  private:
    static constexpr std::size_t READ_SIZE = 8191;
    /// With more unsent results than this, no further command is processed.
    static constexpr std::size_t BATCH_OUTPUT = 8192;

    bool isUnauthenticated() const { return context_.requireLogin_ && !loggedIn_; }
    bool inputLeft() const { return inputStart_ != inputEnd_; }
    bool outputPending() const CO_REQUIRES(mutex_) { return outputStart_ != output_.size(); }
    bool mayProcess() const CO_EXCLUDES(mutex_);
    bool guarded(bool (Client::*step)()) noexcept;
    bool receive() CO_EXCLUDES(mutex_);
    bool goOn() CO_EXCLUDES(mutex_);
    bool processInput() CO_EXCLUDES(mutex_);
    bool sendPending() CO_EXCLUDES(mutex_);
    bool isCommandTooLong() const;
    bool processCommands() CO_EXCLUDES(mutex_);
    void processLine() CO_EXCLUDES(mutex_);
    bool finishLeaving() CO_EXCLUDES(mutex_);
    void takeInheritedInfo();
    bool flush() CO_REQUIRES(mutex_);

    rcServerContext& context_;
    const unsigned id_;
    rcCommand command_;
    rcConnectionInfo info_;
    bool loggedIn_ = false;
    CoDeadline loginDeadline_{LOGIN_TIME_MS};
    mutable bool readLate_ = false;  ///< after the deadline: once
    bool leaving_ = false;           ///< to be dropped as soon as its results have gone
    std::array<char, READ_SIZE> input_;
    std::size_t inputStart_ = 0;  ///< what was received and not yet processed
    std::size_t inputEnd_ = 0;

    CoIoTcpDescriptor descriptor_;  ///< read, written and closed under mutex_

    mutable CoMutex mutex_;  ///< guards what a delayed return uses on another thread
    bool awaitingReturn_ CO_GUARDED_BY(mutex_) = false;
    std::string output_ CO_GUARDED_BY(mutex_);
    std::size_t outputStart_ CO_GUARDED_BY(mutex_) = 0;  ///< what was sent of output_
};

}  // namespace Vantrel
