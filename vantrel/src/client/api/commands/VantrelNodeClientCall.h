#pragma once

#include <exception>
#include <string>

#include "CoException.h"
#include "CoMsg.h"
#include "VantrelClipFormatCodec.h"
#include "VantrelNodeClientAPI.h"
#include "VantrelNodeCodec.h"
#include "rcAttrStream.h"

/// What the operations of VantrelNodeClientAPI, which fill several files, have in common.

/// Runs an operation; what it throws becomes the last error.
template <typename Operation>
bool VantrelNodeClientAPI::attempt(Operation operation) {
    try {
        operation();
        return true;
    } catch (const std::exception& failure) {
        setLastError(failure.what());
        return false;
    }
}

namespace VantrelNodeClientCall {

/// Most bytes of the message about an id with a comma.
constexpr std::size_t MAX_ID_MESSAGE_BYTES = 127;

inline const char* orEmpty(const char* text) {
    return text ? text : "";
}

inline std::string plainWord(const VantrelNodeId& node) {
    return VantrelNodeCodec::plainWord(node.id());
}

/// Plain forms that create something read their argument up to a comma: servers would take another node.
inline void refuseComma(const VantrelNodeId& node) {
    if (std::string(node.id()).find(',') == std::string::npos) return;
    std::string message = Vantrel::coFormat("Invalid node id: '%s'.", node.id());
    if (message.size() > MAX_ID_MESSAGE_BYTES) message.resize(MAX_ID_MESSAGE_BYTES);
    throw Vantrel::CoException(message);
}

/// A clip format travels as a stream of its own within the argument.
inline void addFormat(Vantrel::rcAttrStream& argument, const VantrelClipFormat& format) {
    Vantrel::rcAttrStream formatStream;
    Vantrel::VantrelClipFormatCodec::toStream(format, formatStream);
    argument.addStringValue("Fmt", std::string_view(formatStream.text()));
}

}  // namespace VantrelNodeClientCall
