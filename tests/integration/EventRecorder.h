#pragma once

#include <vantrel/VantrelClientAPI.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

/// Notes events as their node, type and details' text, and then does what a test wants. Like every handler it
/// has to outlive its registration, or the server handle, but for the end of a call whose event a test has
/// waited for.
class EventRecorder : public VantrelNodeEvent::Handler {
  public:
    EventRecorder() = default;
    explicit EventRecorder(std::function<void()> then) : then_(std::move(then)) {}
    EventRecorder(const EventRecorder&) = delete;
    EventRecorder& operator=(const EventRecorder&) = delete;
    ~EventRecorder() override { const std::lock_guard<std::mutex> lock(mutex_); }
    void notify(const VantrelNodeEvent& event) override {
        const bool doesMore = then_ != nullptr;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            events_.push_back(std::string(event.getNodeId().id()) + ' ' + event.getType() + ' ' +
                              event.getDetails().getStream());
            changed_.notify_all();
        }
        if (doesMore) then_();
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
