#pragma once

#include "CoTime.h"

namespace Vantrel {

/// While it lives, the library's clock moves only when the test moves it.
class HeldClock {
  public:
    HeldClock() { CoTime::hold(true); }
    HeldClock(const HeldClock&) = delete;
    HeldClock& operator=(const HeldClock&) = delete;
    ~HeldClock() { CoTime::hold(false); }
};

}  // namespace Vantrel
