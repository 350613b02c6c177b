#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vantreld {

/// Node ids are opaque to clients. Inside, a node is a number that is never used twice; a frame is its clip
/// and its index, so that a clip's frame ids need no row of their own. Each has exactly one text.

std::string nodeIdText(std::int64_t node);
std::string frameIdText(std::int64_t clip, std::int64_t index);

struct FrameKey {
    std::int64_t clip = 0;
    std::int64_t index = 0;
};

/// The node or frame of an id's text. CoException that says so when the text can be no id.
std::int64_t parseNodeId(std::string_view id);
FrameKey parseFrameId(std::string_view id);

[[noreturn]] void failNoSuchNode(std::string_view id);
[[noreturn]] void failNoSuchFrame(std::string_view id);

}  // namespace vantreld
