#pragma once

#include <array>
#include <cstddef>
#include <mutex>
#include <string>

#include "CoIoTcpDescriptor.h"
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
    /// The method running for it, or null.
    const rcMethod* getCurrentMethod() const { return currentMethod_; }
    void setCurrentMethod(const rcMethod* method) { currentMethod_ = method; }
    bool isLoggedIn() const { return loggedIn_; }
    /// Logging out gives new time to log in again.
    void setLoggedIn(bool loggedIn);

    /// None, so that the loop drops it, when the time to log in is over.
    int descriptorId() const override;
    bool wantsRead() const override;
    bool wantsWrite() const override;
    bool handleRead() override;
    bool handleWrite() override;
    bool handleError() override;
    void released() override { context_.drop(*this); }

    /// From now on it waits for a delayed return; no command of it is processed meanwhile.
    void awaitReturn();
    /// Ends that without an answer; false when it was not waiting.
    bool cancelReturn();
    /// Answers the delayed command; false when it is not waiting for that.
    bool returnDelayed(rcResult::Code code, const char* text);

    /// Closes the connection at once.
    void close();

  private:
    static constexpr std::size_t READ_SIZE = 8191;
    /// With more unsent results than this, no further command is processed.
    static constexpr std::size_t BATCH_OUTPUT = 8192;

    bool isStranger() const { return context_.requireLogin_ && !loggedIn_; }
    bool inputLeft() const { return inputStart_ != inputEnd_; }
    bool outputPending() const { return outputStart_ != output_.size(); }
    bool mayProcess() const;
    bool processInput();
    bool isCommandTooLong() const;
    bool processCommands();
    void processLine();
    bool finishLeaving();
    void takeInheritedInfo();
    bool flush();

    rcServerContext& context_;
    const unsigned id_;
    rcCommand command_;
    rcConnectionInfo info_;
    const rcMethod* currentMethod_ = nullptr;
    bool loggedIn_ = false;
    CoDeadline loginDeadline_{LOGIN_TIME_MS};
    bool leaving_ = false;  ///< to be dropped as soon as its results have gone
    std::array<char, READ_SIZE> input_;
    std::size_t inputStart_ = 0;  ///< what was received and not yet processed
    std::size_t inputEnd_ = 0;

    mutable std::mutex mutex_;      ///< guards the rest, which a delayed return uses on another thread
    CoIoTcpDescriptor descriptor_;  ///< its reads and writes; asking for its number needs no lock
    bool awaitingReturn_ = false;
    std::string output_;
    std::size_t outputStart_ = 0;  ///< what was sent of output_
};

}  // namespace Vantrel
