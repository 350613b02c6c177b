#include "VantrelNodeImp.h"

#include <climits>
#include <utility>

#include "CoMsg.h"
#include "VantrelCommands.h"
#include "VantrelIndexError.h"
#include "VantrelNodeTypes.h"

namespace Commands = VantrelCommands;
using Client = VantrelNodeClientAPI;

VantrelNodeImp::VantrelNodeImp(const VantrelServerHandle* server, const VantrelNodeId& id)
    : id_(id), server_(server) {}

// --- Identity ---

const VantrelServerHandle& VantrelNodeImp::nowhere() {
    // Never destroyed, since node handles may outlive static objects.
    static const auto* const server = new VantrelServerHandle(VantrelServerId());
    return *server;
}

void VantrelNodeImp::setId(const VantrelNodeId& id) {
    if (id == id_) return;
    id_ = id;
    forgetAll();
}

void VantrelNodeImp::setServer(const VantrelServerHandle& server) {
    if (server_ == &server) return;
    server_ = &server;
    forgetAll();
}

void VantrelNodeImp::pointAt(const VantrelServerHandle& server, const VantrelNodeId& id) {
    setServer(server);
    setId(id);
}

void VantrelNodeImp::pointAtChild(std::size_t index, VantrelNodeImp& child) const {
    const VantrelNodeInterface::NodeInfo info = children_[index];
    const std::string id(info.id());
    std::string displayName(info.displayName());
    child.pointAt(server(), id.c_str());
    child.displayName_ = std::move(displayName);
}

void VantrelNodeImp::setLastError(const std::string& text) const {
    if (VantrelServerImp* server = serverImp()) server->setLastError(text);
}

bool VantrelNodeImp::checkIndex(int index, std::size_t size) const {
    if (index >= 0 && static_cast<std::size_t>(index) < size) return true;
    setLastError(vantrelIndexError(index, size));
    return false;
}

void VantrelNodeImp::forgetFrames() {
    frames_.reset();
    framePaths_.reset();
}

void VantrelNodeImp::forgetAll() {
    children_.clear();
    childrenFresh_ = false;
    forgetFrames();
    metaDataStreams_.reset();
    clipFormat_.reset();
    type_.reset();
    displayName_.reset();
    readAheads_ = 0;
}

// --- What the server says ---

const VantrelNodeInterface::NodeInfoList* VantrelNodeImp::children() {
    if (!childrenFresh_) {
        children_.clear();
        childrenFresh_ = versionedRequest([this](Client& client, const VantrelVersion& version) {
            return version >= Commands::GET_CHILDREN_EX.since ? client.getChildrenEx(id_, children_)
                                                              : client.getChildren(id_, children_);
        });
    }
    return childrenFresh_ ? &children_ : nullptr;
}

const std::vector<VantrelFrameId>* VantrelNodeImp::frames() {
    if (!frames_) {
        std::vector<VantrelFrameId> fetched;
        const bool ok = versionedRequest([&](Client& client, const VantrelVersion& version) {
            return version >= Commands::GET_FRAMES_EX.since ? client.getFramesEx(id_, fetched)
                                                            : client.getFrames(id_, fetched);
        });
        if (ok) frames_ = std::move(fetched);
    }
    return frames_ ? &*frames_ : nullptr;
}

const std::vector<std::string>* VantrelNodeImp::framePaths() {
    if (!framePaths_) {
        std::vector<std::string> fetched;
        const bool ok = versionedRequest([&](Client& client, const VantrelVersion& version) {
            return version >= Commands::GET_FRAME_PATHS_EX.since ? client.getFramePathsEx(id_, fetched)
                                                                 : client.getFramePaths(id_, fetched);
        });
        if (ok) framePaths_ = std::move(fetched);
    }
    return framePaths_ ? &*framePaths_ : nullptr;
}

const std::vector<std::string>* VantrelNodeImp::metaDataStreams() {
    if (!metaDataStreams_) {
        std::vector<std::string> fetched;
        if (request([&](Client& client) { return client.queryMetaDataSupport(id_, fetched); })) {
            metaDataStreams_ = std::move(fetched);
        }
    }
    return metaDataStreams_ ? &*metaDataStreams_ : nullptr;
}

