#pragma once

#include <vantrel/VantrelClientAPI.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

/// Notes events as their node, type and details' text, and then does what a test wants.
class EventRecorder : public VantrelNodeEvent::Handler {
  public:
    explicit EventRecorder(std::function<void()> then = [] {}) : then_(std::move(then)) {}
    void notify(const VantrelNodeEvent& event) override {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            events_.push_back(std::string(event.getNodeId().id()) + ' ' + event.getType() + ' ' +
                              event.getDetails().getStream());
        }
        changed_.notify_all();
        then_();
    }
    bool waitFor(std::size_t count, std::chrono::milliseconds limit = std::chrono::minutes(1)) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return events_.size() >= count; });
    }
    std::vector<std::string> events() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }

  private:
    const std::function<void()> then_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> events_;
};
