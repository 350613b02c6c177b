#include "VantrelIPList.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace {

std::string indexedKey(const char* key, unsigned index) {
    return key + std::to_string(index);
}

bool isLoopback(const VantrelStr& ip) {
    return VantrelOS::isLoopBackIP(ip.c_str());
}

bool isEmpty(const VantrelStr& ip) {
    return ip.isEmpty();
}

}  // namespace

bool VantrelIPList::set(unsigned index, const char* ip) {
    if (index >= MAX_SLOTS) return false;
    VantrelStr text(ip);  // may be that of a slot, which lies elsewhere when there are more of them
    if (index >= slots_.size()) slots_.resize(index + 1);
    slots_[index] = std::move(text);
    dropEmptyEnd();
    return true;
}

VantrelStr VantrelIPList::prepend(const char* ip) {
    VantrelStr first(ip);  // may be the text of a slot that moves
    if (first.isEmpty()) return {};
    VantrelStr lost;
    auto freed = std::find_if(slots_.begin(), slots_.end(),
                              [&first](const VantrelStr& slot) { return slot.isEmpty() || slot == first; });
    if (freed == slots_.end() && slots_.size() == MAX_SLOTS) {
        --freed;
        lost = std::move(*freed);
    }
    if (freed != slots_.end()) slots_.erase(freed);
    slots_.insert(slots_.begin(), std::move(first));
    return lost;
}

bool VantrelIPList::hasLoopback() const {
    return std::any_of(slots_.begin(), slots_.end(), isLoopback);
}

void VantrelIPList::removeLoopback() {
    slots_.erase(std::remove_if(slots_.begin(), slots_.end(), isLoopback), slots_.end());
    dropEmptyEnd();
}

VantrelIPList::Iterator VantrelIPList::end() const {
    return std::find_if(slots_.begin(), slots_.end(), isEmpty);
}

void VantrelIPList::dropEmptyEnd() {
    while (!slots_.empty() && slots_.back().isEmpty()) slots_.pop_back();
}

void VantrelIPList::writeTo(Vantrel::rcAttrStream& stream, const char* key) const {
    unsigned index = 0;
    for (const VantrelStr& ip : *this) stream.addStringValue(indexedKey(key, index++).c_str(), ip.c_str());
}

bool VantrelIPList::readFrom(const Vantrel::rcAttrStream& stream, const char* key) {
    slots_.clear();
    while (slots_.size() < MAX_SLOTS) {
        const std::string name = indexedKey(key, static_cast<unsigned>(slots_.size()));
        // Every list ends with a name that is missing: most often a plain search of the text finds that out.
        const bool mayBeThere = slots_.empty() || stream.text().find(name) != std::string::npos;
        std::string_view value;
        if (!mayBeThere || !stream.getStringValue(name.c_str(), value)) break;
        slots_.emplace_back(value.data(), static_cast<unsigned>(value.size()));
    }
    const bool found = !slots_.empty();
    dropEmptyEnd();
    return found;
}
