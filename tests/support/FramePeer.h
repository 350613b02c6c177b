#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "PlainSocket.h"

namespace Vantrel {

/// A frame port that plays a script: for each request it notes the bytes that came and answers what
/// the test asked for, whole or in pieces, and then goes on, closes, or falls silent. One connection at a
/// time, on a port of 127.0.0.1 that the system chose. It knows nothing of the protocol. Thread-safe.
class FramePeer {
  public:
    /// What follows a reply. `Stall`: neither reads nor sends any more, but stays connected.
    enum class Then { GoOn, Close, Stall };

    FramePeer();
    FramePeer(const FramePeer&) = delete;
    FramePeer& operator=(const FramePeer&) = delete;
    ~FramePeer();

    int port() const { return portOf(listener_); }

    /// The next request has `requestBytes` bytes (0: whatever one read gives) and gets `reply`.
    void expect(std::size_t requestBytes, const std::string& reply, Then then = Then::GoOn) {
        const std::lock_guard<std::mutex> lock(mutex_);
        script_.push_back({requestBytes, reply, then});
    }
    /// Sends later replies `bytes` at a time; 0: whole.
    void replyInPieces(std::size_t bytes) { pieceSize_ = bytes; }

    /// The requests received, those cut short by the client's going included, in order. A last element holds
    /// what came beyond the script.
    std::vector<std::string> requests() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return requests_;
    }
    std::size_t connections() const { return connections_; }
    /// Whether so many requests came, or so many connections ended, within the limit.
    bool waitForRequests(std::size_t count) const;
    bool waitForClosed(std::size_t count) const;

  private:
    struct Step {
        std::size_t requestBytes;
        std::string reply;
        Then then;
    };

    void run();
    void serve(int client);
    bool nextStep(int client, Step& step);
    bool receive(int client, std::size_t size, std::string& request) const;
    bool send(int client, const std::string& reply) const;
    bool waitFor(int descriptor, short event) const;
    void note(const std::string& request);
    template <typename Predicate>
    bool wait(Predicate predicate) const;

    const PlainFd listener_ = boundSocket(SOCK_STREAM);
    PlainPipe end_;
    std::atomic<std::size_t> pieceSize_{0};
    std::atomic<std::size_t> connections_{0};

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    // Guarded by mutex_.
    std::deque<Step> script_;
    std::vector<std::string> requests_;
    std::size_t closed_ = 0;

    std::thread thread_;
};

}  // namespace Vantrel
