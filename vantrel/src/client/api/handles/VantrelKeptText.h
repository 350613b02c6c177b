#pragma once

#include <string>

/// Texts that public calls hand out as `const char*`: a copy that belongs to the calling thread, so that a
/// call on another thread cannot pull it away. Valid until the thread has been handed KEPT further texts.
class VantrelKeptText {
  public:
    static constexpr unsigned KEPT = 16;

    static const char* keep(std::string text);
};
