// The library at work on real servers: of every age, from several threads and processes, and where it reads
// the frames that such a server has on this host or sends its clients elsewhere for.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "ClientFixture.h"
#include "ServerProcess.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

class RealServersTest : public ClientFixture {
  protected:
    RealServersTest() {
        folder.write("network.cfg", "[Local]\nUUID=6f1c9bd0-3c0a-4c43-9d5c-0a4bb0e2f8b1\n");
        set("VANTREL_FRAME_SOCKET_DIR", folder.path("sockets"));
        client.init();
        Received::record();
        VantrelSetLogLevel(VANTREL_LOG_NOTICE);
    }
    ~RealServersTest() override { VantrelRegisterLogCallBack(nullptr); }

    ServerProcess start(const char* root, const std::vector<std::string>& options = {}) const {
        return ServerProcess(VANTRELD_PROGRAM, folder.path(root), options);
    }
    static VantrelServerId idOf(const ServerProcess& process) {
        return VantrelServerId(process.id().c_str());
    }

    /// A new clip whose two frames hold `content`.
    static VantrelNodeHandle makeClip(const VantrelServerHandle& server, const char* name,
                                      const std::string& content) {
        const VantrelClipFormat format(4, 2, 24, 3, 24UL, 25.0F, 1.5F, VantrelClipFormat::PROGRESSIVE,
                                       VantrelClipFormat::FORMAT_RGB(), "tag", "a \"clip\", really");
        VantrelNodeHandle library;
        if (!VantrelResolveDisplayPath(server, "/VOLUME/PROJECT/LIBRARY", library)) {
            EXPECT_TRUE(server.getRootNode(library)) << server.lastError();
            for (const char* type : {"VOLUME", "PROJECT", "LIBRARY"})
                EXPECT_TRUE(library.createNode(type, type, library)) << server.lastError();
        }
        VantrelNodeHandle clip;
        EXPECT_TRUE(library.createClipNode(name, format, "CLIP", clip) && clip.setNumFrames(2) &&
                    clip.writeFrame(0, content.data(), content.size()) &&
                    clip.writeFrame(1, content.data(), content.size()))
            << server.lastError();
        return clip;
    }
    static std::string frameOf(VantrelNodeHandle& clip, int index) {
        VantrelStr id;
        EXPECT_TRUE(clip.getFrameId(index, id)) << clip.lastError();
        return id.c_str();
    }
    static std::string read(const VantrelServerHandle& server, const std::string& frame, std::size_t size,
                            const char* ahead = nullptr) {
        std::string buffer(size, '?');
        return server.readFrame(frame.c_str(), buffer.data(), size, ahead) ? buffer : server.lastError();
    }
    /// Frames and node calls through the one handle, again and again; whether all went well.
    static bool works(const VantrelServerHandle& server, const std::string& frame, char letter) {
        const std::string content(200000, letter);
        VantrelNodeHandle root;
        bool ok = true;
        for (int i = 0; i < 50 && ok; ++i) {
            ok = server.writeFrame(frame.c_str(), content.data(), content.size()) &&
                 read(server, frame, content.size()) == content && server.getRootNode(root);
        }
        return ok;
    }

    VantrelClient client{true};
};

