#pragma once

#include <atomic>
#include <memory>
#include <type_traits>

#include "CoProcess.h"

namespace Vantrel {

/// The one T of this process: made on first use and never destroyed, so that threads may use it while the
/// process exits. A forked child gets a fresh one and locks nothing of its parent's, whose mutexes may have
/// been held, by threads that the child does not have, at the moment of the fork. Nothing here waits: a fork
/// while another thread makes the T is no different from any other.
///
/// A T that can be constructed from a T* is given the parent's, null where there is none, to take over what
/// no mutex protects. Several may be made at once, of which one is kept: constructing T twice must do no
/// harm. Thread-safe.
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
        Holder(unsigned theGeneration, Holder* theEarlier)
            : generation(theGeneration), earlier(theEarlier), value(make(theEarlier)) {}

        static T make([[maybe_unused]] Holder* earlier) {
            if constexpr (std::is_constructible_v<T, T*>) {
                return T(earlier ? &earlier->value : nullptr);
            } else {
                return T();
            }
        }

        const unsigned generation;
        Holder* const earlier;  ///< the parent's: leak checkers find it here
        T value;
    };

    static inline std::atomic<Holder*> current{nullptr};
};

}  // namespace Vantrel
