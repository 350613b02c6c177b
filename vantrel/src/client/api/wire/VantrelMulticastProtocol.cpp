#include "VantrelMulticastProtocol.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>

#include "CoMsg.h"

using Vantrel::coFormat;
using Vantrel::coPrintable;
using Vantrel::rcAttrStream;

namespace {

constexpr int PROTOCOL_VERSION = 1;

constexpr const char* VERSION_KEY = "Version";
constexpr const char* TYPE_KEY = "Type";
constexpr const char* DATA_KEY = "Data";
constexpr const char* COUNT_KEY = "Count";
constexpr std::string_view NODE_KEY = "Node";

/// The records of a list by their index, as views into its text.
using Nodes = std::vector<std::optional<std::string_view>>;

/// The index of a record's key; false for other names, and for spellings that no sender uses ("Node007").
bool readIndex(std::string_view name, unsigned& index) {
    if (name.substr(0, NODE_KEY.size()) != NODE_KEY) return false;
    const std::string_view digits = name.substr(NODE_KEY.size());
    const std::from_chars_result result =
        std::from_chars(digits.data(), digits.data() + digits.size(), index);
    return result.ec == std::errc() && result.ptr == digits.data() + digits.size() &&
           (digits[0] != '0' || digits.size() == 1);
}

/// One pass over the text: looking each name up in turn would read all of it again for every gap. The records
/// go as far as the highest index that is there, or to the number of entries where that is more, so that a
/// count of any size costs no more than the list itself.
Nodes collectNodes(const rcAttrStream& stream, unsigned count) {
    const unsigned limit = std::min(count, VantrelMulticastProtocol::MAX_LIST_NODES);
    Nodes nodes(std::min(limit, rcAttrStream::ConstIterator(stream).getSize()));
    bool cut = false;
    rcAttrStream::ConstIterator iterator(stream);
    for (std::string_view name, value; iterator.next(name, value);) {
        unsigned index = 0;
        if (!readIndex(name, index) || index >= count) continue;
        cut = cut || index >= limit;
        if (index >= limit) continue;
        if (index >= nodes.size()) nodes.resize(index + 1);
        if (!nodes[index]) nodes[index] = value;
    }
    if (cut) CO_MSG_WARNING("Stream has more than %u nodes, ignoring the rest.", limit);
    return nodes;
}

/// Whether a payload is as long as the datagram says.
bool holdsWhole(const std::string& datagram, const std::string& data) {
    return datagram.find(coFormat("%s %zu ", DATA_KEY, data.size()) + data) != std::string::npos;
}

bool isWanted(const VantrelDaemonInfo& info, const char* database) {
    return !database || !*database || info.getDatabase() == std::string_view(database);
}

}  // namespace

std::string VantrelMulticastProtocol::create(RequestType type, const rcAttrStream& payload) {
    rcAttrStream stream;
    stream.addIntValue(VERSION_KEY, PROTOCOL_VERSION);
    stream.addIntValue(TYPE_KEY, type);
    stream.addStringValue(DATA_KEY, std::string_view(payload.text()));
    return stream.text();
}

std::optional<VantrelMulticastProtocol::Request> VantrelMulticastProtocol::parse(
    const std::string& datagram) {
    // A datagram is a text: what follows a NUL is none of it.
    const rcAttrStream stream{std::string(datagram.c_str())};
    int version = 0;
    if (!stream.getIntValue(VERSION_KEY, version)) {
        CO_MSG_ERROR("Request is lacking a version tag: %s.", coPrintable(stream.text()).c_str());
        return {};
    }
    // Later versions add to the request, they do not change it: there is no upper bound.
    if (version == 0) {
        CO_MSG_ERROR("Request's version is incompatible: %d.", version);
        return {};
    }
    int type = 0;
    if (!stream.getIntValue(TYPE_KEY, type)) {
        CO_MSG_ERROR("Request is lacking a type tag: %s.", coPrintable(stream.text()).c_str());
        return {};
    }
    if (type < START_OF_SERVICES || type > END_OF_SERVICES) {
        CO_MSG_ERROR("Unknown request type: %d.", type);
        return {};
    }
    std::string data;
    if (!stream.getStringValue(DATA_KEY, data)) {
        CO_MSG_ERROR("Request is lacking data: %s.", coPrintable(stream.text()).c_str());
        return {};
    }
    if (!holdsWhole(datagram, data)) return {};
    return Request{static_cast<RequestType>(type), rcAttrStream(std::move(data))};
}

void VantrelMulticastProtocol::encode(const std::vector<VantrelDaemonInfo>& nodes, std::string& text) {
    rcAttrStream stream;
    stream.addIntValue(COUNT_KEY, static_cast<int>(nodes.size()));
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const std::string key = coFormat("%s%zu", NODE_KEY.data(), i);
        stream.addStringValue(key.c_str(), std::string_view(nodes[i].toAttrStream().text()));
    }
    text = stream.text();
}

void VantrelMulticastProtocol::decode(const std::string& text, std::vector<VantrelDaemonInfo>& nodes,
                                      const char* database) {
    const rcAttrStream stream(text);
    int count = 0;
    if (!stream.getIntValue(COUNT_KEY, count) || count == 0) {
        CO_MSG_DEBUG("Stream does not have any nodes.");
        return;
    }
    if (count < 0) return;
    const Nodes found = collectNodes(stream, static_cast<unsigned>(count));
    for (std::size_t i = 0; i < found.size(); ++i) {
        if (!found[i]) {
            CO_MSG_ERROR("Stream is missing node %d of %d.", static_cast<int>(i), count);
            continue;
        }
        VantrelDaemonInfo info{rcAttrStream(std::string(*found[i]))};
        if (!isWanted(info, database)) continue;
        if (info.getNodePort() == 0) info.setNodePort(VantrelDaemonInfo::DEFAULT_NODE_PORT);
        nodes.push_back(std::move(info));
    }
}

const char* VantrelMulticastProtocol::getRequestTypeStr(RequestType type) {
    switch (type) {
        case INVALID:
            return "INVALID";
        case START_OF_SERVICES:
            return "START_OF_SERVICES";
        case DISCOVER_SERVERS:
            return "DISCOVER_SERVERS";
        case DISCOVER_SERVERS_REPLY:
            return "DISCOVER_SERVERS_REPLY";
        case REMOVE_SERVER:
            return "REMOVE_SERVER";
        case FIND_SERVERS:
            return "FIND_SERVERS";
        case END_OF_SERVICES:
            return "END_OF_SERVICES";
    }
    return "UNKNOWN";
}
