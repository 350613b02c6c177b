#pragma once

#include <memory>
#include <string>
#include <vector>

#include "CoTime.h"
#include "VantrelConnectionCache.h"
#include "VantrelDaemonInfoMgr.h"

class VantrelDaemonInfo;

/// Remembers which other server holds a frame, and the connections to these servers. Entries are never
/// removed, only overwritten: first one with the same frame id, else a free one, else the least recently
/// used. The connection of an overwritten entry stays with the connection cache. Thread safety: one thread at
/// a time, but `stop`, which any thread may call.
class VantrelRedirectionsCache {
  public:
    class Entry;

    /// With a capacity of 0 nothing is remembered.
    explicit VantrelRedirectionsCache(unsigned capacity);
    VantrelRedirectionsCache(const VantrelRedirectionsCache&) = delete;
    VantrelRedirectionsCache& operator=(const VantrelRedirectionsCache&) = delete;
    ~VantrelRedirectionsCache();

    /// The connection for a frame id: that to the server it was redirected to, not yet connected perhaps, or
    /// `fallback`. That counts as a use of the entry. Valid until the next call.
    VantrelRawDataClientConnection* find(const std::string& key, VantrelRawDataClientConnection* fallback);
    /// Records that `target` holds the frame `key`.
    void add(const std::string& key, const VantrelDaemonInfo& target);

    /// What `add` recorded for the frame id, or null: nothing, or a server that could not be reached since.
    /// Valid until the next call. Does not count as a use.
    const VantrelDaemonInfo* target(const std::string& key);

    /// Ends the operation in progress on any of its connections.
    void stop() { connections_.stop(); }
    /// Closes its connections.
    void disconnect() { connections_.disconnect(); }

  private:
    Entry* entryOf(const std::string& key);
    Entry& victim();

    std::vector<Entry> entries_;          // never resized
    VantrelConnectionCache connections_;  // goes first: it connects through the entries
};

/// One slot: the holder through which a connection learns where the target is. Belongs to its cache.
class VantrelRedirectionsCache::Entry : public VantrelDaemonInfoMgr {
  public:
    Entry();
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    ~Entry() override;

    bool getDaemonInfo(const VantrelDaemonInfo*& info) override;
    /// The target could not be reached: until it is named again, the frame is not looked for there.
    void clearDaemonInfo() override { target_.reset(); }
    const char* lastError() const override;

  private:
    friend class VantrelRedirectionsCache;

    bool inUse_ = false;
    std::string key_;
    std::unique_ptr<VantrelDaemonInfo> target_;  // apart, since a record is large and most slots stay free
    Vantrel::CoTime::Microseconds lastUse_ = 0;
};
