#include "VantrelKnownServers.h"

#include <algorithm>
#include <utility>

#include "CoIoTcpDescriptor.h"
#include "CoMsg.h"

using Vantrel::CoIoTcpDescriptor;
using Vantrel::CoTime;

namespace {

/// Visits the metadata addresses, then the data addresses, until `visit` returns true.
template <typename Visit>
bool anyAddress(const VantrelDaemonInfo& info, Visit visit) {
    for (const VantrelIPList* list : {&info.metadataIPs(), &info.dataIPs()}) {
        for (const VantrelStr& ip : *list) {
            if (visit(std::string_view(CoIoTcpDescriptor::skipIPv4InIPv6Prefix(ip.c_str())))) return true;
        }
    }
    return false;
}

/// Whether both records are found by the same texts.
bool hasSameKeys(const VantrelDaemonInfo& left, const VantrelDaemonInfo& right) {
    const auto areEqual = [](std::string_view one, std::string_view other) { return one == other; };
    return areEqual(left.getStorageId(), right.getStorageId()) &&
           areEqual(left.getHostUUID(), right.getHostUUID()) &&
           areEqual(left.getDatabase(), right.getDatabase()) && left.metadataIPs() == right.metadataIPs() &&
           left.dataIPs() == right.dataIPs();
}

}  // namespace

// --- Keys ---

/// Visits what identifies the server until `visit` returns true; whether it did.
template <typename Visit>
bool VantrelKnownServers::anyIdentity(const VantrelDaemonInfo& info, Visit visit) {
    if (*info.getStorageId()) return visit(Identity{Kind::Storage, info.getStorageId(), {}});
    const std::string_view database = info.getDatabase();
    if (*info.getHostUUID()) return visit(Identity{Kind::Host, info.getHostUUID(), database});
    return anyAddress(info, [&](std::string_view address) {
        return visit(Identity{Kind::Address, address, database});
    });
}

void VantrelKnownServers::index(Position position) {
    position->indexed = position->server.info;
    const VantrelDaemonInfo& info = *position->indexed;
    anyIdentity(info, [&](const Identity& identity) {
        identities_.emplace(identity, position);
        return false;
    });
    anyAddress(info, [&](std::string_view address) {
        addresses_.emplace(AddressKey{address, position->number}, position);
        return false;
    });
}

void VantrelKnownServers::unindex(Position position) {
    const VantrelDaemonInfo& info = *position->indexed;
    anyIdentity(info, [&](const Identity& identity) {
        const auto found = identities_.find(identity);
        if (found != identities_.end() && found->second == position) identities_.erase(found);
        return false;
    });
    anyAddress(info, [&](std::string_view address) {
        addresses_.erase(AddressKey{address, position->number});
        return false;
    });
}

// --- Changing ---

VantrelDaemonInfo VantrelKnownServer::record() const {
    VantrelDaemonInfo copy = *info;
    copy.setLastUpdate(lastUpdate);
    return copy;
}

VantrelKnownServers::VantrelKnownServers(std::size_t capacity) : capacity_(capacity) {}

VantrelKnownServers::Position VantrelKnownServers::findSame(const VantrelDaemonInfo& info) const {
    Position position = records_.end();
    anyIdentity(info, [&](const Identity& identity) {
        const auto found = identities_.find(identity);
        if (found == identities_.end()) return false;
        position = found->second;
        return true;
    });
    return position;
}

bool VantrelKnownServers::identifiesServer(const VantrelDaemonInfo& info) {
    return anyIdentity(info, [](const Identity&) { return true; });
}

VantrelKnownServers::Change VantrelKnownServers::add(const VantrelDaemonInfo& info) {
    const Microseconds now = CoTime::getTime();
    const Position known = findSame(info);
    if (known == records_.end()) {
        if (!identifiesServer(info) || !hasRoom()) return Change::Refused;
        insert(info, now);
        return Change::Added;
    }
    if (known->server.info->hasSameContents(info)) {
        known->server.lastUpdate = now;
        return Change::None;
    }
    replace(known, info, now);
    return Change::Changed;
}

bool VantrelKnownServers::hasRoom() {
    if (records_.size() < capacity_) return true;
    if (!loggedFull_) {
        loggedFull_ = true;
        CO_MSG_WARNING("Vantrel Multicast: %zu servers are known, ignoring further ones.", records_.size());
    }
    return false;
}

