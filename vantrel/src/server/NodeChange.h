#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vantreld {

/// Something that happened to a node, as clients are notified of it (docs/vantreld.md).
struct NodeChange {
    std::int64_t node = 0;
    const char* type = "";  ///< a literal
    std::string details;    ///< an attribute stream

    static NodeChange created(std::int64_t parent, std::int64_t child, std::string_view displayName);
    static NodeChange destroyed(std::int64_t parent, std::int64_t child, std::string_view displayName);
    /// For the node that goes itself.
    static NodeChange gone(std::int64_t node);
    static NodeChange renamed(std::int64_t node, std::string_view displayName);
    static NodeChange childRenamed(std::int64_t parent, std::int64_t child, std::string_view displayName);
    static NodeChange metaDataSet(std::int64_t node, std::string_view stream);
    static NodeChange frameWritten(std::int64_t clip, std::int64_t index);
    static NodeChange framesReplaced(std::int64_t clip, std::int64_t numFrames);
    /// The node's own values: the number of its frames.
    static NodeChange changed(std::int64_t clip, std::int64_t numFrames);
};

/// Is notified of what happens in a NodeStore. Called once a change is on disk, in the order of the changes,
/// on the thread that made it and with the store locked: it must return soon and not call the store.
class NodeObserver {
  public:
    NodeObserver() = default;
    NodeObserver(const NodeObserver&) = delete;
    NodeObserver& operator=(const NodeObserver&) = delete;
    virtual ~NodeObserver() = default;

    virtual void nodeChanged(const NodeChange& change) noexcept = 0;
    /// They do not exist any more, and no others will have their numbers.
    virtual void nodesDestroyed(const std::vector<std::int64_t>& nodes) noexcept = 0;
};

}  // namespace vantreld
