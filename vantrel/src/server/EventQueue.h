#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>

#include "CoMutex.h"

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

    void push(QueuedEvent event) CO_EXCLUDES(mutex_);
    /// The oldest one; false when there is none.
    bool take(QueuedEvent& event) CO_EXCLUDES(mutex_);
    /// Puts events that were taken, and not delivered, in front again.
    void putBack(const std::deque<QueuedEvent>& events) CO_EXCLUDES(mutex_);
    /// How many events gave way since the last call.
    std::size_t takeDropped() CO_EXCLUDES(mutex_);

  private:
    const Limits limits_;

    Vantrel::CoMutex mutex_;
    std::deque<QueuedEvent> events_ CO_GUARDED_BY(mutex_);
    std::size_t bytes_ CO_GUARDED_BY(mutex_) = 0;
    std::size_t dropped_ CO_GUARDED_BY(mutex_) = 0;
};

}  // namespace vantreld
