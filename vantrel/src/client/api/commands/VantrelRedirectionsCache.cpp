#include "VantrelRedirectionsCache.h"

#include <algorithm>

#include "VantrelDaemonInfo.h"

using Vantrel::CoTime;

namespace {

constexpr const char* NO_TARGET = "The server that the frame was redirected to could not be reached.";

}  // namespace

VantrelRedirectionsCache::Entry::Entry() = default;
VantrelRedirectionsCache::Entry::~Entry() = default;

bool VantrelRedirectionsCache::Entry::getDaemonInfo(const VantrelDaemonInfo*& info) {
    if (!target_) return false;
    info = target_.get();
    return true;
}

const char* VantrelRedirectionsCache::Entry::lastError() const {
    return target_ ? "" : NO_TARGET;
}

VantrelRedirectionsCache::VantrelRedirectionsCache(unsigned capacity) : entries_(capacity) {}

VantrelRedirectionsCache::~VantrelRedirectionsCache() = default;

VantrelRawDataClientConnection* VantrelRedirectionsCache::find(const std::string& key,
                                                               VantrelRawDataClientConnection* fallback) {
    Entry* entry = entryOf(key);
    if (!entry) return fallback;
    entry->lastUse_ = CoTime::getTime();
    VantrelRawDataClientConnection* connection = connections_.get(*entry);
    return connection ? connection : fallback;
}

void VantrelRedirectionsCache::add(const std::string& key, const VantrelDaemonInfo& target) {
    if (entries_.empty()) return;
    Entry* known = entryOf(key);
    Entry& entry = known ? *known : victim();
    entry.target_ = std::make_unique<VantrelDaemonInfo>(target);
    entry.key_ = key;
    entry.inUse_ = true;
    entry.lastUse_ = CoTime::getTime();
}

const VantrelDaemonInfo* VantrelRedirectionsCache::target(const std::string& key) {
    const Entry* entry = entryOf(key);
    return entry ? entry->target_.get() : nullptr;
}

VantrelRedirectionsCache::Entry* VantrelRedirectionsCache::entryOf(const std::string& key) {
    const auto found = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const Entry& entry) { return entry.inUse_ && entry.key_ == key; });
    return found != entries_.end() ? &*found : nullptr;
}

VantrelRedirectionsCache::Entry& VantrelRedirectionsCache::victim() {
    // Free entries come before any used one; among equals the first in the array is taken.
    const auto before = [](const Entry& a, const Entry& b) {
        if (a.inUse_ != b.inUse_) return !a.inUse_;
        return a.inUse_ && a.lastUse_ < b.lastUse_;
    };
    return *std::min_element(entries_.begin(), entries_.end(), before);
}
