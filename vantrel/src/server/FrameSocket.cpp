#include "FrameSocket.h"

#include <poll.h>
#include <sys/sendfile.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "CoMsg.h"
#include "CoTime.h"

namespace vantreld {

using Vantrel::coErrorText;
using Vantrel::CoFd;

namespace {

constexpr std::size_t BUFFER_SIZE = 65536;
constexpr std::size_t SENDFILE_PIECE = std::size_t(1) << 30;
constexpr unsigned LINGER_MS = 1000;

}  // namespace

FrameSocket::FrameSocket(CoFd fd, unsigned stallTimeoutMs)
    : fd_(std::move(fd)), stallTimeoutMs_(static_cast<int>(stallTimeoutMs)), buffer_(BUFFER_SIZE) {
    // Finds out that an idle peer's host is gone.
    const int on = 1;
    ::setsockopt(fd_.get(), SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
}

void FrameSocket::wait(short events, int timeoutMs) {
    pollfd polled{fd_.get(), events, 0};
    int ready = 0;
    do {
        ready = ::poll(&polled, 1, timeoutMs);
    } while (ready < 0 && errno == EINTR);
    if (ready < 0) throw ConnectionLost(coErrorText(errno));
    if (ready == 0) throw ConnectionLost(coErrorText(ETIMEDOUT));
}

std::size_t FrameSocket::receive(char* data, std::size_t length, int timeoutMs) {
    for (;;) {
        const ssize_t received = ::recv(fd_.get(), data, length, MSG_DONTWAIT);
        if (received >= 0) return static_cast<std::size_t>(received);
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            wait(POLLIN, timeoutMs);
        } else if (errno != EINTR) {
            throw ConnectionLost(coErrorText(errno));
        }
    }
}

bool FrameSocket::waitForRequest() {
    if (begin_ < end_) return true;
    constexpr int WITHOUT_LIMIT = -1;
    begin_ = 0;
    end_ = receive(buffer_.data(), buffer_.size(), WITHOUT_LIMIT);
    return end_ > 0;
}

bool FrameSocket::readText(std::string& text, std::size_t limit) {
    text.clear();
    for (;;) {
        if (begin_ == end_) {
            begin_ = 0;
            end_ = 0;
            end_ = receive(buffer_.data(), buffer_.size(), stallTimeoutMs_);
            if (end_ == 0) throw ConnectionLost("the peer closed within a request");
        }
        const char* start = buffer_.data() + begin_;
        const std::size_t length = std::min(end_ - begin_, limit + 1 - text.size());
        const void* nul = std::memchr(start, '\0', length);
        const std::size_t taken =
            nul != nullptr ? static_cast<std::size_t>(static_cast<const char*>(nul) - start) : length;
        text.append(start, taken);
        begin_ += taken + (nul != nullptr ? 1 : 0);
        if (nul != nullptr) return true;
        if (text.size() > limit) return false;
    }
}

std::size_t FrameSocket::readSome(char* data, std::size_t length) {
    if (begin_ < end_) {
        const std::size_t taken = std::min(length, end_ - begin_);
        std::memcpy(data, buffer_.data() + begin_, taken);
        begin_ += taken;
        return taken;
    }
    const std::size_t received = receive(data, length, stallTimeoutMs_);
    if (received == 0) throw ConnectionLost("the peer closed within a request");
    return received;
}

void FrameSocket::write(const void* data, std::size_t length, More more) {
    const int flags = MSG_DONTWAIT | MSG_NOSIGNAL | (more == More::Yes ? MSG_MORE : 0);
    const char* rest = static_cast<const char*>(data);
    while (length > 0) {
        const ssize_t sent = ::send(fd_.get(), rest, length, flags);
        if (sent >= 0) {
            rest += sent;
            length -= static_cast<std::size_t>(sent);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            wait(POLLOUT, stallTimeoutMs_);
        } else if (errno != EINTR) {
            throw ConnectionLost(coErrorText(errno));
        }
    }
}

void FrameSocket::writeZeros(std::uint64_t length) {
    const std::vector<char> zeros(std::min<std::uint64_t>(length, BUFFER_SIZE));
    while (length > 0) {
        const std::size_t piece = std::min<std::uint64_t>(length, zeros.size());
        write(zeros.data(), piece);
        length -= piece;
    }
}

void FrameSocket::sendFile(const ReadableFile& file, std::uint64_t start, std::uint64_t length) {
    // A broken connection makes sendfile raise SIGPIPE, which threads of CoThread have blocked.
    off_t offset = static_cast<off_t>(start);
    while (length > 0) {
        const std::size_t piece = std::min<std::uint64_t>(length, SENDFILE_PIECE);
        const ssize_t sent = ::sendfile(fd_.get(), file.fd.get(), &offset, piece);
        if (sent == 0) throw ConnectionLost("the file became shorter while it was sent");
        if (sent > 0) {
            length -= static_cast<std::uint64_t>(sent);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            wait(POLLOUT, stallTimeoutMs_);
        } else if (errno != EINTR) {
            throw ConnectionLost(coErrorText(errno));
        }
    }
}

void FrameSocket::closeLingering() {
    // Closing with unread input resets the connection, and the reset overtakes what was written.
    ::shutdown(fd_.get(), SHUT_WR);
    const Vantrel::CoDeadline deadline(LINGER_MS);
    try {
        while (!deadline.passed() &&
               receive(buffer_.data(), buffer_.size(), static_cast<int>(deadline.leftMs())) > 0) {
        }
    } catch (const ConnectionLost&) {
        // It ends either way.
    }
}

void FrameSocket::shutDown() {
    ::shutdown(fd_.get(), SHUT_RDWR);
}

}  // namespace vantreld
