#include "VantrelNodeImp.h"

#include <climits>
#include <utility>

#include "CoMsg.h"
#include "CoNeverDestroyed.h"
#include "VantrelIndexError.h"
#include "VantrelServerImp.h"

using Session = VantrelServerImp::Session;

namespace {

// Whether a command that changes something went out: also when the server refused it, or its answer was lost,
// something may have come of it.
bool wasSent(const Session& session, bool ok) {
    return ok || (session && session.nodes().lastFailure().sent);
}

}  // namespace

VantrelNodeImp::VantrelNodeImp(const VantrelServerHandle* server, const VantrelNodeId& id)
    : id_(id), server_(server) {}

// --- Identity ---

const VantrelServerHandle& VantrelNodeImp::nowhere() {
    // Node handles may outlive static objects.
    static Vantrel::CoNeverDestroyed<VantrelServerHandle> server{VantrelServerId()};
    return *server;
}

void VantrelNodeImp::setId(const VantrelNodeId& id) {
    if (id == id_) return;
    id_ = id;
    forgetAll();
}

void VantrelNodeImp::setServer(const VantrelServerHandle& server) {
    server_ = &server;
    forgetReplacedServer();
}

void VantrelNodeImp::forgetReplacedServer() {
    const VantrelServerImp* server = serverImp();
    const std::uint64_t serial = server ? server->serial() : 0;
    if (serial == serverSerial_) return;
    serverSerial_ = serial;
    forgetAll();
}

void VantrelNodeImp::pointAt(const VantrelServerHandle& server, const VantrelNodeId& id) {
    setServer(server);
    setId(id);
}

void VantrelNodeImp::pointAtChild(std::size_t index, VantrelNodeImp& child) const {
    const VantrelNodeInterface::NodeInfo info = children_[index];
    std::string id(info.id());
    std::optional<std::string> displayName(info.displayName());
    VantrelServerImp* server = serverImp();
    if (server && server->edits().wasRenamed(childrenAsOf_, id, id)) displayName.reset();
    child.pointAt(this->server(), id.c_str());
    child.displayName_ = std::move(displayName);
}

VantrelServerImp* VantrelNodeImp::serverImp() const {
    return server().imp();
}

void VantrelNodeImp::setInvalid(const std::string& text) const {
    if (VantrelServerImp* server = serverImp()) server->setLastError(VANTREL_ERROR_INVALID_ARGUMENT, text);
}

bool VantrelNodeImp::checkIndex(int index, std::size_t size) const {
    if (index >= 0 && static_cast<std::size_t>(index) < size) return true;
    setInvalid(vantrelIndexError(index, size));
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
    forgetReplacedServer();
    if (!childrenFresh_) {
        children_.clear();
        const Session session(serverImp());
        if (session) childrenAsOf_ = serverImp()->edits().count();
        childrenFresh_ = session && session.nodes().getChildren(id_, children_);
    }
    return childrenFresh_ ? &children_ : nullptr;
}

const VantrelNodeInterface::NodeInfoList* VantrelNodeImp::childrenToCount() {
    forgetReplacedServer();
    VantrelServerImp* server = serverImp();
    if (server && server->edits().wereDestroyed(childrenAsOf_)) childrenFresh_ = false;
    return children();
}

const std::vector<VantrelFrameId>* VantrelNodeImp::frames() {
    forgetReplacedServer();
    if (!frames_) {
        std::vector<VantrelFrameId> fetched;
        const Session session(serverImp());
        if (session && session.nodes().getFrames(id_, fetched)) frames_ = std::move(fetched);
    }
    return frames_ ? &*frames_ : nullptr;
}

const std::vector<std::string>* VantrelNodeImp::framePaths() {
    forgetReplacedServer();
    if (!framePaths_) {
        std::vector<std::string> fetched;
        const Session session(serverImp());
        if (session && session.nodes().getFramePaths(id_, fetched)) framePaths_ = std::move(fetched);
    }
    return framePaths_ ? &*framePaths_ : nullptr;
}

const std::vector<std::string>* VantrelNodeImp::metaDataStreams() {
    forgetReplacedServer();
    if (!metaDataStreams_) {
        std::vector<std::string> fetched;
        const Session session(serverImp());
        if (session && session.nodes().queryMetaDataSupport(id_, fetched)) {
            metaDataStreams_ = std::move(fetched);
        }
    }
    return metaDataStreams_ ? &*metaDataStreams_ : nullptr;
}

bool VantrelNodeImp::fetchClipFormat() {
    forgetReplacedServer();
    VantrelClipFormat fetched =
        clipFormat_.value_or(VantrelClipFormat());  // some servers do not give all of it
    const Session session(serverImp());
    if (!session || !session.nodes().getClipFormat(id_, fetched)) return false;
    clipFormat_ = fetched;
    return true;
}

