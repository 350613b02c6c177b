#include "VantrelNodeTypes.h"

#include <charconv>
#include <iterator>
#include <string>

namespace {

struct TypeRow {
    std::string_view type;
    std::string_view children;  // each between bars
};

// A row's index is the type's number, which databases and applications keep: add new types at the end.
constexpr TypeRow TYPES[] = {
    {"HOST", "|VOLUME|"},
    {"VOLUME", "|PROJECT|"},
    {"PROJECT", "|WORKSPACE|LIBRARY|SHARED_VAULT|"},
    {"WORKSPACE", "|LIBRARY|"},
    {"SHARED_VAULT", "|LIBRARY|"},
    {"LIBRARY", "|FOLDER|REEL|CLIP|"},
    {"REEL", "|CLIP|"},
    {"FOLDER", "|FOLDER|REEL|CLIP|"},
    {"CLIP", ""},
    {"HIRES", ""},
    {"LOWRES", ""},
    {"SLATE", ""},
    {"FILE", ""},
    {"BINENTRY", ""},
};
constexpr int TYPE_COUNT = static_cast<int>(std::size(TYPES));

}  // namespace

int vantrelNodeTypeNumber(std::string_view type) {
    for (int i = 0; i < TYPE_COUNT; ++i) {
        if (TYPES[i].type == type) return i;
    }
    return -1;
}

bool vantrelIsKnownNodeType(std::string_view type) {
    return vantrelNodeTypeNumber(type) >= 0;
}

bool vantrelNodeTypeAccepts(std::string_view parent, std::string_view child) {
    const int row = vantrelNodeTypeNumber(parent);
    if (row < 0 || !vantrelIsKnownNodeType(child)) return false;
    return TYPES[row].children.find('|' + std::string(child) + '|') != std::string_view::npos;
}

bool vantrelIsClipNodeType(std::string_view type) {
    return type == "CLIP" || type == "HIRES" || type == "LOWRES" || type == "SLATE";
}

std::string_view vantrelFindNodeType(std::string_view text) {
    int number = vantrelNodeTypeNumber(text);
    if (number < 0 && !text.empty()) {
        const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
        if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size()) return {};
    }
    return number >= 0 && number < TYPE_COUNT ? TYPES[number].type : std::string_view();
}
