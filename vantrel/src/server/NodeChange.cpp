#include "NodeChange.h"

#include "NodeIds.h"
#include "rcAttrStream.h"

namespace vantreld {

using Vantrel::rcAttrStream;

namespace {

constexpr const char* NODE_CREATED = "NodeCreated";
constexpr const char* NODE_DESTROYED = "NodeDestroyed";
constexpr const char* NODE_RENAMED = "NodeRenamed";
constexpr const char* NODE_CHANGED = "NodeChanged";
constexpr const char* METADATA_CHANGED = "MetaDataChanged";
constexpr const char* FRAMES_CHANGED = "FramesChanged";

NodeChange ofChild(const char* type, std::int64_t parent, std::int64_t child, std::string_view displayName) {
    rcAttrStream details;
    details.addStringValue("Child", std::string_view(nodeIdText(child)));
    details.addStringValue("Displ", displayName);
    return {parent, type, details.text()};
}

NodeChange ofNode(const char* type, std::int64_t node, const char* key, std::string_view value) {
    rcAttrStream details;
    details.addStringValue(key, value);
    return {node, type, details.text()};
}

NodeChange ofNumFrames(const char* type, std::int64_t clip, std::int64_t numFrames) {
    return ofNode(type, clip, "NumFrames", std::to_string(numFrames));
}

}  // namespace

NodeChange NodeChange::created(std::int64_t parent, std::int64_t child, std::string_view displayName) {
    return ofChild(NODE_CREATED, parent, child, displayName);
}

NodeChange NodeChange::destroyed(std::int64_t parent, std::int64_t child, std::string_view displayName) {
    return ofChild(NODE_DESTROYED, parent, child, displayName);
}

NodeChange NodeChange::gone(std::int64_t node) {
    return ofNode(NODE_CHANGED, node, "Destroyed", "1");
}

NodeChange NodeChange::renamed(std::int64_t node, std::string_view displayName) {
    return ofNode(NODE_RENAMED, node, "Displ", displayName);
}

NodeChange NodeChange::childRenamed(std::int64_t parent, std::int64_t child, std::string_view displayName) {
    return ofChild(NODE_RENAMED, parent, child, displayName);
}

NodeChange NodeChange::metaDataSet(std::int64_t node, std::string_view stream) {
    return ofNode(METADATA_CHANGED, node, "Stream", stream);
}

NodeChange NodeChange::frameWritten(std::int64_t clip, std::int64_t index) {
    rcAttrStream details;
    details.addStringValue("Frame", std::string_view(frameIdText(clip, index)));
    details.addStringValue("Index", std::string_view(std::to_string(index)));
    return {clip, FRAMES_CHANGED, details.text()};
}

NodeChange NodeChange::framesReplaced(std::int64_t clip, std::int64_t numFrames) {
    return ofNumFrames(FRAMES_CHANGED, clip, numFrames);
}

NodeChange NodeChange::changed(std::int64_t clip, std::int64_t numFrames) {
    return ofNumFrames(NODE_CHANGED, clip, numFrames);
}

}  // namespace vantreld
