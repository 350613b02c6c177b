#include "VantrelNodeClientAPI.h"

#include <gmock/gmock.h>
#include <sys/utsname.h>

#include <cstdlib>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "ScriptedPeer.h"
#include "ShownFormat.h"
#include "VantrelClientConnection.h"

using testing::ElementsAre;
using Vantrel::ScriptedPeer;

namespace {

using Api = VantrelNodeClientAPI;
using Texts = std::vector<std::string>;
/// Performs one operation and gives its result as text.
using Operation = std::function<std::string(Api&)>;

/// One entry of an attribute stream, by the rules of the wire.
std::string entry(const std::string& key, const std::string& value) {
    return key + " " + std::to_string(value.size()) + " " + value;
}

utsname machine() {
    utsname facts{};
    ::uname(&facts);
    return facts;
}

std::string hostEntries() {
    return entry("HostName", machine().nodename) + entry("OSType", "2") +
           entry("OSVersion", machine().release);
}

VantrelClipFormat clipFormat() {
    VantrelClipFormat format(1920, 1080, 24, 3, 6220800ul, 29.97f, 1.5f, VantrelClipFormat::PROGRESSIVE,
                             "rgb", "tag", "some \"data\"");
    format.setColourSpace("Rec 709");
    return format;
}

const std::string PLAIN_FORMAT = "1920 1080 24 3 6220800 1.5 29.97 rgb 4 tag \"some \\\"data\\\"\"";
const std::string FORMAT_ENTRY =
    entry("Fmt",
          "w 4 1920h 4 1080bpp 2 24nch 1 3sz 7 6220800asp 3 1.5rate 5 29.97fmt 3 rgbscan 1 4metag 3 tagmeta "
          "11 some \"data\"cs 7 Rec 709");

std::string asText(int number) {
    return std::to_string(number);
}
std::string asText(const std::string& text) {
    return text;
}
std::string asText(const VantrelStr& text) {
    return text.c_str();
}
std::string asText(const VantrelClipFormat& format) {
    return Vantrel::show(format);
}
std::string asText(const VantrelNodeInterface::NodeInfo& child) {
    return std::string(child.id()) + "|" + std::string(child.displayName());
}
template <typename Id>
auto asText(const Id& id) -> decltype(std::string(id.id())) {
    return id.id();
}
template <typename List>
auto asText(const List& list) -> decltype(list.size(), asText(list[0])) {
    std::string all;
    for (std::size_t i = 0; i < list.size(); ++i) all += "<" + asText(list[i]) + ">";
    return all;
}

std::string failure(const Api& api) {
    return std::string("error: ") + api.lastError();
}

/// An operation with its arguments, whose last parameter is its only output.
template <typename... Parameters, typename... In>
Operation giving(bool (Api::*operation)(Parameters...), In... in) {
    using Last = std::tuple_element_t<sizeof...(Parameters) - 1, std::tuple<Parameters...>>;
    return [=](Api& api) {
        std::remove_reference_t<Last> value{};
        return (api.*operation)(in..., value) ? asText(value) : failure(api);
    };
}

/// An operation without output.
template <typename... Parameters, typename... In>
Operation doing(bool (Api::*operation)(Parameters...), In... in) {
    return [=](Api& api) { return (api.*operation)(in...) ? std::string() : failure(api); };
}

struct Exchange {
    std::string method;
    Operation operation;
    std::string argument;  ///< what the server is to receive, unescaped
    std::string reply;     ///< what it answers, unescaped
    std::string result;    ///< what the operation then gives
};

void PrintTo(const Exchange& exchange, std::ostream* out) {
    *out << exchange.method << " answered by '" << exchange.reply << "'";
}

/// The commands that servers of today are asked in another form.
bool isPlain(const std::string& method) {
    static const std::set<std::string> plain = {"GetChildren",   "GetDisplayName", "CreateNode",
                                                "GetClipFormat", "GetFrames",      "AllocateFrames",
                                                "GetFramePaths", "SetFramePaths"};
    return plain.count(method) == 1;
}

class NodeClient : public testing::TestWithParam<Exchange> {
  protected:
    NodeClient() : connection_(VantrelServerId(peer_.address().c_str())), api_(connection_) {
        ::setenv("VANTREL_CONNECTION_RETRY_TIMEOUT_MS", "0", 1);
        peer_.answer("GetNodeType", ScriptedPeer::ok("1 7"));
        describe(NEW);
    }
    void describe(int majorVersion) {
        peer_.answer("GetDaemonInfo", ScriptedPeer::ok(entry("VersionMajor", std::to_string(majorVersion))));
    }

