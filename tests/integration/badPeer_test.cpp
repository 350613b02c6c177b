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

TEST_F(BadPeerTest, MalformedRepliesAreFailuresWithATextAndTheConnectionGoesOn) {
    VantrelStr text;
    VantrelClipFormat clip;
    int number = 0;
    using Node = VantrelNodeHandle;
    const std::tuple<const char*, std::function<bool(Node&)>, const char*, const char*> rows[] = {
        {"GetChildrenEx", [&](Node& n) { return n.getNumChildren(number); }, "0 5 Id 1 ",
         "Invalid children list"},
        {"GetFramesEx", [&](Node& n) { return n.getNumFrames(number); }, "2 2 f1", "Invalid frame list"},
        {"GetFramePathsEx", [&](Node& n) { return n.getFrameIdPath(0, text); }, "1", "Invalid file list"},
        {"GetClipFormatEx", [&](Node& n) { return n.getClipFormat(clip); }, "w 1 4h 1 2bpp 2 24nch 1 3",
         "Missing GetClipFormatEx parameter: sz"},
        {"GetNodeType", [&](Node& n) { return n.getNodeType(number); }, "clip", "Invalid node type"},
    };
    peer.answer("GetNodeTypeStr", ScriptedPeer::ok("CLIP"));
    for (const auto& [method, call, reply, error] : rows) {
        peer.answer(method, ScriptedPeer::ok(reply));
        VantrelNodeHandle node(server, "n1");
        EXPECT_FALSE(call(node));
        EXPECT_STREQ(server.lastError(), error);
        EXPECT_EQ(server.lastErrorCode(), VANTREL_ERROR_INVALID_REPLY);
        EXPECT_TRUE(server.ping(0)) << server.lastError();
    }
    EXPECT_EQ(peer.connections(), 1U);
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
    for (const char* method : {"GetDaemonInfo", "_login"}) {
        const std::size_t before = peer.arguments(method).size();
        peer.answer(method, ScriptedPeer::ok(std::string(3000000, 'v')));
        peer.dropConnections();
        EXPECT_FALSE(server.ping(1000));
        EXPECT_EQ(peer.arguments(method).size() - before, 1U) << "while connecting, too";
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
        EXPECT_TRUE(*odd.lastError() && odd.ping(0)) << odd.lastError();
    }
}

}  // namespace
