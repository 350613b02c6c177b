#pragma once

#include <algorithm>

#include "CoTime.h"

namespace vantreld {

/// Lets something happen so many times a second: evenly, but after a quiet second as many at once. Counts on
/// the library's clock. Not thread-safe.
class RateLimit {
  public:
    explicit RateLimit(unsigned perSecond) : interval_(Vantrel::CoTime::PER_SECOND / perSecond) {}

    /// Whether it may happen now; if so, it counts as having happened.
    bool take() {
        if (waitMs() != 0) return false;
        spentUntil_ = std::max(spentUntil_, Vantrel::CoTime::getTime()) + interval_;
        return true;
    }

    /// Milliseconds, rounded up, until it may happen; 0: now.
    unsigned waitMs() const {
        const auto wait = spentUntil_ - Vantrel::CoTime::getTime() - Vantrel::CoTime::PER_SECOND + interval_;
        if (wait <= 0) return 0;
        return static_cast<unsigned>((wait + Vantrel::CoTime::PER_MILLISECOND - 1) /
                                     Vantrel::CoTime::PER_MILLISECOND);
    }

  private:
    const Vantrel::CoTime::Microseconds interval_;
    Vantrel::CoTime::Microseconds spentUntil_ = 0;  ///< what has happened is paid for up to here
};

}  // namespace vantreld
