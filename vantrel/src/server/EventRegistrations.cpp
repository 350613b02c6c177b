#include "EventRegistrations.h"

#include <limits>

namespace vantreld {

namespace {

template <typename Map, typename Key, typename Value>
bool erasePair(Map& map, const Key& key, const Value& value) {
    const auto found = map.find(key);
    if (found == map.end() || found->second.erase(value) == 0) return false;
    if (found->second.empty()) map.erase(found);
    return true;
}

}  // namespace

bool EventRegistrations::add(const Target& target, std::int64_t node) {
    if (!byNode_[node].insert(target).second) return false;
    byTarget_[target].insert(node);
    ++size_;
    return true;
}

void EventRegistrations::remove(const Target& target, std::int64_t node) {
    if (!erasePair(byNode_, node, target)) return;
    erasePair(byTarget_, target, node);
    --size_;
}

EventRegistrations::ByTarget::iterator EventRegistrations::removeAll(ByTarget::iterator target) {
    for (const std::int64_t node : target->second) erasePair(byNode_, node, target->first);
    size_ -= target->second.size();
    return byTarget_.erase(target);
}

void EventRegistrations::removeConnection(const Target& target) {
    const auto found = byTarget_.find(target);
    if (found != byTarget_.end()) removeAll(found);
}

std::size_t EventRegistrations::removeClient(ClientId client) {
    const std::size_t before = size_;
    auto target = byTarget_.lower_bound({client, std::numeric_limits<int>::min()});
    while (target != byTarget_.end() && target->first.client == client) target = removeAll(target);
    return before - size_;
}

bool EventRegistrations::has(const Target& target, std::int64_t node) const {
    const auto found = byNode_.find(node);
    return found != byNode_.end() && found->second.count(target) != 0;
}

bool EventRegistrations::hasClient(ClientId client) const {
    const auto first = byTarget_.lower_bound({client, std::numeric_limits<int>::min()});
    return first != byTarget_.end() && first->first.client == client;
}

const std::set<EventRegistrations::Target>* EventRegistrations::targets(std::int64_t node) const {
    const auto found = byNode_.find(node);
    return found == byNode_.end() ? nullptr : &found->second;
}

}  // namespace vantreld
