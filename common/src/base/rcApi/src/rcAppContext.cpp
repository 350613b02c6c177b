#include "rcAppContext.h"

#include <algorithm>
#include <cerrno>

#include "CoMsg.h"

namespace Vantrel {

namespace {

constexpr CoTime::Microseconds LONGEST_WAIT = 3600 * CoTime::PER_SECOND;

CoTime::Microseconds toMicroseconds(const timeval& time) {
    const auto seconds = std::min<CoTime::Microseconds>(time.tv_sec, LONGEST_WAIT / CoTime::PER_SECOND);
    return std::clamp<CoTime::Microseconds>(seconds * CoTime::PER_SECOND + time.tv_usec, 0, LONGEST_WAIT);
}

}  // namespace

void rcAppContext::cancel() {
    if (!loop_.wakeUp()) CO_MSG_ERROR("Could not wake the IO handlers: %s", coErrorText(errno).c_str());
}

int rcAppContext::callIOHandlers(unsigned timeoutMs) {
    timeval timeout{};
    timeout.tv_sec = static_cast<time_t>(timeoutMs / 1000);
    timeout.tv_usec = static_cast<suseconds_t>(timeoutMs % 1000) * 1000;
    return callIOHandlers(&timeout);
}

int rcAppContext::callIOHandlers(timeval* timeout) {
    return callWithin(timeout ? toMicroseconds(*timeout) : CoEventLoop::NEVER);
}

int rcAppContext::callIOHandlersUntil(CoTime::Microseconds deadline) {
    if (deadline == CoEventLoop::NEVER) return callWithin(deadline);
    return callWithin(std::clamp<CoTime::Microseconds>(deadline - CoTime::getTime(), 0, LONGEST_WAIT));
}

int rcAppContext::callWithin(CoTime::Microseconds wait) {
    CoTime::Microseconds deadline = CoEventLoop::NEVER;
    if (wait == CoEventLoop::NEVER) {
        CO_MSG_DEBUG("Waiting for IO handlers (no-timeout)");
    } else {
        CO_MSG_DEBUG("Waiting for IO handlers (%ld.%09ld sec)", static_cast<long>(wait / CoTime::PER_SECOND),
                     static_cast<long>(wait % CoTime::PER_SECOND) * 1000);
        deadline = CoTime::getTime() + wait;
    }
    const int ready = loop_.pass(deadline);
    if (ready == 0) CO_MSG_DEBUG("IO handlers timed out");
    if (ready < 0) CO_MSG_ERROR("IO handler error: %s", coErrorText(errno).c_str());
    return ready;
}

}  // namespace Vantrel
