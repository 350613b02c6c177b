#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <tuple>
#include <unordered_map>

namespace vantreld {

/// Which connections of which clients want the events of which node.
/// Not thread-safe.
class EventRegistrations {
  public:
    using ClientId = unsigned;

    struct Target {
        ClientId client;
        int connection;
        friend bool operator<(const Target& a, const Target& b) {
            return std::tie(a.client, a.connection) < std::tie(b.client, b.connection);
        }
    };

    /// False when it is there already.
    bool add(const Target& target, std::int64_t node);
    // Removing what is not there does nothing.
    void remove(const Target& target, std::int64_t node);
    void removeConnection(const Target& target);
    /// Returns how many there were.
    std::size_t removeClient(ClientId client);

    std::size_t size() const { return size_; }
    bool has(const Target& target, std::int64_t node) const;
    bool hasClient(ClientId client) const;
    /// Null when none wants the node's events. Valid until the next change.
    const std::set<Target>* targets(std::int64_t node) const;

  private:
    using Nodes = std::set<std::int64_t>;
    using ByTarget = std::map<Target, Nodes>;

    ByTarget::iterator removeAll(ByTarget::iterator target);

    // Both ways of looking at the same pairs; neither keeps an empty set.
    std::unordered_map<std::int64_t, std::set<Target>> byNode_;
    ByTarget byTarget_;
    std::size_t size_ = 0;
};

}  // namespace vantreld
