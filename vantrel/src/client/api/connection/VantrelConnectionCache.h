#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

#include "CoMutex.h"
#include "VantrelRawDataClientConnection.h"

/// Raw-data connections by frame port. Servers with the same frame port share one: the port alone is the key.
/// Owns the connections. Thread safety: one thread at a time, but `stop`, which any thread may call.
class VantrelConnectionCache {
  public:
    /// Connections kept; above this the one that was asked for longest ago is closed and forgotten. A server
    /// names the ports, so their number is not ours to trust.
    static constexpr std::size_t MAX_CONNECTIONS = 64;

    VantrelConnectionCache() = default;
    VantrelConnectionCache(const VantrelConnectionCache&) = delete;
    VantrelConnectionCache& operator=(const VantrelConnectionCache&) = delete;
    ~VantrelConnectionCache() = default;

    /// The connection of the holder's frame port, made when there is none; it is not yet connected then. It
    /// learns from `holder` where to connect when it is, or turns out to be, closed. Null when the holder has
    /// no record. Valid until the next call; `holder` must outlive the cache.
    VantrelRawDataClientConnection* get(VantrelDaemonInfoMgr& holder);

    /// Ends the operation in progress on any of the connections.
    void stop();
    /// Closes all connections and keeps them for later.
    void disconnect();

  private:
    struct Slot {
        explicit Slot(VantrelDaemonInfoMgr& holder) : connection(holder) {}

        VantrelRawDataClientConnection connection;
        std::uint64_t lastUse = 0;
    };

    void forgetOldest() CO_REQUIRES(mutex_);

    std::uint64_t uses_ = 0;
    Vantrel::CoMutex mutex_;  // of the slots, so that stop() finds them; their contents are the one thread's
    std::map<int, Slot> slots_ CO_GUARDED_BY(mutex_);  // by frame port
};
