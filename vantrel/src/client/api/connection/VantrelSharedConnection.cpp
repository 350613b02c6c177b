#include "VantrelSharedConnection.h"

#include <utility>

#include "CoException.h"
#include "CoMutex.h"
#include "CoPerProcess.h"
#include "CoTime.h"
#include "VantrelInitCounter.h"
#include "VantrelSettings.h"

struct VantrelClientConnection::Shared::Holder {
    /// A child of an initialised process is initialised, too, but shares no connection with its parent.
    explicit Holder(Holder* parents)
        : cache(parents && VantrelInitCounter::isInitialized() ? makeCache() : nullptr) {}

    Vantrel::CoMutex mutex;
    std::shared_ptr<Cache> cache CO_GUARDED_BY(mutex);
};

VantrelClientConnection::Shared::Holder& VantrelClientConnection::Shared::holder() {
    return Vantrel::CoPerProcess<Holder>::get();
}

std::shared_ptr<VantrelClientConnection::Shared::Cache> VantrelClientConnection::Shared::makeCache() {
    return std::make_shared<Cache>(
        static_cast<std::size_t>(VantrelSettings::sharedConnections.get()),
        VantrelSettings::sharedConnectionsIdleSec.get() * Vantrel::CoTime::PER_SECOND);
}

std::shared_ptr<VantrelClientConnection::Shared::Cache> VantrelClientConnection::Shared::exchangeCache(
    std::shared_ptr<Cache> cache) {
    Holder& ours = holder();
    const Vantrel::CoLock lock(ours.mutex);
    return std::exchange(ours.cache, std::move(cache));
}

std::shared_ptr<VantrelClientConnection::Shared::Cache> VantrelClientConnection::Shared::currentCache() {
    Holder& ours = holder();
    const Vantrel::CoLock lock(ours.mutex);
    return ours.cache;
}

void VantrelClientConnection::Shared::init() {
    exchangeCache(makeCache());
}

void VantrelClientConnection::Shared::uninit() {
    const std::shared_ptr<Cache> cache = exchangeCache(nullptr);
    if (!cache) return;
    cache->forEach([](VantrelClientConnection& connection) { connection.disconnect(); });
    cache->reset();
}

void VantrelClientConnection::Shared::releaseUnusedConnections(bool all) {
    const std::shared_ptr<Cache> cache = currentCache();
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
    const std::shared_ptr<Cache> cache = currentCache();
    if (!cache) throw Vantrel::CoException(VantrelInitCounter::NOT_INITIALIZED);
    reference_ = cache->get(
        *serverId, [](const VantrelServerId& id) { return std::make_unique<VantrelClientConnection>(id); });
}
