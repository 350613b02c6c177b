#include "NodeStreams.h"

#include <algorithm>

#include "ArgumentReader.h"
#include "CoException.h"
#include "CoMsg.h"
#include "VantrelClipFormatCodec.h"
#include "VantrelNodeCodec.h"

namespace vantreld {

using Vantrel::CoException;
using Vantrel::coFormat;
using Vantrel::rcAttrStream;

namespace {

constexpr char COMMA = ',';

/// What a comma becomes in a text that it would end: it would shift every later one.
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

std::string commaPaths(std::vector<std::string> paths, const std::vector<std::string>& frameIds) {
    for (std::size_t i = 0; i < paths.size(); ++i) {
        std::replace(paths[i].begin(), paths[i].end(), COMMA, COMMA_STAND_IN);
        // Clients drop what is empty between two commas. An id leads nowhere as a path.
        if (paths[i].empty() && i < frameIds.size()) paths[i] = frameIds[i];
    }
    return VantrelNodeCodec::joinWithCommas(paths);
}

std::vector<std::string> splitPaths(std::string_view text) {
    std::vector<std::string> paths;
    while (!text.empty()) {
        const std::size_t comma = text.find(COMMA);
        paths.emplace_back(text.substr(0, comma));
        if (comma == std::string_view::npos) break;
        text.remove_prefix(comma + 1);
        if (text.empty()) paths.emplace_back();
    }
    return paths;
}

}  // namespace vantreld
