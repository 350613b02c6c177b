// Frames that another server holds, and frames from a server of this host: where the client reads them.
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "ClientFixture.h"
#include "FramePeer.h"
#include "ServerProcess.h"

using std::string_literals::operator""s;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using Then = Vantrel::FramePeer::Then;
using Vantrel::FramePeer;

namespace {

// --- On the wire ---

std::string sized(const std::string& record) {
    return std::to_string(record.size()) + '\0' + record;
}

/// Two scripted frame ports: that of the server, and that of the server which it redirects to. Frames have 4
/// bytes, too few for an error in place of a frame, so that reads are acknowledged.
class RedirectionTest : public PeerFixture {
  protected:
    RedirectionTest() {
        client.init();
        describeServer("2011.0.0.0");
        Received::record();
        VantrelSetLogLevel(VANTREL_LOG_WARNING);
    }
    ~RedirectionTest() override { VantrelRegisterLogCallBack(nullptr); }

    void describeServer(const char* version) {
        PeerInfo info;
        info.version = version;
        info.framePort = main.port();
        describe(info);
    }
    static std::string recordOf(int framePort) {
        return PeerInfo::entry("FrameIP0", "127.0.0.1") +
               PeerInfo::entry("FramePort", std::to_string(framePort)) +
               PeerInfo::entry("DisplayName", "holder");
    }
    static std::string readOf(const std::string& frame) { return "ReadFrame\0"s + frame + "\0"s + "4\0"s; }
    static std::string aheadOf(const std::string& frame) {
        return "ReadAheadRedirect\0"s + frame + "\0"s + "4\0"s + "0\0"s;
    }
    /// What the server answers when a frame is announced.
    void expectAhead(const std::string& frame, const std::string& reply, Then then = Then::GoOn) {
        main.expect(aheadOf(frame).size(), reply, then);
    }
    static void expectRead(FramePeer& peer, const std::string& content, Then then = Then::GoOn) {
        peer.expect(readOf("f1").size(), content.empty() ? "" : '\0' + content, then);
    }
    /// Announces a frame without reading one.
    bool announce(const char* frame) {
        char unused[4];
        return server.readFrame("", unused, sizeof unused, frame);
    }
    /// Announces "f2", and the server names the holder.
    void redirect() {
        expectAhead("f2", sized(recordOf(holder.port())));
        ASSERT_TRUE(announce("f2")) << server.lastError();
    }
    std::string read(const char* frame) {
        std::string buffer(4, '?');
        return server.readFrame(frame, buffer.data(), buffer.size()) ? buffer : server.lastError();
    }
    static std::size_t warnings(const std::string& part) {
        const auto log = Received::log();
        return static_cast<std::size_t>(std::count_if(log.begin(), log.end(), [&](const std::string& line) {
            return line[0] == '2' && line.find(part) != std::string::npos;
        }));
    }

