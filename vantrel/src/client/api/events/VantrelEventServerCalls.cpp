#include "VantrelEventServerCalls.h"

#include <chrono>
#include <utility>

using Vantrel::CoLock;
using Vantrel::CoUnlock;

namespace {

/// A call that is to be broken is stopped again and again: it may not have begun to wait.
constexpr std::chrono::milliseconds STOP_INTERVAL(10);

}  // namespace

/// While it lives, the thread calls a connection's server.
class VantrelEventServerCalls::Scope {
  public:
    Scope(VantrelEventServerCalls& calls, const Connection& connection, bool restoring)
        : calls_(calls), allowed_(calls.beginCall(connection, restoring)) {}
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope() { calls_.endCall(); }
    bool allowed() const { return allowed_; }

  private:
    VantrelEventServerCalls& calls_;
    const bool allowed_;
};

bool VantrelEventServerCalls::beginCall(const Connection& connection, bool restoring) {
    const CoLock lock(mutex_);
    if (restoring && !mayRestore_) return false;
    called_ = connection;
    restoring_ = restoring;
    return true;
}

void VantrelEventServerCalls::endCall() {
    Connection called;  // destroyed without the mutex
    const CoLock lock(mutex_);
    called = std::exchange(called_, nullptr);
    changed_.notifyAll();
}

VantrelEventServerCalls::Restored VantrelEventServerCalls::restore(const Connection& connection) {
    const Scope scope(*this, connection, true);
    return scope.allowed() ? connection->registrations().restore() : Restored::Up;
}

void VantrelEventServerCalls::deregister() {
    for (;;) {
        Deregistration current;  // destroyed without the mutex
        unsigned limitMs = 0;
        if (!next(current, limitMs)) return;
        if (current.connection) {  // none: an earlier attempt ended early
            const Scope scope(*this, current.connection, false);
            current.connection->registrations().remove(current.subjects, Vantrel::CoDeadline(limitMs));
        }
        const CoLock lock(mutex_);
        if (!pending_.empty()) pending_.pop_back();
        if (pending_.empty()) changed_.notifyAll();
    }
}

/// The last one of those pending, where an empty one stays until the call has ended.
bool VantrelEventServerCalls::next(Deregistration& deregistration, unsigned& limitMs) {
    const CoLock lock(mutex_);
    if (pending_.empty()) return false;
    deregistration = std::move(pending_.back());
    // One dead server must not use up the time of the others.
    limitMs = limit_ ? limit_->leftMs() / static_cast<unsigned>(pending_.size()) : 0;
    return true;
}

void VantrelEventServerCalls::forbidRestoring() {
    const CoLock lock(mutex_);
    mayRestore_ = false;
}

void VantrelEventServerCalls::submit(Deregistrations deregistrations) {
    const CoLock lock(mutex_);
    pending_ = std::move(deregistrations);
    limit_.emplace(VantrelEventConnection::DEREGISTRATION_TIME_MS);
}

void VantrelEventServerCalls::await() {
    const CoLock lock(mutex_);
    while (called_ || (!pending_.empty() && !timeIsOver())) {
        if (called_ && (restoring_ || timeIsOver())) {
            Connection called = called_;
            const CoUnlock unlock(mutex_);
            called->registrations().client().stop(nullptr);
            called.reset();  // without the mutex: it may be the last reference
        }
        changed_.waitFor(mutex_, STOP_INTERVAL);
    }
    pending_.clear();
}
