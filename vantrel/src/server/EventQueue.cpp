#include "EventQueue.h"

#include <utility>

namespace vantreld {

using Vantrel::CoLock;

void EventQueue::push(QueuedEvent event) {
    const CoLock lock(mutex_);
    bytes_ += event.argument->size();
    events_.push_back(std::move(event));
    // The newest one stays, however long it is.
    while (events_.size() > 1 && (events_.size() > limits_.events || bytes_ > limits_.bytes)) {
        bytes_ -= events_.front().argument->size();
        events_.pop_front();
        ++dropped_;
    }
}

bool EventQueue::take(QueuedEvent& event) {
    const CoLock lock(mutex_);
    if (events_.empty()) return false;
    event = std::move(events_.front());
    events_.pop_front();
    bytes_ -= event.argument->size();
    return true;
}

void EventQueue::putBack(const std::deque<QueuedEvent>& events) {
    const CoLock lock(mutex_);
    for (const QueuedEvent& event : events) bytes_ += event.argument->size();
    events_.insert(events_.begin(), events.begin(), events.end());
}

std::size_t EventQueue::takeDropped() {
    const CoLock lock(mutex_);
    return std::exchange(dropped_, 0);
}

}  // namespace vantreld
