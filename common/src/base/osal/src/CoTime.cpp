#include "CoTime.h"

#include <atomic>
#include <climits>
#include <ctime>

namespace Vantrel {

namespace {
std::atomic<CoTime::Microseconds> advancedBy{0};
}

CoTime::Microseconds CoTime::getTime() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<Microseconds>(now.tv_sec) * PER_SECOND + now.tv_nsec / 1000 +
           advancedBy.load(std::memory_order_relaxed);
}

void CoTime::advance(Microseconds by) {
    advancedBy += by;
}

CoDeadline::CoDeadline(unsigned timeoutMs)
    : at_(CoTime::getTime() + static_cast<CoTime::Microseconds>(timeoutMs) * CoTime::PER_MILLISECOND) {}

unsigned CoDeadline::leftMs() const {
    const CoTime::Microseconds left = at_ - CoTime::getTime();
    if (left <= 0) return 0;
    return static_cast<unsigned>((left + CoTime::PER_MILLISECOND - 1) / CoTime::PER_MILLISECOND);
}

}  // namespace Vantrel
