#include "EventLink.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "CoMsg.h"
#include "rcConnectionInfo.h"
#include "rcSysCalls.h"

namespace vantreld {

using Vantrel::coErrorText;
using Vantrel::CoTime;
using Vantrel::rcCommand;

namespace {

constexpr const char* NODE_EVENT = "NodeEvent";
/// What clients answer for an object that they do not have, and for a login that they do not have.
constexpr const char* INVALID_OBJECT = "Invalid Object";
constexpr const char* UNKNOWN_METHOD = "Unknown method: ";

// Events that are on their way at a time: enough to hide the way there and back, and so few bytes that the
// socket buffers of a client that has stopped reading hold them.
constexpr std::size_t MAX_IN_FLIGHT = 128;
constexpr std::size_t MAX_BYTES_IN_FLIGHT = 32 * 1024;

/// Answers to events say little.
constexpr std::size_t MAX_REPLY_BYTES = 64 * 1024;

constexpr CoTime::Microseconds CONNECT_TIMEOUT = 5 * CoTime::PER_SECOND;
/// As long as an unreachable client keeps its registrations: one that has only been stopped may still go on.
constexpr CoTime::Microseconds LOGIN_TIMEOUT = 30 * CoTime::PER_SECOND;
constexpr CoTime::Microseconds FIRST_RETRY_DELAY = 100 * CoTime::PER_MILLISECOND;
constexpr CoTime::Microseconds LONGEST_RETRY_DELAY = 2 * CoTime::PER_SECOND;

// A host that has gone without a word is noticed after half a minute, whether or not something was sent to
// it.
constexpr Vantrel::CoIoTcpDescriptor::KeepAlive KEEP_ALIVE{30, 10, 3, 30};

}  // namespace

std::string EventAddress::text() const {
    const bool isIPv6 = ip.find(':') != std::string::npos;
    return (isIPv6 ? "[" + ip + "]" : ip) + ":" + std::to_string(port);
}

EventLink::EventLink(Vantrel::rcAppContext& loop, EventAddress address, std::shared_ptr<EventQueue> queue,
                     UnknownConnection unknownConnection)
    : loop_(loop),
      address_(std::move(address)),
      queue_(std::move(queue)),
      unknownConnection_(std::move(unknownConnection)),
      downSince_(CoTime::getTime()) {}

EventLink::~EventLink() {
    loop_.unregisterIOHandler(this);
}

EventLink::Microseconds EventLink::unreachableFor(Microseconds now) const {
    return state_ == State::Down || state_ == State::Connecting ? now - downSince_ : 0;
}

void EventLink::advance(Microseconds now) {
    logDropped();
    if (state_ == State::Up) {
        send();
    } else if (now < nextTime_) {
        return;
    } else if (state_ == State::Down) {
        beginConnect(now);
    } else {
        fail(coErrorText(ETIMEDOUT));
    }
}

// --- Connecting ---

void EventLink::beginConnect(Microseconds now) {
    if (!descriptor_.beginConnect(address_.ip.c_str(), address_.port, KEEP_ALIVE)) {
        fail(descriptor_.lastErrorText());
        return;
    }
    state_ = State::Connecting;
    nextTime_ = now + CONNECT_TIMEOUT;
    loop_.registerIOHandler(this);
}

bool EventLink::checkConnected() {
    const std::string error = descriptor_.getLastSocketErrorStr();
    if (!error.empty()) return fail(error);
    state_ = State::LoggingIn;
    nextTime_ = CoTime::getTime() + LOGIN_TIMEOUT;
    Vantrel::rcConnectionInfo info;
    info.fillInfo(&descriptor_);
    rcCommand::format(rcCommand::Type::Sync, 0, Vantrel::rcSysCalls::LOGIN, info.toAttrStream(), output_);
    return flush();
}

bool EventLink::takeLoginReply() {
    const std::string& text = reply_.value().text();
    const bool hasNoLogin =
        text.compare(0, std::char_traits<char>::length(UNKNOWN_METHOD), UNKNOWN_METHOD) == 0;
    if (!reply_.isOk() && !hasNoLogin) return fail("Login refused: " + text.substr(0, 256));
    state_ = State::Up;
    retryDelay_ = 0;
    CO_MSG_NOTICE("Connected to client %s for events", address_.text().c_str());
    return true;
}

bool EventLink::fail(const std::string& reason) {
    const Microseconds now = CoTime::getTime();
    const bool wasUp = state_ == State::Up;
    if (wasUp) downSince_ = now;
    if (reason != reason_ || wasUp)
        CO_MSG_NOTICE("No connection to client %s for events: %s", address_.text().c_str(), reason.c_str());
    reason_ = reason;
    loop_.unregisterIOHandler(this);
    descriptor_.close();
    state_ = State::Down;
    retryDelay_ = std::clamp(2 * retryDelay_, FIRST_RETRY_DELAY, LONGEST_RETRY_DELAY);
    nextTime_ = now + retryDelay_;
    queue_->putBack(inFlight_);
    inFlight_.clear();
    inFlightBytes_ = 0;
    output_.clear();
    outputStart_ = 0;
    reply_.reset();
    return false;
}

// --- Sending ---

bool EventLink::send() {
    // By halves: answers come one by one, and events that went one by one, too, would cost a call each.
    const bool roomy = inFlight_.size() <= MAX_IN_FLIGHT / 2 && inFlightBytes_ <= MAX_BYTES_IN_FLIGHT / 2;
    if (!roomy) return flush();
    QueuedEvent event;
    while (inFlight_.size() < MAX_IN_FLIGHT && inFlightBytes_ < MAX_BYTES_IN_FLIGHT && queue_->take(event)) {
        rcCommand::format(rcCommand::Type::Sync, event.connection, NODE_EVENT, *event.argument, line_);
        output_ += line_;
        inFlightBytes_ += event.argument->size();
        inFlight_.push_back(std::move(event));
    }
    return flush();
}

bool EventLink::flush() {
    if (output_.empty()) return true;
    const auto size = static_cast<unsigned>(output_.size() - outputStart_);
    const int count = descriptor_.nonBlockingWriteWithTimeout(output_.data() + outputStart_, size, 0);
    if (count < 0) return fail(descriptor_.lastErrorText());
    outputStart_ += static_cast<std::size_t>(count);
    if (outputStart_ < output_.size()) return true;
    output_.clear();
    outputStart_ = 0;
    return true;
}

void EventLink::logDropped() {
    const std::size_t dropped = queue_->takeDropped();
    if (dropped != 0 && dropped_ == 0)
        CO_MSG_WARNING("Client %s is slower than its events: the oldest are dropped",
                       address_.text().c_str());
    dropped_ += dropped;
    if (dropped_ == 0 || !inFlight_.empty() || state_ != State::Up) return;
    CO_MSG_NOTICE("Client %s is up to date again; %zu events were dropped", address_.text().c_str(),
                  dropped_);
    dropped_ = 0;
}

// --- The loop's calls ---

bool EventLink::handleRead() {
    if (state_ == State::Connecting) return checkConnected();
    const int count = descriptor_.nonBlockingReadWithTimeout(input_.data(), READ_SIZE, 0);
    if (count < 0) return fail(descriptor_.lastErrorText());
    std::size_t start = 0;
    const auto end = static_cast<std::size_t>(count);
    while (start < end) {
        std::size_t used = 0;
        const bool complete = reply_.append(input_.data() + start, end - start, used);
        start += used;
        if (reply_.receivedBytes() > MAX_REPLY_BYTES) return fail("The client's answer is too long.");
        if (complete && !takeReply()) return false;
    }
    return state_ != State::Up || send();
}

bool EventLink::takeReply() {
    if (state_ == State::LoggingIn) {
        if (!takeLoginReply()) return false;
    } else {
        if (inFlight_.empty()) return fail("The client answers what it was not asked.");
        takeEventReply();
    }
    reply_.reset();
    return true;
}

void EventLink::takeEventReply() {
    const QueuedEvent answered = std::move(inFlight_.front());
    inFlight_.pop_front();
    inFlightBytes_ -= answered.argument->size();
    if (reply_.isOk()) return;
    const std::string& text = reply_.value().text();
    if (text.compare(0, std::char_traits<char>::length(INVALID_OBJECT), INVALID_OBJECT) == 0) {
        unknownConnection_(answered.connection);
    } else {
        CO_MSG_NOTICE("Client %s refused an event: %.256s", address_.text().c_str(), text.c_str());
    }
}

bool EventLink::handleWrite() {
    return state_ == State::Connecting ? checkConnected() : flush();
}

bool EventLink::handleError() {
    return fail(descriptor_.getLastSocketErrorStr());
}

}  // namespace vantreld
