#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>

#include "CoAtomicFile.h"
#include "CoException.h"
#include "CoFd.h"
#include "CoFilePath.h"
#include "CoMsg.h"
#include "CoProcess.h"
#include "VantrelFrameClientAPI.h"
#include "VantrelFrameTrace.h"

using Vantrel::coErrorText;
using Vantrel::CoException;
using Vantrel::CoFd;
using Vantrel::CoFilePath;
using Vantrel::coFormat;

namespace {

[[noreturn]] void fail(const char* what, const std::string& path, int error) {
    throw CoException(coFormat("Cannot %s '%s': %s", what, path.c_str(), coErrorText(error).c_str()));
}

/// A new file that takes the place of `path` when complete, and vanishes when it is not.
class IncomingFile {
  public:
    explicit IncomingFile(const char* path) : path_(CoFilePath::followLinks(path)) {
        struct stat earlier {};
        if (::stat(path_.c_str(), &earlier) == 0) {
            if (!S_ISREG(earlier.st_mode)) fail("replace", path_, EINVAL);  // a device is not ours to replace
            mode_ = earlier.st_mode & 07777;
        }
        check("create", file_.createBeside(path_));
    }

    void append(const char* data, std::size_t size) { check("write", file_.append({data, size})); }

    void complete() {
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
    const CoFd file(::open(localPath, O_RDONLY | O_CLOEXEC));
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
            file.append(buffer, piece);
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
