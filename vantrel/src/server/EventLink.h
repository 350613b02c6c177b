#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "CoIoHandler.h"
#include "CoIoTcpDescriptor.h"
#include "CoTime.h"
#include "EventQueue.h"
#include "rcAppContext.h"
#include "rcCommand.h"

namespace vantreld {

/// Where a client listens for events.
struct EventAddress {
    std::string ip;  ///< numeric
    int port = 0;

    std::string text() const;
    friend bool operator<(const EventAddress& a, const EventAddress& b) {
        return a.port != b.port ? a.port < b.port : a.ip < b.ip;
    }
};

/// The connection to one client's event port: connects, logs in and sends what is in the client's queue, each
/// event as a command that the client answers. Several are on their way at a time; they are processed in
/// order. A connection that breaks is made again, and what was not answered is sent again: a client may then
/// get an event twice, but none is lost. It never waits. Used on the loop's thread, the queue apart.
class EventLink : public Vantrel::CoIoHandler {
  public:
    using Microseconds = Vantrel::CoTime::Microseconds;
    /// The client does not know this connection of its own any more.
    using UnknownConnection = std::function<void(int connection)>;

    EventLink(Vantrel::rcAppContext& loop, EventAddress address, std::shared_ptr<EventQueue> queue,
              UnknownConnection unknownConnection);
    ~EventLink() override;

    /// Goes on: to be called when something was queued, and at `nextTime`.
    void advance(Microseconds now);
    /// When to call `advance` if nothing happens before; 0: never.
    Microseconds nextTime() const { return state_ == State::Up ? 0 : nextTime_; }

    /// For how long no login has succeeded; 0 while one is under way. A client that has logged us in counts
    /// as reached though it does not answer: a stopped process may go on.
    Microseconds unreachableFor(Microseconds now) const;
    const EventAddress& address() const { return address_; }
    const std::string& reason() const { return reason_; }  ///< of the last failure

    int descriptorId() const override { return descriptor_.getId(); }
    bool wantsWrite() const override { return state_ == State::Connecting || !output_.empty(); }
    bool handleRead() override;
    bool handleWrite() override;
    bool handleError() override;

  private:
    enum class State { Down, Connecting, LoggingIn, Up };

    void beginConnect(Microseconds now);
    bool checkConnected();
    bool takeReply();
    bool takeLoginReply();
    void takeEventReply();
    bool send();
    bool flush();
    bool fail(const std::string& reason);
    void logDropped();

    Vantrel::rcAppContext& loop_;
    const EventAddress address_;
    const std::shared_ptr<EventQueue> queue_;
    const UnknownConnection unknownConnection_;

    State state_ = State::Down;
    Microseconds nextTime_ = 0;  ///< the next attempt, or the end of the present one
    Microseconds retryDelay_ = 0;
    Microseconds downSince_;
    std::string reason_;
    std::size_t dropped_ = 0;  ///< since it was last up to date

    Vantrel::CoIoTcpDescriptor descriptor_;
    std::string line_;
    std::string output_;
    std::size_t outputStart_ = 0;       ///< what was sent of output_
    std::deque<QueuedEvent> inFlight_;  ///< sent or in output_, and not answered
    std::size_t inFlightBytes_ = 0;
    Vantrel::rcResult reply_;
    static constexpr std::size_t READ_SIZE = 4096;
    std::array<char, READ_SIZE> input_;
};

}  // namespace vantreld