    VantrelClient client{true};
    FramePeer main;
    FramePeer holder;
    const VantrelServerHandle server{id()};
};

TEST_F(RedirectionTest, AFrameIsReadFromTheServerThatWasNamedWhenItWasAnnounced) {
    expectAhead("f2", sized(recordOf(holder.port())));
    expectAhead("f3", "0\0"s);
    expectRead(main, "one.");
    char first[4];
    ASSERT_TRUE(server.readFrame("f1", first, sizeof first, "f2", "f3")) << server.lastError();
    EXPECT_EQ(std::string(first, sizeof first), "one.");

    expectRead(holder, "two.");
    EXPECT_EQ(read("f2"), "two.");
    expectRead(main, "thr.");
    EXPECT_EQ(read("f3"), "thr.");
    expectRead(holder, "two!");
    EXPECT_EQ(read("f2"), "two!");
    EXPECT_THAT(main.requests(), ElementsAre(aheadOf("f2"), aheadOf("f3"), readOf("f1"), readOf("f3")));
    EXPECT_THAT(holder.requests(), ElementsAre(readOf("f2"), readOf("f2")));
    EXPECT_EQ(main.connections() + holder.connections(), 2u);
}

TEST_F(RedirectionTest, ParametersGoWithTheAnnouncementAndToTheHolder) {
    const std::string ahead = "ReadAheadRedirect\0f2\0"s + "4\0"s + "3\0p\0q"s;
    const std::string request = "ReadFrameParams\0f2\0"s + "4\0"s + "3\0p\0q"s;
    main.expect(ahead.size(), sized(recordOf(holder.port())));
    holder.expect(request.size(), "\0good"s);
    std::string buffer(4, '?');
    ASSERT_TRUE(server.readFrame(nullptr, "p\0q", 3, buffer.data(), 4, "f2")) << server.lastError();
    ASSERT_TRUE(server.readFrame("f2", "p\0q", 3, buffer.data(), 4)) << server.lastError();
    EXPECT_EQ(buffer, "good");
    EXPECT_THAT(main.requests(), ElementsAre(ahead));
    EXPECT_THAT(holder.requests(), ElementsAre(request));
}

TEST_F(RedirectionTest, TheHoldersAgeDecidesHowItIsAsked) {
    const std::size_t size = 200;  // room for an error in place of the frame
    const struct {
        int major;  // 0: the record tells no version
        const char* method;
        std::string reply;
    } cases[] = {
        {0, "ReadFrameNoAck", ""},
        {2009, "ReadFrame", "\0"s},
        {2010, "ReadFrameNoAck", ""},
    };
    for (const auto& each : cases) {
        std::string record = recordOf(holder.port());
        if (each.major != 0) record += PeerInfo::entry("VersionMajor", std::to_string(each.major));
        const std::string ahead = "ReadAheadRedirect\0f2\0"s + "200\0"s + "0\0"s;
        const std::string request = each.method + "\0f2\0"s + "200\0"s;
        main.expect(ahead.size(), sized(record));
        holder.expect(request.size(), each.reply + std::string(size, 'F'));
        std::string buffer(size, '?');
        ASSERT_TRUE(server.readFrame("", buffer.data(), size, "f2")) << server.lastError();
        ASSERT_TRUE(server.readFrame("f2", buffer.data(), size)) << server.lastError();
        EXPECT_EQ(holder.requests().back(), request);
    }
}

class WithoutRedirectionTest : public RedirectionTest, public ::testing::WithParamInterface<bool> {};

TEST_P(WithoutRedirectionTest, ServersOfAnEarlierAgeAndWithoutRoomToRememberAreNotAskedForOne) {
    if (GetParam()) describeServer("2010.9.9.9");
    if (!GetParam()) set("QD_VANTREL_REDIRECTION_CACHE_SIZE", "0");
    const std::string ahead = "ReadAhead\0f2\0"s + "4\0"s;
    main.expect(ahead.size(), "");
    EXPECT_TRUE(announce("f2")) << server.lastError();
    EXPECT_TRUE(main.waitForRequests(1));
    EXPECT_THAT(main.requests(), ElementsAre(ahead));
}

INSTANTIATE_TEST_SUITE_P(Reasons, WithoutRedirectionTest, ::testing::Bool());

TEST_F(RedirectionTest, AHolderThatCannotBeReachedIsReplacedByTheServerItself) {
    const int closedPort = [] {
        const FramePeer gone;
        return gone.port();
    }();
    const std::string unreachable[] = {
        recordOf(closedPort),
        recordOf(-1),
        recordOf(65536),
        PeerInfo::entry("FramePort", std::to_string(holder.port())),
        "rubbish",
        PeerInfo::entry("FrameIP0", "127.0.0.1") + "FramePort -5 x",
    };
    std::size_t failures = 0;
    for (const std::string& record : unreachable) {
        SCOPED_TRACE(record);
        expectAhead("f2", sized(record));
        expectRead(main, "main");
        expectRead(main, "main");
        ASSERT_TRUE(announce("f2")) << server.lastError();
        EXPECT_EQ(read("f2"), "main");
        EXPECT_EQ(read("f2"), "main");
        // It is tried once, until it is named again.
        EXPECT_EQ(warnings("Frame 'f2' was redirected to a server that cannot be connected: No data"),
                  ++failures);
    }
    EXPECT_EQ(holder.connections(), 0u);
}

TEST_F(RedirectionTest, AFailureOfTheHolderIsTheReadsFailure) {
    redirect();
    holder.expect(readOf("f2").size(), "No such frame.\0"s);
    EXPECT_EQ(read("f2"), "No such frame.");
    expectRead(holder, "tw", Then::Close);
    EXPECT_EQ(read("f2"), "Connection closed");
    expectRead(holder, "two.");
    EXPECT_EQ(read("f2"), "two.");
    EXPECT_THAT(main.requests(), ElementsAre(aheadOf("f2")));
}

TEST_F(RedirectionTest, ABadAnswerFailsTheCallAndClosesTheConnection) {
    const std::tuple<std::string, Then, const char*> cases[] = {
        {"65537\0"s, Then::GoOn, "Redirection of 65537 bytes; at most 65536 are taken."},
        {"9223372036854775807\0"s, Then::GoOn,
         "Redirection of 9223372036854775807 bytes; at most 65536 are taken."},
        {"-1\0"s, Then::GoOn, "Invalid size reply: '-1'."},
        {"many\0"s, Then::GoOn, "Invalid size reply: 'many'."},
        {"10\0half"s, Then::Close, "Connection closed"},
    };
    std::size_t connections = 1;
    for (const auto& [reply, then, error] : cases) {
        expectAhead("f2", reply, then);
        EXPECT_FALSE(announce("f2"));
        EXPECT_STREQ(server.lastError(), error);
        expectRead(main, "main");
        EXPECT_EQ(read("f2"), "main");
        EXPECT_EQ(main.connections(), ++connections) << error;
        server.disconnect();
        ++connections;
    }
}

TEST_F(RedirectionTest, StopAndDisconnectEndATransferFromTheHolder) {
    const std::function<void()> ends[] = {[&] { server.stop(nullptr); }, [&] { server.disconnect(); }};
    for (const auto& end : ends) {
        const std::size_t before = holder.requests().size();
        redirect();
        expectRead(holder, "tw", Then::Stall);
        auto reading = std::async(std::launch::async, [&] { return read("f2"); });
        ASSERT_TRUE(holder.waitForRequests(before + 1));
        // The request may have arrived a moment before the client waits for the reply.
        while (reading.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) end();
        EXPECT_EQ(reading.get(), "Operation aborted.");
    }
    EXPECT_THAT(main.requests(), Not(Contains(readOf("f2"))));
}

TEST_F(RedirectionTest, DisconnectClosesTheConnectionsToHolders) {
    redirect();
    expectRead(holder, "two.");
    EXPECT_EQ(read("f2"), "two.");
    server.disconnect();
    EXPECT_TRUE(holder.waitForClosed(1));
    EXPECT_TRUE(main.waitForClosed(1));
    expectRead(holder, "two!");
    EXPECT_EQ(read("f2"), "two!");
}

// --- With real servers ---

/// Makes a clip of two frames in an empty server and fills them with `content`; the frames' ids.
std::vector<std::string> fill(const VantrelServerHandle& server, const std::string& content) {
    VantrelNodeHandle node;
    EXPECT_TRUE(server.getRootNode(node)) << server.lastError();
    for (const char* type : {"VOLUME", "PROJECT", "LIBRARY"}) {
        VantrelNodeHandle child;
        EXPECT_TRUE(node.createNode(type, type, child)) << server.lastError();
        node = child;
    }
    VantrelNodeHandle clip;
    EXPECT_TRUE(node.createClipNode("clip", VantrelClipFormat(), "CLIP", clip)) << server.lastError();
    EXPECT_TRUE(clip.setNumFrames(2)) << server.lastError();
    std::vector<std::string> ids;
    for (int i = 0; i < 2; ++i) {
        VantrelStr frame;
        EXPECT_TRUE(clip.getFrameId(i, frame)) << server.lastError();
        EXPECT_TRUE(server.writeFrame(frame, content.data(), content.size())) << server.lastError();
        ids.emplace_back(frame);
    }
    return ids;
}

class RealServersTest : public ClientFixture {
  protected:
    RealServersTest() {
        folder.write("network.cfg", "[Local]\nUUID=6f1c9bd0-3c0a-4c43-9d5c-0a4bb0e2f8b1\n");
        set("VANTREL_FRAME_SOCKET_DIR", folder.path("sockets"));
        client.init();
        Received::record();
        VantrelSetLogLevel(VANTREL_LOG_WARNING);
    }
    ~RealServersTest() override { VantrelRegisterLogCallBack(nullptr); }

