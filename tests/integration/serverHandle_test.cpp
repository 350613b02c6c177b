// What a server handle says of its server, and the handles at work on a real server.
#include <sys/wait.h>
#include <unistd.h>

#include <memory>

#include "ClientFixture.h"
#include "ServerProcess.h"

using Vantrel::ScriptedPeer;

namespace {

class ServerHandleTest : public PeerFixture {
  protected:
    VantrelClient client{false};
    const VantrelServerHandle server{id()};
};

TEST_F(ServerHandleTest, TellsWhatTheServerSaysOfItself) {
    describe({"2017.1.0.238"});
    peer.answer("QueryNodePlugInVendor", ScriptedPeer::ok("Quorvane"));
    peer.answer("QueryNodePlugInProduct", ScriptedPeer::ok("Store"));
    peer.answer("QueryNodePlugInVersion", ScriptedPeer::ok("7 1"));
    VantrelStr text;
    EXPECT_STREQ(server.getHostName(), "render01");
    EXPECT_STREQ(server.getHostUUID(), "uuid-1");
    EXPECT_TRUE(server.getStorageId(text) && text == "stor-1");
    EXPECT_TRUE(server.getDisplayName(text) && text == "Render 1");
    EXPECT_TRUE(server.getVendor(text) && text == "Quorvane");
    EXPECT_TRUE(server.getProduct(text) && text == "Store");
    int major = 0;
    int minor = 0;
    EXPECT_TRUE(server.getVersion(major, minor) && major == 7 && minor == 1);
    EXPECT_TRUE(server.getProtocolVersion(major, minor) && major == 2017 && minor == 1);
    EXPECT_TRUE(server.isDatabase("SXAFS"));
    EXPECT_FALSE(server.isDatabase("SXAF") || server.isDatabase("sxafs") || server.isDatabase(nullptr));
    VantrelServerInfo info;
    ASSERT_TRUE(server.getInfo(info));
    EXPECT_EQ(info.getVersionBuild(), 238);
    EXPECT_EQ(info.getId().getPort(), peer.port());
    EXPECT_STREQ(server.getIdStr(), peer.address().c_str());

    const struct {
        int version[4];
        bool atLeast;
    } rows[] = {{{2017, 1, 0, 238}, true}, {{2017, 1, 0, 239}, false}, {{2017, 1, 1, 0}, false},
                {{2017, 0, 9, 999}, true}, {{2018, 0, 0, 0}, false},   {{2016, 9, 9, 999}, true},
                {{2017, 1, 0, 237}, true}};
    for (const auto& row : rows) {
        bool atLeast = !row.atLeast;
        EXPECT_TRUE(
            server.compareVersion(atLeast, row.version[0], row.version[1], row.version[2], row.version[3]));
        EXPECT_EQ(atLeast, row.atLeast);
    }
    bool atLeast = false;
    EXPECT_TRUE(server.compareProductVersion(atLeast, 7, 1, 0, 0) && atLeast);
    EXPECT_TRUE(server.compareProductVersion(atLeast, 7, 1, 0, 1) && !atLeast);
}

TEST_F(ServerHandleTest, AServerThatCannotBeReachedTellsNothing) {
    peer.refuse();
    EXPECT_EQ(server.getHostName(), nullptr);
    EXPECT_EQ(server.getHostUUID(), nullptr);
    EXPECT_FALSE(server.isDatabase("SXAFS"));
    EXPECT_EQ(server.lastError(), notFound(std::strerror(ECONNREFUSED)));
    const VantrelServerHandle copy(server);
    EXPECT_TRUE(copy.getId() == server.getId());
    EXPECT_STREQ(copy.lastError(), "");
    EXPECT_FALSE(copy.ping(0));
    peer.listenAgain();
    EXPECT_STREQ(server.getHostName(), "render01");
    EXPECT_TRUE(copy.ping(0));
}

TEST_F(ServerHandleTest, ARestartedServerOfAnotherVersionIsNoticed) {
    int major = 0;
    int minor = 0;
    EXPECT_TRUE(server.getProtocolVersion(major, minor) && major == 2024);
    describe({"2009.3.0.0"});
    peer.dropConnections();
    EXPECT_TRUE(server.ping(0));
    EXPECT_TRUE(server.getProtocolVersion(major, minor));
    EXPECT_EQ(major, 2009);
}

// --- A real server ---

class RealServerTest : public ClientFixture {
  protected:
    RealServerTest() {
        client.init();
        start({});
        VantrelNodeHandle node;
        const char* const levels[][2] = {
            {"stor1", "VOLUME"}, {"demo", "PROJECT"}, {"Library", "LIBRARY"}, {"reel 1", "REEL"}};
        bool ok = server->getRootNode(node);
        for (const auto& level : levels) ok = ok && node.createNode(level[0], level[1], node);
        EXPECT_TRUE(ok) << server->lastError();
        reel = node;
    }
    void start(std::vector<std::string> options) {
        process.reset();  // it holds the root
        process = std::make_unique<ServerProcess>(VANTRELD_PROGRAM, folder.path("root"), std::move(options));
        server = std::make_unique<VantrelServerHandle>(VantrelServerId(process->id().c_str()));
    }
    VantrelNodeHandle createClip(const char* name, unsigned frames) {
        VantrelClipFormat format(4, 2, 24, 3, 24UL, 25.0F, 1.5F, VantrelClipFormat::PROGRESSIVE,
                                 VantrelClipFormat::FORMAT_RGB(), "tag", "a \"clip\", really");
        VantrelNodeHandle clip;
        EXPECT_TRUE(reel.createClipNode(name, format, "CLIP", clip)) << server->lastError();
        EXPECT_TRUE(clip.setNumFrames(frames)) << server->lastError();
        return clip;
    }
    /// Frames and node calls through the one handle, again and again; whether all went well.
    bool works(const VantrelNodeId& clip, char letter) {
        const std::string frame(200000, letter);
        std::string buffer(frame.size(), '?');
        VantrelNodeHandle root;
        bool ok = true;
        for (int i = 0; i < 50 && ok; ++i) {
            VantrelNodeHandle node(*server, clip);
            ok = node.writeFrame(0, frame.data(), frame.size()) &&
                 node.readFrame(0, &buffer[0], buffer.size()) && buffer == frame && server->getRootNode(root);
        }
        return ok;
    }

