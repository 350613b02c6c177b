#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "CoTime.h"
#include "VantrelDaemonInfo.h"
#include "VantrelKeyedHash.h"

/// The servers that one party of discovery knows, sorted by display name, then database. A record is found by
/// what identifies its server without walking the list, so 10,000 servers cost no more per datagram than 100.
/// No host name is ever looked up: the records come from strangers. Not thread-safe.
///
/// Two records tell of the same server when they have the same storage id; without storage ids, when they
/// have the same database and the same host UUID; without those either, when they have the same database and
/// share an address. Addresses are compared as text, an IPv4 address in IPv6 form counts as IPv4.
class VantrelKnownServers {
  public:
    enum class Change {
        None,     ///< known and unchanged: only stamped
        Changed,  ///< known, with other contents
        Added,
        Refused  ///< it identifies no server, or the list is full
    };

    /// `capacity`: servers beyond it are refused, with one warning until there is room again.
    explicit VantrelKnownServers(std::size_t capacity);
    VantrelKnownServers(const VantrelKnownServers&) = delete;
    VantrelKnownServers& operator=(const VantrelKnownServers&) = delete;

    /// Takes a server in, stamped with the current time.
    Change add(const VantrelDaemonInfo& info);
    /// Stamps the record of the same server; false when it is not known.
    bool stamp(const VantrelDaemonInfo& info);
    /// Takes every record of the server out, and appends it to `removed`.
    void remove(const VantrelServerId& serverId, std::vector<VantrelDaemonInfo>& removed);
    /// Takes out what was last stamped before `threshold`, and appends it to `removed`, in order.
    void removeOlder(Vantrel::CoTime::Microseconds threshold, std::vector<VantrelDaemonInfo>& removed);
    /// Replaces everything. The records keep their last update; of several records of one server the last
    /// one is kept.
    void assign(const std::vector<VantrelDaemonInfo>& servers);

    /// The record of a server, null when it is not known; valid until the next change. An id with a storage
    /// id means that storage. Without one it means an address, compared as text, and the port and the
    /// database where the id has them; of several such servers it gives any one.
    const VantrelDaemonInfo* find(const VantrelServerId& serverId) const;
    /// Null for a null or empty id, too.
    const VantrelDaemonInfo* findStorage(const char* storageId) const;

    /// Appends all of them, in order, to `servers`; with a `database` that is neither null nor empty only
    /// those of exactly that.
    void copyTo(std::vector<VantrelDaemonInfo>& servers, const char* database) const;
    std::size_t size() const { return records_.size(); }

  private:
    struct Record {
        mutable VantrelDaemonInfo info;  ///< stamped in place; a new name or database is a new place
        std::uint64_t number;            ///< of those that ever came
    };
    struct RecordOrder {
        bool operator()(const Record& left, const Record& right) const { return left.info < right.info; }
    };
    using Records = std::multiset<Record, RecordOrder>;
    using Position = Records::const_iterator;
    struct PositionOrder {
        bool operator()(Position left, Position right) const { return left->number < right->number; }
    };
    /// Sorted, since strangers may put all their records under one address.
    using Positions = std::set<Position, PositionOrder>;

    /// One of the texts by which a record tells its server; a view of the record's own.
    struct Identity {
        enum class Kind : unsigned char { Storage, Host, Address };
        Kind kind;
        std::string_view database;  ///< empty for a storage
        std::string_view text;

        bool operator==(const Identity& other) const;
    };
    struct IdentityHash {
        std::size_t operator()(const Identity& identity) const;
        VantrelKeyedHash hash;
    };
    struct TextHash {
        std::size_t operator()(const std::string& text) const { return static_cast<std::size_t>(hash(text)); }
        VantrelKeyedHash hash;
    };

    template <typename Visit>
    static bool anyIdentity(const VantrelDaemonInfo& info, Visit visit);
    Position findSame(const VantrelDaemonInfo& info) const;
    std::vector<Position> findAll(const VantrelServerId& serverId, std::size_t limit) const;
    bool hasRoom();
    Position insert(const VantrelDaemonInfo& info);
    Position replace(Position position, const VantrelDaemonInfo& info);
    void takeOut(Position position, std::vector<VantrelDaemonInfo>& removed);
    void index(Position position);
    void unindex(Position position);

    const std::size_t capacity_;
    bool toldFull_ = false;
    Records records_;
    std::uint64_t lastNumber_ = 0;
    /// Each identity belongs to one record: the first that came with it.
    std::unordered_map<Identity, Position, IdentityHash> identities_;
    /// The records that have an address.
    std::unordered_map<std::string, Positions, TextHash> addresses_;
};