void VantrelKnownServers::insert(const VantrelDaemonInfo& info, Microseconds lastUpdate) {
    const Record record{{std::make_shared<const VantrelDaemonInfo>(info), lastUpdate}, {}, ++lastNumber_};
    index(records_.insert(record).first);
}

void VantrelKnownServers::replace(Position position, const VantrelDaemonInfo& info, Microseconds lastUpdate) {
    const VantrelDaemonInfo& before = *position->server.info;
    const bool moves = before < info || info < before;
    VantrelKnownServer changed{std::make_shared<const VantrelDaemonInfo>(info), lastUpdate};
    if (!moves && hasSameKeys(*position->indexed, info)) {
        position->server = std::move(changed);
        return;
    }
    unindex(position);
    if (moves) {
        Records::node_type node = records_.extract(position);
        node.value().server = std::move(changed);
        node.value().number = ++lastNumber_;
        position = records_.insert(std::move(node)).position;
    } else {
        position->server = std::move(changed);
    }
    index(position);
}

bool VantrelKnownServers::stamp(const VantrelDaemonInfo& info) {
    const Position position = findSame(info);
    if (position == records_.end()) return false;
    position->server.lastUpdate = CoTime::getTime();
    return true;
}

VantrelKnownServer VantrelKnownServers::takeOut(Position position) {
    unindex(position);
    loggedFull_ = false;
    return std::move(records_.extract(position).value().server);
}

VantrelKnownServers::Servers VantrelKnownServers::remove(const VantrelServerId& serverId) {
    Servers removed;
    for (const Position position : findAll(serverId)) removed.push_back(takeOut(position));
    return removed;
}

VantrelKnownServers::Servers VantrelKnownServers::removeOlder(Microseconds threshold) {
    Servers removed;
    for (Position next = records_.begin(); next != records_.end();) {
        const Position position = next++;
        if (position->server.lastUpdate < threshold) removed.push_back(takeOut(position));
    }
    return removed;
}

void VantrelKnownServers::assign(const std::vector<VantrelDaemonInfo>& servers) {
    identities_.clear();
    addresses_.clear();
    records_.clear();
    loggedFull_ = false;
    for (const VantrelDaemonInfo& info : servers) {
        const Position known = findSame(info);
        if (known != records_.end()) {
            replace(known, info, info.getLastUpdate());
        } else if (identifiesServer(info) && hasRoom()) {
            insert(info, info.getLastUpdate());
        }
    }
}

// --- Asking ---

/// The records that a server id denotes, in the order of the list.
std::vector<VantrelKnownServers::Position> VantrelKnownServers::findAll(
    const VantrelServerId& serverId) const {
    std::vector<Position> all;
    if (*serverId.getStorageId()) {
        const auto found = identities_.find(Identity{Kind::Storage, serverId.getStorageId(), {}});
        if (found != identities_.end()) all.push_back(found->second);
        return all;
    }
    const std::string_view address = CoIoTcpDescriptor::skipIPv4InIPv6Prefix(serverId.getIPAddr());
    if (address.empty()) return all;
    const std::string_view database = serverId.getDB();
    const int port = serverId.getPort();
    for (auto entry = addresses_.lower_bound({address, 0});
         entry != addresses_.end() && entry->first.first == address; ++entry) {
        const VantrelDaemonInfo& info = *entry->second->server.info;
        const bool isPort = port == 0 || port == info.getNodePort();
        if (isPort && (database.empty() || database == info.getDatabase())) all.push_back(entry->second);
    }
    std::sort(all.begin(), all.end(),
              [](Position left, Position right) { return RecordOrder()(*left, *right); });
    return all;
}

VantrelKnownServers::Servers VantrelKnownServers::find(const VantrelServerId& serverId) const {
    Servers found;
    for (const Position position : findAll(serverId)) found.push_back(position->server);
    return found;
}

VantrelKnownServers::Servers VantrelKnownServers::list(const char* database) const {
    const std::string_view wanted = database ? database : "";
    Servers servers;
    if (wanted.empty()) servers.reserve(records_.size());
    for (const Record& record : records_) {
        if (wanted.empty() || wanted == record.server.info->getDatabase()) servers.push_back(record.server);
    }
    return servers;
}
