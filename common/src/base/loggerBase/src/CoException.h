#pragma once

#include <stdexcept>
#include <string>

namespace Vantrel {

/// Carries the text of a failure out of the connection, frame and name-resolution layers. It never crosses
/// the public interface: handles catch it and keep its text as their last error.
class CoException : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace Vantrel
