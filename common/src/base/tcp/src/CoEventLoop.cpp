#include "CoEventLoop.h"

#include <algorithm>
#include <cerrno>

#include "CoAssert.h"
#include "CoMsg.h"

namespace Vantrel {

namespace {

timespec toTimespec(CoTime::Microseconds time) {
    timespec converted{};
    converted.tv_sec = static_cast<time_t>(time / CoTime::PER_SECOND);
    converted.tv_nsec = static_cast<long>(time % CoTime::PER_SECOND) * 1000;
    return converted;
}

class FlagScope {
  public:
    explicit FlagScope(bool& flag) : flag_(flag) { flag_ = true; }
    FlagScope(const FlagScope&) = delete;
    FlagScope& operator=(const FlagScope&) = delete;
    ~FlagScope() { flag_ = false; }

  private:
    bool& flag_;
};

}  // namespace

CoEventLoop::CoEventLoop() {
    if (wakeUp_.isOpen()) return;
    CO_MSG_ERROR("Could not create the wake-up descriptor of the IO handlers: %s",
                 coErrorText(errno).c_str());
}

bool CoEventLoop::add(CoIoHandler& handler) {
    if (std::find(handlers_.begin(), handlers_.end(), &handler) != handlers_.end()) return false;
    handlers_.push_back(&handler);
    return true;
}

bool CoEventLoop::remove(const CoIoHandler& handler) {
    const auto found = std::find(handlers_.begin(), handlers_.end(), &handler);
    if (found == handlers_.end()) return false;
    *found = nullptr;  // the pass in progress refers to handlers by their place
    return true;
}

void CoEventLoop::stop() {
    stopped_ = true;
    wakeUp();
}

void CoEventLoop::run() {
    while (!stopped_) {
        if (pass() >= 0) continue;
        CO_MSG_ERROR("Could not wait for descriptors: %s", coErrorText(errno).c_str());
        return;
    }
}

int CoEventLoop::pass(Microseconds deadline) {
    if (!CO_ASSERT_NAMED(!inPass_, "no pass within a pass")) {
        errno = EDEADLK;
        return -1;
    }
    const FlagScope inPass(inPass_);
    const int ready = wait(deadline);
    if (ready <= 0) return ready;
    if (polled_[0].revents != 0) wakeUp_.drain();
    for (std::size_t i = 1; i < polled_.size(); ++i) {
        if (polled_[i].revents != 0) dispatch(slots_[i - 1], polled_[i].revents);
    }
    return ready;
}

int CoEventLoop::wait(Microseconds deadline) {
    for (;;) {
        preparePoll();
        const Microseconds until = std::min(deadline, reviewAt_);
        const timespec left = toTimespec(std::max<Microseconds>(until - CoTime::getTime(), 0));
        const int ready = ::ppoll(polled_.data(), polled_.size(), until == NEVER ? nullptr : &left, nullptr);
        if (ready > 0 || (ready < 0 && errno != EINTR)) return ready;
        const Microseconds now = CoTime::getTime();
        if (now >= deadline) return 0;
        if (now >= reviewAt_) reviewAt_ = NEVER;
    }
}

void CoEventLoop::preparePoll() {
    handlers_.erase(std::remove(handlers_.begin(), handlers_.end(), nullptr), handlers_.end());
    polled_.clear();
    slots_.clear();
    polled_.push_back({wakeUp_.descriptor(), POLLIN, 0});
    // Releasing a handler calls out, and what is called may add and remove handlers: by index.
    for (std::size_t slot = 0; slot < handlers_.size(); ++slot) {
        CoIoHandler* const handler = handlers_[slot];
        if (!handler) continue;
        const int descriptor = handler->descriptorId();
        if (descriptor < 0) {
            handler->handleError();
            if (handlers_[slot] == handler) release(slot);
            continue;
        }
        const int events = (handler->wantsRead() ? POLLIN : 0) | (handler->wantsWrite() ? POLLOUT : 0);
        polled_.push_back({descriptor, static_cast<short>(events), 0});
        slots_.push_back(slot);
    }
}

void CoEventLoop::dispatch(std::size_t slot, short events) {
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
        if (!handler) return;  // an earlier callback removed it
        if (!(events & step.events)) continue;
        if ((handler->*step.callback)()) continue;
        if (handlers_[slot] == handler) release(slot);
        return;
    }
}

void CoEventLoop::release(std::size_t slot) {
    CoIoHandler* const handler = handlers_[slot];
    handlers_[slot] = nullptr;
    handler->released();
}

void CoEventLoop::reviewInterestsAt(Microseconds at) {
    reviewAt_ = std::min(reviewAt_, at);
}

}  // namespace Vantrel