    static std::string read(const VantrelServerHandle& server, const std::string& frame, std::size_t size,
                            const char* ahead = nullptr) {
        std::string buffer(size, '?');
        return server.readFrame(frame.c_str(), buffer.data(), size, ahead) ? buffer : server.lastError();
    }

    VantrelClient client{true};
};

TEST_F(RealServersTest, OneSendsItsClientsToTheOther) {
    const std::string there(5000, 't');
    const std::string here(5000, 'h');
    auto holder = std::make_unique<ServerProcess>(VANTRELD_PROGRAM, folder.path("holder"));
    const ServerProcess sender(VANTRELD_PROGRAM, folder.path("sender"),
                               {"--redirect-to", "localhost:" + std::to_string(holder->nodePort()) + ":" +
                                                     std::to_string(holder->framePort())});
    const auto ids = fill(VantrelServerHandle(VantrelServerId(holder->id().c_str())), there);
    const VantrelServerHandle server(VantrelServerId(sender.id().c_str()));
    ASSERT_EQ(fill(server, here), ids);  // both count their nodes alike

    EXPECT_EQ(read(server, ids[0], here.size(), ids[1].c_str()), here);
    EXPECT_EQ(read(server, ids[1], there.size()), there);
    EXPECT_EQ(read(server, ids[0], here.size()), here);
    holder.reset();
    EXPECT_EQ(read(server, ids[1], here.size()), here);
    EXPECT_THAT(Received::log(), Contains(HasSubstr("was redirected to a server that cannot be connected")));
}

TEST_F(RealServersTest, FramesOfThisHostComeThroughItsSocketFileOrElseOverTcp) {
    ::mkdir(folder.path("sockets").c_str(), 0755);
    ServerProcess process(VANTRELD_PROGRAM, folder.path("root"),
                          {"--display-name", "Render 1", "--storage-id", "stor-1"});
    const VantrelServerId id(process.id().c_str());
    const std::string content(3'000'000, 'c');  // more than the socket's buffers hold
    const auto ids = fill(VantrelServerHandle(id), content);
    const auto messagesOfARead = [&] {
        Received::clear();
        VantrelSetLogLevel(VANTREL_LOG_NOTICE);
        const VantrelServerHandle server(id);
        for (const std::string& frame : ids) EXPECT_EQ(read(server, frame, content.size()), content);
        std::vector<std::string> messages = Received::log();
        messages.erase(std::remove_if(messages.begin(), messages.end(),
                                      [](const std::string& line) {
                                          return line.find(" server 'Render 1' / 'stor-1'") ==
                                                     std::string::npos &&
                                                 line.find("socket pipe file") == std::string::npos;
                                      }),
                       messages.end());
        return messages;
    };
    const std::string path = folder.path("sockets/vantrel-frame.") + std::to_string(process.framePort());
    const std::string address = "127.0.0.1:" + std::to_string(process.framePort());
    const std::string connecting = "3 Connecting to server 'Render 1' / 'stor-1' using '";
    const std::string connected = "3 Connected to server 'Render 1' / 'stor-1'";
    EXPECT_THAT(messagesOfARead(),
                ElementsAre(connecting + path + "'.", connected + " using '" + path + "'."));

    std::filesystem::rename(path, path + ".kept");
    const int dead = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);  // what a killed server leaves
    sockaddr_un file{};
    file.sun_family = AF_UNIX;
    path.copy(file.sun_path, sizeof file.sun_path - 1);
    ASSERT_EQ(::bind(dead, reinterpret_cast<const sockaddr*>(&file), sizeof file), 0);
    ::close(dead);
    EXPECT_THAT(messagesOfARead(), ElementsAre(connecting + path + "'.",
                                               "2 Could not connect to socket pipe file '" + path +
                                                   "': " + std::strerror(ECONNREFUSED),
                                               connecting + address + "'.", connected + "."));
    std::filesystem::rename(path + ".kept", path);

    folder.write("network.cfg", "[Local]\nUUID=0d2f7b0a-95c5-4f7e-8f2d-5a6b1b7e9c11\n");
    EXPECT_THAT(messagesOfARead(), ElementsAre(connecting + address + "'.", connected + "."))
        << "that of another host is not looked at";
    process.process().signal(SIGTERM);
    process.process().wait(std::chrono::seconds(20));
    EXPECT_FALSE(std::filesystem::exists(path)) << "the server takes its file along";
}

}  // namespace
