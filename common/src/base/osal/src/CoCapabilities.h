#pragma once

#include <string>

namespace Vantrel {

/// What the process may do beyond an ordinary user. A capability is one of the CAP_* numbers of
/// <sys/capability.h>. The system keeps capabilities for each thread. Thread-safe.
class CoCapabilities {
  public:
    class Raised;

    /// Whether the capability is on in every thread of the process; otherwise `error` says why not.
    static bool allThreadsHave(int capability, std::string& error);
};

/// Switches a capability on in the calling thread, when the thread may use it but has it off, and off again
/// when it is destroyed, on the same thread.
class CoCapabilities::Raised {
  public:
    explicit Raised(int capability);
    ~Raised();
    Raised(const Raised&) = delete;
    Raised& operator=(const Raised&) = delete;

    /// Empty when the capability is on; otherwise why it is not.
    const std::string& error() const { return error_; }

  private:
    int capability_;
    bool lower_ = false;
    std::string error_;
};

}  // namespace Vantrel
