#pragma once

#include "CoCache.h"
#include "VantrelClientConnection.h"

/// The reference through which handles share the connection to a server. Thread safety: one reference is used
/// by one thread at a time; the static operations may be called from any.
class VantrelClientConnection::Shared {
  public:
    /// Bring the process-wide cache up and down. Going down closes every connection; references still held go
    /// on working, their connection then belongs to them alone.
    static void init();
    static void uninit();
    /// Drops the connections without a reference; with `all` the whole cache.
    static void releaseUnusedConnections(bool all);

    Shared() = default;
    explicit Shared(const VantrelServerId& serverId) { reset(&serverId); }

    /// Releases the present connection and takes the one for `serverId` (null: none), creating it where
    /// needed. Throws Vantrel::CoException when the cache is not up.
    void reset(const VantrelServerId* serverId);

    VantrelClientConnection* get() const { return reference_.get(); }
    VantrelClientConnection* operator->() const { return get(); }
    bool operator==(const VantrelClientConnection* connection) const { return get() == connection; }

  private:
    using Cache = Vantrel::CoCache<VantrelServerId, VantrelClientConnection>;
    struct Holder;

    static Holder& holder();
    static std::shared_ptr<Cache> makeCache();
    static std::shared_ptr<Cache> currentCache();
    static std::shared_ptr<Cache> exchangeCache(std::shared_ptr<Cache> cache);

    Cache::Ref reference_;
};
