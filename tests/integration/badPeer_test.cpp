// Peers that answer nonsense: each call ends with false or with what can be made of the reply, takes little
// memory, and leaves the library in order.
#include <functional>

#include "ClientFixture.h"

using ::testing::HasSubstr;
using ::testing::StartsWith;
using Vantrel::ScriptedPeer;

namespace {

class BadPeerTest : public PeerFixture {
  protected:
    BadPeerTest() { set("VANTREL_MAX_REPLY_BYTES", "1000000"); }
    VantrelClient client{false};
    const VantrelServerHandle server{id()};
};

TEST_F(BadPeerTest, MalformedRepliesAreFailuresWithAText) {
    const std::string withoutSize =
        "w 1 4h 1 2bpp 2 24nch 1 3asp 1 1rate 2 24fmt 3 rgbscan 1 4metag 4 nonemeta 0 cs 0 ";
    VantrelStr text;
    VantrelClipFormat clip;
    int number = 0;
    const auto children = [&](VantrelNodeHandle& node) { return node.getNumChildren(number); };
    const auto frames = [&](VantrelNodeHandle& node) { return node.getNumFrames(number); };
    const auto paths = [&](VantrelNodeHandle& node) { return node.getFrameIdPath(0, text); };
    const auto clipFormat = [&](VantrelNodeHandle& node) { return node.getClipFormat(clip); };
    const auto type = [&](VantrelNodeHandle& node) { return node.getNodeType(number); };
    const struct {
        const char* method;
        std::function<bool(VantrelNodeHandle&)> call;
        std::string reply;
        const char* error;
    } rows[] = {
        {"GetChildrenEx", children, "0 5 Id 1 ", "Invalid children list"},
        {"GetFramesEx", frames, "2 2 f1", "Invalid frame list"},
        {"GetFramesEx", frames, "1 9223372036854775807 f1", "Invalid frame list"},
        {"GetFramePathsEx", paths, "1", "Invalid file list"},
        {"GetClipFormatEx", clipFormat, withoutSize, "Missing GetClipFormatEx parameter: sz"},
        {"GetNodeType", type, "clip", "Invalid node type"},
    };
    peer.answer("GetNodeTypeStr", ScriptedPeer::ok("CLIP"));
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.method) + ": " + row.reply);
        peer.answer(row.method, ScriptedPeer::ok(row.reply));
        VantrelNodeHandle node(server, "n1");
        EXPECT_FALSE(row.call(node));
        EXPECT_STREQ(server.lastError(), row.error);
        EXPECT_TRUE(server.ping(0)) << server.lastError();
    }
    EXPECT_EQ(peer.connections(), 1U) << "the connection was not to blame";
}

TEST_F(BadPeerTest, AReplyAboveTheLimitIsRefusedAndTheNextCallWorks) {
    VantrelStr vendor;
    peer.answer("QueryNodePlugInVendor", ScriptedPeer::ok(std::string(900000, 'v')));
    EXPECT_TRUE(server.getVendor(vendor)) << server.lastError();
    EXPECT_EQ(vendor.length(), 900000U);
    for (const char* endless : {"ok ", "error ", "x"}) {
        const std::size_t before = methods().size();
        peer.answer("QueryNodePlugInVendor", endless + std::string(3000000, 'v'));
        EXPECT_FALSE(server.getVendor(vendor));
        EXPECT_EQ(methods().size() - before, 1U) << "an answer of that length would come again";
        EXPECT_THAT(server.lastError(), HasSubstr("VANTREL_MAX_REPLY_BYTES"));
        peer.answer("QueryNodePlugInVendor", ScriptedPeer::ok("v"));
        EXPECT_TRUE(server.getVendor(vendor)) << server.lastError();
    }
}

TEST_F(BadPeerTest, ADaemonInfoOfNonsenseCrashesNothing) {
    std::string manyAddresses;
    for (int i = 0; i < 100; ++i) manyAddresses += PeerInfo::entry("IP" + std::to_string(i), "10.0.0.1");
    const std::string texts[] = {
        "",
        "rubbish",
        "VersionMajor 99 1",
        PeerInfo::entry("VersionMajor", "-2147483649") + PeerInfo::entry("FramePort", "99999999999"),
        PeerInfo::entry("NodePort", "-1") + PeerInfo::entry("FramePort", "70000") +
            PeerInfo::entry("FrameIP0", "::x"),
        PeerInfo::entry("HostName", std::string(100000, 'h')) + manyAddresses,
        PeerInfo::entry("DisplayName", "a\nb\\\xff\xfe%s%n"),
    };
    char bytes[200];
    for (const std::string& text : texts) {
        SCOPED_TRACE(text.substr(0, 60));
        peer.answer("GetDaemonInfo", ScriptedPeer::ok(text));
        peer.dropConnections();
        VantrelClientReleaseUnusedConnections(true);
        const VantrelServerHandle odd(id());
        VantrelServerInfo info;
        VantrelStr name;
        bool atLeast = false;
        EXPECT_TRUE(odd.ping(0)) << odd.lastError();
        EXPECT_TRUE(odd.getInfo(info) && odd.getDisplayName(name) && odd.compareVersion(atLeast, 1, 0, 0, 0));
        EXPECT_FALSE(odd.readFrame("f1", bytes, sizeof bytes)) << "there is no frame port";
        EXPECT_STRNE(odd.lastError(), "");
        EXPECT_TRUE(odd.ping(0)) << odd.lastError();
    }
}

}  // namespace
