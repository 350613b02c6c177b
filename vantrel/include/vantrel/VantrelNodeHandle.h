#pragma once

#include <vantrel/VantrelFormats.h>
#include <vantrel/VantrelServerHandle.h>
#include <vantrel/VantrelTypes.h>

class VantrelNodeImp;

/// One node of a server's tree: navigation, creation, metadata, clip format and frames.
///
/// The handle keeps what the server said about the node's children, frames, metadata streams, type, name and
/// format, and answers from it. After a command to change something of that went out through this handle, it
/// asks the server again, also when the command failed. A child that was renamed through any handle to the
/// same server handle has its new name when it is reached through a list of children that was asked for
/// before; one that was destroyed stays in such a list until it is counted again. Changes made elsewhere show
/// in a new handle or a copy. Pointing the handle at another node (`setNodeId`) forgets all of it.
///
/// Every call that returns `bool` returns true on success; on failure it returns false and `lastError`, which
/// is the server handle's, says why: the failures that VantrelServerHandle names for every call, the
/// server's own text (such as for a node that does not exist), what is malformed in its reply, or what a call
/// below states. "Invalid node id: '%s'." means an id with a comma, which the commands of servers older than
/// 2013.1.0.6115 cannot carry where they create something or ask for paths. An index is a number from 0 to
/// the count - 1; any other fails with "Index %d is out of the bounds 0,%d." (index, count). Outputs are
/// assigned on success only. A null text counts as empty. Texts are zero-terminated; names are in the
/// encoding of the process's locale.
///
/// A call waits as long as VantrelServerHandle says of its own.
///
/// A call that changes something may have been performed although it failed: when its answer did not come in
/// time, or its connection was lost (VantrelServerHandle::mayHaveExecuted). A call whose connection was lost
/// is sent again, at most twice, without knowing what became of it the first time. So after `createNode`,
/// `createClipNode` or `duplicateNode` there may be a node that no handle names, or, even after a success, a
/// second one of the same name; the list of children tells.
///
/// Lifetime: refers to its server handle, which must outlive it. Node handles that are outputs are the
/// caller's; they then refer to this handle's server handle, and may be this very handle.
/// Thread safety: one node handle is used by one thread at a time. Different handles may be used by different
/// threads; requests to one server wait for each other.
class VANTREL_API VantrelNodeHandle {
  public:
    /// Refers to no node and no server: an output for other calls.
    VantrelNodeHandle();
    /// Refers to a node by id. Sends nothing.
    VantrelNodeHandle(const VantrelServerHandle& server, const VantrelNodeId& id);
    VantrelNodeHandle(const VantrelServerHandle& server, const char* id);
    /// Not for a server handle that is gone after the statement.
    VantrelNodeHandle(const VantrelServerHandle&& server, const VantrelNodeId& id) = delete;
    VantrelNodeHandle(const VantrelServerHandle&& server, const char* id) = delete;
    /// Copies refer to the same node and server and start without cached answers.
    VantrelNodeHandle(const VantrelNodeHandle& other);
    VantrelNodeHandle& operator=(const VantrelNodeHandle& other);
    /// Leaves `other` empty: every later call on it logs an assertion and fails, except assignment.
    VantrelNodeHandle(VantrelNodeHandle&& other) noexcept;
    VantrelNodeHandle& operator=(VantrelNodeHandle&& other) noexcept;
    virtual ~VantrelNodeHandle();

    /// VantrelServerHandle::lastError of the server handle: never null, valid until the next call on it.
    const char* lastError() const;
    /// VantrelServerHandle::lastErrorCode of the server handle.
    VantrelErrorCode lastErrorCode() const;

    // --- Identity ---

    /// The node's id; empty when the handle refers to no node. Valid until the handle is changed or
    /// destroyed.
    const VantrelNodeId& getNodeId() const;
    /// Points the handle at another node of the server, without asking whether it exists. The id already held
    /// changes nothing.
    void setNodeId(const VantrelNodeId& id);
    /// The server handle that this one refers to; without one, a handle that names no server.
    const VantrelServerHandle& getServer() const;
    /// Makes the handle refer to another server handle, which must outlive it.
    void setServer(const VantrelServerHandle& server);
    void setServer(const VantrelServerHandle&& server) = delete;

    /// The name that people see: not unique among the children of a node.
    bool getDisplayName(VantrelStr& displayName);
    /// The server's own number of the node's extended type; its text, such as "CLIP"; whether it is a clip.
    /// The first of the three asks the server for all.
    bool getNodeType(int& type);
    bool getNodeTypeStr(VantrelStr& type);
    bool getIsClipNode(bool& isClip);

    // --- Tree ---

    /// How many children the node has; the list is asked for once, and serves `getChild` too.
    bool getNumChildren(int& count);
    bool getNumChildren(unsigned int& count);
    /// The child at `index`, in the server's order. It knows its display name already.
    bool getChild(int index, VantrelNodeHandle& child);
    /// Asks the server every time. What the root's parent is, is the server's matter.
    bool getParentNode(VantrelNodeHandle& parent);

