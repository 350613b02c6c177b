#pragma once

#include <stdexcept>

/// A command failed. The text is what the user reads after "vantrel: ".
class ToolError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};
