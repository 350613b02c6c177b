#include "CoAtomicFile.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "CoFilePath.h"

namespace Vantrel {

namespace {

/// The move would put a file in the place of a device or a pipe just as well.
int checkTarget(const std::string& target) {
    struct stat status {};
    if (::stat(target.c_str(), &status) != 0 || S_ISREG(status.st_mode)) return 0;
    return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
}

}  // namespace

int CoAtomicFile::write(const std::string& path, std::string_view content, Existing existing, mode_t mode) {
    const std::string target = existing == Existing::Replace ? CoFilePath::followLinks(path) : path;
    if (const int error = checkTarget(target)) return error;
    CoAtomicFile file;
    if (const int error = file.createBeside(target)) return error;
    if (const int error = file.append(content)) return error;
    if (const int error = file.setMode(mode)) return error;
    if (const int error = file.sync()) return error;
    if (const int error = file.moveTo(target, existing)) return error;
    // As far as the system does it: the file itself is whole either way.
    static_cast<void>(CoFilePath::syncDirectory(CoFilePath::directoryOf(target)));
    return 0;
}

CoAtomicFile::~CoAtomicFile() {
    if (file_.isOpen() && !kept_) ::unlink(name_.c_str());
}

int CoAtomicFile::create(const std::string& name, mode_t mode) {
    name_ = name;
    file_.reset(::open(name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    return file_.isOpen() ? 0 : errno;
}

int CoAtomicFile::createBeside(const std::string& target) {
    name_ = target + ".XXXXXX";
    file_.reset(::mkostemp(name_.data(), O_CLOEXEC));
    return file_.isOpen() ? 0 : errno;
}

int CoAtomicFile::append(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file_.get(), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return errno;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

int CoAtomicFile::setMode(mode_t mode) {
    return ::fchmod(file_.get(), mode) == 0 ? 0 : errno;
}

int CoAtomicFile::sync() {
    // The size goes with the data; when the file was changed is not worth a second write.
    return ::fdatasync(file_.get()) == 0 ? 0 : errno;
}

int CoAtomicFile::moveTo(const std::string& target, Existing existing) {
    if (existing == Existing::Replace) {
        kept_ = ::rename(name_.c_str(), target.c_str()) == 0;
        return kept_ ? 0 : errno;
    }
    if (::link(name_.c_str(), target.c_str()) == 0) return 0;  // its own name goes away
    // Some file systems know no hard links.
    if (errno != EPERM && errno != EOPNOTSUPP) return errno;
    kept_ = ::renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0;
    return kept_ ? 0 : errno;
}

}  // namespace Vantrel
