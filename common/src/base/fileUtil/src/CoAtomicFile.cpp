#include "CoAtomicFile.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "CoFd.h"
#include "CoFilePath.h"

namespace Vantrel {

namespace {

/// The temporary file: removed unless it was moved into place.
class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& target)
        : name_(target + ".XXXXXX"), file_(::mkostemp(name_.data(), O_CLOEXEC)) {}
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        if (file_.isOpen() && !moved_) ::unlink(name_.c_str());
    }

    bool isOpen() const { return file_.isOpen(); }

    bool fill(std::string_view content, mode_t mode) {
        while (!content.empty()) {
            const ssize_t written = ::write(file_.get(), content.data(), content.size());
            if (written < 0 && errno == EINTR) continue;
            if (written < 0) return false;
            content.remove_prefix(static_cast<std::size_t>(written));
        }
        return ::fchmod(file_.get(), mode) == 0 && ::fsync(file_.get()) == 0;
    }

    bool moveTo(const std::string& target, CoAtomicFile::Existing existing) {
        if (existing == CoAtomicFile::Existing::Replace) {
            moved_ = ::rename(name_.c_str(), target.c_str()) == 0;
            return moved_;
        }
        if (::link(name_.c_str(), target.c_str()) == 0) return true;
        // Some file systems know no hard links.
        if (errno != EPERM && errno != EOPNOTSUPP) return false;
        moved_ = ::renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0;
        return moved_;
    }

  private:
    std::string name_;
    CoFd file_;
    bool moved_ = false;
};

/// `path` with its symbolic links followed, when there is something there.
std::string followLinks(const std::string& path) {
    const std::unique_ptr<char, decltype(&::free)> followed(::realpath(path.c_str(), nullptr), &::free);
    return followed ? std::string(followed.get()) : path;
}

/// The move would put a file in the place of a device or a pipe just as well.
int checkTarget(const std::string& target) {
    struct stat status {};
    if (::stat(target.c_str(), &status) != 0 || S_ISREG(status.st_mode)) return 0;
    return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
}

void syncDirectory(const std::string& directory) {
    const CoFd file(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (file.isOpen()) ::fsync(file.get());  // best effort: the file itself is complete either way
}

}  // namespace

int CoAtomicFile::write(const std::string& path, std::string_view content, Existing existing, mode_t mode) {
    const std::string target = existing == Existing::Replace ? followLinks(path) : path;
    if (const int error = checkTarget(target)) return error;
    TemporaryFile file(target);
    if (!file.isOpen() || !file.fill(content, mode) || !file.moveTo(target, existing)) return errno;
    syncDirectory(CoFilePath::directoryOf(target));
    return 0;
}

}  // namespace Vantrel