const VantrelClipFormat* VantrelNodeImp::clipFormat() {
    forgetReplacedServer();
    return clipFormat_ || fetchClipFormat() ? &*clipFormat_ : nullptr;
}

const char* VantrelNodeImp::displayName() {
    forgetReplacedServer();
    if (!displayName_) {
        std::string fetched;
        const Session session(serverImp());
        if (session && session.nodes().getDisplayName(id_, fetched)) displayName_ = std::move(fetched);
    }
    return displayName_ ? displayName_->c_str() : nullptr;
}

const VantrelNodeImp::Type* VantrelNodeImp::type() {
    forgetReplacedServer();
    if (!type_) {
        Type fetched;
        const Session session(serverImp());
        if (session && session.nodes().getType(id_, fetched)) type_ = std::move(fetched);
    }
    return type_ ? &*type_ : nullptr;
}

bool VantrelNodeImp::parent(VantrelNodeId& parent) {
    const Session session(serverImp());
    return session && session.nodes().getParentNode(id_, parent);
}

// --- Editing the tree ---

bool VantrelNodeImp::canCreate(const char* extendedType, bool& can) {
    forgetReplacedServer();
    const Session session(serverImp());
    return session && session.nodes().canCreateNode(id_, type_, extendedType, can);
}

bool VantrelNodeImp::create(const char* name, VantrelNodeInterface::NodeType kind, const char* extendedType,
                            const char* stream, const char* metaData, const VantrelClipFormat& format,
                            VantrelNodeId& created) {
    const Session session(serverImp());
    const bool ok = session && session.nodes().createNode(id_, name, kind, extendedType, stream, metaData,
                                                          format, created);
    if (wasSent(session, ok)) childrenFresh_ = false;
    return ok;
}

bool VantrelNodeImp::duplicate(const VantrelNodeId& source, const char* name, VantrelNodeId& copy) {
    const Session session(serverImp());
    const bool ok = session && session.nodes().duplicateNode(id_, source, name, copy);
    if (wasSent(session, ok)) childrenFresh_ = false;
    return ok;
}

bool VantrelNodeImp::rename(const char* name) {
    const Session session(serverImp());
    VantrelNodeId renamed = id_;
    const bool ok = session && session.nodes().renameNode(renamed, name);
    if (!wasSent(session, ok)) return false;
    serverImp()->edits().noteRenamed(id_.id(), renamed.id());
    setId(renamed);
    displayName_.reset();
    return ok;
}

bool VantrelNodeImp::destroy() {
    const Session session(serverImp());
    const bool ok = session && session.nodes().destroyNode(id_);
    if (!wasSent(session, ok)) return false;
    serverImp()->edits().noteDestroyed();
    forgetAll();
    if (ok) setId(VantrelNodeId());
    return ok;
}

// --- Metadata ---

bool VantrelNodeImp::getMetaData(const char* stream, const char* filter, int depth, std::string& metaData) {
    const Session session(serverImp());
    return session && session.nodes().getMetaData(id_, stream, filter, depth, metaData);
}

bool VantrelNodeImp::setMetaData(const char* stream, const char* metaData) {
    const Session session(serverImp());
    const bool ok = session && session.nodes().setMetaData(id_, stream, metaData);
    if (!wasSent(session, ok)) return false;
    metaDataStreams_.reset();
    clipFormat_.reset();  // which holds metadata, too
    return ok;
}

// --- Frames ---

bool VantrelNodeImp::setNumFrames(unsigned count) {
    if (count > static_cast<unsigned>(INT_MAX)) {
        setInvalid(Vantrel::coFormat("Invalid number of frames: %u", count));
        return false;
    }
    if (!fetchClipFormat()) return false;
    const Session session(serverImp());
    std::vector<VantrelFrameId> allocated;
    const bool ok =
        session && session.nodes().allocateFrames(id_, static_cast<int>(count), *clipFormat_, allocated);
    if (wasSent(session, ok)) forgetFrames();
    return ok;
}

bool VantrelNodeImp::linkToFrames(const std::vector<std::string>& paths) {
    const Session session(serverImp());
    if (!session || !session.nodes().requireFrameLinks() || !fetchClipFormat()) return false;
    const bool ok = session.nodes().setFramePaths(id_, paths, *clipFormat_);
    if (wasSent(session, ok)) forgetFrames();
    return ok;
}

bool VantrelNodeImp::streamId(VantrelStr& streamId) {
    const Session session(serverImp());
    return session && session.nodes().getStreamId(id_, streamId);
}

bool VantrelNodeImp::getNbReadAheads(int& count) {
    const Session session(serverImp());
    return session && session.nodes().getNbReadAheads(id_, count);
}

bool VantrelNodeImp::activateReadAhead() {
    forgetReplacedServer();
    return getNbReadAheads(readAheads_);
}

void VantrelNodeImp::setClipFormat(const VantrelClipFormat& format) {
    forgetReplacedServer();
    clipFormat_ = format;
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
