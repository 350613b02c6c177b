// The bytes that frame, stream and file transfers put on the wire, and what becomes of transfers that fail.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

#include "ClientFixture.h"
#include "FramePeer.h"

using std::string_literals::operator""s;
using ::testing::Contains;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Then = Vantrel::FramePeer::Then;

namespace {

const std::string PREFIX =
    "Fetcher la vache! An error occurred while reading a frame from the Vantrel server:";
constexpr std::size_t LARGE = 64U << 20;  // more than the buffers of two sockets hold

class FramesTest : public PeerFixture {
  protected:
    FramesTest() {
        set("VANTREL_FRAME_STALL_TIMEOUT_MS", "300");
        client.init();
        describeFrames("2010.1.1.0");
    }
    void describeFrames(const char* version) {
        PeerInfo info;
        info.version = version;
        info.framePort = frames.port();
        describe(info);
    }
    bool read(std::size_t size) {
        buffer.assign(size, '?');
        return server.readFrame("f1", buffer.data(), size);
    }
    /// A whole transfer, which must work.
    void expectNextTransferWorks() {
        const std::string request = "ReadFrame\0f1\0"s + "4\0"s;
        frames.expect(request.size(), "\0good"s);
        EXPECT_TRUE(read(4)) << server.lastError();
        EXPECT_EQ(buffer, "good");
        EXPECT_EQ(frames.requests().back(), request);
    }

