#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

namespace vantreld {

/// An event on its way to one connection of a client. Clients share the text.
struct QueuedEvent {
    int connection = 0;
    std::shared_ptr<const std::string> argument;
};

/// What waits to be sent to one client, in order. When the client is slower than the changes, the oldest
/// events give way to new ones. Thread-safe.
class EventQueue {
  public:
    struct Limits {
        std::size_t events;
        std::size_t bytes;
    };

    explicit EventQueue(const Limits& limits) : limits_(limits) {}

    void push(QueuedEvent event);
    /// The oldest one; false when there is none.
    bool take(QueuedEvent& event);
    /// Puts events that were taken, and not delivered, in front again.
    void putBack(const std::deque<QueuedEvent>& events);
    /// How many events gave way since the last call.
    std::size_t takeDropped();

  private:
    const Limits limits_;

    std::mutex mutex_;  // guards the rest
    std::deque<QueuedEvent> events_;
    std::size_t bytes_ = 0;
    std::size_t dropped_ = 0;
};

}  // namespace vantreld