    /// Whether a node of the extended type, such as "REEL", may be created under this one. For servers older
    /// than 2015.0.0.0 the library decides by this node's type; a type that it does not know fails with
    /// "Unhandled parent node type '%s'".
    bool canCreateNode(const char* extendedType, bool& can);
    /// Creates a container under this node. `stream` and `metaData` give it its first metadata, null for
    /// none; servers older than 2012.0.0.5134 get neither. "Functionality not supported on remote Vantrel
    /// server." on servers older than 2.5.0.0.
    bool createNode(const char* displayName, const char* extendedType, VantrelNodeHandle& node);
    bool createNode(const char* displayName, const char* extendedType, const char* stream,
                    const char* metaData, VantrelNodeHandle& node);
    /// The same with the server's number of the extended type.
    bool createNode(const char* displayName, int extendedType, VantrelNodeHandle& node);
    /// Creates a clip, without frames, under this node. The format says what its frames are; `clip` knows it
    /// already.
    bool createClipNode(const char* displayName, const VantrelClipFormat& format, const char* extendedType,
                        VantrelNodeHandle& clip);
    bool createClipNode(const char* displayName, const VantrelClipFormat& format, int extendedType,
                        VantrelNodeHandle& clip);
    /// Copies `source`, a node of the same server, with all that is under it, to a new child of this node.
    /// "Functionality not supported on remote Vantrel server." on servers older than 2017.0.0.144.
    bool duplicateNode(const VantrelNodeHandle& source, const char* displayName, VantrelNodeHandle& copy);
    /// Gives the node another name. It may get a new id by that, which the handle then holds.
    bool renameNode(const char* displayName);
    /// Destroys the node and all that is under it; the handle then refers to no node.
    bool destroyNode();

    // --- Metadata ---

    /// The names of the streams in which the node offers metadata; asked for once.
    bool getNumAvailableMetaDataStreams(int& count);
    bool getAvailableMetaDataStream(int index, VantrelStr& stream);
    bool getIsMetaDataStreamAvailable(const char* stream, bool& available);
    /// The node's metadata in a stream such as VantrelMetaData::STREAM_XML(). What `filter` (null: none)
    /// selects, and how `depth` levels of nodes below are included, is the server's matter. A stream's name
    /// holds no blanks.
    bool getMetaData(const char* stream, const char* filter, int depth, VantrelStr& metaData);
    /// Replaces the node's metadata in a stream. "Functionality not supported on remote Vantrel server." on
    /// servers older than 2.5.0.0.
    bool setMetaData(const char* stream, const char* metaData);

    // --- Clip and frames ---

    /// What the clip's frames are; its frame buffer size is the length of a frame in bytes.
    bool getClipFormat(VantrelClipFormat& format);
    /// How many frames the clip has, and their ids, in order; the list is asked for once.
    bool getNumFrames(int& count);
    bool getNumFrames(unsigned int& count);
    bool getFrameId(int index, VantrelStr& frameId);
    /// Makes the clip have exactly `count` frames. Fails with "Invalid number of frames: %u" above
    /// 2147483647.
    bool setNumFrames(unsigned int count);
    /// Path of the frame's file as this host sees it. The list is asked for once; how many paths it has is
    /// the server's choice, and need not be the number of frames.
    bool getFrameIdPath(int index, VantrelStr& path);
    bool getNumFrameIdPaths(int& count);
    /// Makes the clip's frames the `count` files of `paths`, which stay where they are. "Server does not
    /// support linking to existing media files." on servers older than 2.6.0.0; "Invalid list of %d frame
    /// paths" for a negative count and for null in place of paths.
    bool linkToFrames(const VantrelStr* paths, int count);
    /// Id for VantrelServerHandle::readStream; empty on servers older than 2007.1.0.0.
    bool getStreamId(VantrelStr& streamId);

    /// Asks how many frames ahead of the one read the server prepares for this node, and from then on hints
    /// them with each read. "Functionality not supported on remote Vantrel server." on servers older than
    /// 2010.1.1.0.
    bool activateReadAhead();
    /// The same number, without hints from then on.
    bool getNbReadAheads(int& count);

    enum ReadAheadHint { NO_READ_AHEAD = 0, READ_AHEAD = 1 };

    /// Reads the first `size` bytes of the frame at `index` (see VantrelServerHandle::readFrame), by default
    /// hinting up to two of the frames that follow when read-ahead was activated. `buffer` holds at least
    /// `size` bytes; on failure its content is undefined. The longer form sends `requestSize` bytes of
    /// parameters along.
    bool readFrame(int index, void* buffer, unsigned long size, bool noReadAhead = false);
    bool readFrame(int index, const void* request, unsigned long requestSize, void* buffer,
                   unsigned long size, ReadAheadHint hint);
    /// Replaces the content of the frame at `index` by `size` bytes. True: the server has stored them.
    bool writeFrame(int index, const void* data, unsigned long size);

    /// For the library's own use. Null (and a logged assertion) when the handle was moved from.
    VantrelNodeImp* imp() const;

  private:
    VantrelNodeImp* imp_;
};