    VantrelClient client{true};
    std::unique_ptr<ServerProcess> process;
    std::unique_ptr<VantrelServerHandle> server;
    VantrelNodeHandle reel;
};

TEST_F(RealServerTest, TwoThreadsShareOneHandle) {
    const VantrelNodeId first = createClip("first", 1).getNodeId();
    const VantrelNodeId second = createClip("second", 1).getNodeId();
    auto other = std::async(std::launch::async, [&] { return works(second, 'b'); });
    EXPECT_TRUE(works(first, 'a')) << server->lastError();
    EXPECT_TRUE(other.get()) << server->lastError();
}

TEST_F(RealServerTest, AForkedChildSpeaksOnConnectionsOfItsOwn) {
    const VantrelNodeId first = createClip("first", 1).getNodeId();
    const VantrelNodeId second = createClip("second", 1).getNodeId();
    ASSERT_TRUE(works(first, 'a')) << server->lastError();
    const pid_t child = ::fork();
    if (child == 0) ::_exit(works(second, 'b') ? 0 : 1);
    EXPECT_TRUE(works(first, 'c')) << server->lastError();
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(RealServerTest, ServersOfEveryAgeAreServed) {
    for (const char* version :
         {"2.6.0.0", "2009.0.0.0", "2012.0.0.5133", "2013.1.0.6114", "2017.1.0.237", "2024.0.0.0"}) {
        SCOPED_TRACE(version);
        start({"--protocol-version", version});
        VantrelNodeHandle place;
        ASSERT_TRUE(VantrelResolveDisplayPath(*server, "/stor1/demo/Library/reel 1", place))
            << server->lastError();
        reel = place;
        const std::string name = std::string("clip ") + version;
        VantrelNodeHandle clip = createClip(name.c_str(), 2);
        EXPECT_TRUE(VantrelFindChild(reel, name.c_str(), place));
        char bytes[100] = "some frame";
        char back[100] = "";
        EXPECT_TRUE(clip.writeFrame(1, bytes, sizeof bytes)) << server->lastError();
        EXPECT_TRUE(clip.readFrame(1, back, sizeof back)) << server->lastError();
        EXPECT_EQ(std::memcmp(bytes, back, sizeof bytes), 0);
        VantrelClipFormat format;
        VantrelNodeHandle again(*server, clip.getNodeId());
        EXPECT_TRUE(again.getClipFormat(format)) << server->lastError();
        EXPECT_STREQ(format.metaData(), "a \"clip\", really");
        EXPECT_EQ(format.pixelRatio(), 1.5F);
        bool can = true;
        EXPECT_TRUE(reel.canCreateNode("REEL", can) && !can) << server->lastError();
        EXPECT_TRUE(again.getParentNode(place) && place.getNodeId() == reel.getNodeId());
    }
}

}  // namespace
