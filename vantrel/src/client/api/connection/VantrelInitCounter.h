#pragma once

#include <atomic>

/// How often the library was initialised, less how often it was uninitialised: the sole record of whether it
/// is. The two questions differ on purpose after an unmatched uninitialisation.
class VantrelInitCounter {
  public:
    /// Returns the value before the addition.
    static int add(int by) { return counter_.fetch_add(by); }
    static bool isInitialized() { return counter_.load() > 0; }
    /// What handles ask before they work.
    static bool handlesMayWork() { return counter_.load() != 0; }

    static constexpr const char* NOT_INITIALIZED = "API not initialized";

  private:
    static inline std::atomic<int> counter_{0};
};
