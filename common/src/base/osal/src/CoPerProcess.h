#pragma once

#include <atomic>
#include <memory>

#include "CoProcess.h"

namespace Vantrel {

/// The one T of this process: made on first use and never destroyed, so that threads may use it while the
/// process exits. A forked child gets a fresh one and never touches its parent's, whose mutexes may have been
/// locked at the moment of the fork. Several may be made at once, of which one is kept: T's constructor and
/// destructor must have no effects elsewhere. Thread-safe.
template <typename T>
class CoPerProcess {
  public:
    static T& get() {
        const unsigned generation = CoProcess::forkGeneration();
        Holder* seen = current.load(std::memory_order_acquire);
        if (seen && seen->generation == generation) return seen->value;
        auto fresh = std::make_unique<Holder>(generation, seen);
        if (!current.compare_exchange_strong(seen, fresh.get(), std::memory_order_acq_rel))
            return seen->value;
        return fresh.release()->value;
    }

  private:
    struct Holder {
        Holder(unsigned theGeneration, Holder* theEarlier) : generation(theGeneration), earlier(theEarlier) {}

        const unsigned generation;
        Holder* const earlier;  ///< the parent's, never used: leak checkers find it here
        T value;
    };

    static inline std::atomic<Holder*> current{nullptr};
};

}  // namespace Vantrel
