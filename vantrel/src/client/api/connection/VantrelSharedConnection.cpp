#include "VantrelSharedConnection.h"

#include "CoException.h"
#include "CoTime.h"
#include "VantrelInitCounter.h"
#include "VantrelSettings.h"

struct VantrelClientConnection::Shared::Holder {
    std::mutex mutex;  // guards cache
    std::shared_ptr<Cache> cache;
};

VantrelClientConnection::Shared::Holder& VantrelClientConnection::Shared::holder() {
    // Never destroyed: a handle may live until after the static objects of the process are gone.
    static auto* const holder = new Holder;
    return *holder;
}

void VantrelClientConnection::Shared::init() {
    auto cache = std::make_shared<Cache>(
        static_cast<std::size_t>(VantrelSettings::sharedConnections.get()),
        VantrelSettings::sharedConnectionsIdleSec.get() * Vantrel::CoTime::PER_SECOND);
    const std::lock_guard<std::mutex> lock(holder().mutex);
    holder().cache = std::move(cache);
}

void VantrelClientConnection::Shared::uninit() {
    std::shared_ptr<Cache> cache;
    {
        const std::lock_guard<std::mutex> lock(holder().mutex);
        cache = std::move(holder().cache);
    }
    if (!cache) return;
    cache->forEach([](VantrelClientConnection& connection) { connection.disconnect(); });
    cache->reset();
}

void VantrelClientConnection::Shared::releaseUnusedConnections(bool all) {
    std::shared_ptr<Cache> cache;
    {
        const std::lock_guard<std::mutex> lock(holder().mutex);
        cache = holder().cache;
    }
    if (!cache) return;
    if (all) {
        cache->reset();
    } else {
        cache->dropUnused();
    }
}

void VantrelClientConnection::Shared::reset(const VantrelServerId* serverId) {
    reference_.reset();
    if (!serverId) return;
    std::shared_ptr<Cache> cache;
    {
        const std::lock_guard<std::mutex> lock(holder().mutex);
        cache = holder().cache;
    }
    if (!cache) throw Vantrel::CoException(VantrelInitCounter::NOT_INITIALIZED);
    reference_ = cache->get(
        *serverId, [](const VantrelServerId& id) { return std::make_unique<VantrelClientConnection>(id); });
}
