#include "FramePeer.h"

#include <netinet/tcp.h>
#include <poll.h>

#include <algorithm>
#include <chrono>

namespace Vantrel {

namespace {

constexpr std::chrono::seconds LIMIT{20};

}  // namespace

FramePeer::FramePeer() {
    checked(::listen(listener_, SOMAXCONN), "listen");
    thread_ = std::thread(&FramePeer::run, this);
}

FramePeer::~FramePeer() {
    end_.write.close();
    thread_.join();
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
    pollfd entries[] = {{descriptor, event, 0}, {end_.read, POLLIN, 0}};
    while (::poll(entries, 2, -1) < 0 && errno == EINTR) {
    }
    return entries[1].revents == 0;
}

void FramePeer::run() {
    while (waitFor(listener_, POLLIN)) {
        PlainFd client(::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!client.isOpen()) continue;
        const int on = 1;
        ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        ++connections_;
        serve(client);
        client.close();
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
        pollfd entries[] = {{client, POLLRDHUP, 0}, {listener_, POLLIN, 0}, {end_.read, POLLIN, 0}};
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
    const std::size_t pieceSize = pieceSize_ > 0 ? pieceSize_.load() : reply.size();
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
