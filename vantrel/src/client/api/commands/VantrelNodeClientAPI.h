#pragma once

#include <vantrel/VantrelFormats.h>
#include <vantrel/VantrelTypes.h>

#include <optional>
#include <string>
#include <vector>

#include "VantrelCommandClient.h"
#include "VantrelNodeInterface.h"

/// The client's side of the node commands: each operation sends one command over the server's metadata
/// connection, in the form that the server knows, and reads the reply into values.
///
/// On failure ids, texts, numbers and formats are left as they were; lists are emptied first and may hold the
/// elements before a fault. A null text counts as empty. A call takes no longer than the connection's call
/// time-out, plus connecting where needed. What a server is too old for fails with NOT_SUPPORTED unless it
/// says otherwise. The plain forms of what creates something cannot carry a comma in the node's id: with one
/// the operation fails and nothing is sent.
class VantrelNodeClientAPI : public VantrelCommandClient {
  public:
    using NodeType = VantrelNodeInterface::NodeType;
    using Type = VantrelNodeInterface::Type;
    using NodeInfoList = VantrelNodeInterface::NodeInfoList;

    using VantrelCommandClient::VantrelCommandClient;

    static constexpr const char* NOT_SUPPORTED = "Functionality not supported on remote Vantrel server.";

    // --- The server ---

    [[nodiscard]] bool getStorageId(std::string& id);
    /// Vendor, product and version of the software behind the node tree.
    [[nodiscard]] bool queryNodePlugInVendor(std::string& vendor);
    [[nodiscard]] bool queryNodePlugInProduct(std::string& product);
    [[nodiscard]] bool queryNodePlugInVersion(int& major, int& minor);

    // --- Walking the tree ---

    [[nodiscard]] bool getRootNode(VantrelNodeId& root);
    [[nodiscard]] bool getParentNode(const VantrelNodeId& node, VantrelNodeId& parent);
    [[nodiscard]] bool getChildren(const VantrelNodeId& node, NodeInfoList& children);

    // --- One node ---

    /// Two commands: one for the numbers, one for the text.
    [[nodiscard]] bool getType(const VantrelNodeId& node, Type& type);
    [[nodiscard]] bool getDisplayName(const VantrelNodeId& node, std::string& name);
    /// Empty, and nothing is sent, when the server has no streams.
    [[nodiscard]] bool getStreamId(const VantrelNodeId& node, VantrelStr& streamId);
    /// Number of frames that the server reads ahead for this node.
    [[nodiscard]] bool getNbReadAheads(const VantrelNodeId& node, int& count);

    // --- Changing the tree ---

    /// A server that cannot be asked is asked for the parent's type instead, unless `known` holds it; it then
    /// does.
    [[nodiscard]] bool canCreateNode(const VantrelNodeId& parent, std::optional<Type>& known,
                                     const char* extendedType, bool& can);
    /// The extended form takes the new node's metadata, too: `metaData` in the form that `stream` names;
    /// empty texts are left out.
    [[nodiscard]] bool createNode(const VantrelNodeId& parent, const char* name, NodeType type,
                                  const char* extendedType, const char* stream, const char* metaData,
                                  const VantrelClipFormat& format, VantrelNodeId& created);
    /// `node` takes the id that the node has from then on.
    [[nodiscard]] bool renameNode(VantrelNodeId& node, const char* name);
    [[nodiscard]] bool duplicateNode(const VantrelNodeId& parent, const VantrelNodeId& source,
                                     const char* name, VantrelNodeId& copy);
    [[nodiscard]] bool destroyNode(const VantrelNodeId& node);

    // --- Metadata ---

    /// Names of the metadata streams that a node offers.
    [[nodiscard]] bool queryMetaDataSupport(const VantrelNodeId& node, std::vector<std::string>& streams);
    /// `filter` and `depth` are the server's to read.
    [[nodiscard]] bool getMetaData(const VantrelNodeId& node, const char* stream, const char* filter,
                                   int depth, std::string& metaData);
    [[nodiscard]] bool setMetaData(const VantrelNodeId& node, const char* stream, const char* data);

    // --- Clips ---

    [[nodiscard]] bool getClipFormat(const VantrelNodeId& node, VantrelClipFormat& format);
    [[nodiscard]] bool getFrames(const VantrelNodeId& node, std::vector<VantrelFrameId>& frames);
    /// Makes `count` the clip's number of frames and gives the ids of all.
    [[nodiscard]] bool allocateFrames(const VantrelNodeId& node, int count, const VantrelClipFormat& format,
                                      std::vector<VantrelFrameId>& frames);

    /// Paths of a clip's frames as this host sees them.
    [[nodiscard]] bool getFramePaths(const VantrelNodeId& node, std::vector<std::string>& paths);
    /// Whether setFramePaths is of any use; false with a reason of its own when not.
    [[nodiscard]] bool requireFrameLinks();
    [[nodiscard]] bool setFramePaths(const VantrelNodeId& node, const std::vector<std::string>& paths,
                                     const VantrelClipFormat& format);

  private:
    [[nodiscard]] bool checkNoComma(const VantrelNodeId& node);
    [[nodiscard]] bool addFormatOfClip(Vantrel::rcAttrStream& argument, const VantrelClipFormat& format);
};
