#include "VantrelNodeInterface.h"

#include <algorithm>
#include <functional>

#include "CoAssert.h"

namespace {

/// Children expected before the first was seen, and those that make a good average.
constexpr std::size_t FIRST_CHILDREN = 16;
constexpr std::size_t SAMPLE_CHILDREN = 4096;

}  // namespace

VantrelNodeInterface::NodeInfo VantrelNodeInterface::NodeInfoList::operator[](std::size_t index) const {
    if (!CO_ASSERT(index < size())) return {{}, {}};
    const Child& child = children_[index];
    const bool converted = (child.nameStart & CONVERTED) != 0;
    const char* names = converted ? converted_.data() : reply_.data();
    return {{names + (child.nameStart & ~CONVERTED), child.nameLength},
            {reply_.data() + child.idStart, child.idLength}};
}

void VantrelNodeInterface::NodeInfoList::clear() {
    children_.clear();
    // The texts go: a handle that keeps an emptied list keeps no old reply alive.
    reply_ = std::string();
    converted_ = std::string();
}

void VantrelNodeInterface::NodeInfoList::reset(std::string reply) {
    clear();
    reply_ = std::move(reply);
}

void VantrelNodeInterface::NodeInfoList::grow(std::size_t parsedBytes) {
    // As many children as the rest of the reply holds, should they go on like those so far: few allocations,
    // little room left over, and never more than the bytes that did arrive can fill.
    std::size_t expected = FIRST_CHILDREN;
    if (!children_.empty()) {
        const std::size_t averageBytes = std::max<std::size_t>(parsedBytes / (children_.size() + 1), 1);
        expected = (reply_.size() - parsedBytes) / averageBytes;
        if (children_.size() < SAMPLE_CHILDREN) expected = std::min(expected, SAMPLE_CHILDREN);
        expected = std::max(expected + expected / 64, children_.size() / 8) + 1;
    }
    children_.reserve(children_.size() + expected);
}

void VantrelNodeInterface::NodeInfoList::add(std::string_view id, std::string_view displayName) {
    const std::less_equal<const char*> notAfter;
    const char* begin = reply_.data();
    const char* end = begin + reply_.size();
    if (!CO_ASSERT(notAfter(begin, id.data()) && notAfter(id.data() + id.size(), end))) return;

    Child child;
    child.idStart = static_cast<std::uint32_t>(id.data() - begin);
    child.idLength = static_cast<std::uint32_t>(id.size());
    child.nameLength = static_cast<std::uint32_t>(displayName.size());
    const bool inReply =
        notAfter(begin, displayName.data()) && notAfter(displayName.data() + displayName.size(), end);
    if (inReply) {
        child.nameStart = static_cast<std::uint32_t>(displayName.data() - begin);
    } else {
        if (!CO_ASSERT(converted_.size() + displayName.size() <= MAX_REPLY_BYTES)) return;
        child.nameStart = static_cast<std::uint32_t>(converted_.size()) | CONVERTED;
        converted_ += displayName;
    }
    if (children_.size() == children_.capacity()) grow(child.idStart + child.idLength);
    children_.push_back(child);
}
