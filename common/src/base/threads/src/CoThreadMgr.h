#pragma once

#include <mutex>
#include <vector>

namespace Vantrel {

class CoThread;

/// Knows every CoThread of the process that exists. Thread-safe.
class CoThreadMgr {
  public:
    static CoThreadMgr& getInstance();

    /// Asks every thread to stop. Their owners join them.
    void stopAll();

  private:
    friend class CoThread;
    void add(CoThread* thread);
    void remove(CoThread* thread);

    std::mutex mutex_;  // guards threads_, and keeps a thread from going away while it is asked to stop
    std::vector<CoThread*> threads_;
};

}  // namespace Vantrel
