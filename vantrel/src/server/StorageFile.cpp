#include "StorageFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <random>

#include "CoException.h"
#include "CoMsg.h"

namespace vantreld {

using Vantrel::coErrorText;
using Vantrel::CoException;
using Vantrel::CoFd;
using Vantrel::coFormat;

namespace {

constexpr mode_t FILE_MODE = 0666;
constexpr mode_t DIRECTORY_MODE = 0777;

constexpr std::size_t NAME_LENGTH = 16;

std::string randomName() {
    std::random_device device;
    const std::uint64_t high = device();
    return coFormat("%016lx", static_cast<unsigned long>(high << 32 | device()));
}

}  // namespace

void failWithErrno(const char* attempted, const std::string& path) {
    const int error = errno;
    throw CoException(coFormat("Cannot %s '%s': %s", attempted, path.c_str(), coErrorText(error).c_str()));
}

NewFile::NewFile(const std::string& directory) : directory_(directory) {
    do {
        name_ = randomName();
        fd_.reset(::open(path().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, FILE_MODE));
    } while (!fd_.isOpen() && errno == EEXIST);
    if (!fd_.isOpen()) failWithErrno("create", path());
}

bool NewFile::isName(std::string_view name) {
    return name.size() == NAME_LENGTH && name.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

NewFile::~NewFile() {
    if (!kept_) ::unlink(path().c_str());
}

void NewFile::write(const char* data, std::size_t length) {
    while (length > 0) {
        const ssize_t written = ::write(fd_.get(), data, length);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) failWithErrno("write", path());
        data += written;
        length -= static_cast<std::size_t>(written);
        size_ += static_cast<std::size_t>(written);
    }
}

void NewFile::sync() {
    if (::fdatasync(fd_.get()) != 0) failWithErrno("sync", path());
}

void NewFile::moveTo(const std::string& target) {
    if (::rename(path().c_str(), target.c_str()) != 0) failWithErrno("create", target);
    kept_ = true;
}

ReadableFile openForReading(const std::string& path) {
    ReadableFile file;
    // Without O_NONBLOCK a named pipe would hold the caller until somebody writes to it.
    file.fd.reset(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.fd.isOpen()) failWithErrno("open", path);
    struct stat status {};
    if (::fstat(file.fd.get(), &status) != 0) failWithErrno("examine", path);
    if (!S_ISREG(status.st_mode))
        throw CoException(coFormat("Cannot open '%s': it is no regular file", path.c_str()));
    file.size = static_cast<std::size_t>(status.st_size);
    return file;
}

void syncDirectory(const std::string& path) {
    const CoFd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.isOpen()) failWithErrno("open directory", path);
    if (::fsync(fd.get()) != 0) failWithErrno("sync directory", path);
}

void makeDirectories(const std::string& path) {
    if (::mkdir(path.c_str(), DIRECTORY_MODE) == 0) {
        const std::size_t slash = path.find_last_of('/');
        syncDirectory(slash == std::string::npos ? "." : path.substr(0, std::max<std::size_t>(slash, 1)));
        return;
    }
    if (errno == EEXIST) {
        struct stat status {};
        if (::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return;
        errno = ENOTDIR;
    }
    const std::size_t slash = path.find_last_of('/');
    if (errno != ENOENT || slash == std::string::npos || slash == 0) failWithErrno("create directory", path);
    makeDirectories(path.substr(0, slash));
    if (::mkdir(path.c_str(), DIRECTORY_MODE) != 0 && errno != EEXIST)
        failWithErrno("create directory", path);
    syncDirectory(path.substr(0, slash));
}

void sweepDirectory(const std::string& path, const std::function<bool(const std::string& name)>& unwanted) {
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path.c_str()), ::closedir);
    if (!directory) failWithErrno("list directory", path);
    while (const dirent* entry = ::readdir(directory.get())) {
        const std::string name = entry->d_name;
        if (name == "." || name == ".." || !unwanted(name)) continue;
        if (::unlinkat(::dirfd(directory.get()), name.c_str(), 0) != 0 && errno != EISDIR && errno != EPERM)
            CO_MSG_WARNING("Cannot remove '%s/%s': %s", path.c_str(), name.c_str(),
                           coErrorText(errno).c_str());
    }
}

}  // namespace vantreld
