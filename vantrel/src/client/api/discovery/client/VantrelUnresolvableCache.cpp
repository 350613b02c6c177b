#include "VantrelUnresolvableCache.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

#include "CoIoTcpDescriptor.h"
#include "CoPerProcess.h"
#include "VantrelDaemonHost.h"
#include "VantrelMulticastProtocol.h"
#include "VantrelSettings.h"

using Vantrel::CoIoTcpDescriptor;
using Vantrel::CoNetworkDispatcher;

namespace {

constexpr std::size_t EVICTED_SHARE = 8;

bool hasIP(const VantrelDaemonInfo& info, const char* ip) {
    const auto isThat = [ip](const VantrelStr& own) {
        return std::strcmp(CoIoTcpDescriptor::skipIPv4InIPv6Prefix(own.c_str()), ip) == 0;
    };
    return std::any_of(info.metadataIPs().begin(), info.metadataIPs().end(), isThat) ||
           std::any_of(info.dataIPs().begin(), info.dataIPs().end(), isThat);
}

/// Host names are compared without their domains, which may be given or not.
bool isSameName(const char* left, const char* right) {
    const std::size_t leftSize = std::strcspn(left, ".");
    return leftSize > 0 && leftSize == std::strcspn(right, ".") && ::strncasecmp(left, right, leftSize) == 0;
}

}  // namespace

VantrelUnresolvableCache& VantrelUnresolvableCache::get() {
    return Vantrel::CoPerProcess<VantrelUnresolvableCache>::get();
}

VantrelUnresolvableCache::VantrelUnresolvableCache()
    : capacity_(static_cast<std::size_t>(VantrelSettings::unresolvableCacheSize.get())),
      evictedAtOnce_(std::max<std::size_t>(1, capacity_ / EVICTED_SHARE)),
      cache_(capacity_, VantrelSettings::unresolvableCacheSec.get() * Vantrel::CoTime::PER_SECOND,
             Vantrel::CoCacheExpiry::Lifetime) {}

// --- Keys ---

VantrelUnresolvableCache::Key VantrelUnresolvableCache::keyOf(const std::string& ip, int port) {
    Key key;
    key.port = port;
    key.ip = CoIoTcpDescriptor::skipIPv4InIPv6Prefix(ip.c_str());
    return key;
}

VantrelUnresolvableCache::Key VantrelUnresolvableCache::keyOf(const VantrelServerId& serverId) {
    Key key;
    key.serverId = serverId;
    return key;
}

/// Whether a server id denotes the record's server.
bool VantrelUnresolvableCache::denotes(const Key& key, const VantrelDaemonInfo& info) {
    const VantrelServerId& id = key.serverId;
    if (*id.getStorageId()) return std::strcmp(id.getStorageId(), info.getStorageId()) == 0;
    const int port = info.getNodePort() != 0 ? info.getNodePort() : int{VantrelDaemonInfo::DEFAULT_NODE_PORT};
    if (id.getPort() != 0 && id.getPort() != port) return false;
    if (*id.getDB() && std::strcmp(id.getDB(), info.getDatabase()) != 0) return false;
    const char* const address = CoIoTcpDescriptor::skipIPv4InIPv6Prefix(id.getIPAddr());
    return *address && (hasIP(info, address) || isSameName(address, info.getHostName()) ||
                        (key.isThisHost && VantrelDaemonHost::isLocal(info)));
}

// --- Asking and adding ---

bool VantrelUnresolvableCache::holds(const std::string& ip, int port) {
    return holds(keyOf(ip, port));
}

bool VantrelUnresolvableCache::holds(const VantrelServerId& serverId) {
    return holds(keyOf(serverId));
}

bool VantrelUnresolvableCache::holds(const Key& key) {
    if (cache_.size() == 0) return false;
    CoNetworkDispatcher::checkForChanges();  // there may be no discovery that does it
    return static_cast<bool>(cache_.find(key));
}

void VantrelUnresolvableCache::add(const std::string& ip, int port) {
    if (!ip.empty()) add(keyOf(ip, port));
}

void VantrelUnresolvableCache::add(const VantrelServerId& serverId) {
    Key key = keyOf(serverId);
    key.isThisHost = VantrelOS::isLocalIP(serverId.getIPAddr());
    add(key);
}

void VantrelUnresolvableCache::add(const Key& key) {
    std::call_once(observing_, [this] { observe(); });
    CoNetworkDispatcher::checkForChanges();  // an earlier change says nothing against this entry
    if (cache_.size() >= capacity_ && !cache_.find(key)) {
        std::size_t left = evictedAtOnce_;
        cache_.removeIf([&left](const Key&) { return left > 0 && left-- > 0; });  // least recently used first
    }
    cache_.get(key, [](const Key&) { return std::make_unique<Mark>(); });
}

void VantrelUnresolvableCache::observe() {
    VantrelMulticastClient::addObserver(this);
    CoNetworkDispatcher::addObserver(CoNetworkDispatcher::Role::Metadata, this);
    CoNetworkDispatcher::addObserver(CoNetworkDispatcher::Role::Data, this);
}

// --- Removing ---

void VantrelUnresolvableCache::remove(const std::string& ip, int port) {
    cache_.remove(keyOf(ip, port));
}

void VantrelUnresolvableCache::remove(const VantrelServerId& serverId) {
    cache_.remove(keyOf(serverId));
}

void VantrelUnresolvableCache::removeAllOf(const VantrelDaemonInfo& info) {
    cache_.removeIf([&info](const Key& key) {
        return key.ip.empty() ? denotes(key, info) : hasIP(info, key.ip.c_str());
    });
}

void VantrelUnresolvableCache::removeIdsOf(const VantrelDaemonInfo& info) {
    if (cache_.size() == 0) return;  // as a rule: this runs for every announcement
    cache_.removeIf([&info](const Key& key) { return key.ip.empty() && denotes(key, info); });
}

void VantrelUnresolvableCache::serverEvent(VantrelMulticastClient::Event event,
                                           const VantrelDaemonInfo& info) {
    if (event != VantrelMulticastClient::Event::Removed) removeAllOf(info);
}

void VantrelUnresolvableCache::interfacesChanged(CoNetworkDispatcher::Role) {
    cache_.reset();
}
