#include <vantrel/VantrelNodeHandle.h>

#include <string>
#include <utility>
#include <vector>

#include "CoMsg.h"
#include "CoNeverDestroyed.h"
#include "VantrelNodeImp.h"

// --- Construction ---

VantrelNodeHandle::VantrelNodeHandle() : imp_(new VantrelNodeImp(nullptr, VantrelNodeId())) {}

VantrelNodeHandle::VantrelNodeHandle(const VantrelServerHandle& server, const VantrelNodeId& id)
    : imp_(new VantrelNodeImp(&server, id)) {}

VantrelNodeHandle::VantrelNodeHandle(const VantrelServerHandle& server, const char* id)
    : VantrelNodeHandle(server, VantrelNodeId(id)) {}

VantrelNodeHandle::VantrelNodeHandle(const VantrelNodeHandle& other) : VantrelNodeHandle() {
    *this = other;
}

VantrelNodeHandle& VantrelNodeHandle::operator=(const VantrelNodeHandle& other) {
    const VantrelNodeImp* source = other.imp();
    if (this == &other || !source) return *this;
    auto* copy = new VantrelNodeImp(&source->server(), source->id());
    delete std::exchange(imp_, copy);
    return *this;
}

VantrelNodeHandle::VantrelNodeHandle(VantrelNodeHandle&& other) noexcept
    : imp_(std::exchange(other.imp_, nullptr)) {}

VantrelNodeHandle& VantrelNodeHandle::operator=(VantrelNodeHandle&& other) noexcept {
    if (this != &other) delete std::exchange(imp_, std::exchange(other.imp_, nullptr));
    return *this;
}

VantrelNodeHandle::~VantrelNodeHandle() {
    delete imp_;
}

const char* VantrelNodeHandle::lastError() const {
    const VantrelNodeImp* node = imp();
    return node ? node->server().lastError() : "";
}

VantrelErrorCode VantrelNodeHandle::lastErrorCode() const {
    const VantrelNodeImp* node = imp();
    return node ? node->server().lastErrorCode() : VANTREL_ERROR_NONE;
}

// --- Identity ---

const VantrelNodeId& VantrelNodeHandle::getNodeId() const {
    static Vantrel::CoNeverDestroyed<VantrelNodeId> noId;  // see VantrelServerHandle::getId
    const VantrelNodeImp* node = imp();
    return node ? node->id() : *noId;
}

void VantrelNodeHandle::setNodeId(const VantrelNodeId& id) {
    if (VantrelNodeImp* node = imp()) node->setId(id);
}

const VantrelServerHandle& VantrelNodeHandle::getServer() const {
    const VantrelNodeImp* node = imp();
    return node ? node->server() : VantrelNodeImp::nowhere();
}

void VantrelNodeHandle::setServer(const VantrelServerHandle& server) {
    if (VantrelNodeImp* node = imp()) node->setServer(server);
}

bool VantrelNodeHandle::getDisplayName(VantrelStr& displayName) {
    VantrelNodeImp* node = imp();
    const char* name = node ? node->displayName() : nullptr;
    if (name) displayName = name;
    return name != nullptr;
}

namespace {

// Gives `use` the node's type, with which it assigns an output.
template <typename Use>
bool useType(VantrelNodeImp* node, Use use) {
    const VantrelNodeImp::Type* type = node ? node->type() : nullptr;
    if (type) use(*type);
    return type != nullptr;
}

}  // namespace

bool VantrelNodeHandle::getNodeType(int& type) {
    return useType(imp(), [&](const VantrelNodeImp::Type& known) { type = known.extended; });
}

bool VantrelNodeHandle::getNodeTypeStr(VantrelStr& type) {
    return useType(imp(), [&](const VantrelNodeImp::Type& known) { type = known.text.c_str(); });
}

bool VantrelNodeHandle::getIsClipNode(bool& isClip) {
    return useType(
        imp(), [&](const VantrelNodeImp::Type& known) { isClip = known.kind == VantrelNodeInterface::CLIP; });
}

// --- Lists: a count, and the element at an index ---

namespace {

template <typename List, typename Number>
bool countOf(const List* list, Number& count) {
    if (list) count = static_cast<Number>(list->size());
    return list != nullptr;
}

// Null, with the last error set, when the list could not be had or has no such element.
template <typename Element>
const Element* elementAt(const VantrelNodeImp& node, const std::vector<Element>* list, int index) {
    if (!list || !node.checkIndex(index, list->size())) return nullptr;
    return &(*list)[static_cast<std::size_t>(index)];
}

}  // namespace

