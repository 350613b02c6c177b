#include "CoTime.h"

#include <atomic>
#include <climits>
#include <ctime>

namespace Vantrel {

namespace {

constexpr CoTime::Microseconds RUNNING = -1;

std::atomic<CoTime::Microseconds> advancedBy{0};
std::atomic<CoTime::Microseconds> heldAt{RUNNING};

CoTime::Microseconds systemTime() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<CoTime::Microseconds>(now.tv_sec) * CoTime::PER_SECOND + now.tv_nsec / 1000;
}

}  // namespace

CoTime::Microseconds CoTime::getTime() {
    const Microseconds held = heldAt.load(std::memory_order_relaxed);
    return (held == RUNNING ? systemTime() : held) + advancedBy.load(std::memory_order_relaxed);
}

void CoTime::advance(Microseconds by) {
    advancedBy += by;
}

void CoTime::hold(bool held) {
    if (held) {
        heldAt = systemTime();
    } else {
        advancedBy += heldAt.exchange(RUNNING) - systemTime();
    }
}

CoDeadline::CoDeadline(unsigned timeoutMs)
    : at_(CoTime::getTime() + static_cast<CoTime::Microseconds>(timeoutMs) * CoTime::PER_MILLISECOND) {}

unsigned CoDeadline::leftMs() const {
    const CoTime::Microseconds left = at_ - CoTime::getTime();
    if (left <= 0) return 0;
    return static_cast<unsigned>((left + CoTime::PER_MILLISECOND - 1) / CoTime::PER_MILLISECOND);
}

}  // namespace Vantrel
