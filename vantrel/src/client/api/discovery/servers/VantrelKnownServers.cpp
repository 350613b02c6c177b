#include "VantrelKnownServers.h"

#include "CoIoTcpDescriptor.h"
#include "CoMsg.h"

using Vantrel::CoIoTcpDescriptor;

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

}  // namespace

// --- Keys ---

bool VantrelKnownServers::Identity::operator==(const Identity& other) const {
    return kind == other.kind && text == other.text && database == other.database;
}

std::size_t VantrelKnownServers::IdentityHash::operator()(const Identity& identity) const {
    const std::uint64_t database = identity.database.empty() ? 0 : hash(identity.database);
    return static_cast<std::size_t>(hash(identity.text) + 3 * database +
                                    static_cast<std::uint64_t>(identity.kind));
}

/// Visits what identifies the server until `visit` returns true; whether it did.
template <typename Visit>
bool VantrelKnownServers::anyIdentity(const VantrelDaemonInfo& info, Visit visit) {
    if (*info.getStorageId()) return visit(Identity{Identity::Kind::Storage, {}, info.getStorageId()});
    const std::string_view database = info.getDatabase();
    if (*info.getHostUUID()) return visit(Identity{Identity::Kind::Host, database, info.getHostUUID()});
    return anyAddress(info, [&](std::string_view address) {
        return visit(Identity{Identity::Kind::Address, database, address});
    });
}

void VantrelKnownServers::index(Position position) {
    const VantrelDaemonInfo& info = position->info;
    anyIdentity(info, [&](const Identity& identity) {
        identities_.emplace(identity, position);
        return false;
    });
    anyAddress(info, [&](std::string_view address) {
        addresses_[std::string(address)].insert(position);
        return false;
    });
}

void VantrelKnownServers::unindex(Position position) {
    const VantrelDaemonInfo& info = position->info;
    anyIdentity(info, [&](const Identity& identity) {
        const auto found = identities_.find(identity);
        if (found != identities_.end() && found->second == position) identities_.erase(found);
        return false;
    });
    anyAddress(info, [&](std::string_view address) {
        const auto entry = addresses_.find(std::string(address));
        if (entry == addresses_.end()) return false;
        entry->second.erase(position);
        if (entry->second.empty()) addresses_.erase(entry);
        return false;
    });
}

// --- Changing ---

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

VantrelKnownServers::Change VantrelKnownServers::add(const VantrelDaemonInfo& info) {
    const Position known = findSame(info);
    if (known == records_.end()) {
        const bool identified = anyIdentity(info, [](const Identity&) { return true; });
        if (!identified || !hasRoom()) return Change::Refused;
        insert(info)->info.stampWithCurrentTime();
        return Change::Added;
    }
    const bool changed = !known->info.hasSameContents(info);
    const Position position = changed ? replace(known, info) : known;
    position->info.stampWithCurrentTime();
    return changed ? Change::Changed : Change::None;
}

bool VantrelKnownServers::hasRoom() {
    if (records_.size() < capacity_) return true;
    if (!toldFull_) {
        toldFull_ = true;
        CO_MSG_WARNING("Vantrel Multicast: %zu servers are known, ignoring further ones.", records_.size());
    }
    return false;
}

VantrelKnownServers::Position VantrelKnownServers::insert(const VantrelDaemonInfo& info) {
    const Position position = records_.insert(Record{info, ++lastNumber_});
    index(position);
    return position;
}

VantrelKnownServers::Position VantrelKnownServers::replace(Position position, const VantrelDaemonInfo& info) {
    const bool moves = position->info < info || info < position->info;
    unindex(position);
    if (moves) {
        Records::node_type node = records_.extract(position);
        node.value().info = info;
        position = records_.insert(std::move(node));
    } else {
        position->info = info;
    }
    index(position);
    return position;
}

bool VantrelKnownServers::stamp(const VantrelDaemonInfo& info) {
    const Position position = findSame(info);
    if (position == records_.end()) return false;
    position->info.stampWithCurrentTime();
    return true;
}

void VantrelKnownServers::takeOut(Position position, std::vector<VantrelDaemonInfo>& removed) {
    unindex(position);
    removed.push_back(std::move(records_.extract(position).value().info));
    toldFull_ = false;
}

void VantrelKnownServers::remove(const VantrelServerId& serverId, std::vector<VantrelDaemonInfo>& removed) {
    for (const Position position : findAll(serverId, records_.size())) takeOut(position, removed);
}

void VantrelKnownServers::removeOlder(Vantrel::CoTime::Microseconds threshold,
                                      std::vector<VantrelDaemonInfo>& removed) {
    for (Position next = records_.begin(); next != records_.end();) {
        const Position position = next++;
        if (position->info.getLastUpdate() < threshold) takeOut(position, removed);
    }
}

void VantrelKnownServers::assign(const std::vector<VantrelDaemonInfo>& servers) {
    identities_.clear();
    addresses_.clear();
    records_.clear();
    toldFull_ = false;
    for (const VantrelDaemonInfo& info : servers) {
        const Position known = findSame(info);
        if (known != records_.end()) {
            replace(known, info);
        } else if (anyIdentity(info, [](const Identity&) { return true; }) && hasRoom()) {
            insert(info);
        }
    }
}

// --- Asking ---

/// The records that a server id denotes, at most `limit`.
std::vector<VantrelKnownServers::Position> VantrelKnownServers::findAll(const VantrelServerId& serverId,
                                                                        std::size_t limit) const {
    std::vector<Position> all;
    if (*serverId.getStorageId()) {
        const auto found = identities_.find(Identity{Identity::Kind::Storage, {}, serverId.getStorageId()});
        if (found != identities_.end()) all.push_back(found->second);
        return all;
    }
    const char* const address = CoIoTcpDescriptor::skipIPv4InIPv6Prefix(serverId.getIPAddr());
    if (!*address) return all;
    const auto entry = addresses_.find(address);
    if (entry == addresses_.end()) return all;
    const std::string_view database = serverId.getDB();
    const int port = serverId.getPort();
    for (const Position position : entry->second) {
        if (all.size() == limit) break;
        const bool isPort = port == 0 || port == position->info.getNodePort();
        if (isPort && (database.empty() || database == position->info.getDatabase())) all.push_back(position);
    }
    return all;
}

const VantrelDaemonInfo* VantrelKnownServers::find(const VantrelServerId& serverId) const {
    const std::vector<Position> found = findAll(serverId, 1);
    return found.empty() ? nullptr : &found.front()->info;
}

const VantrelDaemonInfo* VantrelKnownServers::findStorage(const char* storageId) const {
    VantrelServerId id;
    id.setStorageId(storageId);
    return find(id);
}

void VantrelKnownServers::copyTo(std::vector<VantrelDaemonInfo>& servers, const char* database) const {
    const std::string_view wanted = database ? database : "";
    for (const Record& record : records_) {
        if (wanted.empty() || wanted == record.info.getDatabase()) servers.push_back(record.info);
    }
}
