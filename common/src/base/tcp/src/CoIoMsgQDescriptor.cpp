#include "CoIoMsgQDescriptor.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "CoAssert.h"
#include "CoMsg.h"
#include "CoTime.h"

namespace Vantrel {

namespace {

// A full queue cannot be waited for: the pause between two attempts.
constexpr unsigned RETRY_PAUSE_MS = 10;

// False with errno set when the path does not fit.
bool makeAddress(const char* path, sockaddr_un& address) {
    const std::size_t length = std::strlen(path);
    if (length == 0 || length >= sizeof address.sun_path) {
        errno = length == 0 ? ENOENT : ENAMETOOLONG;
        return false;
    }
    address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, length);
    return true;
}

}  // namespace

bool CoIoMsgQDescriptor::connect(const char* path, unsigned timeoutMs) {
    close();
    clearLastError();
    if (!CO_ASSERT(path != nullptr)) {
        setLastError(IoError::Invalid);
        return false;
    }
    const StopScope scope(*this);
    sockaddr_un address{};
    struct stat file {};
    if (!makeAddress(path, address) || ::stat(path, &file) != 0) {
        setLastErrorFromSystem();
        return false;
    }
    if (!isTrusted(file.st_uid)) return false;
    const CoDeadline deadline(timeoutMs);
    // The file may have been exchanged since: what counts in the end is who listens.
    while (!connectOnce(&address, sizeof address) || !isPeerTrusted()) {
        const bool queueFull = lastError() == IoError::Again;
        close();
        if (!queueFull) return false;
        if (deadline.passed()) {
            setLastError(IoError::TimedOut);
            return false;
        }
        short occurred = 0;  // without a descriptor nothing but a stop ends the pause
        const unsigned pauseMs = std::min(deadline.leftMs(), RETRY_PAUSE_MS);
        if (waitFor(0, static_cast<int>(pauseMs), occurred) == WaitResult::Stopped) {
            setLastError(IoError::Aborted);
            return false;
        }
    }
    clearLastError();
    return true;
}

bool CoIoMsgQDescriptor::connectOnce(const void* address, unsigned size) {
    setId(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (isValid() && ::connect(getId(), static_cast<const sockaddr*>(address), size) == 0) return true;
    setLastErrorFromSystem();
    return false;
}

bool CoIoMsgQDescriptor::isTrusted(uid_t owner) {
    if (owner == 0 || owner == ::geteuid()) return true;
    setLastError(IoError::Other,
                 coFormat("It belongs to user %u, who is neither root nor this process's user",
                          static_cast<unsigned>(owner)));
    return false;
}

bool CoIoMsgQDescriptor::isPeerTrusted() {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(getId(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0) return isTrusted(peer.uid);
    setLastErrorFromSystem();
    return false;
}

}  // namespace Vantrel
