#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "CoMsg.h"

namespace Vantrel {

/// Collects every log message while it lives, at all levels.
class CapturedLog : private CoMsg::Router {
  public:
    struct Entry {
        int level;
        std::string source;
        std::string text;
    };

    CapturedLog() : earlierLevel_(CoMsg::getFilterLevel()), earlierRouter_(CoMsg::setRouter(this)) {
        CoMsg::setFilterLevel(CoMsg::DEBUG);
    }
    ~CapturedLog() override {
        CoMsg::setRouter(earlierRouter_);
        CoMsg::setFilterLevel(earlierLevel_);
    }

    std::vector<Entry> entries() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return entries_;
    }
    /// Texts in order; of one level when `level` is not negative.
    std::vector<std::string> texts(int level = -1) const {
        std::vector<std::string> found;
        for (const Entry& entry : entries()) {
            if (level < 0 || entry.level == level) found.push_back(entry.text);
        }
        return found;
    }
    /// Whether some message contains `part`.
    bool contains(const std::string& part) const {
        for (const Entry& entry : entries()) {
            if (entry.text.find(part) != std::string::npos) return true;
        }
        return false;
    }

  private:
    void post(const CoMsg::Message& message) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        entries_.push_back({message.level, message.source, message.text});
    }

    int earlierLevel_;
    CoMsg::Router* earlierRouter_;
    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
};

}  // namespace Vantrel