bool VantrelNodeHandle::getNumChildren(int& count) {
    VantrelNodeImp* node = imp();
    return node && countOf(node->childrenToCount(), count);
}

bool VantrelNodeHandle::getNumChildren(unsigned int& count) {
    VantrelNodeImp* node = imp();
    return node && countOf(node->childrenToCount(), count);
}

bool VantrelNodeHandle::getChild(int index, VantrelNodeHandle& child) {
    VantrelNodeImp* node = imp();
    VantrelNodeImp* out = child.imp();
    const auto* children = node && out ? node->children() : nullptr;
    if (!children || !node->checkIndex(index, children->size())) return false;
    node->pointAtChild(static_cast<std::size_t>(index), *out);
    return true;
}

bool VantrelNodeHandle::getNumAvailableMetaDataStreams(int& count) {
    VantrelNodeImp* node = imp();
    return node && countOf(node->metaDataStreams(), count);
}

bool VantrelNodeHandle::getAvailableMetaDataStream(int index, VantrelStr& stream) {
    VantrelNodeImp* node = imp();
    const std::string* found = node ? elementAt(*node, node->metaDataStreams(), index) : nullptr;
    if (found) stream = found->c_str();
    return found != nullptr;
}

bool VantrelNodeHandle::getIsMetaDataStreamAvailable(const char* stream, bool& available) {
    VantrelNodeImp* node = imp();
    const auto* streams = node ? node->metaDataStreams() : nullptr;
    if (!streams) return false;
    available = false;
    for (const std::string& known : *streams) available = available || (stream && known == stream);
    return true;
}

bool VantrelNodeHandle::getNumFrames(int& count) {
    VantrelNodeImp* node = imp();
    return node && countOf(node->frames(), count);
}

bool VantrelNodeHandle::getNumFrames(unsigned int& count) {
    VantrelNodeImp* node = imp();
    return node && countOf(node->frames(), count);
}

bool VantrelNodeHandle::getFrameId(int index, VantrelStr& frameId) {
    VantrelNodeImp* node = imp();
    const VantrelFrameId* found = node ? elementAt(*node, node->frames(), index) : nullptr;
    if (found) frameId = found->id();
    return found != nullptr;
}

bool VantrelNodeHandle::getFrameIdPath(int index, VantrelStr& path) {
    VantrelNodeImp* node = imp();
    const std::string* found = node ? elementAt(*node, node->framePaths(), index) : nullptr;
    if (found) path = found->c_str();
    return found != nullptr;
}

bool VantrelNodeHandle::getNumFrameIdPaths(int& count) {
    VantrelNodeImp* node = imp();
    return node && countOf(node->framePaths(), count);
}

// --- Tree ---

bool VantrelNodeHandle::getParentNode(VantrelNodeHandle& parent) {
    VantrelNodeImp* node = imp();
    VantrelNodeImp* out = parent.imp();
    VantrelNodeId id;
    if (!node || !out || !node->parent(id)) return false;
    out->pointAt(node->server(), id);
    return true;
}

bool VantrelNodeHandle::canCreateNode(const char* extendedType, bool& can) {
    VantrelNodeImp* node = imp();
    return node && node->canCreate(extendedType ? extendedType : "", can);
}

bool VantrelNodeHandle::createNode(const char* displayName, const char* extendedType,
                                   VantrelNodeHandle& created) {
    return createNode(displayName, extendedType, nullptr, nullptr, created);
}

bool VantrelNodeHandle::createNode(const char* displayName, const char* extendedType, const char* stream,
                                   const char* metaData, VantrelNodeHandle& created) {
    VantrelNodeImp* node = imp();
    VantrelNodeImp* out = created.imp();
    VantrelNodeId id;
    if (!node || !out ||
        !node->create(displayName ? displayName : "", VantrelNodeInterface::CONTAINER, extendedType, stream,
                      metaData, VantrelClipFormat(), id)) {
        return false;
    }
    out->pointAt(node->server(), id);
    return true;
}

bool VantrelNodeHandle::createNode(const char* displayName, int extendedType, VantrelNodeHandle& created) {
    return createNode(displayName, std::to_string(extendedType).c_str(), created);
}

