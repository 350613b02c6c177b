#pragma once

#include <functional>
#include <vector>

namespace Vantrel {

/// Puts calls into the application off until the thread holds no lock of the library. While one lives on a
/// thread's stack, `callOut` keeps what it is given; the outermost one runs all of it, in order, when it
/// ends. Declare it before the lock that it protects, so that the lock is gone by then.
class CoDeferral {
  public:
    CoDeferral();
    CoDeferral(const CoDeferral&) = delete;
    CoDeferral& operator=(const CoDeferral&) = delete;
    ~CoDeferral();

    /// Runs `call` now, or when the thread's outermost deferral ends. What it throws is dropped: an
    /// application's exception must not end in the library's frames.
    static void callOut(std::function<void()> call);

  private:
    std::vector<std::function<void()>> kept_;  ///< the outermost one's: what waits for its end
};

}  // namespace Vantrel
