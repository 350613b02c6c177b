#pragma once

#include <atomic>
#include <mutex>
#include <string>

namespace Vantrel {

/// Typed environment variables. Each is declared once, beside its default, in the settings header of the
/// layer that uses it; it is read from the environment on first use and keeps that value for the life of the
/// process. Reading is thread-safe; construction does no work.

/// A decimal number kept within [lowest, highest]: a value outside is moved to the nearer bound, text that is
/// no number leaves the default.
class CoEnvInt {
  public:
    constexpr CoEnvInt(const char* name, long defaultValue, long lowest, long highest)
        : name_(name), default_(defaultValue), lowest_(lowest), highest_(highest) {}

    long get() const {
        if (!known_.load(std::memory_order_acquire)) read();
        return value_;
    }
    const char* name() const { return name_; }
    long defaultValue() const { return default_; }

  private:
    void read() const;

    const char* name_;
    long default_;
    long lowest_;
    long highest_;
    mutable std::once_flag once_{};
    mutable std::atomic<bool> known_{false};  ///< spares settings of the busiest paths the once_flag
    mutable long value_ = 0;
};

/// A switch. `SetMeansOn`: on as soon as the variable exists, whatever its text. `TextDecides`: on when it is
/// set to anything but "false", "FALSE" or "0".
class CoEnvFlag {
  public:
    enum class Rule { SetMeansOn, TextDecides };

    constexpr CoEnvFlag(const char* name, Rule rule) : name_(name), rule_(rule) {}

    bool get() const {
        if (!known_.load(std::memory_order_acquire)) read();
        return value_;
    }
    const char* name() const { return name_; }

  private:
    void read() const;

    const char* name_;
    Rule rule_;
    mutable std::once_flag once_{};
    mutable std::atomic<bool> known_{false};
    mutable bool value_ = false;
};

/// A text; the default when the variable is absent or empty.
class CoEnvText {
  public:
    constexpr CoEnvText(const char* name, const char* defaultValue) : name_(name), default_(defaultValue) {}

    /// Valid for the life of the process.
    const char* get() const;
    const char* name() const { return name_; }
    const char* defaultValue() const { return default_; }

  private:
    const char* name_;
    const char* default_;
    mutable std::once_flag once_{};
    mutable const char* value_ = nullptr;
};

}  // namespace Vantrel
