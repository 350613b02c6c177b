#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "CoAtomicFile.h"
#include "CoException.h"
#include "CoFd.h"
#include "CoFilePath.h"
#include "CoIoDescriptor.h"
#include "CoMsg.h"
#include "CoProcess.h"
#include "CoTime.h"
#include "VantrelFrameClientAPI.h"
#include "VantrelFrameTrace.h"
#include "VantrelSettings.h"

using Vantrel::CoDeadline;
using Vantrel::coErrorText;
using Vantrel::CoException;
using Vantrel::CoFd;
using Vantrel::CoFilePath;
using Vantrel::coFormat;
using Vantrel::CoIoDescriptor;

namespace {

[[noreturn]] void fail(const char* what, const std::string& path, const std::string& reason) {
    throw CoException(coFormat("Cannot %s '%s': %s", what, path.c_str(), reason.c_str()));
}

[[noreturn]] void fail(const char* what, const std::string& path, int error) {
    fail(what, path, coErrorText(error));
}

using Operation = VantrelRawDataClientConnection::Operation;

/// A file that is written where it stands: a device, a FIFO, or a file that no other can take the place of.
/// What cannot take bytes keeps the caller waiting no longer than a stalled transfer, and a stop ends it.
class FileInPlace {
  public:
    explicit FileInPlace(std::string path) : path_(std::move(path)) {
        // Without waiting for a FIFO's reader, and without taking a terminal over.
        const int id = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
        if (id < 0) fail("open", path_, errno);
        file_.setId(id);
        struct stat status {};
        isRegular_ = ::fstat(id, &status) == 0 && S_ISREG(status.st_mode);
    }

    void append(const char* data, std::size_t size, const Operation& operation) {
        dropEarlierContent();
        const auto limitMs = static_cast<unsigned>(VantrelSettings::frameStallTimeoutMs.get());
        for (CoDeadline stall(limitMs); size > 0;) {
            const int written = file_.nonBlockingWriteWithTimeout(data, static_cast<unsigned>(size),
                                                                  limitMs == 0 ? UINT_MAX : stall.leftMs());
            operation.throwIfStopped();
            if (written < 0) fail("write", path_, file_.lastErrorText());
            if (written == 0 && limitMs != 0 && stall.passed()) fail("write", path_, ETIMEDOUT);
            if (written > 0) stall = CoDeadline(limitMs);
            data += written;
            size -= static_cast<std::size_t>(written);
        }
    }

    void complete() {
        dropEarlierContent();
        if (isRegular_ && ::fdatasync(file_.getId()) != 0) fail("write", path_, errno);
    }

  private:
    /// Not before there is something, if only its end, to take its place.
    void dropEarlierContent() {
        if (!isRegular_ || std::exchange(isEmptied_, true)) return;
        if (::ftruncate(file_.getId(), 0) != 0) fail("write", path_, errno);
    }

    const std::string path_;
    CoIoDescriptor file_;
    bool isRegular_ = false;
    bool isEmptied_ = false;
};

/// Whether a directory that takes no new file for this reason may yet hold one that can be written. A full or
/// failing disk is none of these reasons: written in place, the earlier file would be lost to it.
bool leavesWritingInPlace(int error) {
    return error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG;
}

/// Where a pulled file goes: to a new file, which takes the place of `path` when complete and vanishes when
/// it is not, or else to what is at `path` itself.
class IncomingFile {
  public:
    explicit IncomingFile(const char* path) : path_(CoFilePath::followLinks(path)) {
        struct stat earlier {};
        const bool exists = ::stat(path, &earlier) == 0;
        if (exists && !S_ISREG(earlier.st_mode)) {
            inPlace_.emplace(path);
            return;
        }
        if (exists) mode_ = earlier.st_mode & 07777;
        const int error = file_.createBeside(path_);
        if (error == 0) return;
        if (!exists || !leavesWritingInPlace(error)) fail("create", path_, error);
        inPlace_.emplace(path_);
    }

    void append(const char* data, std::size_t size, const Operation& operation) {
        if (inPlace_) return inPlace_->append(data, size, operation);
        check("write", file_.append({data, size}));
    }

    void complete() {
        if (inPlace_) return inPlace_->complete();
        check("set the mode of", file_.setMode(mode_));
        check("write", file_.sync());
        check("create", file_.moveTo(path_));
        // As far as the system does it: the file itself is whole either way.
        static_cast<void>(CoFilePath::syncDirectory(CoFilePath::directoryOf(path_)));
    }

  private:
    void check(const char* what, int error) const {
        if (error != 0) fail(what, path_, error);
    }

    const std::string path_;
    // The file is its owner's alone until it gets the mode that a plain open would leave it with.
    mode_t mode_ = 0666 & ~Vantrel::CoProcess::getUmask();
    Vantrel::CoAtomicFile file_;
    std::optional<FileInPlace> inPlace_;
};

void readExactly(const CoFd& file, const char* path, char* buffer, std::size_t size) {
    while (size > 0) {
        const ssize_t got = ::read(file.get(), buffer, size);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) fail("read", path, errno);
        if (got == 0) throw CoException(coFormat("'%s' became shorter while it was sent", path));
        buffer += got;
        size -= static_cast<std::size_t>(got);
    }
}

}  // namespace

void VantrelFrameClientAPI::pushFile(const char* remoteName, const char* localPath) {
    // Opening a FIFO does not wait for its writer: it is refused like all that has no size.
    const CoFd file(::open(localPath, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.isOpen()) fail("open", localPath, errno);
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) fail("open", localPath, errno);
    if (!S_ISREG(status.st_mode)) fail("send", localPath, EINVAL);
    std::size_t left = static_cast<std::size_t>(status.st_size);
    char* const buffer = getDataBuffer();

    const VantrelRawDataClientConnection::Request request(connection_);
    const Trace trace(PUSH_FILE, remoteName, left);
    writeMethodStringAndSize(connection_, PUSH_FILE, remoteName, left);
    handleReturnCode(connection_);
    while (left > 0) {
        const std::size_t piece = std::min(left, DATA_BUFFER_BYTES);
        try {
            readExactly(file, localPath, buffer, piece);
        } catch (const CoException&) {
            connection_.disconnect();  // the server waits for bytes that will not come
            throw;
        }
        connection_.write(buffer, piece);
        left -= piece;
    }
    handleReturnCode(connection_);
}

void VantrelFrameClientAPI::pullFile(const char* remoteName, const char* localPath) {
    IncomingFile file(localPath);
    char* const buffer = getDataBuffer();
    const VantrelRawDataClientConnection::Request request(connection_);
    const Trace trace(PULL_FILE, remoteName, DATA_BUFFER_BYTES);
    writeMethodStringAndSize(connection_, PULL_FILE, remoteName, DATA_BUFFER_BYTES);
    for (std::size_t left = readSize(connection_); left > 0;) {
        const std::size_t piece = std::min(left, DATA_BUFFER_BYTES);
        connection_.read(buffer, piece);
        try {
            file.append(buffer, piece, request);
        } catch (const CoException&) {
            connection_.disconnect();  // the rest of the file is on its way, and is not read
            throw;
        }
        left -= piece;
    }
    handleReturnCode(connection_);
    file.complete();
}

char* VantrelFrameClientAPI::getDataBuffer() {
    if (!dataBuffer_) dataBuffer_ = std::make_unique<char[]>(DATA_BUFFER_BYTES);
    return dataBuffer_.get();
}