bool VantrelNodeHandle::createClipNode(const char* displayName, const VantrelClipFormat& format,
                                       const char* extendedType, VantrelNodeHandle& clip) {
    VantrelNodeImp* node = imp();
    VantrelNodeImp* out = clip.imp();
    VantrelNodeId id;
    if (!node || !out ||
        !node->create(displayName ? displayName : "", VantrelNodeInterface::CLIP, extendedType, nullptr,
                      nullptr, format, id)) {
        return false;
    }
    out->pointAt(node->server(), id);
    out->setClipFormat(format);
    return true;
}

bool VantrelNodeHandle::createClipNode(const char* displayName, const VantrelClipFormat& format,
                                       int extendedType, VantrelNodeHandle& clip) {
    return createClipNode(displayName, format, std::to_string(extendedType).c_str(), clip);
}

bool VantrelNodeHandle::duplicateNode(const VantrelNodeHandle& source, const char* displayName,
                                      VantrelNodeHandle& copy) {
    VantrelNodeImp* node = imp();
    VantrelNodeImp* out = copy.imp();
    VantrelNodeId id;
    if (!node || !out || !source.imp() ||
        !node->duplicate(source.getNodeId(), displayName ? displayName : "", id)) {
        return false;
    }
    out->pointAt(node->server(), id);
    return true;
}

bool VantrelNodeHandle::renameNode(const char* displayName) {
    VantrelNodeImp* node = imp();
    return node && node->rename(displayName ? displayName : "");
}

bool VantrelNodeHandle::destroyNode() {
    VantrelNodeImp* node = imp();
    return node && node->destroy();
}

// --- Metadata ---

bool VantrelNodeHandle::getMetaData(const char* stream, const char* filter, int depth, VantrelStr& metaData) {
    VantrelNodeImp* node = imp();
    std::string text;
    if (!node || !node->getMetaData(stream ? stream : "", filter, depth, text)) return false;
    metaData = text.c_str();
    return true;
}

bool VantrelNodeHandle::setMetaData(const char* stream, const char* metaData) {
    VantrelNodeImp* node = imp();
    return node && node->setMetaData(stream ? stream : "", metaData ? metaData : "");
}

// --- Clip and frames ---

bool VantrelNodeHandle::getClipFormat(VantrelClipFormat& format) {
    VantrelNodeImp* node = imp();
    const VantrelClipFormat* known = node ? node->clipFormat() : nullptr;
    if (known) format = *known;
    return known != nullptr;
}

bool VantrelNodeHandle::setNumFrames(unsigned int count) {
    VantrelNodeImp* node = imp();
    return node && node->setNumFrames(count);
}

bool VantrelNodeHandle::linkToFrames(const VantrelStr* paths, int count) {
    VantrelNodeImp* node = imp();
    if (!node) return false;
    if (count < 0 || (!paths && count > 0)) {
        node->setInvalid(Vantrel::coFormat("Invalid list of %d frame paths", count));
        return false;
    }
    std::vector<std::string> texts;
    texts.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) texts.emplace_back(paths[i].c_str());
    return node->linkToFrames(texts);
}

bool VantrelNodeHandle::getStreamId(VantrelStr& streamId) {
    VantrelNodeImp* node = imp();
    return node && node->streamId(streamId);
}

bool VantrelNodeHandle::activateReadAhead() {
    VantrelNodeImp* node = imp();
    return node && node->activateReadAhead();
}

bool VantrelNodeHandle::getNbReadAheads(int& count) {
    VantrelNodeImp* node = imp();
    return node && node->getNbReadAheads(count);
}

bool VantrelNodeHandle::readFrame(int index, void* buffer, unsigned long size, bool noReadAhead) {
    return readFrame(index, nullptr, 0, buffer, size, noReadAhead ? NO_READ_AHEAD : READ_AHEAD);
}

bool VantrelNodeHandle::readFrame(int index, const void* request, unsigned long requestSize, void* buffer,
                                  unsigned long size, ReadAheadHint hint) {
    VantrelNodeImp* node = imp();
    return node && node->readFrame(index, request, requestSize, buffer, size, hint == READ_AHEAD);
}

bool VantrelNodeHandle::writeFrame(int index, const void* data, unsigned long size) {
    VantrelNodeImp* node = imp();
    return node && node->writeFrame(index, data, size);
}
