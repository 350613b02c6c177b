#include "NodeStreams.h"

#include <algorithm>

#include "ArgumentReader.h"
#include "CoException.h"
#include "CoMsg.h"
#include "VantrelClipFormatCodec.h"

namespace vantreld {

using Vantrel::CoException;
using Vantrel::coFormat;
using Vantrel::rcAttrStream;

namespace {

constexpr char COMMA = ',';

/// What a comma in a display name becomes where a comma would end it and shift every later child.
constexpr char COMMA_STAND_IN = '_';

}  // namespace

std::string StreamArgument::text(const char* key) const {
    std::string value;
    if (!stream_.getStringValue(key, value))
        throw CoException(coFormat("Missing %s parameter: %s", command_, key));
    return value;
}

int StreamArgument::number(const char* key) const {
    return parseIntParameter(command_, key, text(key));
}

std::string StreamArgument::textOrEmpty(const char* key) const {
    std::string value;
    stream_.getStringValue(key, value);
    return value;
}

VantrelClipFormat StreamArgument::clipFormat() const {
    VantrelClipFormat format;
    std::string error;
    if (!Vantrel::VantrelClipFormatCodec::fromStream(rcAttrStream(text("Fmt")), command_, format, error))
        throw CoException(error);
    return format;
}

std::string streamChildren(const std::vector<NodeStore::Child>& children) {
    rcAttrStream reply;
    std::size_t index = 0;
    for (const NodeStore::Child& node : children) {
        rcAttrStream child;
        child.addStringValue("Id", std::string_view(node.id));
        child.addStringValue("Displ", std::string_view(node.displayName));
        reply.addStringValue(std::to_string(index++).c_str(), std::string_view(child.text()));
    }
    return reply.text();
}

std::string commaChildren(const std::vector<NodeStore::Child>& children) {
    std::string reply;
    for (const NodeStore::Child& node : children) {
        std::string name = node.displayName;
        std::replace(name.begin(), name.end(), COMMA, COMMA_STAND_IN);
        if (!reply.empty()) reply.push_back(COMMA);
        reply += node.id + COMMA + name;
    }
    return reply;
}

}  // namespace vantreld
