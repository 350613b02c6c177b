#include "rcAppContext.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "CoAssert.h"
#include "CoMsg.h"

namespace Vantrel {

namespace {

constexpr CoTime::Microseconds LONGEST_WAIT = 3600 * CoTime::PER_SECOND;

timespec toTimespec(CoTime::Microseconds time) {
    timespec converted{};
    converted.tv_sec = static_cast<time_t>(time / CoTime::PER_SECOND);
    converted.tv_nsec = static_cast<long>(time % CoTime::PER_SECOND) * 1000;
    return converted;
}

bool isPollable(CoIoDescriptor* descriptor) {
    return descriptor && descriptor->isValid();
}

}  // namespace

rcAppContext::rcAppContext() {
    const int id = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (id < 0) {
        CO_MSG_ERROR("Could not create the wake-up descriptor of the IO handlers: %s",
                     coErrorText(errno).c_str());
        return;
    }
    wakeUp_.setId(id);
}

bool rcAppContext::registerIOHandler(CoIoHandler* handler) {
    if (!handler || std::find(handlers_.begin(), handlers_.end(), handler) != handlers_.end()) return false;
    handlers_.push_back(handler);
    return true;
}

bool rcAppContext::unregisterIOHandler(CoIoHandler* handler) {
    const auto found = std::find(handlers_.begin(), handlers_.end(), handler);
    if (!handler || found == handlers_.end()) return false;
    *found = nullptr;  // the pass in progress refers to handlers by their place
    return true;
}

void rcAppContext::cancel() {
    const std::uint64_t one = 1;
    // Fails only when as many wake-ups are pending as the counter holds: the loop wakes then, too.
    if (::write(wakeUp_.getId(), &one, sizeof one) < 0 && errno != EAGAIN) {
        CO_MSG_ERROR("Could not wake the IO handlers: %s", coErrorText(errno).c_str());
    }
}

int rcAppContext::callIOHandlers(unsigned timeoutMs) {
    timeval timeout{};
    timeout.tv_sec = static_cast<time_t>(timeoutMs / 1000);
    timeout.tv_usec = static_cast<suseconds_t>(timeoutMs % 1000) * 1000;
    return callIOHandlers(&timeout);
}

int rcAppContext::callIOHandlers(timeval* timeout) {
    if (!CO_ASSERT_NAMED(!inPass_, "no pass within a pass")) return -1;
    inPass_ = true;
    const int ready = onePass(timeout);
    inPass_ = false;
    return ready;
}

int rcAppContext::onePass(const timeval* timeout) {
    CoTime::Microseconds wait = LONGEST_WAIT;
    if (timeout) {
        const auto seconds =
            std::min<CoTime::Microseconds>(timeout->tv_sec, LONGEST_WAIT / CoTime::PER_SECOND);
        const auto asked = seconds * CoTime::PER_SECOND + timeout->tv_usec;
        wait = std::clamp<CoTime::Microseconds>(asked, 0, LONGEST_WAIT);
        const timespec shown = toTimespec(wait);
        CO_MSG_DEBUG("Waiting for IO handlers (%ld.%09ld sec)", static_cast<long>(shown.tv_sec),
                     shown.tv_nsec);
    } else {
        CO_MSG_DEBUG("Waiting for IO handlers (no-timeout)");
    }

    const int ready = waitForHandlers(timeout != nullptr, CoTime::getTime() + wait);
    if (ready == 0) CO_MSG_DEBUG("IO handlers timed out");
    if (ready < 0) CO_MSG_ERROR("IO handler error: %s", coErrorText(errno).c_str());
    if (ready <= 0) return ready;

    if (polled_[0].revents) {
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t drained = ::read(wakeUp_.getId(), &count, sizeof count);
    }
    for (std::size_t i = 1; i < polled_.size(); ++i) {
        if (polled_[i].revents) dispatch(slots_[i - 1], polled_[i].revents);
    }
    return ready;
}

int rcAppContext::waitForHandlers(bool limited, CoTime::Microseconds deadline) {
    for (;;) {
        preparePoll();
        const CoTime::Microseconds now = CoTime::getTime();
        const bool reviewFirst = reviewAt_ != 0 && (!limited || reviewAt_ < deadline);
        const CoTime::Microseconds until = reviewFirst ? reviewAt_ : deadline;
        const timespec wait = toTimespec(std::max<CoTime::Microseconds>(until - now, 0));
        const bool endless = !limited && !reviewFirst;
        const int ready = ::ppoll(polled_.data(), polled_.size(), endless ? nullptr : &wait, nullptr);
        if (ready > 0) return ready;
        if (ready < 0 && errno != EINTR) return ready;
        const CoTime::Microseconds after = CoTime::getTime();
        if (limited && after >= deadline) return 0;
        if (reviewAt_ != 0 && after >= reviewAt_) reviewAt_ = 0;
    }
}

void rcAppContext::preparePoll() {
    handlers_.erase(std::remove(handlers_.begin(), handlers_.end(), nullptr), handlers_.end());
    polled_.clear();
    slots_.clear();
    polled_.push_back({wakeUp_.getId(), POLLIN, 0});
    // Giving a handler up calls out, and what is called may register and unregister handlers: by index.
    for (std::size_t slot = 0; slot < handlers_.size(); ++slot) {
        CoIoHandler* const handler = handlers_[slot];
        if (!handler) continue;
        CoIoDescriptor* const descriptor = handler->getDescriptor();
        if (!isPollable(descriptor)) {
            handler->handleError();
            if (handlers_[slot] == handler) giveUp(slot);
            continue;
        }
        const int events = (handler->wantsRead() ? POLLIN : 0) | (handler->wantsWrite() ? POLLOUT : 0);
        polled_.push_back({descriptor->getId(), static_cast<short>(events), 0});
        slots_.push_back(slot);
    }
}

void rcAppContext::dispatch(std::size_t slot, short events) {
    using Callback = bool (CoIoHandler::*)();
    struct Step {
        int events;
        Callback callback;
    };
    static constexpr Step STEPS[] = {{POLLIN | POLLHUP, &CoIoHandler::handleRead},
                                     {POLLOUT, &CoIoHandler::handleWrite},
                                     {POLLERR | POLLNVAL, &CoIoHandler::handleError}};
    for (const Step& step : STEPS) {
        CoIoHandler* const handler = handlers_[slot];
        if (!handler) return;  // unregistered meanwhile
        if (!(events & step.events)) continue;
        if ((handler->*step.callback)()) continue;
        if (handlers_[slot] == handler) giveUp(slot);
        return;
    }
}

void rcAppContext::giveUp(std::size_t slot) {
    CoIoHandler* const handler = handlers_[slot];
    handlers_[slot] = nullptr;
    handlerUnregistered(*handler);
}

void rcAppContext::handlerUnregistered(CoIoHandler&) {}

void rcAppContext::reviewInterestsIn(unsigned delayMs) {
    const CoTime::Microseconds at = CoTime::getTime() + delayMs * CoTime::PER_MILLISECOND;
    if (reviewAt_ == 0 || at < reviewAt_) reviewAt_ = at;
}

}  // namespace Vantrel
