#pragma once

#include <vantrel/VantrelFormats.h>
#include <vantrel/VantrelTypes.h>

#include <string>
#include <vector>

#include "VantrelNodeInterface.h"

class VantrelClientConnection;

/// The client's side of the node commands: each operation sends one command over the server's metadata
/// connection and reads the reply into values. Names ending in "Ex" are the newer form of the same operation;
/// which form a server knows is its caller's concern.
///
/// Every operation returns true on success. On failure it returns false and `lastError` tells why: the
/// server's own text, the transport's, or what is wrong with the reply. Ids, texts, numbers and formats are
/// assigned on success only; lists are emptied first and may hold the elements before a fault. A null text
/// counts as empty. A call takes no longer than the connection's call time-out, plus connecting where needed.
///
/// Thread safety: one object is used by one thread at a time. The connection is not owned and must outlive
/// it.
class VantrelNodeClientAPI : public VantrelNodeInterface {
  public:
    explicit VantrelNodeClientAPI(VantrelClientConnection& connection) : connection_(connection) {}

    // --- The server ---

    bool getStorageId(std::string& id);
    /// Vendor, product and version of the software behind the node tree.
    bool queryNodePlugInVendor(std::string& vendor);
    bool queryNodePlugInProduct(std::string& product);
    bool queryNodePlugInVersion(int& major, int& minor);

    // --- Walking the tree ---

    bool getRootNode(VantrelNodeId& root);
    bool getParentNode(const VantrelNodeId& node, VantrelNodeId& parent);
    bool getChildren(const VantrelNodeId& node, NodeInfoList& children);
    bool getChildrenEx(const VantrelNodeId& node, NodeInfoList& children);

    // --- One node ---

    /// `extendedType` is the server's own number of the node's type text.
    bool getNodeType(const VantrelNodeId& node, NodeType& type, int& extendedType);
    bool getNodeTypeStr(const VantrelNodeId& node, std::string& type);
    bool getDisplayName(const VantrelNodeId& node, std::string& name);
    bool getDisplayNameEx(const VantrelNodeId& node, std::string& name);
    bool getStreamId(const VantrelNodeId& node, VantrelStr& streamId);
    /// Number of frames that the server reads ahead for this node.
    bool getNbReadAheads(const VantrelNodeId& node, int& count);

    // --- Changing the tree ---

    bool canCreateNode(const VantrelNodeId& parent, const char* extendedType, bool& can);
    /// Fails without sending anything when the parent's id holds a comma, which the plain form cannot carry.
    bool createNode(const VantrelNodeId& parent, const char* name, NodeType type, const char* extendedType,
                    const VantrelClipFormat& format, VantrelNodeId& created);
    /// With the new node's metadata, `metaData` in the form that `stream` names; empty texts are left out.
    bool createNodeEx(const VantrelNodeId& parent, const char* name, NodeType type, const char* extendedType,
                      const char* stream, const char* metaData, const VantrelClipFormat& format,
                      VantrelNodeId& created);
    /// `node` takes the id that the node has from then on.
    bool renameNode(VantrelNodeId& node, const char* name);
    bool duplicateNode(const VantrelNodeId& parent, const VantrelNodeId& source, const char* name,
                       VantrelNodeId& copy);
    bool destroyNode(const VantrelNodeId& node);

    // --- Metadata ---

    /// Names of the metadata streams that a node offers.
    bool queryMetaDataSupport(const VantrelNodeId& node, std::vector<std::string>& streams);
    /// `filter` and `depth` are the server's to read.
    bool getMetaData(const VantrelNodeId& node, const char* stream, const char* filter, int depth,
                     std::string& metaData);
    bool setMetaData(const VantrelNodeId& node, const char* stream, const char* data);

    // --- Clips ---

    bool getClipFormat(const VantrelNodeId& node, VantrelClipFormat& format);
    bool getClipFormatEx(const VantrelNodeId& node, VantrelClipFormat& format);

    bool getFrames(const VantrelNodeId& node, std::vector<VantrelFrameId>& frames);
    bool getFramesEx(const VantrelNodeId& node, std::vector<VantrelFrameId>& frames);
    /// Makes `count` the clip's number of frames and gives the ids of all. The plain form fails without
    /// sending anything when the node's id holds a comma.
    bool allocateFrames(const VantrelNodeId& node, int count, const VantrelClipFormat& format,
                        std::vector<VantrelFrameId>& frames);
    bool allocateFramesEx(const VantrelNodeId& node, int count, const VantrelClipFormat& format,
                          std::vector<VantrelFrameId>& frames);

    /// Paths of a clip's frames as this host sees them. The plain forms fail without sending anything when
    /// the node's id holds a comma.
    bool getFramePaths(const VantrelNodeId& node, std::vector<std::string>& paths);
    bool getFramePathsEx(const VantrelNodeId& node, std::vector<std::string>& paths);
    bool setFramePaths(const VantrelNodeId& node, const std::vector<std::string>& paths,
                       const VantrelClipFormat& format);
    bool setFramePathsEx(const VantrelNodeId& node, const std::vector<std::string>& paths,
                         const VantrelClipFormat& format);

  private:
    template <typename Operation>
    bool attempt(Operation operation);
    bool query(const char* command, const std::string& argument, std::string& reply);
    std::string call(const char* command, const std::string& argument);

    VantrelClientConnection& connection_;
};
