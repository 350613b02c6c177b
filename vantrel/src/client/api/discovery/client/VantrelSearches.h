#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "CoMutex.h"
#include "CoTime.h"

/// The searches for servers, for one storage each or for all servers, and those who wait for their answers.
/// A caller that asks while such a search is running takes part in it. Thread-safe.
class VantrelSearches {
  public:
    using Microseconds = Vantrel::CoTime::Microseconds;

    /// A search is over when no reply has come for QUIET_MS, after at least MIN_WAIT_MS and at most
    /// MAX_WAIT_MS. What is known is as good as searched for until SEARCH_VALID_MS after a search.
    static constexpr unsigned QUIET_MS = 200;
    static constexpr unsigned MIN_WAIT_MS = 300;
    static constexpr unsigned MAX_WAIT_MS = 2000;
    static constexpr unsigned SEARCH_VALID_MS = 5000;

    VantrelSearches();

    /// Takes part in the search for a storage, or for all servers when `storageId` is empty, until it is
    /// over, `latest` or `done`. Calls `send` for a new search, or for one that servers which came up since
    /// have not heard. Returns when the search began. Both functions are called without a lock.
    Microseconds wait(const std::string& storageId, Microseconds latest, const std::function<void()>& send,
                      const std::function<bool()>& done) CO_EXCLUDES(mutex_);

    /// A search for all servers is being sent, without waiting for it. The next wait takes part in it.
    void beginForAll() CO_EXCLUDES(mutex_);
    /// Whether a search for all servers need not be waited for, since the last one is over and fresh. The
    /// caller then sends another one, which keeps it fresh.
    bool renewForAll() CO_EXCLUDES(mutex_);

    /// A server has answered.
    void noteReply() CO_EXCLUDES(mutex_);
    /// Makes every wait ask its `done` again.
    void recheck() CO_EXCLUDES(mutex_);
    /// Ends every wait, those that begin later at once.
    void stop() CO_EXCLUDES(mutex_);

  private:
    struct Search {
        Microseconds startedAt;
        bool over = false;
        unsigned callers = 0;  ///< who wait for it
    };
    using SearchPtr = std::shared_ptr<Search>;

    SearchPtr join(const std::string& storageId, Microseconds now) CO_REQUIRES(mutex_);
    void leave(const std::string& storageId, const SearchPtr& search) CO_REQUIRES(mutex_);
    void waitFor(Search& search, Microseconds latest, const std::function<bool()>& done) CO_EXCLUDES(mutex_);
    bool isRunning(const Search& search, Microseconds now) const CO_REQUIRES(mutex_);
    Microseconds endOf(const Search& search) const CO_REQUIRES(mutex_);

    Vantrel::CoMutex mutex_;
    Vantrel::CoCondition changed_;
    std::uint64_t changes_ CO_GUARDED_BY(mutex_) = 0;  ///< counts what `recheck` was called for
    bool stopped_ CO_GUARDED_BY(mutex_) = false;
    std::map<std::string, SearchPtr> searches_ CO_GUARDED_BY(mutex_);  ///< the latest, by storage id
    Microseconds lastForAllAt_ CO_GUARDED_BY(mutex_);
    Microseconds lastReplyAt_ CO_GUARDED_BY(mutex_) = 0;
};
