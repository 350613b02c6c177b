#include "VantrelNodeClientAPI.h"

#include <strings.h>

#include "VantrelBaseInterface.h"
#include "VantrelClientConnection.h"
#include "VantrelClipFormatCodec.h"
#include "VantrelNodeClientCall.h"
#include "VantrelNodeCodec.h"
#include "rcAttrStream.h"
#include "rcParam.h"

using namespace VantrelNodeClientCall;
using Vantrel::CoException;
using Vantrel::rcAttrStream;
using Vantrel::rcParamStringToEscapedString;
using Vantrel::VantrelClipFormatCodec;

namespace {

/// Streams carry names in UTF-8; the plain forms carry them as they are.
void addName(rcAttrStream& stream, const char* key, const char* name) {
    std::string buffer;
    stream.addStringValue(key, VantrelBaseInterface::localeToUTF8(orEmpty(name), buffer));
}

void addUnlessEmpty(rcAttrStream& stream, const char* key, const char* text) {
    if (text && *text) stream.addStringValue(key, text);
}

}  // namespace

std::string VantrelNodeClientAPI::call(const char* command, const std::string& argument) {
    const unsigned retryTimeoutMs = VantrelClientConnection::getDefaultConnectionRetryTimeoutMs();
    const unsigned connectionTimeoutMs = VantrelClientConnection::getDefaultConnectionTimeoutMs();
    const unsigned callTimeoutMs = VantrelClientConnection::getDefaultCallTimeoutMs();
    std::string reply;
    connection_.callMethod(command, argument.c_str(), true, reply, callTimeoutMs, connectionTimeoutMs,
                           retryTimeoutMs);
    return reply;
}

bool VantrelNodeClientAPI::query(const char* command, const std::string& argument, std::string& reply) {
    return attempt([&] { reply = call(command, argument); });
}

bool VantrelNodeClientAPI::getStorageId(std::string& id) {
    return query("GetStorageId", "", id);
}

bool VantrelNodeClientAPI::queryNodePlugInVendor(std::string& vendor) {
    return query("QueryNodePlugInVendor", "", vendor);
}

bool VantrelNodeClientAPI::queryNodePlugInProduct(std::string& product) {
    return query("QueryNodePlugInProduct", "", product);
}

bool VantrelNodeClientAPI::queryNodePlugInVersion(int& major, int& minor) {
    return attempt([&] {
        const std::string reply = call("QueryNodePlugInVersion", "");
        if (!VantrelNodeCodec::parseNumberPair(reply, major, minor)) throw CoException("Invalid version");
    });
}

bool VantrelNodeClientAPI::getRootNode(VantrelNodeId& root) {
    return attempt([&] { root.setId(call("GetRootNode", "").c_str()); });
}

bool VantrelNodeClientAPI::getParentNode(const VantrelNodeId& node, VantrelNodeId& parent) {
    return attempt([&] {
        rcAttrStream argument;
        argument.addStringValue("Node", node.id());
        parent.setId(call("GetParentNode", argument.text()).c_str());
    });
}

bool VantrelNodeClientAPI::getChildren(const VantrelNodeId& node, NodeInfoList& children) {
    return attempt([&] {
        std::string reply = call("GetChildren", plainWord(node));
        std::string error;
        if (!VantrelNodeCodec::parseChildren(std::move(reply), children, error)) throw CoException(error);
    });
}

bool VantrelNodeClientAPI::getChildrenEx(const VantrelNodeId& node, NodeInfoList& children) {
    return attempt([&] {
        std::string reply = call("GetChildrenEx", node.id());
        std::string error;
        if (!VantrelNodeCodec::parseChildrenEx(std::move(reply), children, error)) throw CoException(error);
    });
}

bool VantrelNodeClientAPI::getNodeType(const VantrelNodeId& node, NodeType& type, int& extendedType) {
    return attempt([&] {
        int number = 0;
        const std::string reply = call("GetNodeType", plainWord(node));
        if (!VantrelNodeCodec::parseNumberPair(reply, number, extendedType)) {
            throw CoException("Invalid node type");
        }
        type = static_cast<NodeType>(number);
    });
}

bool VantrelNodeClientAPI::getNodeTypeStr(const VantrelNodeId& node, std::string& type) {
    return query("GetNodeTypeStr", plainWord(node), type);
}

bool VantrelNodeClientAPI::getDisplayName(const VantrelNodeId& node, std::string& name) {
    return query("GetDisplayName", plainWord(node), name);
}

