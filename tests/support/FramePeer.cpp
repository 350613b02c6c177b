#include "FramePeer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>

namespace Vantrel {

namespace {

constexpr std::chrono::seconds LIMIT{20};

int check(int result, const char* what) {
    if (result < 0) throw std::system_error(errno, std::generic_category(), what);
    return result;
}

}  // namespace

FramePeer::FramePeer() {
    check(::pipe2(endPipe_, O_CLOEXEC), "pipe2");
    listener_ = check(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    check(::bind(listener_, generic, size), "bind");
    check(::listen(listener_, SOMAXCONN), "listen");
    check(::getsockname(listener_, generic, &size), "getsockname");
    port_ = ntohs(address.sin_port);
    thread_ = std::thread(&FramePeer::run, this);
}

FramePeer::~FramePeer() {
    ::close(endPipe_[1]);
    thread_.join();
    ::close(endPipe_[0]);
    ::close(listener_);
}

void FramePeer::expect(std::size_t requestBytes, const std::string& reply, Then then) {
    const std::lock_guard<std::mutex> lock(mutex_);
    script_.push_back({requestBytes, reply, then});
}

void FramePeer::replyInPieces(std::size_t bytes) {
    const std::lock_guard<std::mutex> lock(mutex_);
    pieceSize_ = bytes;
}

std::vector<std::string> FramePeer::requests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

std::size_t FramePeer::connections() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return connections_;
}

template <typename Predicate>
bool FramePeer::wait(Predicate predicate) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, LIMIT, predicate);
}

bool FramePeer::waitForRequests(std::size_t count) const {
    return wait([this, count] { return requests_.size() >= count; });
}

bool FramePeer::waitForClosed(std::size_t count) const {
    return wait([this, count] { return closed_ >= count; });
}

// False when the peer is to end.
bool FramePeer::waitFor(int descriptor, short event) const {
    pollfd entries[] = {{descriptor, event, 0}, {endPipe_[0], POLLIN, 0}};
    while (::poll(entries, 2, -1) < 0 && errno == EINTR) {
    }
    return entries[1].revents == 0;
}

void FramePeer::run() {
    while (waitFor(listener_, POLLIN)) {
        const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (client < 0) continue;
        const int on = 1;
        ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            ++connections_;
        }
        serve(client);
        ::close(client);
        const std::lock_guard<std::mutex> lock(mutex_);
        ++closed_;
        changed_.notify_all();
    }
}

void FramePeer::serve(int client) {
    for (Step step; nextStep(client, step);) {
        if (!send(client, step.reply) || step.then == Then::Close) return;
        if (step.then == Then::GoOn) continue;
        // A client that gave a write up may leave bytes that nobody reads, and its end behind them.
        pollfd entries[] = {{client, POLLRDHUP, 0}, {listener_, POLLIN, 0}, {endPipe_[0], POLLIN, 0}};
        while (::poll(entries, 3, -1) < 0 && errno == EINTR) {
        }
        break;
    }
}

// Takes the next request and the step that answers it; false when the client has gone, or went beyond the
// script.
bool FramePeer::nextStep(int client, Step& step) {
    std::string request;
    if (!receive(client, 1, request)) return false;
    bool known = false;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        known = !script_.empty();
        if (known) {
            step = script_.front();
            script_.pop_front();
        }
    }
    const bool complete = receive(client, known ? step.requestBytes : 0, request);
    note(request);
    return known && complete;
}

// Appends to `request` up to `size` bytes in all, or with 0 what one read gives.
bool FramePeer::receive(int client, std::size_t size, std::string& request) const {
    char piece[65536];
    do {
        if (size > 0 && request.size() >= size) return true;
        if (!waitFor(client, POLLIN)) return false;
        const std::size_t wanted = size > 0 ? std::min(sizeof piece, size - request.size()) : sizeof piece;
        const ssize_t count = ::recv(client, piece, wanted, 0);
        if (count <= 0) return false;
        request.append(piece, static_cast<std::size_t>(count));
    } while (size > 0);
    return true;
}

bool FramePeer::send(int client, const std::string& reply) const {
    std::size_t pieceSize = 0;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        pieceSize = pieceSize_ > 0 ? pieceSize_ : reply.size();
    }
    for (std::size_t sent = 0; sent < reply.size();) {
        if (!waitFor(client, POLLOUT)) return false;
        const std::size_t size = std::min(pieceSize, reply.size() - sent);
        const ssize_t count = ::send(client, reply.data() + sent, size, MSG_NOSIGNAL);
        if (count < 0 && errno != EAGAIN) return false;
        if (count > 0) sent += static_cast<std::size_t>(count);
    }
    return true;
}

void FramePeer::note(const std::string& request) {
    const std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(request);
    changed_.notify_all();
}

}  // namespace Vantrel
