// What a server handle tells of its server, and the handles at work on a real server.
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <thread>

#include "ClientFixture.h"
#include "ServerProcess.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
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
    std::vector<std::string> namesUnder(const VantrelNodeHandle& parent) {
        VantrelNodeHandle node(parent);
        VantrelNodeHandle child;
        VantrelStr name;
        int count = 0;
        std::vector<std::string> names;
        EXPECT_TRUE(node.getNumChildren(count)) << server->lastError();
        for (int i = 0; i < count && node.getChild(i, child) && child.getDisplayName(name); ++i) {
            names.push_back(name.c_str());
        }
        return names;
    }

    VantrelClient client{true};
    std::unique_ptr<ServerProcess> process;
    std::unique_ptr<VantrelServerHandle> server;
    VantrelNodeHandle reel;
};

TEST_F(RealServerTest, NamesOfAnyBytesAreKeptAndFound) {
    const char* const names[] = {"a,b",       "\"quoted\"",        "two\nlines",
                                 "tab\tend ", "back\\slash \\n",   "\xff\xfe\x80",
                                 "7 16 x",    "\xc3\xa9t\xc3\xa9", "100%s"};
    VantrelNodeHandle made;
    VantrelNodeHandle found;
    for (const char* name : names) {
        ASSERT_TRUE(reel.createClipNode(name, VantrelClipFormat(), "CLIP", made)) << server->lastError();
        EXPECT_TRUE(VantrelFindChild(reel, name, found)) << name;
        EXPECT_TRUE(found.getNodeId() == made.getNodeId());
        VantrelStr told;
        EXPECT_TRUE(VantrelNodeHandle(*server, made.getNodeId()).getDisplayName(told));
        EXPECT_STREQ(told, name);
    }
    EXPECT_THAT(namesUnder(reel), ::testing::ElementsAreArray(names));
}

TEST_F(RealServerTest, NodesAreRenamedDuplicatedAndDestroyed) {
    VantrelNodeHandle clip = createClip("one", 2);
    VantrelNodeHandle copy;
    EXPECT_TRUE(clip.writeFrame(1, "frame-1", 7));
    EXPECT_TRUE(clip.renameNode("uno, dos"));
    EXPECT_TRUE(reel.duplicateNode(clip, "copy", copy)) << server->lastError();
    EXPECT_THAT(namesUnder(reel), ElementsAre("uno, dos", "copy"));
    char bytes[7];
    EXPECT_TRUE(copy.readFrame(1, bytes, sizeof bytes)) << server->lastError();
    EXPECT_EQ(std::string(bytes, sizeof bytes), "frame-1");
    const VantrelNodeId gone = clip.getNodeId();
    EXPECT_TRUE(clip.destroyNode());
    EXPECT_THAT(namesUnder(reel), ElementsAre("copy"));
    VantrelStr name;
    EXPECT_FALSE(VantrelNodeHandle(*server, gone).getDisplayName(name));
    EXPECT_STRNE(server->lastError(), "");
    VantrelNodeHandle parent;
    VantrelNodeHandle refused;
    EXPECT_TRUE(copy.getParentNode(parent) && parent.getNodeId() == reel.getNodeId());
    EXPECT_FALSE(copy.createNode("x", "REEL", refused)) << "a clip has no reels";
    bool can = true;
    EXPECT_TRUE(reel.canCreateNode("REEL", can) && !can);
    EXPECT_TRUE(reel.canCreateNode("CLIP", can) && can);
}

