#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace Vantrel {

/// Writes whole files so that no reader, and no crash or full disk, ever sees half of one. Thread-safe.
class CoAtomicFile {
  public:
    static constexpr mode_t DEFAULT_MODE = 0644;

    enum class Existing { Replace, Refuse };

    /// Writes `content` to a temporary file beside `path`, makes it durable and moves it into place. A
    /// symbolic link stays one: the file that it names is replaced. 0, or the system's error number: then
    /// `path` is what it was before. With Existing::Refuse, EEXIST when there is something at `path`.
    static int write(const std::string& path, std::string_view content, Existing existing = Existing::Replace,
                     mode_t mode = DEFAULT_MODE);
};

}  // namespace Vantrel
