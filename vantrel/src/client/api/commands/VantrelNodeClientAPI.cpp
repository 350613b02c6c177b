#include "VantrelNodeClientAPI.h"

#include <strings.h>

#include "CoException.h"
#include "CoMsg.h"
#include "VantrelBaseInterface.h"
#include "VantrelNodeArguments.h"
#include "VantrelNodeCodec.h"
#include "VantrelNodeTypes.h"
#include "rcAttrStream.h"
#include "rcParam.h"

using namespace VantrelNodeArguments;
using Vantrel::CoException;
using Vantrel::coFormat;
using Vantrel::rcAttrStream;
using Vantrel::rcParamStringToEscapedString;
using Vantrel::VantrelClipFormatCodec;
namespace Commands = VantrelCommands;

namespace {

/// Most bytes of the message about an id with a comma.
constexpr std::size_t MAX_ID_MESSAGE_BYTES = 127;

/// Streams carry names in UTF-8; the plain forms carry them as they are.
void addName(rcAttrStream& stream, const char* key, const char* name) {
    std::string buffer;
    stream.addStringValue(key, VantrelBaseInterface::localeToUTF8(orEmpty(name), buffer));
}

void addUnlessEmpty(rcAttrStream& stream, const char* key, const char* text) {
    if (text && *text) stream.addStringValue(key, text);
}

/// For replies that are a node's id.
auto takeId(VantrelNodeId& id) {
    return [&id](const std::string& reply) { id.setId(reply.c_str()); };
}

}  // namespace

/// Servers read the arguments of plain forms that create something up to a comma, and would take another
/// node.
bool VantrelNodeClientAPI::checkNoComma(const VantrelNodeId& node) {
    if (std::string(node.id()).find(',') == std::string::npos) return true;
    std::string message = coFormat("Invalid node id: '%s'.", node.id());
    if (message.size() > MAX_ID_MESSAGE_BYTES) message.resize(MAX_ID_MESSAGE_BYTES);
    return fail(VANTREL_ERROR_INVALID_ARGUMENT, std::move(message));
}

// --- The server ---

bool VantrelNodeClientAPI::getStorageId(std::string& id) {
    return ask(Commands::GET_STORAGE_ID, "", id);
}

bool VantrelNodeClientAPI::queryNodePlugInVendor(std::string& vendor) {
    return ask(Commands::QUERY_NODE_PLUG_IN_VENDOR, "", vendor);
}

bool VantrelNodeClientAPI::queryNodePlugInProduct(std::string& product) {
    return ask(Commands::QUERY_NODE_PLUG_IN_PRODUCT, "", product);
}

bool VantrelNodeClientAPI::queryNodePlugInVersion(int& major, int& minor) {
    return ask(Commands::QUERY_NODE_PLUG_IN_VERSION, "", [&](const std::string& reply) {
        if (!VantrelNodeCodec::parseNumberPair(reply, major, minor)) throw CoException("Invalid version");
    });
}

// --- Walking the tree ---

bool VantrelNodeClientAPI::getRootNode(VantrelNodeId& root) {
    return ask(Commands::GET_ROOT_NODE, "", takeId(root));
}

bool VantrelNodeClientAPI::getParentNode(const VantrelNodeId& node, VantrelNodeId& parent) {
    rcAttrStream argument;
    argument.addStringValue("Node", node.id());
    return ask(Commands::GET_PARENT_NODE, argument.text(), takeId(parent));
}

bool VantrelNodeClientAPI::getChildren(const VantrelNodeId& node, NodeInfoList& children) {
    const VantrelCommand* form = formOf(Commands::GET_CHILDREN);
    if (!form) return false;
    const bool plain = form == &Commands::GET_CHILDREN;
    return ask(*form, plain ? plainWord(node) : node.id(), [&](std::string reply) {
        const auto parse = plain ? &VantrelNodeCodec::parseChildren : &VantrelNodeCodec::parseChildrenEx;
        std::string error;
        if (!parse(std::move(reply), children, error)) throw CoException(error);
    });
}

// --- One node ---

bool VantrelNodeClientAPI::getType(const VantrelNodeId& node, Type& type) {
    Type read;
    const bool ok = ask(Commands::GET_NODE_TYPE, plainWord(node), [&](const std::string& reply) {
        int kind = 0;
        if (!VantrelNodeCodec::parseNumberPair(reply, kind, read.extended)) {
            throw CoException("Invalid node type");
        }
        read.kind = static_cast<NodeType>(kind);
    });
    if (!ok || !ask(Commands::GET_NODE_TYPE_STR, plainWord(node), read.text)) return false;
    type = std::move(read);
    return true;
}

bool VantrelNodeClientAPI::getDisplayName(const VantrelNodeId& node, std::string& name) {
    const VantrelCommand* form = formOf(Commands::GET_DISPLAY_NAME);
    if (!form) return false;
    if (form == &Commands::GET_DISPLAY_NAME) return ask(*form, plainWord(node), name);
    return ask(*form, node.id(), [&](std::string reply) {
        std::string buffer;
        const std::string_view converted = VantrelBaseInterface::utf8ToLocale(reply, buffer);
        name = converted.data() == reply.data() ? std::move(reply) : std::move(buffer);
    });
}

