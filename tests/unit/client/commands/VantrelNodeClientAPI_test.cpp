#include "VantrelNodeClientAPI.h"

#include <gmock/gmock.h>
#include <sys/utsname.h>
#include <unistd.h>

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
#include "VantrelClientConnection.h"

using testing::ElementsAre;
using testing::IsEmpty;
using Vantrel::ScriptedPeer;

namespace {

using Api = VantrelNodeClientAPI;
using Frames = std::vector<VantrelFrameId>;
using Texts = std::vector<std::string>;
/// Performs one operation and tells its result as text.
using Operation = std::function<std::string(Api&)>;

/// One entry of an attribute stream, by the rules of the wire.
std::string entry(const std::string& key, const std::string& value) {
    return key + " " + std::to_string(value.size()) + " " + value;
}

std::string hostName() {
    char name[256] = "";
    ::gethostname(name, sizeof name - 1);
    return name;
}

std::string osVersion() {
    utsname facts{};
    ::uname(&facts);
    return facts.release;
}

std::string hostEntries() {
    return entry("HostName", hostName()) + entry("OSType", "2") + entry("OSVersion", osVersion());
}

VantrelClipFormat clipFormat() {
    VantrelClipFormat format(1920, 1080, 24, 3, 6220800ul, 29.97f, 1.5f, VantrelClipFormat::PROGRESSIVE,
                             "rgb", "tag", "some \"data\"");
    format.setColourSpace("Rec 709");
    return format;
}

const char* const PLAIN_FORMAT = "1920 1080 24 3 6220800 1.5 29.97 rgb 4 tag \"some \\\"data\\\"\"";
const char* const FORMAT_STREAM =
    "w 4 1920h 4 1080bpp 2 24nch 1 3sz 7 6220800asp 3 1.5rate 5 29.97fmt 3 rgbscan 1 4metag 3 tagmeta 11 "
    "some "
    "\"data\"cs 7 Rec 709";

std::string asText(const VantrelClipFormat& f) {
    return std::to_string(f.width()) + "x" + std::to_string(f.height()) + " " +
           std::to_string(f.frameBufferSize()) + " " + f.formatTag() + " " + f.metaDataTag() + " [" +
           f.metaData() + "] " + f.colourSpace();
}

std::string asText(const Texts& texts) {
    std::string all;
    for (const std::string& text : texts) all += "<" + text + ">";
    return all;
}

std::string asText(const Frames& frames) {
    Texts texts;
    for (const VantrelFrameId& frame : frames) texts.emplace_back(frame.id());
    return asText(texts);
}

std::string asText(const Api::NodeInfoList& children) {
    std::string all;
    for (std::size_t i = 0; i < children.size(); ++i) {
        all += "<" + std::string(children[i].id()) + "|" + std::string(children[i].displayName()) + ">";
    }
    return all;
}

std::string asText(const VantrelNodeId& id) {
    return id.id();
}
std::string asText(const std::string& text) {
    return text;
}
std::string asText(const VantrelStr& text) {
    return text.c_str();
}
std::string asText(int number) {
    return std::to_string(number);
}

/// An operation with its arguments, whose last parameter is its only output.
template <typename... Parameters, typename... In>
Operation giving(bool (Api::*operation)(Parameters...), In... in) {
    using Last = std::tuple_element_t<sizeof...(Parameters) - 1, std::tuple<Parameters...>>;
    return [=](Api& api) {
        std::remove_reference_t<Last> value{};
        return (api.*operation)(in..., value) ? asText(value) : std::string("error: ") + api.lastError();
    };
}

/// An operation without output.
template <typename... Parameters, typename... In>
Operation doing(bool (Api::*operation)(Parameters...), In... in) {
    return [=](Api& api) {
        return (api.*operation)(in...) ? std::string() : std::string("error: ") + api.lastError();
    };
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

const VantrelNodeId N1("n1");
const VantrelNodeId SPACED("n \"1");

INSTANTIATE_TEST_SUITE_P(
    Tree, NodeClient,
    testing::Values(
        Exchange{"GetStorageId", giving(&Api::getStorageId), "", "st 1", "st 1"},
        Exchange{"QueryNodePlugInVendor", giving(&Api::queryNodePlugInVendor), "", "Vend", "Vend"},
        Exchange{"QueryNodePlugInProduct", giving(&Api::queryNodePlugInProduct), "", "Prod", "Prod"},
        Exchange{"GetRootNode", giving(&Api::getRootNode), "", "root", "root"},
        Exchange{"GetParentNode", giving(&Api::getParentNode, SPACED), "Node 4 n \"1", "n0", "n0"},
        Exchange{"GetChildren", giving(&Api::getChildren, SPACED), "\"n \\\"1\"", "a,one,b,two,c",
                 "<a|one><b|two>"},
        Exchange{"GetChildrenEx", giving(&Api::getChildren, SPACED), "n \"1", "0 17 Id 1 aDispl 3 one",
                 "<a|one>"},
        Exchange{"GetDisplayName", giving(&Api::getDisplayName, SPACED), "\"n \\\"1\"", "a\nb", "a\nb"},
        Exchange{"GetDisplayNameEx", giving(&Api::getDisplayName, SPACED), "n \"1", "caf\xc3\xa9",
                 "caf\xc3\xa9"},
        Exchange{"RenameNode",
                 [](Api& api) {
                     VantrelNodeId node("n 1");
                     return api.renameNode(node, "new \"name\"") ? asText(node)
                                                                 : std::string("error: ") + api.lastError();
                 },
                 "Node 3 n 1Displ 10 new \"name\"", "n2", "n2"},
        Exchange{"DuplicateNode", giving(&Api::duplicateNode, VantrelNodeId("p 1"), N1, "copy"),
                 "ParentNodeId 3 p 1DupeNodeId 2 n1DisplayName 4 copy", "n3", "n3"},
        Exchange{"DestroyNode", doing(&Api::destroyNode, SPACED), "\"n \\\"1\"", "ignored", ""},
        Exchange{"CreateNode",
                 giving(&Api::createNode, VantrelNodeId("p 1"), "a \"name\"", VantrelNodeInterface::CLIP,
                        "CLIP", nullptr, nullptr, clipFormat()),
                 std::string("\"p 1\" \"a \\\"name\\\"\" 1 CLIP ") + PLAIN_FORMAT, "n4", "n4"},
        Exchange{"CreateNodeEx",
                 giving(&Api::createNode, VantrelNodeId("p,1"), "name", VantrelNodeInterface::CONTAINER,
                        "REEL", "XML", "<a/>", clipFormat()),
                 std::string("Parent 3 p,1Displ 4 nameType 1 0ExType 4 REEL") + entry("Fmt", FORMAT_STREAM) +
                     "Stream 3 XMLMeta 4 <a/>",
                 "n5", "n5"},
        Exchange{
            "CreateNodeEx",
            giving(&Api::createNode, N1, nullptr, VantrelNodeInterface::CLIP, "", nullptr, "", clipFormat()),
            std::string("Parent 2 n1Displ 0 Type 1 1") + entry("Fmt", FORMAT_STREAM), "n6", "n6"}));

std::string typeOf(Api& api) {
    Api::Type type;
    if (!api.getType(SPACED, type)) return std::string("error: ") + api.lastError();
    return std::to_string(type.kind) + "/" + std::to_string(type.extended) + "/" + type.text;
}

std::string canCreate(Api& api) {
    std::optional<Api::Type> unasked;
    bool can = false;
    if (!api.canCreateNode(N1, unasked, "CLIP", can)) return std::string("error: ") + api.lastError();
    return can && !unasked ? "yes" : "no";
}

std::string versionOf(Api& api) {
    int major = -1;
    int minor = -1;
    if (!api.queryNodePlugInVersion(major, minor)) return std::string("error: ") + api.lastError();
    return std::to_string(major) + "/" + std::to_string(minor);
}

INSTANTIATE_TEST_SUITE_P(
    Facts, NodeClient,
    testing::Values(Exchange{"GetNodeTypeStr", typeOf, "\"n \\\"1\"", "CLIP", "1/7/CLIP"},
                    Exchange{"QueryNodePlugInVersion", versionOf, "", "2024 1", "2024/1"},
                    Exchange{"QueryNodePlugInVersion", versionOf, "", "", "error: Invalid version"},
                    Exchange{"GetNbReadAheads", giving(&Api::getNbReadAheads, N1), "n1", "12", "12"},
                    Exchange{"GetStreamId", giving(&Api::getStreamId, SPACED), "\"n \\\"1\"", "s1", "s1"},
                    Exchange{"CanCreateNode", canCreate, "Node 2 n1ExtendedType 4 CLIP", "true", "yes"},
                    Exchange{"CanCreateNode", canCreate, "Node 2 n1ExtendedType 4 CLIP", "TRUE!", "no"},
                    Exchange{"QueryMetaDataSupport", giving(&Api::queryMetaDataSupport, SPACED),
                             "\"n \\\"1\"", "XML,BLOB", "<XML><BLOB>"},
                    Exchange{"SetMetaData", doing(&Api::setMetaData, SPACED, "XML", "<a b=\"c\\d\"/>"),
                             "\"n \\\"1\" XML \"<a b=\\\"c\\\\d\\\"/>\"", "", ""},
                    Exchange{"GetMetaData", giving(&Api::getMetaData, N1, "XML", "a b", 3),
                             "n1 XML \"a b\" 3", "<x>\n\t</x>", "<x>\n\t</x>"},
                    Exchange{"GetMetaData", giving(&Api::getMetaData, SPACED, "XML", "f", -1),
                             "\"n \\\"1\" XML f -1", "m", "m"},
                    Exchange{"GetMetaData", giving(&Api::getMetaData, N1, "XML", nullptr, 0), "n1 XML \"\" 0",
                             "m", "m"}));

const std::string LOCAL_WORDS = hostName() + " 2 ";

INSTANTIATE_TEST_SUITE_P(
    Clips, NodeClient,
    testing::Values(
        Exchange{"GetClipFormat", giving(&Api::getClipFormat, SPACED), "\"n \\\"1\"",
                 "64 32 24 3 6144 1 25 rgb 4 none some  data", "64x32 6144 rgb none [some  data] "},
        Exchange{"GetClipFormatEx", giving(&Api::getClipFormat, SPACED), "n \"1",
                 "w 2 64h 2 32bpp 2 24nch 1 3szu 3 0x0sz 4 6144asp 1 1rate 2 25fmt 3 rgbscan 1 4metag 4 "
                 "nonemeta 9 "
                 "some datacs 7 Rec 709",
                 "64x32 6144 rgb none [some data] Rec 709"},
        Exchange{"GetFrames", giving(&Api::getFrames, SPACED), "\"n \\\"1\"", "f1,f2", "<f1><f2>"},
        Exchange{"GetFramesEx", giving(&Api::getFrames, SPACED), "Node 4 n \"1", "2 3 a,b1 c", "<a,b><c>"},
        Exchange{"GetFramesEx", giving(&Api::getFrames, N1), "Node 2 n1", "2 3 a,b",
                 "error: Invalid frame list"},
        Exchange{"AllocateFrames", giving(&Api::allocateFrames, VantrelNodeId("n 1"), 24, clipFormat()),
                 std::string("\"n 1\" 24 ") + PLAIN_FORMAT, "f1,f2", "<f1><f2>"},
        Exchange{"AllocateFramesEx", giving(&Api::allocateFrames, VantrelNodeId("n,1"), 24, clipFormat()),
                 std::string("Node 3 n,1NumFrames 2 24") + entry("Fmt", FORMAT_STREAM), "1 2 f1", "<f1>"},
        Exchange{"AllocateFramesEx", giving(&Api::allocateFrames, N1, -1, clipFormat()),
                 std::string("Node 2 n1NumFrames 2 -1") + entry("Fmt", FORMAT_STREAM), "rubbish",
                 "error: Invalid frame list"},
        Exchange{"GetFramePaths", giving(&Api::getFramePaths, SPACED),
                 "\"n \\\"1\" " + LOCAL_WORDS + "\"" + osVersion() + "\"", "/a b,/c", "</a b></c>"},
        Exchange{"GetFramePathsEx", giving(&Api::getFramePaths, N1), "Parent 2 n1" + hostEntries(),
                 "2 2 /a4 /b,c", "</a></b,c>"},
        Exchange{"GetFramePathsEx", giving(&Api::getFramePaths, N1), "Parent 2 n1" + hostEntries(), "2 9 /a",
                 "error: Invalid file list"},
        Exchange{"SetFramePaths",
                 doing(&Api::setFramePaths, VantrelNodeId("n 1"), Texts{"/a b", "/c"}, clipFormat()),
                 "\"n 1\" /a b,/c " + LOCAL_WORDS + osVersion() + " " + PLAIN_FORMAT, "", ""},
        Exchange{"SetFramePathsEx", doing(&Api::setFramePaths, N1, Texts{"/a b,c", "/d"}, clipFormat()),
                 entry("Fmt", FORMAT_STREAM) + "Parent 2 n1" + "Paths 14 2 6 /a b,c2 /d" + hostEntries(), "",
                 ""}));

TEST_F(NodeClient, PlainCreatorsRefuseAComma) {
    const VantrelNodeId comma("n,1");
    const VantrelNodeId longId((std::string(200, 'x') + ",").c_str());
    const std::string refused = "error: Invalid node id: 'n,1'.";
    const std::pair<Operation, std::string> cases[] = {
        {giving(&Api::createNode, comma, "name", VantrelNodeInterface::CLIP, "CLIP", nullptr, nullptr,
                clipFormat()),
         refused},
        {giving(&Api::getFramePaths, comma), refused},
        {doing(&Api::setFramePaths, comma, Texts{}, clipFormat()), refused},
        {giving(&Api::allocateFrames, comma, 1, clipFormat()), refused},
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
