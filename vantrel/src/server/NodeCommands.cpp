#include "NodeCommands.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "ArgumentReader.h"
#include "CoException.h"
#include "CoMsg.h"
#include "NodeStreams.h"
#include "VantrelClipFormatCodec.h"
#include "VantrelMulticastProtocol.h"
#include "VantrelNodeInterface.h"
#include "VantrelNodeTypes.h"
#include "rcAttrStream.h"

namespace vantreld {

using Vantrel::CoException;
using Vantrel::coFormat;
using Vantrel::rcAttrStream;

namespace {

constexpr const char* METADATA_STREAMS[] = {"XML", "BLOB"};

void checkMetaDataStream(const std::string& stream) {
    for (const char* supported : METADATA_STREAMS) {
        if (stream == supported) return;
    }
    throw CoException(coFormat("Metadata stream '%.64s' is not supported.", stream.c_str()));
}

/// The extended type, by name or number, of a node to be created.
std::string requestedType(int nodeType, const std::string& extendedType, const std::string& displayName) {
    const bool isClip = nodeType == VantrelNodeInterface::CLIP;
    if (extendedType.empty() && isClip) return "CLIP";
    const std::string_view type = vantrelFindNodeType(extendedType);
    if (type.empty())
        throw CoException(coFormat("Cannot create '%.128s': unknown node type '%.64s'.", displayName.c_str(),
                                   extendedType.c_str()));
    if (isClip && !vantrelIsClipNodeType(type))
        throw CoException(coFormat("Cannot create clip '%.128s': a %s is not a clip.", displayName.c_str(),
                                   std::string(type).c_str()));
    return std::string(type);
}

std::string formatText(const VantrelClipFormat& format) {
    rcAttrStream stream;
    Vantrel::VantrelClipFormatCodec::toStream(format, stream);
    return stream.text();
}

}  // namespace

namespace Commands = VantrelCommands;

const NodeCommands::Command NodeCommands::COMMANDS[] = {
    {Commands::GET_DAEMON_INFO, &NodeCommands::getDaemonInfo},
    {Commands::GET_DAEMON_LIST, &NodeCommands::getDaemonList},
    {Commands::PING, &NodeCommands::ping},
    {Commands::QUERY_VERSION, &NodeCommands::queryVersion},
    {Commands::QUERY_NODE_PLUG_IN_VENDOR, &NodeCommands::queryVendor},
    {Commands::QUERY_NODE_PLUG_IN_PRODUCT, &NodeCommands::queryProduct},
    {Commands::QUERY_NODE_PLUG_IN_VERSION, &NodeCommands::queryProductVersion},
    {Commands::GET_STORAGE_ID, &NodeCommands::getStorageId},
    {Commands::GET_ROOT_NODE, &NodeCommands::getRootNode},
    {Commands::GET_PARENT_NODE, &NodeCommands::getParentNode},
    {Commands::GET_CHILDREN, &NodeCommands::getChildren},
    {Commands::GET_CHILDREN_EX, &NodeCommands::getChildrenEx},
    {Commands::GET_DISPLAY_NAME, &NodeCommands::getDisplayName},
    {Commands::GET_DISPLAY_NAME_EX, &NodeCommands::getDisplayNameEx},
    {Commands::GET_NODE_TYPE, &NodeCommands::getNodeType},
    {Commands::GET_NODE_TYPE_STR, &NodeCommands::getNodeTypeStr},
    {Commands::CAN_CREATE_NODE, &NodeCommands::canCreateNode},
    {Commands::CREATE_NODE, &NodeCommands::createNode},
    {Commands::CREATE_NODE_EX, &NodeCommands::createNodeEx},
    {Commands::RENAME_NODE, &NodeCommands::renameNode},
    {Commands::DUPLICATE_NODE, &NodeCommands::duplicateNode},
    {Commands::DESTROY_NODE, &NodeCommands::destroyNode},
    {Commands::QUERY_META_DATA_SUPPORT, &NodeCommands::queryMetaDataSupport},
    {Commands::GET_META_DATA, &NodeCommands::getMetaData},
    {Commands::SET_META_DATA, &NodeCommands::setMetaData},
    {Commands::GET_CLIP_FORMAT, &NodeCommands::getClipFormat},
    {Commands::GET_CLIP_FORMAT_EX, &NodeCommands::getClipFormatEx},
    {Commands::GET_FRAMES, &NodeCommands::getFrames},
    {Commands::GET_FRAMES_EX, &NodeCommands::getFramesEx},
    {Commands::ALLOCATE_FRAMES, &NodeCommands::allocateFrames},
    {Commands::ALLOCATE_FRAMES_EX, &NodeCommands::allocateFramesEx},
    {Commands::GET_FRAME_PATHS, &NodeCommands::getFramePaths},
    {Commands::GET_FRAME_PATHS_EX, &NodeCommands::getFramePathsEx},
    {Commands::SET_FRAME_PATHS, &NodeCommands::setFramePaths},
    {Commands::SET_FRAME_PATHS_EX, &NodeCommands::setFramePathsEx},
    {Commands::GET_STREAM_ID, &NodeCommands::getStreamId},
    {Commands::GET_NB_READ_AHEADS, &NodeCommands::getNbReadAheads},
    {Commands::TRANSLATE_PATHS, &NodeCommands::translatePaths},
    {Commands::GET_TRANSLATION_GROUPS, &NodeCommands::getTranslationGroups},
    {Commands::GET_HOST_TRANSLATIONS, &NodeCommands::getHostTranslations},
    {Commands::GET_OS_TYPE_TRANSLATIONS, &NodeCommands::getOsTypeTranslations},
};

NodeCommands::NodeCommands(NodeStore& store, VantrelVersion version,
                           std::function<VantrelDaemonInfo()> daemonInfo, PathTranslations translations)
    : store_(store),
      version_(version),
      daemonInfo_(std::move(daemonInfo)),
      translations_(std::move(translations)) {}

std::unordered_map<std::string, NodeCommands::Function> NodeCommands::functions() {
    std::unordered_map<std::string, Function> functions;
    for (const auto& [command, handler] : COMMANDS) {
        if (!(version_ >= command.since)) continue;
        functions.emplace(command.name, [this, handler = handler](const std::string& argument) {
            return (this->*handler)(argument);
        });
    }
    return functions;
}

// --- The server ---

std::string NodeCommands::getDaemonInfo(const std::string&) {
    return daemonInfo_().toAttrStream().text();
}

std::string NodeCommands::getDaemonList(const std::string&) {
    std::vector<VantrelDaemonInfo> servers{daemonInfo_()};
    if (otherServers_) {
        std::vector<VantrelDaemonInfo> others = otherServers_();
        std::move(others.begin(), others.end(), std::back_inserter(servers));
    }
    std::string list;
    VantrelMulticastProtocol::encode(servers, list);
    return list;
}

std::string NodeCommands::ping(const std::string&) {
    return {};
}

std::string NodeCommands::queryVersion(const std::string&) {
    return coFormat("%d %d", version_.major, version_.minor);
}

std::string NodeCommands::queryVendor(const std::string&) {
    return daemonInfo_().getVendor();
}

std::string NodeCommands::queryProduct(const std::string&) {
    return daemonInfo_().getProduct();
}

std::string NodeCommands::queryProductVersion(const std::string&) {
    const VantrelDaemonInfo info = daemonInfo_();
    return coFormat("%d %d", info.getProductVersionMajorNumber(), info.getProductVersionMinorNumber());
}

std::string NodeCommands::getStorageId(const std::string&) {
    return daemonInfo_().getStorageId();
}

// --- The tree ---

std::string NodeCommands::getRootNode(const std::string&) {
    return store_.rootId();
}

std::string NodeCommands::getParentNode(const std::string& argument) {
    const StreamArgument stream("GetParentNode", argument);
    return store_.parentId(stream.text("Node"));
}

std::string NodeCommands::getChildren(const std::string& argument) {
    return commaChildren(store_.children(nodeIdArgument(argument)));
}

std::string NodeCommands::getChildrenEx(const std::string& argument) {
    return streamChildren(store_.children(argument));
}

std::string NodeCommands::getDisplayName(const std::string& argument) {
    return store_.node(nodeIdArgument(argument)).displayName;
}

std::string NodeCommands::getDisplayNameEx(const std::string& argument) {
    return store_.node(argument).displayName;
}

std::string NodeCommands::getNodeType(const std::string& argument) {
    const std::string type = store_.node(nodeIdArgument(argument)).type;
    const bool isClip = vantrelIsClipNodeType(type);
    return coFormat("%d %d", isClip ? VantrelNodeInterface::CLIP : VantrelNodeInterface::CONTAINER,
                    vantrelNodeTypeNumber(type));
}

std::string NodeCommands::getNodeTypeStr(const std::string& argument) {
    return store_.node(nodeIdArgument(argument)).type;
}

std::string NodeCommands::canCreateNode(const std::string& argument) {
    const StreamArgument stream("CanCreateNode", argument);
    const NodeStore::Node parent = store_.node(stream.text("Node"));
    const std::string_view type = vantrelFindNodeType(stream.text("ExtendedType"));
    return vantrelNodeTypeAccepts(parent.type, type) ? "TRUE" : "FALSE";
}

std::string NodeCommands::createNode(const std::string& argument) {
    ArgumentReader pieces("CreateNode", argument);
    const std::string parent = pieces.next("parent");
    NodeStore::NewNode node;
    node.displayName = pieces.next("name");
    const int nodeType = pieces.nextInt("type");
    node.type = requestedType(nodeType, pieces.next("extended type"), node.displayName);
    if (vantrelIsClipNodeType(node.type)) {
        VantrelClipFormat format;
        std::string error;
        if (!Vantrel::VantrelClipFormatCodec::fromRequestText(pieces.rest(), format, error))
            throw CoException(error);
        node.format = formatText(format);
    }
    return store_.create(parent, node);
}

std::string NodeCommands::createNodeEx(const std::string& argument) {
    const StreamArgument stream("CreateNodeEx", argument);
    NodeStore::NewNode node;
    node.displayName = stream.text("Displ");
    node.type = requestedType(stream.number("Type"), stream.textOrEmpty("ExType"), node.displayName);
    if (vantrelIsClipNodeType(node.type)) node.format = formatText(stream.clipFormat());
    node.stream = stream.textOrEmpty("Stream");
    node.metaData = stream.textOrEmpty("Meta");
    if (!node.stream.empty()) checkMetaDataStream(node.stream);
    return store_.create(stream.text("Parent"), node);
}

std::string NodeCommands::renameNode(const std::string& argument) {
    const StreamArgument stream("RenameNode", argument);
    const std::string id = stream.text("Node");
    store_.rename(id, stream.text("Displ"));
    return id;
}

std::string NodeCommands::duplicateNode(const std::string& argument) {
    const StreamArgument stream("DuplicateNode", argument);
    return store_.duplicate(stream.text("ParentNodeId"), stream.text("DupeNodeId"),
                            stream.textOrEmpty("DisplayName"));
}

std::string NodeCommands::destroyNode(const std::string& argument) {
    store_.destroy(nodeIdArgument(argument));
    return {};
}

// --- Metadata and formats ---

std::string NodeCommands::queryMetaDataSupport(const std::string& argument) {
    store_.node(nodeIdArgument(argument));
    std::string streams;
    for (const char* stream : METADATA_STREAMS) streams += (streams.empty() ? "" : ",") + std::string(stream);
    return streams;
}

std::string NodeCommands::getMetaData(const std::string& argument) {
    // What a stream holds is the application's: it is given back whole, whatever the filter and the depth.
    ArgumentReader pieces("GetMetaData", argument);
    const std::string id = pieces.next("node");
    const std::string stream = pieces.next("stream");
    checkMetaDataStream(stream);
    return store_.metaData(id, stream);
}

std::string NodeCommands::setMetaData(const std::string& argument) {
    ArgumentReader pieces("SetMetaData", argument);
    const std::string id = pieces.next("node");
    const std::string stream = pieces.next("stream");
    checkMetaDataStream(stream);
    const std::string data = pieces.next("data");
    // Data without quotes has fallen apart: better refused than kept by half.
    if (!pieces.rest().empty())
        throw CoException("Invalid SetMetaData parameter: text follows the data, which is one quoted piece.");
    store_.setMetaData(id, stream, data);
    return {};
}

std::string NodeCommands::getClipFormat(const std::string& argument) {
    VantrelClipFormat format;
    std::string error;
    const rcAttrStream stream(store_.clipFormat(nodeIdArgument(argument)));
    if (!Vantrel::VantrelClipFormatCodec::fromStream(stream, "GetClipFormat", format, error))
        throw CoException(error);
    return Vantrel::VantrelClipFormatCodec::toReplyText(format);
}

std::string NodeCommands::getClipFormatEx(const std::string& argument) {
    return store_.clipFormat(argument);
}

}  // namespace vantreld
