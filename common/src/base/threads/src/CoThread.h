#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

namespace Vantrel {

/// A thread with a name, known to the CoThreadMgr while it exists. Signals are blocked in it: the host's
/// handlers run on the host's threads.
class CoThread {
  public:
    /// Starts `body` at once. `name` is cut to 15 bytes, as the system does. `requestStop`, which any thread
    /// may call more than once, makes `body` return soon.
    CoThread(const char* name, std::function<void()> body, std::function<void()> requestStop);
    CoThread(const CoThread&) = delete;
    CoThread& operator=(const CoThread&) = delete;

    /// Requests the stop and joins. On the thread itself, which cannot wait for its own end, it leaves the
    /// rest of `body` running.
    ~CoThread();

    void requestStop() const { requestStop_(); }
    /// Waits for the end of `body`; returns at once when called a second time or on the thread itself.
    void join();
    /// Whether `body` has returned.
    bool finished() const { return *finished_; }

  private:
    std::function<void()> requestStop_;
    std::shared_ptr<std::atomic<bool>> finished_;  ///< the thread's too: it may outlive this object
    std::thread thread_;
};

}  // namespace Vantrel
