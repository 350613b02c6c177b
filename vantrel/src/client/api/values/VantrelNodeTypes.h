#pragma once

#include <string_view>

/// The extended node types, which of them belong under which, and the numbers that servers give them. One
/// table: the client answers for servers that cannot be asked, and the embedded server obeys it. Thread-safe.

/// Whether `type` is the text of an extended node type ("HOST", "REEL", "CLIP", ...). Exact spelling.
bool vantrelIsKnownNodeType(std::string_view type);

/// Whether a node of type `child` may be created under one of type `parent`. False for unknown types.
bool vantrelNodeTypeAccepts(std::string_view parent, std::string_view child);

/// Whether nodes of the type hold frames themselves.
bool vantrelIsClipNodeType(std::string_view type);

/// The number of a type, or -1 for an unknown one.
int vantrelNodeTypeNumber(std::string_view type);

/// The type whose text or decimal number `text` is; empty when it is neither.
std::string_view vantrelFindNodeType(std::string_view text);
