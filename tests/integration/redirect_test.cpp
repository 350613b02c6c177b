// Frames that another server holds: where the client reads them.
#include <algorithm>

#include "ClientFixture.h"
#include "FramePeer.h"

using std::string_literals::operator""s;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;
using Then = Vantrel::FramePeer::Then;
using Vantrel::FramePeer;

namespace {

std::string sized(const std::string& record) {
    return std::to_string(record.size()) + '\0' + record;
}

/// Two scripted frame ports: that of the server, and that of the server which it redirects to. Frames have 4
/// bytes, too few for an error in place of a frame, so that reads are acknowledged.
class RedirectionTest : public PeerFixture {
  protected:
    RedirectionTest() {
        client.init();
        PeerInfo info;
        info.version = "2011.0.0.0";
        info.framePort = main.port();
        describe(info);
        Received::record();
        VantrelSetLogLevel(VANTREL_LOG_WARNING);
    }
    ~RedirectionTest() override { VantrelRegisterLogCallBack(nullptr); }

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

TEST_F(RedirectionTest, ParametersGoWithTheAnnouncementAndTheHoldersAgeDecidesHowItIsAsked) {
    const std::string parameters = "p\0q"s;
    const struct {
        int major;  // 0: the record has no version
        std::size_t size;
        const char* method;
        std::string reply;
    } cases[] = {
        {0, 4, "ReadFrameParams", "\0"s},
        {0, 200, "ReadFrameParamsNoAck", ""},  // room for an error in place of the frame
        {2009, 200, "ReadFrameParams", "\0"s},
        {2010, 200, "ReadFrameParamsNoAck", ""},
    };
    for (const auto& each : cases) {
        std::string record = recordOf(holder.port());
        if (each.major != 0) record += PeerInfo::entry("VersionMajor", std::to_string(each.major));
        const std::string rest = "\0f2\0"s + std::to_string(each.size) + "\0003\0"s + parameters;
        main.expect("ReadAheadRedirect"s.size() + rest.size(), sized(record));
        holder.expect(std::strlen(each.method) + rest.size(), each.reply + std::string(each.size, 'F'));
        std::string buffer(each.size, '?');
        const auto readF2 = [&](const char* frame, const char* ahead) {
            return server.readFrame(frame, parameters.data(), parameters.size(), &buffer[0], each.size,
                                    ahead);
        };
        ASSERT_TRUE(readF2(nullptr, "f2") && readF2("f2", nullptr)) << server.lastError();
        EXPECT_EQ(buffer, std::string(each.size, 'F'));
        EXPECT_EQ(main.requests().back(), "ReadAheadRedirect" + rest);
        EXPECT_EQ(holder.requests().back(), each.method + rest);
    }
}

TEST_F(RedirectionTest, WithoutRoomToRememberNoServerIsAskedForOne) {
    set("QD_VANTREL_REDIRECTION_CACHE_SIZE", "0");
    main.expect(0, "");
    EXPECT_TRUE(announce("f2")) << server.lastError();
    EXPECT_TRUE(main.waitForRequests(1));
    EXPECT_THAT(main.requests(), ElementsAre("ReadAhead\0f2\0"s + "4\0"s));
}

TEST_F(RedirectionTest, AHolderThatCannotBeReachedIsReplacedByTheServerItself) {
    const int closedPort = [] {
        const FramePeer gone;
        return gone.port();
    }();
    const std::string unreachable[] = {
        recordOf(closedPort),
        recordOf(65536),
        PeerInfo::entry("FramePort", std::to_string(holder.port())),
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

TEST_F(RedirectionTest, AClosedConnectionLeadsToTheHolderOfTheFrameThatIsRead) {
    FramePeer other;
    for (const char* frame : {"f1", "f2"}) {
        expectAhead(frame, sized(recordOf(holder.port())));
        ASSERT_TRUE(announce(frame)) << server.lastError();
    }
    expectRead(holder, "one.", Then::Close);
    EXPECT_EQ(read("f1"), "one.");
    expectAhead("f1", sized(recordOf(other.port())));
    ASSERT_TRUE(announce("f1") && holder.waitForClosed(1)) << server.lastError();
    expectRead(holder, "two.");
    expectRead(other, "oth.");
    EXPECT_EQ(read("f2"), "two.");
    EXPECT_EQ(read("f1"), "oth.");
}

TEST_F(RedirectionTest, ABadAnswerFailsTheCallAndClosesTheConnection) {
    const std::tuple<std::string, Then, const char*> cases[] = {
        {"65537\0"s, Then::GoOn, "Redirection of 65537 bytes; at most 65536 are taken."},
        {"-1\0"s, Then::GoOn, "Invalid size reply: '-1'."},
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
    EXPECT_TRUE(holder.waitForClosed(1) && main.waitForClosed(1));
    expectRead(holder, "two!");
    EXPECT_EQ(read("f2"), "two!");
}

}  // namespace
