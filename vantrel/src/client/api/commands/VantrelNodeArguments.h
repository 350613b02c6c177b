#pragma once

#include <string>
#include <string_view>

#include "VantrelClipFormatCodec.h"
#include "VantrelNodeCodec.h"
#include "rcAttrStream.h"

/// Pieces of the node commands' arguments.
namespace VantrelNodeArguments {

inline const char* orEmpty(const char* text) {
    return text ? text : "";
}

inline std::string plainWord(const VantrelNodeId& node) {
    return VantrelNodeCodec::plainWord(node.id());
}

using ColourSpace = Vantrel::VantrelClipFormatCodec::ColourSpace;

/// A clip format travels as a stream of its own within the argument.
inline void addFormat(Vantrel::rcAttrStream& argument, const VantrelClipFormat& format,
                      ColourSpace colourSpace = ColourSpace::Included) {
    Vantrel::rcAttrStream formatStream;
    Vantrel::VantrelClipFormatCodec::toStream(format, formatStream, colourSpace);
    argument.addStringValue("Fmt", std::string_view(formatStream.text()));
}

}  // namespace VantrelNodeArguments
