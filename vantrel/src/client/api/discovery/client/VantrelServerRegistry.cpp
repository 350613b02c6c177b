#include "VantrelServerRegistry.h"

#include <utility>

#include "CoDeferral.h"
#include "CoMsg.h"
#include "VantrelDaemonHost.h"
#include "VantrelMulticastTime.h"
#include "VantrelSettings.h"

using Vantrel::CoDeferral;
using Vantrel::CoLock;
using Vantrel::coPrintable;
using Vantrel::CoTime;
using Event = VantrelServerEvent;

namespace {

/// From this value of VANTREL_MULTICAST_DEBUG on, additions and updates are logged.
constexpr long DEBUG_CHANGES = 1;

}  // namespace

VantrelServerRegistry::VantrelServerRegistry(std::size_t capacity, Notify notify)
    : notify_(std::move(notify)), known_(capacity) {}

VantrelServerRegistry::Change VantrelServerRegistry::add(const VantrelDaemonInfo& info) {
    Change change;
    {
        const CoDeferral deferral;
        const CoLock lock(mutex_);
        change = known_.add(info);
    }
    if (change == Change::Refused) return change;
    if (VantrelSettings::multicastDebug.get() >= DEBUG_CHANGES) {
        CO_MSG_DEBUG("Vantrel Multicast: %s '%s'.", change == Change::Added ? "adding" : "updating",
                     coPrintable(info.getStorageId()).c_str());
    }
    noteLocalDaemon(info, change);
    if (change == Change::Added) notify_(Event::Added, info);
    if (change == Change::Changed) notify_(Event::Changed, info);
    return change;
}

void VantrelServerRegistry::noteLocalDaemon(const VantrelDaemonInfo& info, Change change) {
    const char* const uuid = info.getHostUUID();
    const bool local = *uuid && change != Change::None && VantrelDaemonHost::isLocal(info);
    const CoLock lock(mutex_);
    if (local) localUUID_ = uuid;
    if (*uuid && localUUID_ == uuid) localHeardAt_ = CoTime::getTime();
}

bool VantrelServerRegistry::missesLocalDaemon(Microseconds time) const {
    const CoLock lock(mutex_);
    return !localUUID_.empty() && localHeardAt_ < time;
}

void VantrelServerRegistry::remove(const VantrelServerId& serverId) {
    Servers removed;
    {
        const CoLock lock(mutex_);
        removed = known_.remove(serverId);
        for (const VantrelKnownServer& each : removed) {
            if (localUUID_ == each.info->getHostUUID()) localUUID_.clear();
        }
    }
    for (const VantrelKnownServer& each : removed) {
        CO_MSG_DEBUG("Vantrel Multicast: Removing '%s'.", coPrintable(each.info->getStorageId()).c_str());
        notify_(Event::Removed, *each.info);
    }
}

void VantrelServerRegistry::removeOlder(Microseconds threshold) {
    Servers removed;
    {
        const CoLock lock(mutex_);
        removed = known_.removeOlder(threshold);
    }
    for (const VantrelKnownServer& each : removed) {
        CO_MSG_NOTICE("Vantrel Multicast: discarding '%s' (%s < %s).",
                      coPrintable(each.info->getStorageId()).c_str(),
                      vantrelTimeText(each.lastUpdate).c_str(), vantrelTimeText(threshold).c_str());
        notify_(Event::Removed, *each.info);
    }
}

void VantrelServerRegistry::stamp(const VantrelDaemonInfo& info) {
    const CoLock lock(mutex_);
    known_.stamp(info);
}

void VantrelServerRegistry::assign(const std::vector<VantrelDaemonInfo>& servers) {
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    known_.assign(servers);
}

VantrelServerRegistry::Servers VantrelServerRegistry::find(const VantrelServerId& serverId) const {
    const CoLock lock(mutex_);
    return known_.find(serverId);
}

VantrelServerRegistry::Servers VantrelServerRegistry::list(const char* database) const {
    const CoLock lock(mutex_);
    return known_.list(database);
}
