#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "CoFd.h"

namespace Vantrel {

/// A file that is written under a name of its own and moved into place when it is whole, so that no reader,
/// and no crash or full disk, ever sees half of one. Until `moveTo` or `keep` it goes away with this object.
/// What can fail returns 0 or the system's error number. Not thread-safe; `write` is.
class CoAtomicFile {
  public:
    static constexpr mode_t DEFAULT_MODE = 0644;

    enum class Existing { Replace, Refuse };

    /// Writes `content` to a temporary file beside `path`, makes it durable and moves it into place. A
    /// symbolic link stays one: the file that it names is replaced. On failure `path` is what it was before.
    /// With Existing::Refuse, EEXIST when there is something at `path`.
    [[nodiscard]] static int write(const std::string& path, std::string_view content,
                                   Existing existing = Existing::Replace, mode_t mode = DEFAULT_MODE);

    CoAtomicFile() = default;
    CoAtomicFile(const CoAtomicFile&) = delete;
    CoAtomicFile& operator=(const CoAtomicFile&) = delete;
    ~CoAtomicFile();

    /// Makes the file `name`: EEXIST when there is one.
    [[nodiscard]] int create(const std::string& name, mode_t mode);
    /// Makes it under a free name beside `target`, for its owner alone.
    [[nodiscard]] int createBeside(const std::string& target);

    const std::string& name() const { return name_; }

    [[nodiscard]] int append(std::string_view bytes);
    [[nodiscard]] int setMode(mode_t mode);
    /// Its bytes are on disk when this returns; its name only after CoFilePath::syncDirectory.
    [[nodiscard]] int sync();
    /// Gives it the name of its place on the same file system.
    [[nodiscard]] int moveTo(const std::string& target, Existing existing = Existing::Replace);
    /// It stays where it is; after `discard` it goes away again.
    void keep() { kept_ = true; }
    void discard() { kept_ = false; }

  private:
    std::string name_;
    CoFd file_;
    bool kept_ = false;
};

}  // namespace Vantrel