    // Servers with every command, and those without one of the extended forms.
    static constexpr int NEW = 2024;
    static constexpr int OLD = 2011;

    ScriptedPeer peer_;
    VantrelClientConnection connection_;
    Api api_;
};

TEST_P(NodeClient, SendsAndReads) {
    const Exchange& c = GetParam();
    if (isPlain(c.method)) describe(OLD);
    peer_.answer(c.method, ScriptedPeer::ok(c.reply));
    EXPECT_EQ(c.operation(api_), c.result);
    EXPECT_THAT(peer_.arguments(c.method), ElementsAre(c.argument));
    EXPECT_EQ(peer_.commands().back().rfind("sync 0 " + c.method + " ", 0), 0u);
}

// Every operation gives the server's own text as its reason, and assigns nothing.
TEST_P(NodeClient, PassesTheServersErrorOn) {
    const Exchange& c = GetParam();
    if (isPlain(c.method)) describe(OLD);
    peer_.answer(c.method, ScriptedPeer::error("no\nway"));
    EXPECT_EQ(c.operation(api_), "error: no\nway");
}

std::string typeOf(Api& api) {
    Api::Type type;
    if (!api.getType("n1", type)) return failure(api);
    return std::to_string(type.kind) + "/" + std::to_string(type.extended) + "/" + type.text;
}

std::string canCreate(Api& api) {
    std::optional<Api::Type> unasked;
    bool can = false;
    if (!api.canCreateNode("n1", unasked, "CLIP", can)) return failure(api);
    return can && !unasked ? "yes" : "no";
}

std::string versionOf(Api& api) {
    int major = -1;
    int minor = -1;
    if (!api.queryNodePlugInVersion(major, minor)) return failure(api);
    return std::to_string(major) + "/" + std::to_string(minor);
}

std::string renamed(Api& api) {
    VantrelNodeId node("n 1");
    return api.renameNode(node, "new \"name\"") ? asText(node) : failure(api);
}

Operation creating(const VantrelNodeId& parent, const char* name, VantrelNodeInterface::NodeType kind,
                   const char* type, const char* stream, const char* metaData) {
    return giving(&Api::createNode, parent, name, kind, type, stream, metaData, clipFormat());
}

constexpr auto CLIP = VantrelNodeInterface::CLIP;
const VantrelNodeId N1("n1");
const VantrelNodeId COMMA("n,1");
const VantrelNodeId LONG(std::string(600, 'x').c_str());
const VantrelNodeId SPACED("n \"1");
const std::string SPACED_WORD = "\"n \\\"1\"";
const std::string LOCAL_WORDS = std::string(machine().nodename) + " 2 ";

const std::vector<Exchange> EXCHANGES = {
    {"GetStorageId", giving(&Api::getStorageId), "", "st 1", "st 1"},
    {"QueryNodePlugInVendor", giving(&Api::queryNodePlugInVendor), "", "Vend", "Vend"},
    {"QueryNodePlugInProduct", giving(&Api::queryNodePlugInProduct), "", "Prod", "Prod"},
    {"QueryNodePlugInVersion", versionOf, "", "2024 1", "2024/1"},
    {"QueryNodePlugInVersion", versionOf, "", "", "error: Invalid version"},
    {"GetRootNode", giving(&Api::getRootNode), "", "root", "root"},
    {"GetParentNode", giving(&Api::getParentNode, SPACED), "Node 4 n \"1", "n0", "n0"},
    {"GetChildren", giving(&Api::getChildren, SPACED), SPACED_WORD, "a,one,b,two,c", "<a|one><b|two>"},
    {"GetChildrenEx", giving(&Api::getChildren, SPACED), "n \"1", "0 17 Id 1 aDispl 3 one", "<a|one>"},
    {"GetDisplayName", giving(&Api::getDisplayName, SPACED), SPACED_WORD, "a\nb", "a\nb"},
    {"GetDisplayNameEx", giving(&Api::getDisplayName, SPACED), "n \"1", "caf\xc3\xa9", "caf\xc3\xa9"},
    {"GetNodeTypeStr", typeOf, "n1", "CLIP", "1/7/CLIP"},
    {"GetNbReadAheads", giving(&Api::getNbReadAheads, N1), "n1", "12", "12"},
    {"GetStreamId", giving(&Api::getStreamId, SPACED), SPACED_WORD, "s1", "s1"},
    {"CanCreateNode", canCreate, "Node 2 n1ExtendedType 4 CLIP", "true", "yes"},
    {"CanCreateNode", canCreate, "Node 2 n1ExtendedType 4 CLIP", "TRUE!", "no"},
    {"RenameNode", renamed, "Node 3 n 1Displ 10 new \"name\"", "n2", "n2"},
    {"DuplicateNode", giving(&Api::duplicateNode, SPACED, N1, "copy"),
     "ParentNodeId 4 n \"1DupeNodeId 2 n1DisplayName 4 copy", "n3", "n3"},
    {"DestroyNode", doing(&Api::destroyNode, SPACED), SPACED_WORD, "ignored", ""},
    {"CreateNode", creating(SPACED, "a \"name\"", CLIP, "CLIP", nullptr, nullptr),
     SPACED_WORD + " \"a \\\"name\\\"\" 1 CLIP " + PLAIN_FORMAT, "n4", "n4"},
    {"CreateNodeEx", creating(COMMA, "name", VantrelNodeInterface::CONTAINER, "REEL", "XML", "<a/>"),
     "Parent 3 n,1Displ 4 nameType 1 0ExType 4 REEL" + FORMAT_ENTRY + "Stream 3 XMLMeta 4 <a/>", "n5", "n5"},
    {"CreateNodeEx", creating(N1, nullptr, CLIP, "", nullptr, ""),
     "Parent 2 n1Displ 0 Type 1 1" + FORMAT_ENTRY, "n6", "n6"},
    {"QueryMetaDataSupport", giving(&Api::queryMetaDataSupport, SPACED), SPACED_WORD, "XML,BLOB",
     "<XML><BLOB>"},
    {"SetMetaData", doing(&Api::setMetaData, SPACED, "XML", "<a b=\"c\\d\"/>"),
     SPACED_WORD + " XML \"<a b=\\\"c\\\\d\\\"/>\"", "", ""},
    {"GetMetaData", giving(&Api::getMetaData, N1, "XML", "a b", 3), "n1 XML \"a b\" 3", "<x>\n\t</x>",
     "<x>\n\t</x>"},
    {"GetMetaData", giving(&Api::getMetaData, SPACED, "XML", "f", -1), SPACED_WORD + " XML f -1", "m", "m"},
    {"GetMetaData", giving(&Api::getMetaData, N1, "XML", nullptr, 0), "n1 XML \"\" 0", "m", "m"},
    {"GetClipFormat", giving(&Api::getClipFormat, SPACED), SPACED_WORD,
     "64 32 24 3 6144 1 25 rgb 4 none some  data",
     "64x32 24/3 6144 ratio 1 rate 25 [rgb] scan 4 [none] [some  data] []"},
    {"GetClipFormatEx", giving(&Api::getClipFormat, SPACED), "n \"1", FORMAT_ENTRY.substr(8),
     "1920x1080 24/3 6220800 ratio 1.5 rate 29.97 [rgb] scan 4 [tag] [some \"data\"] [Rec 709]"},
    {"GetFrames", giving(&Api::getFrames, SPACED), SPACED_WORD, ",f1,,f2,", "<f1><f2>"},
    {"GetFramesEx", giving(&Api::getFrames, SPACED), "Node 4 n \"1", "2 3 a,b1 c", "<a,b><c>"},
    {"GetFramesEx", giving(&Api::getFrames, N1), "Node 2 n1", "2 3 a,b", "error: Invalid frame list"},
    {"AllocateFrames", giving(&Api::allocateFrames, SPACED, 24, clipFormat()),
     SPACED_WORD + " 24 " + PLAIN_FORMAT, "f1,f2", "<f1><f2>"},
    {"AllocateFramesEx", giving(&Api::allocateFrames, COMMA, 24, clipFormat()),
     "Node 3 n,1NumFrames 2 24" + FORMAT_ENTRY, "1 2 f1", "<f1>"},
    {"AllocateFramesEx", giving(&Api::allocateFrames, N1, -1, clipFormat()),
     "Node 2 n1NumFrames 2 -1" + FORMAT_ENTRY, "rubbish", "error: Invalid frame list"},
    {"GetFramePaths", giving(&Api::getFramePaths, SPACED),
     SPACED_WORD + " " + LOCAL_WORDS + "\"" + machine().release + "\"", "/a b,/c", "</a b></c>"},
    {"GetFramePaths", giving(&Api::getFramePaths, LONG), std::string(511, 'x'), "/a", "</a>"},
    {"GetFramePathsEx", giving(&Api::getFramePaths, N1), "Parent 2 n1" + hostEntries(), "2 2 /a4 /b,c",
     "</a></b,c>"},
    {"GetFramePathsEx", giving(&Api::getFramePaths, N1), "Parent 2 n1" + hostEntries(), "2 9 /a",
     "error: Invalid file list"},
    {"SetFramePaths", doing(&Api::setFramePaths, SPACED, Texts{"/a b", "", "/c"}, clipFormat()),
     SPACED_WORD + " /a b,,/c " + LOCAL_WORDS + machine().release + " " + PLAIN_FORMAT, "", ""},
    {"SetFramePathsEx", doing(&Api::setFramePaths, N1, Texts{"/a b,c", "/d"}, clipFormat()),
     FORMAT_ENTRY + "Parent 2 n1" + "Paths 14 2 6 /a b,c2 /d" + hostEntries(), "", ""}};

INSTANTIATE_TEST_SUITE_P(Commands, NodeClient, testing::ValuesIn(EXCHANGES));

TEST_F(NodeClient, PlainCreatorsRefuseAComma) {
    const VantrelNodeId longId((std::string(200, 'x') + ",").c_str());
    const std::string refused = "error: Invalid node id: 'n,1'.";
    const std::pair<Operation, std::string> cases[] = {
        {creating(COMMA, "name", CLIP, "CLIP", nullptr, nullptr), refused},
        {giving(&Api::getFramePaths, COMMA), refused},
        {doing(&Api::setFramePaths, COMMA, Texts{}, clipFormat()), refused},
        {giving(&Api::allocateFrames, COMMA, 1, clipFormat()), refused},
        {giving(&Api::getFramePaths, longId), "error: Invalid node id: '" + std::string(127 - 18, 'x')},
    };
    describe(OLD);
    for (const auto& [operation, result] : cases) EXPECT_EQ(operation(api_), result);
    EXPECT_EQ(peer_.commands().size(), 1u) << "only GetDaemonInfo";
}

TEST_F(NodeClient, FailuresLeaveIdsAndFormatsAlone) {
    VantrelNodeId node("n1");
    EXPECT_FALSE(api_.renameNode(node, "name"));
    EXPECT_STREQ(api_.lastError(), "Unknown method: 'RenameNode'.");
    EXPECT_STREQ(node.id(), "n1");
    peer_.answer("GetClipFormatEx", ScriptedPeer::ok("w 2 64"));
    VantrelClipFormat format;
    EXPECT_FALSE(api_.getClipFormat(node, format));
    EXPECT_STREQ(api_.lastError(), "Missing GetClipFormatEx parameter: h");
    EXPECT_EQ(format.width(), 1);
    Api::Type type;
    peer_.answer("GetNodeType", ScriptedPeer::ok("clip"));
    EXPECT_FALSE(api_.getType(node, type));
    EXPECT_STREQ(api_.lastError(), "Invalid node type");
    EXPECT_THAT(peer_.arguments("GetNodeType"), ElementsAre("n1"));
    peer_.answer("GetRootNode", ScriptedPeer::ok("root"));
    EXPECT_TRUE(api_.getRootNode(node));
    // A success keeps the reason of the failure before it.
    EXPECT_STREQ(api_.lastError(), "Invalid node type");
}

}  // namespace
