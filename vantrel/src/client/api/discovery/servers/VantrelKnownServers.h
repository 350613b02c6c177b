#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "CoTime.h"
#include "VantrelDaemonInfo.h"

/// A server that is known, and when it was last heard of. Copies share the record, which does not change; its
/// own last update is not used.
struct VantrelKnownServer {
    std::shared_ptr<const VantrelDaemonInfo> info;
    Vantrel::CoTime::Microseconds lastUpdate = 0;

    /// A copy of the record, with its last update.
    VantrelDaemonInfo record() const;
};

/// The servers that one party of discovery knows, sorted by display name, then database, then age of the
/// entry in the list. A record is found by what identifies its server without walking the list, however the
/// texts of unknown senders are chosen. No host name is ever looked up. Not thread-safe.
///
/// Two records are of the same server when they have the same storage id; without storage ids, when they have
/// the same database and the same host UUID; without those either, when they have the same database and share
/// an address. Addresses are compared as text, an IPv4 address in IPv6 form counts as IPv4.
class VantrelKnownServers {
  public:
    using Microseconds = Vantrel::CoTime::Microseconds;
    using Servers = std::vector<VantrelKnownServer>;

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
    /// Takes out every record that the id denotes.
    Servers remove(const VantrelServerId& serverId);
    /// Takes out what was last stamped before `threshold`, in order.
    Servers removeOlder(Microseconds threshold);
    /// Replaces everything. The records keep their last update; of several records of one server the last
    /// one is kept.
    void assign(const std::vector<VantrelDaemonInfo>& servers);

    /// The servers that an id denotes, in order. An id with a storage id means that storage. Without one it
    /// means an address, compared as text, and the port and the database where the id has them.
    Servers find(const VantrelServerId& serverId) const;
    /// All of them, in order; with a `database` that is neither null nor empty only those of exactly that.
    Servers list(const char* database = nullptr) const;
    std::size_t size() const { return records_.size(); }

  private:
    struct Record {
        mutable VantrelKnownServer server;  ///< changed in place; a new name or database is a new place
        mutable std::shared_ptr<const VantrelDaemonInfo> indexed;  ///< whose texts the keys are views of
        std::uint64_t number;                                      ///< of those that ever took a place
    };
    struct RecordOrder {
        bool operator()(const Record& left, const Record& right) const {
            if (*left.server.info < *right.server.info) return true;
            return left.number < right.number && !(*right.server.info < *left.server.info);
        }
    };
    using Records = std::set<Record, RecordOrder>;
    using Position = Records::const_iterator;

    /// Kind, text and database (empty for a storage) of what a record identifies its server by. The texts are
    /// views of those of Record::indexed, as in AddressKey.
    enum class Kind : unsigned char { Storage, Host, Address };
    using Identity = std::tuple<Kind, std::string_view, std::string_view>;
    /// An address and the number of a record that has it: many may have the same.
    using AddressKey = std::pair<std::string_view, std::uint64_t>;

    template <typename Visit>
    static bool anyIdentity(const VantrelDaemonInfo& info, Visit visit);
    static bool identifiesServer(const VantrelDaemonInfo& info);
    Position findSame(const VantrelDaemonInfo& info) const;
    std::vector<Position> findAll(const VantrelServerId& serverId) const;
    bool hasRoom();
    void insert(const VantrelDaemonInfo& info, Microseconds lastUpdate);
    void replace(Position position, const VantrelDaemonInfo& info, Microseconds lastUpdate);
    VantrelKnownServer takeOut(Position position);
    void index(Position position);
    void unindex(Position position);

    const std::size_t capacity_;
    bool loggedFull_ = false;
    Records records_;
    std::uint64_t lastNumber_ = 0;
    std::map<Identity, Position> identities_;  ///< each belongs to one record: the first that came with it
    std::map<AddressKey, Position> addresses_;
};
