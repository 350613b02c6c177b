#pragma once

#include <poll.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

#include "PlainSocket.h"

namespace Vantrel {

/// A plain socket to a port of this host, for a test to type into. Waits are limited; a wait in vain throws.
class RawClient {
  public:
    explicit RawClient(int port, int receiveBufferSize = 0)
        : socket_(checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket")) {
        if (receiveBufferSize != 0) {
            ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &receiveBufferSize, sizeof receiveBufferSize);
        }
        checked(::connect(socket_, LoopbackAddress(port).get(), LoopbackAddress::SIZE), "connect");
    }

    void close() { socket_.close(); }
    void finishSending() { ::shutdown(socket_, SHUT_WR); }

    /// Sends `text`, `pieceSize` bytes at a time (0: whole).
    void send(std::string_view text, std::size_t pieceSize = 0) {
        while (!text.empty()) {
            const std::size_t size = pieceSize == 0 ? text.size() : std::min(pieceSize, text.size());
            const ssize_t sent = ::send(socket_, text.data(), size, MSG_NOSIGNAL);
            if (sent < 0 && (errno == EPIPE || errno == ECONNRESET)) return;  // the peer has heard enough
            checked(static_cast<int>(sent), "send");
            text.remove_prefix(static_cast<std::size_t>(sent));
        }
    }

    /// The next line, without its newline; what came before the connection ended when it is cut short.
    std::string readLine() {
        for (;;) {
            const std::size_t end = received_.find('\n');
            if (end != std::string::npos) {
                std::string line = received_.substr(0, end);
                received_.erase(0, end + 1);
                return line;
            }
            if (!receive()) return std::exchange(received_, std::string());
        }
    }

    /// The line that answers `line`.
    std::string ask(std::string_view line) {
        send(line);
        return readLine();
    }

    /// The next `size` bytes; fewer when the connection ended before.
    std::string readBytes(std::size_t size) {
        while (received_.size() < size && receive()) {
        }
        std::string bytes = received_.substr(0, size);
        received_.erase(0, bytes.size());
        return bytes;
    }

    /// Whether the connection ends without a further byte.
    bool isClosedByPeer() { return received_.empty() && !receive(); }

  private:
    static constexpr int LIMIT_MS = 30000;

    bool receive() {
        pollfd waiting{socket_, POLLIN, 0};
        if (::poll(&waiting, 1, LIMIT_MS) <= 0) throw std::runtime_error("nothing came from the peer");
        char buffer[65536];
        const ssize_t count = ::recv(socket_, buffer, sizeof buffer, 0);
        if (count <= 0) return false;
        received_.append(buffer, static_cast<std::size_t>(count));
        return true;
    }

    PlainFd socket_;
    std::string received_;
};

}  // namespace Vantrel
