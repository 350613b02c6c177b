#pragma once

#include <cstdint>

namespace Vantrel {

/// The library's clock: microseconds on a monotonic scale, for deadlines, time-outs and expiry. Wall-clock
/// time serves display only. Thread-safe.
class CoTime {
  public:
    using Microseconds = std::int64_t;

    static constexpr Microseconds PER_MILLISECOND = 1000;
    static constexpr Microseconds PER_SECOND = 1000000;

    /// Microseconds on the monotonic scale; never goes back.
    static Microseconds getTime();

    /// Moves the clock forward for everyone in this process. For tests of expiry and caching.
    static void advance(Microseconds by);
    /// While it is held the clock moves by `advance` alone; it goes on from where it stood. For tests that
    /// count steps, which a busy machine must not add to.
    static void hold(bool held);
};

/// A point in time by which something must be done.
class CoDeadline {
  public:
    explicit CoDeadline(unsigned timeoutMs);

    /// Milliseconds left, rounded up; 0 once the deadline has passed.
    unsigned leftMs() const;
    bool passed() const { return leftMs() == 0; }

  private:
    CoTime::Microseconds at_;
};

}  // namespace Vantrel
