#pragma once

#include <string>

/// What events a server is asked for: the node, and the format and metadata tag in which its events are
/// wanted. The latter two may be empty.
struct VantrelEventSubject {
    std::string nodeId;
    std::string format;
    std::string metaTag;
};
