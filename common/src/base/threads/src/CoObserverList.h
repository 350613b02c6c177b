#pragma once

#include <algorithm>
#include <exception>
#include <thread>
#include <utility>
#include <vector>

#include "CoMsg.h"
#include "CoMutex.h"

namespace Vantrel {

/// Observers, which are not owned, and the calls to them. No lock is held during a call, which may add and
/// remove observers, itself too. Thread-safe. One that a forked child may use belongs in a CoPerProcess.
template <typename Observer>
class CoObserverList {
  public:
    void add(Observer* observer) {
        const CoLock lock(mutex_);
        observers_.push_back(observer);
    }

    /// The observer is not called any more when this returns: it waits for a call in progress on another
    /// thread, but not for the one that it is called from.
    void remove(Observer* observer) {
        const CoLock lock(mutex_);
        observers_.erase(std::remove(observers_.begin(), observers_.end(), observer), observers_.end());
        while (isCalledElsewhere(observer)) callEnded_.wait(mutex_);
    }

    bool isEmpty() const {
        const CoLock lock(mutex_);
        return observers_.empty();
    }

    /// Runs `call(Observer&)` for each of those that are there now, unless one before it or another thread
    /// removes it. What a call throws is logged, and the others are called; `who` names them in the message.
    template <typename Call>
    void notify(const char* who, Call call) {
        for (Observer* const observer : all()) {
            if (!beginCall(observer)) continue;
            try {
                call(*observer);
            } catch (const std::exception& error) {
                CO_MSG_ERROR("%s failed: %s", who, error.what());
            }
            endCall(observer);
        }
    }

  private:
    using InProgress = std::pair<Observer*, std::thread::id>;

    std::vector<Observer*> all() const {
        const CoLock lock(mutex_);
        return observers_;
    }

    bool beginCall(Observer* observer) {
        const CoLock lock(mutex_);
        if (std::find(observers_.begin(), observers_.end(), observer) == observers_.end()) return false;
        calls_.emplace_back(observer, std::this_thread::get_id());
        return true;
    }

    void endCall(Observer* observer) {
        const CoLock lock(mutex_);
        calls_.erase(
            std::find(calls_.begin(), calls_.end(), InProgress(observer, std::this_thread::get_id())));
        callEnded_.notifyAll();
    }

    bool isCalledElsewhere(const Observer* observer) const CO_REQUIRES(mutex_) {
        return std::any_of(calls_.begin(), calls_.end(), [observer](const InProgress& each) {
            return each.first == observer && each.second != std::this_thread::get_id();
        });
    }

    mutable CoMutex mutex_;
    CoCondition callEnded_;
    std::vector<Observer*> observers_ CO_GUARDED_BY(mutex_);
    std::vector<InProgress> calls_ CO_GUARDED_BY(mutex_);
};

}  // namespace Vantrel