bool VantrelNodeClientAPI::getStreamId(const VantrelNodeId& node, VantrelStr& streamId) {
    VantrelVersion version{};
    if (!serverVersion(version)) return false;
    if (!(version >= Commands::GET_STREAM_ID.since)) {
        streamId.clear();
        return true;
    }
    return ask(Commands::GET_STREAM_ID, plainWord(node),
               [&](const std::string& reply) { streamId = reply.c_str(); });
}

bool VantrelNodeClientAPI::getNbReadAheads(const VantrelNodeId& node, int& count) {
    return require(Commands::GET_NB_READ_AHEADS, NOT_SUPPORTED) &&
           ask(Commands::GET_NB_READ_AHEADS, plainWord(node),
               [&](const std::string& reply) { count = VantrelNodeCodec::parseNumber(reply); });
}

// --- Changing the tree ---

bool VantrelNodeClientAPI::canCreateNode(const VantrelNodeId& parent, std::optional<Type>& known,
                                         const char* extendedType, bool& can) {
    VantrelVersion version{};
    if (!serverVersion(version)) return false;
    if (version >= Commands::CAN_CREATE_NODE.since) {
        rcAttrStream argument;
        argument.addStringValue("Node", parent.id());
        argument.addStringValue("ExtendedType", orEmpty(extendedType));
        return ask(Commands::CAN_CREATE_NODE, argument.text(),
                   [&](const std::string& reply) { can = ::strcasecmp(reply.c_str(), "TRUE") == 0; });
    }
    if (!known) {
        Type own;
        if (!getType(parent, own)) return false;
        known = std::move(own);
    }
    if (!vantrelIsKnownNodeType(known->text)) {
        return fail(VANTREL_ERROR_NOT_SUPPORTED,
                    coFormat("Unhandled parent node type '%s'", known->text.c_str()));
    }
    can = vantrelNodeTypeAccepts(known->text, orEmpty(extendedType));
    return true;
}

bool VantrelNodeClientAPI::createNode(const VantrelNodeId& parent, const char* name, NodeType type,
                                      const char* extendedType, const char* stream, const char* metaData,
                                      const VantrelClipFormat& format, VantrelNodeId& created) {
    // Clips could be created before containers could.
    if (type == VantrelNodeInterface::CONTAINER && !require(Commands::CREATE_NODE, NOT_SUPPORTED)) {
        return false;
    }
    const VantrelCommand* form = formOf(Commands::CREATE_NODE);
    if (!form) return false;
    if (form == &Commands::CREATE_NODE) {
        if (!checkNoComma(parent)) return false;
        const std::string words = coFormat("%s %s %d %s ", plainWord(parent).c_str(),
                                           rcParamStringToEscapedString(orEmpty(name)).c_str(),
                                           static_cast<int>(type), orEmpty(extendedType));
        return ask(*form, words + VantrelClipFormatCodec::toRequestText(format), takeId(created));
    }
    rcAttrStream argument;
    argument.addStringValue("Parent", parent.id());
    addName(argument, "Displ", name);
    argument.addIntValue("Type", type);
    addUnlessEmpty(argument, "ExType", extendedType);
    addFormat(argument, format);
    addUnlessEmpty(argument, "Stream", stream);
    addUnlessEmpty(argument, "Meta", metaData);
    return ask(*form, argument.text(), takeId(created));
}

bool VantrelNodeClientAPI::renameNode(VantrelNodeId& node, const char* name) {
    rcAttrStream argument;
    argument.addStringValue("Node", node.id());
    addName(argument, "Displ", name);
    return ask(Commands::RENAME_NODE, argument.text(), takeId(node));
}

bool VantrelNodeClientAPI::duplicateNode(const VantrelNodeId& parent, const VantrelNodeId& source,
                                         const char* name, VantrelNodeId& copy) {
    if (!require(Commands::DUPLICATE_NODE, NOT_SUPPORTED)) return false;
    rcAttrStream argument;
    argument.addStringValue("ParentNodeId", parent.id());
    argument.addStringValue("DupeNodeId", source.id());
    addName(argument, "DisplayName", name);
    return ask(Commands::DUPLICATE_NODE, argument.text(), takeId(copy));
}

bool VantrelNodeClientAPI::destroyNode(const VantrelNodeId& node) {
    return ask(Commands::DESTROY_NODE, plainWord(node));
}

// --- Metadata ---

bool VantrelNodeClientAPI::queryMetaDataSupport(const VantrelNodeId& node,
                                                std::vector<std::string>& streams) {
    return ask(Commands::QUERY_META_DATA_SUPPORT, plainWord(node),
               [&](const std::string& reply) { VantrelNodeCodec::parseCommaList(reply, streams); });
}

bool VantrelNodeClientAPI::getMetaData(const VantrelNodeId& node, const char* stream, const char* filter,
                                       int depth, std::string& metaData) {
    // An empty filter still has to be a piece of its own.
    const std::string filterWord =
        *orEmpty(filter) ? VantrelNodeCodec::plainWord(filter) : rcParamStringToEscapedString("");
    return ask(Commands::GET_META_DATA,
               coFormat("%s %s %s %d", plainWord(node).c_str(), orEmpty(stream), filterWord.c_str(), depth),
               metaData);
}

bool VantrelNodeClientAPI::setMetaData(const VantrelNodeId& node, const char* stream, const char* data) {
    return require(Commands::SET_META_DATA, NOT_SUPPORTED) &&
           ask(Commands::SET_META_DATA,
               plainWord(node) + ' ' + orEmpty(stream) + ' ' + rcParamStringToEscapedString(orEmpty(data)));
}
