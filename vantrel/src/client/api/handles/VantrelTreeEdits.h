#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

#include "CoMutex.h"

/// Which nodes were renamed or destroyed through one server handle: by this, node handles of that server know
/// what is old in the lists of children that they keep. Thread-safe.
class VantrelTreeEdits {
  public:
    /// How many edits there were. A list notes it before it is asked for.
    using Count = std::uint64_t;
    Count count() const { return count_; }

    /// Once the command was sent. `idNow` is the id that the node has from then on, as far as that is known.
    void noteRenamed(const std::string& id, const std::string& idNow);
    void noteDestroyed();

    /// False when a node has the name that it had then, else its id of now.
    [[nodiscard]] bool wasRenamed(Count since, const std::string& id, std::string& idNow) const;
    [[nodiscard]] bool wereDestroyed(Count since) const { return lastDestroyed_ > since; }

  private:
    /// Above this, every name that was listed before counts as old.
    static constexpr std::size_t MAX_RENAMED = 1000;

    struct Renamed {
        Count count;
        std::string idNow;
    };

    std::atomic<Count> count_{0};
    std::atomic<Count> lastRenamed_{0};
    std::atomic<Count> lastDestroyed_{0};
    mutable Vantrel::CoMutex mutex_;
    std::map<std::string, Renamed> renamed_ CO_GUARDED_BY(mutex_);
    Count allRenamed_ CO_GUARDED_BY(mutex_) = 0;
};
