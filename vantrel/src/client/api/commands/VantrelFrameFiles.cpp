#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>

#include "CoException.h"
#include "CoIoDescriptor.h"
#include "CoMsg.h"
#include "CoProcess.h"
#include "VantrelFrameClientAPI.h"
#include "VantrelFrameTrace.h"

using Vantrel::coErrorText;
using Vantrel::CoException;
using Vantrel::coFormat;
using Vantrel::CoIoDescriptor;

namespace {

[[noreturn]] void fail(const char* what, const std::string& path, int error) {
    throw CoException(coFormat("Cannot %s '%s': %s", what, path.c_str(), coErrorText(error).c_str()));
}

/// A new file beside `path` that takes its place when complete, and vanishes when it is not.
class IncomingFile {
  public:
    explicit IncomingFile(const char* path) : path_(resolved(path)), temporary_(path_ + ".XXXXXX") {
        struct stat earlier {};
        if (::stat(path_.c_str(), &earlier) == 0) {
            if (!S_ISREG(earlier.st_mode)) fail("replace", path_, EINVAL);  // a device is not ours to replace
            mode_ = earlier.st_mode & 07777;
        }
        file_.setId(::mkostemp(temporary_.data(), O_CLOEXEC));
        if (!file_.isValid()) fail("create", path_, errno);
    }
    IncomingFile(const IncomingFile&) = delete;
    IncomingFile& operator=(const IncomingFile&) = delete;
    ~IncomingFile() {
        if (file_.isValid()) ::unlink(temporary_.c_str());
    }

    void append(const char* data, std::size_t size) {
        while (size > 0) {
            const ssize_t written = ::write(file_.getId(), data, size);
            if (written < 0 && errno == EINTR) continue;
            if (written < 0) fail("write", path_, errno);
            data += written;
            size -= static_cast<std::size_t>(written);
        }
    }

    void complete() {
        // A network file system may tell only at a close, of any copy, that it could not store the bytes.
        const int copy = ::fcntl(file_.getId(), F_DUPFD_CLOEXEC, 0);
        if (copy >= 0 && ::close(copy) != 0) fail("write", path_, errno);
        if (::fchmod(file_.getId(), mode_) != 0) fail("set the mode of", path_, errno);
        if (::rename(temporary_.c_str(), path_.c_str()) != 0) fail("create", path_, errno);
        file_.close();
    }

  private:
    // A link stays one: the file that it leads to is replaced.
    static std::string resolved(const char* path) {
        const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path, nullptr), &std::free);
        return real ? real.get() : path;
    }

    const std::string path_;
    std::string temporary_;
    // mkostemp keeps the file to its owner; it gets the mode that a plain open would leave it with.
    mode_t mode_ = 0666 & ~Vantrel::CoProcess::getUmask();
    CoIoDescriptor file_;
};

void readExactly(const CoIoDescriptor& file, const char* path, char* buffer, std::size_t size) {
    while (size > 0) {
        const ssize_t got = ::read(file.getId(), buffer, size);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) fail("read", path, errno);
        if (got == 0) throw CoException(coFormat("'%s' became shorter while it was sent", path));
        buffer += got;
        size -= static_cast<std::size_t>(got);
    }
}

}  // namespace

void VantrelFrameClientAPI::pushFile(const char* remoteName, const char* localPath) {
    const CoIoDescriptor file(::open(localPath, O_RDONLY | O_CLOEXEC));
    if (!file.isValid()) fail("open", localPath, errno);
    struct stat status {};
    if (::fstat(file.getId(), &status) != 0) fail("open", localPath, errno);
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