    VantrelClient client{true};
    Vantrel::FramePeer frames;
    const VantrelServerHandle server{id()};
    std::string buffer;
    unsigned long count = 0;
};

// --- Bytes on the wire ---

struct Exchange {
    std::string request;
    std::string reply;
};

struct Transfer {
    const char* name;
    std::function<bool()> run;
    std::vector<Exchange> wire;
    std::string received;
};

TEST_F(FramesTest, RequestsAndRepliesAreThoseOfTheProtocolInPiecesOfAnySize) {
    const std::string local = folder.write("sent", "hello");
    const std::string pulled = folder.path("pulled");
    const std::string frame(PREFIX.size() + 1, 'F');
    const std::string size = std::to_string(frame.size());
    const std::string prefixInside = 'x' + PREFIX;
    const std::string written = "x\0z"s + PREFIX;
    const auto readWith = [&](const std::string& parameters, const char* ahead1, const char* ahead2) {
        buffer.assign(frame.size(), '?');
        return server.readFrame("f1", parameters.data(), parameters.size(), buffer.data(), buffer.size(),
                                ahead1, ahead2);
    };
    const Transfer transfers[] = {
        {"acknowledged",
         [&] { return read(PREFIX.size()); },
         {{"ReadFrame\0f1\0"s + std::to_string(PREFIX.size()) + '\0', '\0' + PREFIX}},
         PREFIX},
        {"not acknowledged",
         [&] { return read(frame.size()); },
         {{"ReadFrameNoAck\0f1\0"s + size + '\0', frame}},
         frame},
        {"the prefix further on is data",
         [&] { return read(prefixInside.size()); },
         {{"ReadFrameNoAck\0f1\0"s + size + '\0', prefixInside}},
         prefixInside},
        {"parameters",
         [&] { return readWith("p\0q"s, nullptr, ""); },
         {{"ReadFrameParamsNoAck\0f1\0"s + size + "\0003\0p\0q"s, frame}},
         frame},
        {"read-aheads",
         [&] { return readWith("", "a1", "a2"); },
         {{"ReadAhead\0a1\0"s + size + '\0', ""},
          {"ReadAhead\0a2\0"s + size + '\0', ""},
          {"ReadFrameNoAck\0f1\0"s + size + '\0', frame}},
         frame},
        {"read-ahead with parameters",
         [&] { return readWith("p\0q"s, nullptr, "a2"); },
         {{"ReadAheadParams\0a2\0"s + size + "\0003\0p\0q"s, ""},
          {"ReadFrameParamsNoAck\0f1\0"s + size + "\0003\0p\0q"s, frame}},
         frame},
        {"read-ahead alone",
         [&] { return buffer.clear(), server.readFrame("", nullptr, 9, "a1"); },
         {{"ReadAhead\0a1\0009\0"s, ""}},
         ""},
        {"nothing", [&] { return server.readFrame(nullptr, nullptr, 0); }, {}, ""},
        {"write",
         [&] { return server.writeFrame("f 1", written.data(), written.size()); },
         {{"WriteFrame\0f 1\000"s + std::to_string(written.size()) + '\0' + written, "\0"s}},
         ""},
        {"write of nothing",
         [&] { return server.writeFrame("f1", "", 0); },
         {{"WriteFrame\0f1\0000\0"s, "\0"s}},
         ""},
        {"stream",
         [&] {
             buffer.assign(8, '?');
             count = 5;
             return server.readStream("s1", buffer.data(), buffer.size(), 2, 4, count) && count == 2;
         },
         {{"ReadStream\0s1\0008\0002\0004\0005\0"s, "\0002\00012345678"s}},
         "12345678"},
        {"push",
         [&] { return buffer.clear(), server.pushStream("dir/r", local.c_str()); },
         {{"PushFile\0dir/r\0005\0"s, "\0"s}, {"hello", "\0"s}},
         ""},
        {"pull",
         [&] {
             const bool ok = server.pullStream("dir/r", pulled.c_str());
             buffer = folder.read("pulled");
             return ok;
         },
         {{"PullFile\0dir/r\000262144\0"s, "3\0a\0b\0"s}},
         "a\0b"s},
    };
    set("QD_VANTREL_NETIO_BUF_SIZE", "50");  // frames are taken and sent in several steps
    for (const std::size_t piece : {0U, 1U, 2U, 7U}) {
        frames.replyInPieces(piece);
        for (const Transfer& transfer : transfers) {
            SCOPED_TRACE(transfer.name + " in pieces of "s + std::to_string(piece));
            const std::size_t before = frames.requests().size();
            std::vector<std::string> expected;
            for (const Exchange& exchange : transfer.wire) {
                frames.expect(exchange.request.size(), exchange.reply);
                expected.push_back(exchange.request);
            }
            buffer.clear();
            EXPECT_TRUE(transfer.run()) << server.lastError();
            EXPECT_EQ(buffer, transfer.received);
            ASSERT_TRUE(frames.waitForRequests(before + expected.size()));
            const auto all = frames.requests();
            EXPECT_THAT(std::vector<std::string>(all.begin() + static_cast<long>(before), all.end()),
                        ElementsAreArray(expected));
        }
    }
    EXPECT_EQ(frames.connections(), 1U);
}

TEST_F(FramesTest, CacheInvalidationIsASingleWord) {
    describeFrames("2012.0.0.5120");
    frames.expect(16, "\0"s);
    EXPECT_TRUE(server.invalidateCache()) << server.lastError();
    EXPECT_THAT(frames.requests(), ElementsAreArray({"InvalidateCache\0"s}));
}

// --- Failures ---

struct Broken {
    const char* name;
    std::function<bool()> run;
    std::size_t requestBytes;
    std::string reply;
    Then then;
    std::string error;
    bool keepsConnection;
};

TEST_F(FramesTest, AFailedTransferTellsWhyAndTheNextOneWorks) {
    const std::string pulled = folder.write("pulled", "earlier");
    const std::string local = folder.write("sent", "hello");
    const std::size_t length = PREFIX.size() + 20;
    const std::size_t readBytes = 15 + 3 + 4;  // "ReadFrameNoAck", "f1", three digits
    const std::string large(LARGE, 'L');
    const std::string late = std::strerror(ETIMEDOUT);
    const auto readSome = [&] { return read(length); };
    const auto readShort = [&] { return read(4); };
    const auto pull = [&] { return server.pullStream("r", pulled.c_str()); };
    const auto stream = [&] {
        buffer.assign(8, '?');
        return server.readStream("s1", buffer.data(), 8, 0, 4, count);
    };
    const auto writeLarge = [&] { return server.writeFrame("f1", large.data(), large.size()); };
    const std::size_t pullBytes = 9 + 2 + 7;
    const std::size_t streamBytes = 11 + 3 + 2 + 2 + 2 + 2;
    const Broken rows[] = {
        {"server's error", readShort, 15, "No such frame.\0"s, Then::GoOn, "No such frame.", true},
        {"error in the frame", readSome, readBytes, PREFIX + "Gone.\0"s + std::string(14, 'x'), Then::GoOn,
         "Gone.", true},
        {"error that fills the frame", readSome, readBytes, PREFIX + std::string(20, 'e'), Then::GoOn,
         std::string(20, 'e'), true},
        {"closed before the reply", readSome, readBytes, "", Then::Close, "Connection closed", false},
        {"closed within the frame", readSome, readBytes, std::string(length - 1, 'x'), Then::Close,
         "Connection closed", false},
        {"closed within the return code", readShort, 15, "No su", Then::Close, "Connection closed", false},
        {"stalled within the frame", readSome, readBytes, "abc", Then::Stall,
         "Cannot read data on socket: " + late, false},
        {"return code without an end", readShort, 15, std::string(2000, 'e'), Then::Stall,
         std::string(1023, 'e'), false},
        {"return code of 1023 bytes", readShort, 15, std::string(1023, 'e') + '\0', Then::GoOn,
         std::string(1023, 'e'), false},
        {"return code of 1022 bytes", readShort, 15, std::string(1022, 'e') + '\0', Then::GoOn,
         std::string(1022, 'e'), true},
        {"stalled while writing", writeLarge, 30, "", Then::Stall,
         "ret: -1 writing " + std::to_string(LARGE) + " bytes: " + late, false},
        {"closed while writing", writeLarge, 30, "", Then::Close,
         "ret: 0 writing " + std::to_string(LARGE) + " bytes", false},
        {"write refused", [&] { return server.writeFrame("f1", "x", 1); }, 17, "Full.\0"s, Then::GoOn,
         "Full.", true},
        {"push refused", [&] { return server.pushStream("r", local.c_str()); }, 13, "Denied.\0"s, Then::GoOn,
         "Denied.", true},
        {"pull of a missing file", pull, pullBytes, "0\0No such file.\0"s, Then::GoOn, "No such file.", true},
        {"pull cut short", pull, pullBytes, "9\0half"s, Then::Close, "Connection closed", false},
        {"pull that fails at its end", pull, pullBytes, "4\0halfDisk on fire.\0"s, Then::GoOn,
         "Disk on fire.", true},
        {"negative size", pull, pullBytes, "-1\0"s, Then::GoOn, "Invalid size reply: '-1'.", false},
        {"no size", pull, pullBytes, "\0"s, Then::GoOn, "Invalid size reply: ''.", false},
        {"size of a word", pull, pullBytes, "12x\0"s, Then::GoOn, "Invalid size reply: '12x'.", false},
        {"size above 63 bits", pull, pullBytes, "9223372036854775808\0"s, Then::GoOn,
         "Invalid size reply: '9223372036854775808'.", false},
        {"size without an end", pull, pullBytes, std::string(64, '1'), Then::Stall,
         "Invalid size reply: '" + std::string(63, '1') + "'.", false},
        {"huge size, then nothing", pull, pullBytes, "9223372036854775807\0abc"s, Then::Close,
         "Connection closed", false},
        {"stream refused", stream, streamBytes, "No stream.\0"s, Then::GoOn, "No stream.", true},
        {"stream one element too long", stream, streamBytes, "\0003\0abcdefghijkl"s, Then::GoOn,
         "Buffer too small.", false},
        {"stream of huge size", stream, streamBytes, "\0009223372036854775807\0"s, Then::GoOn,
         "Buffer too small.", false},
    };
    const auto entries = folder.countEntries();
    for (const Broken& row : rows) {
        SCOPED_TRACE(row.name);
        expectNextTransferWorks();
        const std::size_t connections = frames.connections();
        count = 1;
        frames.expect(row.requestBytes, row.reply, row.then);
        EXPECT_FALSE(row.run());
        // Which of the two the system reports of a peer that has gone is a matter of time.
        std::string error = server.lastError();
        if (row.then == Then::Close && error.rfind("ret: -1", 0) == 0) error.replace(5, 2, "0");
        EXPECT_EQ(error, row.error);
        expectNextTransferWorks();
        EXPECT_EQ(frames.connections() - connections, row.keepsConnection ? 0U : 1U);
        EXPECT_EQ(folder.read("pulled"), "earlier");
        EXPECT_EQ(folder.countEntries(), entries) << "no partial file stays";
    }
}

TEST_F(FramesTest, AConnectionThatTheServerHasClosedMeanwhileIsOpenedAgain) {
    frames.expect(15, "\0good"s, Then::Close);
    EXPECT_TRUE(read(4));
    ASSERT_TRUE(frames.waitForClosed(1));
    expectNextTransferWorks();
    EXPECT_EQ(frames.connections(), 2U);
}

TEST_F(FramesTest, AFramePortThatMovedIsFoundByTheNextCall) {
    Received::record();
    VantrelSetLogLevel(VANTREL_LOG_NOTICE);
    PeerInfo info;
    info.version = "2010.1.1.0";
    info.framePort = 0;  // stands for 7550, where nobody listens
    describe(info);
    EXPECT_FALSE(read(4));
    EXPECT_STREQ(server.lastError(), "No data interface found");
    EXPECT_THAT(Received::log(),
                Contains("3 Connecting to server 'Render 1' / 'stor-1' using '127.0.0.1:7550'."));
    describeFrames("2010.1.1.0");
    expectNextTransferWorks();
    EXPECT_EQ(peer.connections(), 1U) << "the metadata connection is asked, not made again";
}

TEST_F(FramesTest, TransfersToAndFromFilesThatAreNoFilesAreRefused) {
    const std::tuple<bool, std::string, int> rows[] = {
        {true, folder.path("missing"), ENOENT},
        {true, folder.path(), EINVAL},
        {true, "", ENOENT},
        {false, "/dev/null", EINVAL},
        {false, folder.path("no/dir"), ENOENT},
        {false, folder.path(), EINVAL},
    };
    for (const auto& [push, path, error] : rows) {
        EXPECT_FALSE(push ? server.pushStream("r", path.c_str()) : server.pullStream("r", path.c_str()));
        EXPECT_THAT(server.lastError(), HasSubstr("'" + path + "': " + std::strerror(error)));
    }
    EXPECT_FALSE(server.pullStream("r", nullptr));
    EXPECT_FALSE(server.pushStream("r", nullptr));
    EXPECT_FALSE(server.writeFrame(nullptr, "x", 1));
    struct stat status {};
    EXPECT_TRUE(::stat("/dev/null", &status) == 0 && S_ISCHR(status.st_mode));
    expectNextTransferWorks();
}

TEST_F(FramesTest, APulledFileTakesThePlaceOfTheEarlierOneWithItsModeAndLink) {
    const std::string target = folder.write("target", "earlier");
    ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
    ASSERT_EQ(::symlink("target", folder.path("link").c_str()), 0);
    frames.expect(9 + 2 + 7, "3\0new\0"s);
    EXPECT_TRUE(server.pullStream("r", folder.path("link").c_str())) << server.lastError();
    EXPECT_EQ(folder.read("target"), "new");
    struct stat status {};
    ASSERT_EQ(::lstat(target.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
    ASSERT_EQ(::lstat(folder.path("link").c_str(), &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
}

// --- Stopping ---

class StopTransferTest : public FramesTest {
  protected:
    StopTransferTest() {
        set("VANTREL_FRAME_STALL_TIMEOUT_MS", "0");
    }  // wins: it is read with the first transfer
};

TEST_F(StopTransferTest, EndsTheTransferInProgress) {
    const std::string large(LARGE, 'L');
    const struct {
        const char* name;
        std::function<bool()> run;
        std::function<void()> end;
    } rows[] = {
        {"stop while reading", [&] { return read(4); }, [&] { server.stop("unused"); }},
        {"disconnect while reading", [&] { return read(4); }, [&] { server.disconnect(); }},
        {"stop while writing", [&] { return server.writeFrame("f1", large.data(), large.size()); },
         [&] { server.stop(nullptr); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        expectNextTransferWorks();
        const std::size_t before = frames.requests().size();
        frames.expect(15, "", Then::Stall);
        within(std::chrono::seconds(30), [&] {
            auto transfer = std::async(std::launch::async, row.run);
            EXPECT_TRUE(frames.waitForRequests(before + 1));
            row.end();
            EXPECT_FALSE(transfer.get());
        });
        EXPECT_STREQ(server.lastError(), "Operation aborted.");
        expectNextTransferWorks();
    }
}

}  // namespace
