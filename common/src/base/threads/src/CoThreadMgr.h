#pragma once

#include <vector>

#include "CoMutex.h"

namespace Vantrel {

class CoThread;

/// Knows every CoThread of the process that exists; a forked child knows its own only. Thread-safe.
class CoThreadMgr {
  public:
    static CoThreadMgr& getInstance();

    /// Asks every thread to stop. Their owners join them.
    void stopAll();

  private:
    friend class CoThread;
    void add(CoThread* thread);
    void remove(CoThread* thread);

    CoMutex mutex_;  // keeps a thread from going away while it is asked to stop
    std::vector<CoThread*> threads_ CO_GUARDED_BY(mutex_);
};

}  // namespace Vantrel