bool VantrelNodeClientAPI::getDisplayNameEx(const VantrelNodeId& node, std::string& name) {
    return attempt([&] {
        std::string buffer;
        std::string reply = call("GetDisplayNameEx", node.id());
        const std::string_view converted = VantrelBaseInterface::utf8ToLocale(reply, buffer);
        name = converted.data() == reply.data() ? std::move(reply) : std::move(buffer);
    });
}

bool VantrelNodeClientAPI::getStreamId(const VantrelNodeId& node, VantrelStr& streamId) {
    return attempt([&] { streamId = call("GetStreamId", plainWord(node)).c_str(); });
}

bool VantrelNodeClientAPI::getNbReadAheads(const VantrelNodeId& node, int& count) {
    return attempt([&] { count = VantrelNodeCodec::parseNumber(call("GetNbReadAheads", plainWord(node))); });
}

bool VantrelNodeClientAPI::canCreateNode(const VantrelNodeId& parent, const char* extendedType, bool& can) {
    return attempt([&] {
        rcAttrStream argument;
        argument.addStringValue("Node", parent.id());
        argument.addStringValue("ExtendedType", orEmpty(extendedType));
        can = ::strcasecmp(call("CanCreateNode", argument.text()).c_str(), "TRUE") == 0;
    });
}

bool VantrelNodeClientAPI::createNode(const VantrelNodeId& parent, const char* name, NodeType type,
                                      const char* extendedType, const VantrelClipFormat& format,
                                      VantrelNodeId& created) {
    return attempt([&] {
        refuseComma(parent);
        const std::string argument = Vantrel::coFormat("%s %s %d %s ", plainWord(parent).c_str(),
                                                       rcParamStringToEscapedString(orEmpty(name)).c_str(),
                                                       static_cast<int>(type), orEmpty(extendedType)) +
                                     VantrelClipFormatCodec::toRequestText(format);
        created.setId(call("CreateNode", argument).c_str());
    });
}

bool VantrelNodeClientAPI::createNodeEx(const VantrelNodeId& parent, const char* name, NodeType type,
                                        const char* extendedType, const char* stream, const char* metaData,
                                        const VantrelClipFormat& format, VantrelNodeId& created) {
    return attempt([&] {
        rcAttrStream argument;
        argument.addStringValue("Parent", parent.id());
        addName(argument, "Displ", name);
        argument.addIntValue("Type", type);
        addUnlessEmpty(argument, "ExType", extendedType);
        addFormat(argument, format);
        addUnlessEmpty(argument, "Stream", stream);
        addUnlessEmpty(argument, "Meta", metaData);
        created.setId(call("CreateNodeEx", argument.text()).c_str());
    });
}

bool VantrelNodeClientAPI::renameNode(VantrelNodeId& node, const char* name) {
    return attempt([&] {
        rcAttrStream argument;
        argument.addStringValue("Node", node.id());
        addName(argument, "Displ", name);
        node.setId(call("RenameNode", argument.text()).c_str());
    });
}

bool VantrelNodeClientAPI::duplicateNode(const VantrelNodeId& parent, const VantrelNodeId& source,
                                         const char* name, VantrelNodeId& copy) {
    return attempt([&] {
        rcAttrStream argument;
        argument.addStringValue("ParentNodeId", parent.id());
        argument.addStringValue("DupeNodeId", source.id());
        addName(argument, "DisplayName", name);
        copy.setId(call("DuplicateNode", argument.text()).c_str());
    });
}

bool VantrelNodeClientAPI::destroyNode(const VantrelNodeId& node) {
    std::string ignored;
    return query("DestroyNode", plainWord(node), ignored);
}

bool VantrelNodeClientAPI::queryMetaDataSupport(const VantrelNodeId& node,
                                                std::vector<std::string>& streams) {
    return attempt(
        [&] { VantrelNodeCodec::parseCommaList(call("QueryMetaDataSupport", plainWord(node)), streams); });
}

bool VantrelNodeClientAPI::getMetaData(const VantrelNodeId& node, const char* stream, const char* filter,
                                       int depth, std::string& metaData) {
    return attempt([&] {
        // An empty filter still has to be a piece of its own.
        const std::string filterWord =
            *orEmpty(filter) ? VantrelNodeCodec::plainWord(filter) : rcParamStringToEscapedString("");
        metaData = call("GetMetaData", Vantrel::coFormat("%s %s %s %d", plainWord(node).c_str(),
                                                         orEmpty(stream), filterWord.c_str(), depth));
    });
}

bool VantrelNodeClientAPI::setMetaData(const VantrelNodeId& node, const char* stream, const char* data) {
    return attempt([&] {
        call("SetMetaData",
             plainWord(node) + ' ' + orEmpty(stream) + ' ' + rcParamStringToEscapedString(orEmpty(data)));
    });
}
