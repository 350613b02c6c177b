#include "NodeIds.h"

#include <charconv>

#include "CoException.h"

namespace vantreld {

using Vantrel::CoException;

namespace {

constexpr char NODE_MARK = 'n';
constexpr char INDEX_MARK = '-';

/// Errors quote what a client sent: no more of it than a reader can use.
std::string quoted(std::string_view text) {
    constexpr std::size_t MAX_QUOTED = 128;
    return "'" + std::string(text.substr(0, MAX_QUOTED)) + "'";
}

/// Digits as std::to_string writes them and nothing else, so that no two texts name one node.
bool parseNumber(std::string_view text, std::int64_t& number) {
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    return parsed.ec == std::errc() && parsed.ptr == end && number >= 0 && std::to_string(number) == text;
}

bool parseNode(std::string_view text, std::int64_t& node) {
    return !text.empty() && text.front() == NODE_MARK && parseNumber(text.substr(1), node);
}

}  // namespace

std::string nodeIdText(std::int64_t node) {
    return NODE_MARK + std::to_string(node);
}

std::string frameIdText(std::int64_t clip, std::int64_t index) {
    return nodeIdText(clip) + INDEX_MARK + std::to_string(index);
}

std::int64_t parseNodeId(std::string_view id) {
    std::int64_t node = 0;
    if (!parseNode(id, node)) failNoSuchNode(id);
    return node;
}

FrameKey parseFrameId(std::string_view id) {
    FrameKey key;
    const std::size_t mark = id.find(INDEX_MARK);
    if (mark == std::string_view::npos || !parseNode(id.substr(0, mark), key.clip) ||
        !parseNumber(id.substr(mark + 1), key.index))
        failNoSuchFrame(id);
    return key;
}

void failNoSuchNode(std::string_view id) {
    throw CoException("Node " + quoted(id) + " does not exist.");
}

void failNoSuchFrame(std::string_view id) {
    throw CoException("Frame " + quoted(id) + " does not exist.");
}

}  // namespace vantreld
