#pragma once

#include <string>
#include <string_view>

namespace Vantrel {

/// Operations on the text of a path, "/" being the separator. None looks at the file system but
/// `makeDirectories`. Thread-safe.
class CoFilePath {
  public:
    /// `path` cleaned: separators in a row become one, "." components vanish, ".." removes the component
    /// before it. ".." at the root vanishes; at the front of a relative path it stays. No separator ends the
    /// result but that of the root alone. A path that goes nowhere ("", "." or "a/..") is empty.
    static std::string clean(std::string_view path);

    /// What precedes the last component: "/a" of "/a/b", "/" of "/b", "." of "b".
    static std::string directoryOf(const std::string& path);

    /// Makes a directory and those above it that are missing. 0, or the system's error number.
    static int makeDirectories(const std::string& path);
};

}  // namespace Vantrel