TEST_F(RealServersTest, TwoThreadsShareOneHandleAndAForkedChildHasConnectionsOfItsOwn) {
    const ServerProcess process = start("root");
    const VantrelServerHandle server(idOf(process));
    VantrelNodeHandle clip = makeClip(server, "clip", "");
    const std::string first = frameOf(clip, 0);
    const std::string second = frameOf(clip, 1);
    auto other = std::async(std::launch::async, [&] { return works(server, second, 'b'); });
    EXPECT_TRUE(works(server, first, 'a')) << server.lastError();
    EXPECT_TRUE(other.get()) << server.lastError();
    const pid_t child = ::fork();
    if (child == 0) ::_exit(works(server, second, 'b') ? 0 : 1);
    EXPECT_TRUE(works(server, first, 'c')) << server.lastError();
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(RealServersTest, ServersOfEveryAgeAreServed) {
    for (const char* version :
         {"2.6.0.0", "2009.0.0.0", "2012.0.0.5133", "2013.1.0.6114", "2017.1.0.237", "2024.0.0.0"}) {
        SCOPED_TRACE(version);
        const ServerProcess process = start("root", {"--protocol-version", version});
        const VantrelServerHandle server(idOf(process));
        const std::string content(100, 'f');
        VantrelNodeHandle clip = makeClip(server, version, content);
        EXPECT_EQ(read(server, frameOf(clip, 1), content.size()), content);
        VantrelNodeHandle again(server, clip.getNodeId());
        VantrelNodeHandle parent;
        VantrelNodeHandle found;
        VantrelClipFormat format;
        bool can = true;
        EXPECT_TRUE(again.getClipFormat(format) && again.getParentNode(parent)) << server.lastError();
        EXPECT_STREQ(format.metaData(), "a \"clip\", really");
        EXPECT_EQ(format.pixelRatio(), 1.5F);
        EXPECT_TRUE(VantrelFindChild(parent, version, found) && found.getNodeId() == clip.getNodeId());
        EXPECT_TRUE(parent.canCreateNode("LIBRARY", can) && !can) << server.lastError();
    }
}

TEST_F(RealServersTest, OneSendsItsClientsToTheOther) {
    const std::string there(5000, 't');
    const std::string here(5000, 'h');
    auto holder = std::make_unique<ServerProcess>(VANTRELD_PROGRAM, folder.path("holder"));
    const ServerProcess sender =
        start("sender", {"--redirect-to", "localhost:" + std::to_string(holder->nodePort()) + ":" +
                                              std::to_string(holder->framePort())});
    const VantrelServerHandle server(idOf(sender));
    VantrelNodeHandle clip = makeClip(server, "clip", here);
    makeClip(VantrelServerHandle(idOf(*holder)), "clip", there);
    const std::string first = frameOf(clip, 0);
    const std::string second = frameOf(clip, 1);  // both count their nodes alike
    EXPECT_EQ(read(server, first, here.size(), second.c_str()), here);
    EXPECT_EQ(read(server, second, there.size()), there);
    EXPECT_EQ(read(server, first, here.size()), here);
    holder.reset();
    EXPECT_EQ(read(server, second, here.size()), here);
    EXPECT_THAT(Received::log(), Contains(HasSubstr("was redirected to a server that cannot be connected")));
}

TEST_F(RealServersTest, FramesOfThisHostComeThroughItsSocketFileOrElseOverTcp) {
    ::mkdir(folder.path("sockets").c_str(), 0755);
    ServerProcess process = start("root", {"--display-name", "Render 1", "--storage-id", "stor-1"});
    const std::string content(3'000'000, 'c');  // more than the socket's buffers hold
    const VantrelServerHandle maker(idOf(process));
    VantrelNodeHandle clip = makeClip(maker, "clip", content);
    const std::string frame = frameOf(clip, 1);
    const auto messagesOfReading = [&] {
        Received::clear();
        const VantrelServerHandle server(idOf(process));
        EXPECT_EQ(read(server, frame, content.size()), content);
        EXPECT_EQ(read(server, frame, content.size()), content);
        std::vector<std::string> messages;
        for (const std::string& line : Received::log()) {
            const bool isOfTheSocket = line.find("socket pipe file") != std::string::npos;
            if (isOfTheSocket || line.find("'Render 1' / 'stor-1'") != std::string::npos)
                messages.push_back(line);
        }
        return messages;
    };
    const std::string path = folder.path("sockets/vantrel-frame.") + std::to_string(process.framePort());
    const std::string server = "server 'Render 1' / 'stor-1'";
    const std::string overTcp =
        "3 Connecting to " + server + " using '127.0.0.1:" + std::to_string(process.framePort()) + "'.";
    const std::string throughFile = "3 Connecting to " + server + " using '" + path + "'.";
    const std::string connected = "3 Connected to " + server;
    EXPECT_THAT(messagesOfReading(), ElementsAre(throughFile, connected + " using '" + path + "'."));

    std::filesystem::rename(path, path + ".kept");
    ASSERT_EQ(::mknod(path.c_str(), S_IFSOCK | 0600, 0), 0);  // what a killed server leaves
    const std::string refused = "': " + std::string(std::strerror(ECONNREFUSED));
    EXPECT_THAT(messagesOfReading(),
                ElementsAre(throughFile, "2 Could not connect to socket pipe file '" + path + refused,
                            overTcp, connected + "."));
    std::filesystem::rename(path + ".kept", path);

    folder.write("network.cfg", "[Local]\nUUID=0d2f7b0a-95c5-4f7e-8f2d-5a6b1b7e9c11\n");
    EXPECT_THAT(messagesOfReading(), ElementsAre(overTcp, connected + "."))
        << "that of another host is not looked at";
    process.process().signal(SIGTERM);
    process.process().wait(std::chrono::seconds(20));
    EXPECT_FALSE(std::filesystem::exists(path)) << "the server takes its file along";
}

}  // namespace
