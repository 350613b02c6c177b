#include "VantrelConnectionCache.h"

#include <algorithm>

#include "CoDeferral.h"
#include "VantrelDaemonInfo.h"
#include "VantrelDaemonInfoMgr.h"

using Vantrel::CoDeferral;

VantrelRawDataClientConnection* VantrelConnectionCache::get(VantrelDaemonInfoMgr& holder) {
    const VantrelDaemonInfo* info = nullptr;
    if (!holder.getDaemonInfo(info)) return nullptr;
    const int port = info->getFramePort();
    const CoDeferral deferral;
    const Vantrel::CoLock lock(mutex_);
    auto found = slots_.find(port);
    if (found == slots_.end()) {
        if (slots_.size() >= MAX_CONNECTIONS) forgetOldest();
        found = slots_.try_emplace(port, holder).first;
    }
    Slot& slot = found->second;
    slot.lastUse = ++uses_;
    // Also while it is open: the peer may have closed it, and what it was made for, or used for last, may
    // have come to stand for another server.
    slot.connection.setServer(holder);
    return &slot.connection;
}

void VantrelConnectionCache::forgetOldest() {
    const auto olderUse = [](const auto& a, const auto& b) { return a.second.lastUse < b.second.lastUse; };
    slots_.erase(std::min_element(slots_.begin(), slots_.end(), olderUse));
}

void VantrelConnectionCache::stop() {
    const CoDeferral deferral;
    const Vantrel::CoLock lock(mutex_);
    for (auto& [port, slot] : slots_) slot.connection.stop();
}

void VantrelConnectionCache::disconnect() {
    const CoDeferral deferral;
    const Vantrel::CoLock lock(mutex_);
    for (auto& [port, slot] : slots_) slot.connection.disconnect();
}