bool VantrelNodeImp::fetchClipFormat() {
    VantrelClipFormat fetched;
    const bool ok = versionedRequest([&](Client& client, const VantrelVersion& version) {
        return version >= Commands::GET_CLIP_FORMAT_EX.since ? client.getClipFormatEx(id_, fetched)
                                                             : client.getClipFormat(id_, fetched);
    });
    if (ok) clipFormat_ = fetched;
    return ok;
}

const VantrelClipFormat* VantrelNodeImp::clipFormat() {
    return clipFormat_ || fetchClipFormat() ? &*clipFormat_ : nullptr;
}

const char* VantrelNodeImp::displayName() {
    if (!displayName_) {
        std::string fetched;
        const bool ok = versionedRequest([&](Client& client, const VantrelVersion& version) {
            return version >= Commands::GET_CHILDREN_EX.since ? client.getDisplayNameEx(id_, fetched)
                                                              : client.getDisplayName(id_, fetched);
        });
        if (ok) displayName_ = std::move(fetched);
    }
    return displayName_ ? displayName_->c_str() : nullptr;
}

const VantrelNodeImp::Type* VantrelNodeImp::type() {
    if (!type_) {
        Type fetched;
        const bool ok = request([&](Client& client) {
            return client.getNodeType(id_, fetched.kind, fetched.extended) &&
                   client.getNodeTypeStr(id_, fetched.text);
        });
        if (ok) type_ = std::move(fetched);
    }
    return type_ ? &*type_ : nullptr;
}

bool VantrelNodeImp::parent(VantrelNodeId& parent) {
    return request([&](Client& client) { return client.getParentNode(id_, parent); });
}

// --- Editing the tree ---

bool VantrelNodeImp::canCreate(const char* extendedType, bool& can) {
    VantrelServerImp* server = serverImp();
    VantrelVersion version{};
    if (!server || !server->protocolVersion(version)) return false;
    if (version >= Commands::CAN_CREATE_NODE.since) {
        return request([&](Client& client) { return client.canCreateNode(id_, extendedType, can); });
    }
    const Type* own = type();
    if (!own) return false;
    if (!vantrelIsKnownNodeType(own->text)) {
        setLastError(Vantrel::coFormat("Unhandled parent node type '%s'", own->text.c_str()));
        return false;
    }
    can = vantrelNodeTypeAccepts(own->text, extendedType);
    return true;
}

bool VantrelNodeImp::create(const char* name, VantrelNodeInterface::NodeType kind, const char* extendedType,
                            const char* stream, const char* metaData, const VantrelClipFormat& format,
                            VantrelNodeId& created) {
    VantrelServerImp* server = serverImp();
    if (!server) return false;
    if (kind == VantrelNodeInterface::CONTAINER &&
        !server->requireVersion(Commands::SET_META_DATA.since, VantrelServerImp::NOT_SUPPORTED)) {
        return false;
    }
    const bool ok = versionedRequest([&](Client& client, const VantrelVersion& version) {
        return version >= Commands::CREATE_NODE_EX.since
                   ? client.createNodeEx(id_, name, kind, extendedType, stream, metaData, format, created)
                   : client.createNode(id_, name, kind, extendedType, format, created);
    });
    if (ok) childrenFresh_ = false;
    return ok;
}

bool VantrelNodeImp::duplicate(const VantrelNodeId& source, const char* name, VantrelNodeId& copy) {
    VantrelServerImp* server = serverImp();
    const bool ok = server &&
                    server->requireVersion(Commands::DUPLICATE_NODE.since, VantrelServerImp::NOT_SUPPORTED) &&
                    request([&](Client& client) { return client.duplicateNode(id_, source, name, copy); });
    if (ok) childrenFresh_ = false;
    return ok;
}

