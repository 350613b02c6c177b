#include "CoFilePath.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "CoFd.h"
#include "CoTokenizer.h"

namespace Vantrel {

namespace {

constexpr char SEPARATOR = '/';
constexpr mode_t DIRECTORY_MODE = 0777;

bool isDirectory(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

std::string CoFilePath::clean(std::string_view path) {
    const bool absolute = !path.empty() && path.front() == SEPARATOR;
    std::vector<std::string_view> components;
    for (const std::string_view component : coTokens(path, "/")) {
        if (component == ".") continue;
        if (component != "..") {
            components.push_back(component);
        } else if (!components.empty() && components.back() != "..") {
            components.pop_back();
        } else if (!absolute) {
            components.push_back(component);
        }
    }

    std::string cleaned;
    for (const std::string_view component : components) {
        if (absolute || !cleaned.empty()) cleaned += SEPARATOR;
        cleaned += component;
    }
    if (absolute && cleaned.empty()) cleaned = SEPARATOR;
    return cleaned;
}

std::string CoFilePath::directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind(SEPARATOR);
    if (slash == std::string::npos) return ".";
    return slash == 0 ? std::string(1, SEPARATOR) : path.substr(0, slash);
}

std::string CoFilePath::followLinks(const std::string& path) {
    const std::unique_ptr<char, decltype(&::free)> followed(::realpath(path.c_str(), nullptr), &::free);
    return followed ? std::string(followed.get()) : path;
}

int CoFilePath::makeDirectories(const std::string& path) {
    // Asked first: in a directory that is not writable, network file systems may refuse to make even one that
    // exists with EACCES or EROFS.
    if (isDirectory(path)) return 0;
    if (::mkdir(path.c_str(), DIRECTORY_MODE) == 0) return syncDirectory(directoryOf(path));
    if (errno == EEXIST) return isDirectory(path) ? 0 : ENOTDIR;
    const std::string above = directoryOf(path);
    if (errno != ENOENT || above == path || path.empty()) return errno;
    if (const int error = makeDirectories(above)) return error;
    if (::mkdir(path.c_str(), DIRECTORY_MODE) != 0 && errno != EEXIST) return errno;
    return syncDirectory(above);
}

int CoFilePath::syncDirectory(const std::string& path) {
    const CoFd directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.isOpen()) return errno;
    // EINVAL: the file system writes names by itself or not at all.
    return ::fsync(directory.get()) == 0 || errno == EINVAL ? 0 : errno;
}

}  // namespace Vantrel
