#pragma once

#include <string>

/// What a server is asked to tell of: the node, and the format and metadata tag in which its events are
/// wanted. The latter two may be empty.
struct VantrelEventSubject {
    std::string nodeId;
    std::string format;
    std::string metaTag;
};
