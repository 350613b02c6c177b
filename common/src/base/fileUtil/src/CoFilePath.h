#pragma once

#include <string>
#include <string_view>

namespace Vantrel {

/// Paths, "/" being the separator, and directories. Thread-safe.
class CoFilePath {
  public:
    /// `path` cleaned: separators in a row become one, "." components vanish, ".." removes the component
    /// before it. ".." at the root vanishes; at the front of a relative path it stays. No separator ends the
    /// result but that of the root alone. A path that goes nowhere ("", "." or "a/..") is empty.
    static std::string clean(std::string_view path);

    /// What precedes the last component: "/a" of "/a/b", "/" of "/b", "." of "b".
    static std::string directoryOf(const std::string& path);

    /// `path` with its symbolic links followed, when there is something there.
    static std::string followLinks(const std::string& path);

    /// Makes a directory and those above it that are missing, durably. 0, or the system's error number.
    [[nodiscard]] static int makeDirectories(const std::string& path);

    /// The names in a directory are on disk when this returns, where the file system can do that. 0, or the
    /// system's error number.
    [[nodiscard]] static int syncDirectory(const std::string& path);
};

}  // namespace Vantrel
