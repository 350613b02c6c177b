#include "StorageFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <random>

#include "CoException.h"
#include "CoFilePath.h"
#include "CoMsg.h"

namespace vantreld {

using Vantrel::coErrorText;
using Vantrel::CoException;
using Vantrel::CoFilePath;
using Vantrel::coFormat;

namespace {

constexpr mode_t FILE_MODE = 0666;

constexpr std::size_t NAME_LENGTH = 16;

std::string randomName() {
    std::random_device device;
    const std::uint64_t high = device();
    return coFormat("%016lx", static_cast<unsigned long>(high << 32 | device()));
}

}  // namespace

void failWithErrno(const char* attempted, const std::string& path, int error) {
    throw CoException(coFormat("Cannot %s '%s': %s", attempted, path.c_str(), coErrorText(error).c_str()));
}

NewFile::NewFile(const std::string& directory) {
    int error = EEXIST;
    while (error == EEXIST) {
        name_ = randomName();
        error = file_.create(directory + "/" + name_, FILE_MODE);
    }
    check("create", error);
}

bool NewFile::isName(std::string_view name) {
    return name.size() == NAME_LENGTH && name.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

void NewFile::write(const char* data, std::size_t length) {
    check("write", file_.append({data, length}));
    size_ += length;
}

void NewFile::sync() {
    check("sync", file_.sync());
}

void NewFile::moveTo(const std::string& target) {
    if (const int error = file_.moveTo(target)) failWithErrno("create", target, error);
}

void NewFile::check(const char* attempted, int error) const {
    if (error != 0) failWithErrno(attempted, file_.name(), error);
}

ReadableFile openForReading(const std::string& path) {
    ReadableFile file;
    // Without O_NONBLOCK a named pipe would hold the caller until a process writes to it.
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
    if (const int error = CoFilePath::syncDirectory(path)) failWithErrno("sync directory", path, error);
}

void makeDirectories(const std::string& path) {
    if (const int error = CoFilePath::makeDirectories(path)) failWithErrno("create directory", path, error);
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
