#include "LocalSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "CoMsg.h"

namespace vantreld {

using Vantrel::coErrorText;
using Vantrel::CoFd;
using Vantrel::coFormat;

namespace {

constexpr mode_t EVERYBODY = 0666;  // connecting takes the right to write

bool warn(const char* what, const std::string& path) {
    CO_MSG_WARNING("Cannot %s local socket '%s': %s", what, path.c_str(), coErrorText(errno).c_str());
    return false;
}

CoFd makeSocket() {
    return CoFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

/// Calls bind or connect with the address of a path. False with errno set.
template <typename Call>
bool callWithAddress(Call call, const CoFd& socket, const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    path.copy(address.sun_path, path.size());
    return call(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

LocalSocket::LocalSocket(const std::string& path) : path_(path) {
    const std::string directory = path.substr(0, path.find_last_of('/') + 1);
    if (::access(directory.c_str(), W_OK | X_OK) != 0) {
        CO_MSG_DEBUG("No local socket '%s': %s", path.c_str(), coErrorText(errno).c_str());
        return;
    }
    if (!isFree() || !listen()) socket_.reset();
}

LocalSocket::~LocalSocket() {
    struct stat file {};
    const bool ours = socket_.isOpen() && ::lstat(path_.c_str(), &file) == 0 && file.st_dev == device_ &&
                      file.st_ino == inode_;
    if (ours && ::unlink(path_.c_str()) != 0) warn("remove", path_);
}

bool LocalSocket::isFree() const {
    struct stat file {};
    if (::lstat(path_.c_str(), &file) != 0) return errno == ENOENT || warn("look at", path_);
    if (!S_ISSOCK(file.st_mode)) {
        errno = ENOTSOCK;
        return warn("replace", path_);
    }
    const CoFd probe = makeSocket();
    if (probe.isOpen() && !callWithAddress(::connect, probe, path_) && errno == ECONNREFUSED) return true;
    errno = EADDRINUSE;
    return warn("replace", path_);
}

bool LocalSocket::listen() {
    // Made under another name and moved into place when it works: a client meets a socket that answers.
    const std::string temporary = coFormat("%s.%d", path_.c_str(), static_cast<int>(::getpid()));
    socket_ = makeSocket();
    if (!socket_.isOpen() || !callWithAddress(::bind, socket_, temporary)) return warn("make", temporary);
    if (publish(temporary)) return true;
    ::unlink(temporary.c_str());
    return false;
}

bool LocalSocket::publish(const std::string& name) {
    struct stat file {};
    if (::chmod(name.c_str(), EVERYBODY) != 0 || ::listen(socket_.get(), SOMAXCONN) != 0 ||
        ::lstat(name.c_str(), &file) != 0) {
        return warn("open", name);
    }
    device_ = file.st_dev;
    inode_ = file.st_ino;
    return std::rename(name.c_str(), path_.c_str()) == 0 || warn("replace", path_);
}

CoFd LocalSocket::accept() {
    return CoFd(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

}  // namespace vantreld