bool VantrelNodeImp::rename(const char* name) {
    VantrelNodeId renamed = id_;
    if (!request([&](Client& client) { return client.renameNode(renamed, name); })) return false;
    setId(renamed);
    displayName_.reset();
    return true;
}

bool VantrelNodeImp::destroy() {
    if (!request([this](Client& client) { return client.destroyNode(id_); })) return false;
    setId(VantrelNodeId());
    return true;
}

// --- Metadata ---

bool VantrelNodeImp::getMetaData(const char* stream, const char* filter, int depth, std::string& metaData) {
    return request([&](Client& client) { return client.getMetaData(id_, stream, filter, depth, metaData); });
}

bool VantrelNodeImp::setMetaData(const char* stream, const char* metaData) {
    VantrelServerImp* server = serverImp();
    return server && server->requireVersion(Commands::SET_META_DATA.since, VantrelServerImp::NOT_SUPPORTED) &&
           request([&](Client& client) { return client.setMetaData(id_, stream, metaData); });
}

// --- Frames ---

bool VantrelNodeImp::setNumFrames(unsigned count) {
    if (count > static_cast<unsigned>(INT_MAX)) {
        setLastError(Vantrel::coFormat("Invalid number of frames: %u", count));
        return false;
    }
    if (!fetchClipFormat()) return false;
    std::vector<VantrelFrameId> allocated;
    const bool ok = versionedRequest([&](Client& client, const VantrelVersion& version) {
        const int frames = static_cast<int>(count);
        return version >= Commands::GET_FRAMES_EX.since
                   ? client.allocateFramesEx(id_, frames, *clipFormat_, allocated)
                   : client.allocateFrames(id_, frames, *clipFormat_, allocated);
    });
    if (ok) forgetFrames();
    return ok;
}

bool VantrelNodeImp::linkToFrames(const std::vector<std::string>& paths) {
    VantrelServerImp* server = serverImp();
    if (!server ||
        !server->requireVersion(Commands::SET_FRAME_PATHS.since,
                                "Server does not support linking to existing media files.") ||
        !fetchClipFormat()) {
        return false;
    }
    const bool ok = versionedRequest([&](Client& client, const VantrelVersion& version) {
        return version >= Commands::GET_FRAME_PATHS_EX.since
                   ? client.setFramePathsEx(id_, paths, *clipFormat_)
                   : client.setFramePaths(id_, paths, *clipFormat_);
    });
    if (ok) forgetFrames();
    return ok;
}

bool VantrelNodeImp::streamId(VantrelStr& streamId) {
    return versionedRequest([&](Client& client, const VantrelVersion& version) {
        if (version >= Commands::GET_STREAM_ID.since) return client.getStreamId(id_, streamId);
        streamId.clear();
        return true;
    });
}

bool VantrelNodeImp::getNbReadAheads(int& count) {
    VantrelServerImp* server = serverImp();
    return server &&
           server->requireVersion(Commands::GET_NB_READ_AHEADS.since, VantrelServerImp::NOT_SUPPORTED) &&
           request([&](Client& client) { return client.getNbReadAheads(id_, count); });
}

bool VantrelNodeImp::readFrame(int index, const void* request, unsigned long requestSize, void* buffer,
                               unsigned long size, bool hintReadAhead) {
    const auto* ids = frames();
    if (!ids || !checkIndex(index, ids->size())) return false;
    const auto at = static_cast<std::size_t>(index);
    const auto ahead = [&](std::size_t distance) -> const char* {
        const bool wanted = hintReadAhead && readAheads_ >= static_cast<int>(distance);
        return wanted && at + distance < ids->size() ? (*ids)[at + distance].id() : nullptr;
    };
    return server().readFrame((*ids)[at].id(), request, requestSize, buffer, size, ahead(1), ahead(2));
}

bool VantrelNodeImp::writeFrame(int index, const void* data, unsigned long size) {
    const auto* ids = frames();
    if (!ids || !checkIndex(index, ids->size())) return false;
    return server().writeFrame((*ids)[static_cast<std::size_t>(index)].id(), data, size);
}