TEST_F(RealServerTest, FramesComeBackByteForByteAlsoAfterAKill) {
    constexpr unsigned COUNT = 3;
    VantrelNodeHandle clip = createClip("clip", COUNT);
    const auto content = [](unsigned index) {
        std::string frame(300000, '\0');
        for (std::size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<char>(i * 31 + index);
        return frame;
    };
    for (unsigned i = 0; i < COUNT; ++i) {
        EXPECT_TRUE(clip.writeFrame(static_cast<int>(i), content(i).data(), content(i).size()))
            << server->lastError();
    }
    const std::string clipId = clip.getNodeId().id();
    process->process().signal(SIGKILL);
    start({});
    VantrelNodeHandle again(*server, clipId.c_str());
    unsigned count = 0;
    VantrelClipFormat format;
    EXPECT_TRUE(again.getNumFrames(count) && count == COUNT) << server->lastError();
    EXPECT_TRUE(again.getClipFormat(format)) << server->lastError();
    EXPECT_STREQ(format.metaData(), "a \"clip\", really");
    EXPECT_EQ(format.pixelRatio(), 1.5F);
    std::string buffer(300000, '?');
    EXPECT_FALSE(again.readFrame(0, &buffer[0], buffer.size() + 1, true));
    EXPECT_STREQ(server->lastError(), "Frame has 300000 bytes, 300001 asked.");
    for (unsigned i = 0; i < COUNT; ++i) {
        EXPECT_TRUE(again.readFrame(static_cast<int>(i), &buffer[0], buffer.size())) << server->lastError();
        EXPECT_EQ(buffer, content(i));
    }
    EXPECT_TRUE(again.readFrame(1, &buffer[0], 10));
    EXPECT_EQ(buffer.substr(0, 10), content(1).substr(0, 10));
    EXPECT_TRUE(again.setNumFrames(1) && again.getNumFrames(count) && count == 1);
}

TEST_F(RealServerTest, MetaDataAndFilesTravelBothWays) {
    VantrelNodeHandle clip = createClip("clip", 1);
    const std::string text = "<m a=\"1\">\n\ttwo, \\three\\</m>";
    VantrelStr told;
    bool available = false;
    EXPECT_TRUE(clip.setMetaData("XML", text.c_str())) << server->lastError();
    EXPECT_TRUE(clip.getMetaData("XML", nullptr, 0, told)) << server->lastError();
    EXPECT_EQ(told.c_str(), text);
    EXPECT_TRUE(clip.getIsMetaDataStreamAvailable("XML", available) && available);
    EXPECT_FALSE(clip.setMetaData("NONSENSE", "x"));

    const std::string content(600000, 'c');
    EXPECT_TRUE(server->pushStream("sub/file", folder.write("local", content).c_str()))
        << server->lastError();
    EXPECT_TRUE(server->pullStream("sub/file", folder.path("back").c_str())) << server->lastError();
    EXPECT_TRUE(folder.read("back") == content);
    EXPECT_FALSE(server->pullStream("sub/none", folder.path("none").c_str()));
    EXPECT_FALSE(server->pushStream("../outside", folder.path("back").c_str()));
    EXPECT_TRUE(server->ping(0));
}

TEST_F(RealServerTest, TwoThreadsShareOneHandle) {
    VantrelNodeHandle first = createClip("first", 1);
    VantrelNodeHandle second = createClip("second", 1);
    const auto work = [this](const VantrelNodeId& clip, char letter) {
        const std::string frame(200000, letter);
        std::string buffer(frame.size(), '?');
        VantrelNodeHandle root;
        for (int i = 0; i < 50; ++i) {
            VantrelNodeHandle node(*server, clip);
            if (!node.writeFrame(0, frame.data(), frame.size()) ||
                !node.readFrame(0, &buffer[0], buffer.size()) || buffer != frame ||
                !server->getRootNode(root) || server->lastError() == nullptr) {
                return i;
            }
        }
        return 50;
    };
    auto other = std::async(std::launch::async, [&] { return work(second.getNodeId(), 'b'); });
    EXPECT_EQ(work(first.getNodeId(), 'a'), 50) << server->lastError();
    EXPECT_EQ(other.get(), 50) << server->lastError();
}

TEST_F(RealServerTest, AForkedChildSpeaksOnConnectionsOfItsOwn) {
    VantrelNodeHandle clip = createClip("clip", 1);
    const std::string frame(100000, 'f');
    ASSERT_TRUE(clip.writeFrame(0, frame.data(), frame.size()));
    const auto work = [&] {
        std::string buffer(frame.size(), '?');
        VantrelNodeHandle root;
        if (!VantrelServerHandle(server->getId()).getRootNode(root)) return 2;
        for (int i = 0; i < 30; ++i) {
            if (!clip.readFrame(0, &buffer[0], buffer.size()) || buffer != frame ||
                !server->getRootNode(root)) {
                return 1;
            }
        }
        return 0;
    };
    ASSERT_EQ(work(), 0);
    const pid_t child = ::fork();
    if (child == 0) ::_exit(work());
    EXPECT_EQ(work(), 0) << server->lastError();
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(RealServerTest, OldServersAreServedInTheirOwnTongue) {
    for (const char* version : {"2.6.0.0", "2009.0.0.0", "2012.0.0.5133", "2013.1.0.6114", "2017.1.0.237"}) {
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
    }
}

}  // namespace
