#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "CoThreadAnnotations.h"

namespace Vantrel {

/// A mutex of which the compiler knows who holds it. Use CoLock where it can serve.
template <typename Native>
class CO_CAPABILITY("mutex") CoBasicMutex {
  public:
    CoBasicMutex() = default;
    CoBasicMutex(const CoBasicMutex&) = delete;
    CoBasicMutex& operator=(const CoBasicMutex&) = delete;

    void lock() CO_ACQUIRE() { native_.lock(); }
    void unlock() CO_RELEASE() { native_.unlock(); }
    /// To be asked in a condition of its own: `if (!mutex.try_lock()) return;`.
    bool try_lock() CO_TRY_ACQUIRE(true) { return native_.try_lock(); }

    /// Tells the compiler that the calling thread holds the mutex, where it cannot see that. Does nothing.
    void assertHeld() const CO_ASSERT_HELD(this) {}

  private:
    friend class CoCondition;
    Native native_;
};

using CoMutex = CoBasicMutex<std::mutex>;
using CoRecursiveMutex = CoBasicMutex<std::recursive_mutex>;

/// Holds a mutex until the end of its scope, or until `unlock`.
template <typename Mutex>
class CO_SCOPED_CAPABILITY CoLock {
  public:
    explicit CoLock(Mutex& mutex) CO_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    /// Takes over a mutex that `try_lock` has got.
    CoLock(Mutex& mutex, std::adopt_lock_t) CO_REQUIRES(mutex) : mutex_(mutex) {}
    CoLock(const CoLock&) = delete;
    CoLock& operator=(const CoLock&) = delete;
    ~CoLock() CO_RELEASE() {
        if (held_) mutex_.unlock();
    }

    void unlock() CO_RELEASE() {
        held_ = false;
        mutex_.unlock();
    }
    void lock() CO_ACQUIRE() {
        mutex_.lock();
        held_ = true;
    }

  private:
    Mutex& mutex_;
    bool held_ = true;
};

/// Lets go of a mutex that is held, until the end of its scope: for calls out of the code that it protects.
template <typename Mutex>
class CO_SCOPED_CAPABILITY CoUnlock {
  public:
    explicit CoUnlock(Mutex& mutex) CO_RELEASE(mutex) : mutex_(mutex) { mutex_.unlock(); }
    CoUnlock(const CoUnlock&) = delete;
    CoUnlock& operator=(const CoUnlock&) = delete;
    ~CoUnlock() CO_RELEASE() { mutex_.lock(); }  // this is how the analysis knows such a scope

  private:
    Mutex& mutex_;
};

/// What a thread waits on while it holds a CoMutex, which is free during the wait. Wake-ups without a cause
/// happen: every wait stands in a loop that looks at the cause.
///
///     while (!done_) signal_.wait(mutex_);
class CoCondition {
  public:
    using Clock = std::chrono::steady_clock;

    void wait(CoMutex& mutex) CO_REQUIRES(mutex) {
        Held held(mutex);
        native_.wait(held.lock);
    }
    /// False when `deadline` has passed.
    bool waitUntil(CoMutex& mutex, Clock::time_point deadline) CO_REQUIRES(mutex) {
        Held held(mutex);
        return native_.wait_until(held.lock, deadline) == std::cv_status::no_timeout;
    }
    template <typename Duration>
    bool waitFor(CoMutex& mutex, Duration duration) CO_REQUIRES(mutex) {
        return waitUntil(mutex, Clock::now() + duration);
    }

    void notifyOne() { native_.notify_one(); }
    void notifyAll() { native_.notify_all(); }

  private:
    /// The mutex as the standard library wants it; it stays locked at the end.
    struct Held {
        explicit Held(CoMutex& mutex) : lock(mutex.native_, std::adopt_lock) {}
        Held(const Held&) = delete;
        Held& operator=(const Held&) = delete;
        ~Held() { lock.release(); }
        std::unique_lock<std::mutex> lock;
    };

    std::condition_variable native_;
};

}  // namespace Vantrel
