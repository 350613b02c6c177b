#pragma once

#include <string>

namespace Vantrel {

/// The identity that the process acts under. Thread-safe.
class CoUser {
  public:
    /// Name of the effective user, or of the effective group; false when the system knows none.
    static bool getUserName(std::string& name);
    static bool getGroupName(std::string& name);

    /// Name of this host; false when it cannot be read.
    static bool getHostName(std::string& name);
};

}  // namespace Vantrel
