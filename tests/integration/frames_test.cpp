// The bytes that frame, stream and file transfers put on the wire, and what becomes of transfers that fail.
#include <fcntl.h>
#include <sched.h>
#include <sys/fsuid.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <thread>

#include "ClientFixture.h"
#include "FramePeer.h"
#include "SilentListener.h"

using std::string_literals::operator""s;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using Then = Vantrel::FramePeer::Then;

namespace {

const std::string PREFIX =
    "Fetcher la vache! An error occurred while reading a frame from the Vantrel server:";
constexpr std::size_t LARGE = 64U << 20;  // more than the buffers of two sockets hold

/// What travels, written with '|' for each NUL.
std::string wire(std::string text) {
    std::replace(text.begin(), text.end(), '|', '\0');
    return text;
}

class FramesTest : public PeerFixture {
  protected:
    static constexpr std::size_t READ_SHORT_BYTES = 15;  // "ReadFrame", "f1", one digit

    FramesTest() {
        set("VANTREL_FRAME_STALL_TIMEOUT_MS", "1000");
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
        frames.expect(READ_SHORT_BYTES, wire("|good"));
        EXPECT_TRUE(read(4)) << server.lastError();
        EXPECT_EQ(buffer, "good");
        EXPECT_EQ(frames.requests().back(), wire("ReadFrame|f1|4|"));
    }

    VantrelClient client{true};
    Vantrel::FramePeer frames;
    const VantrelServerHandle server{id()};
    std::string buffer;
    unsigned long count = 0;
};

// --- Bytes on the wire ---

TEST_F(FramesTest, RequestsAndRepliesAreThoseOfTheProtocolInPiecesOfAnySize) {
    const std::string local = folder.write("sent", "hello");
    const std::string pulled = folder.path("pulled");
    const std::string frame(83, 'F');  // one byte more than the prefix
    const std::string prefixInside = 'x' + PREFIX;
    const std::string written = wire("x|z") + PREFIX;
    const auto readWith = [&](const std::string& parameters, const char* ahead1, const char* ahead2) {
        buffer.assign(83, '?');
        return server.readFrame("f1", parameters.data(), parameters.size(), &buffer[0], 83, ahead1, ahead2);
    };
    const auto write = [&](const char* id, const std::string& data) {
        return server.writeFrame(id, data.data(), data.size());
    };
    const auto acknowledged = [&] { return read(82); };
    const auto unacknowledged = [&] { return read(83); };
    const auto parameters = [&] { return readWith(wire("p|q"), nullptr, ""); };
    const auto aheads = [&] { return readWith("", "a1", "a2"); };
    const auto aheadParameters = [&] { return readWith(wire("p|q"), nullptr, "a2"); };
    const auto aheadAlone = [&] { return server.readFrame("", nullptr, 9, "a1"); };
    const auto nothing = [&] { return server.readFrame(nullptr, nullptr, 0); };
    const auto write85 = [&] { return write("f 1", written); };
    const auto write0 = [&] { return write("f1", ""); };
    const auto stream = [&] {
        buffer.assign(8, '?');
        count = 5;
        return server.readStream("s1", &buffer[0], 8, 2, 4, count) && count == 2;
    };
    const auto push = [&] { return server.pushStream("dir/r", local.c_str()); };
    const auto pull = [&] {
        const bool ok = server.pullStream("dir/r", pulled.c_str());
        buffer = folder.read("pulled");
        return ok;
    };
    const struct {
        std::function<bool()> run;
        std::vector<std::pair<std::string, std::string>> exchanges;  // request and reply, see `wire`
        std::string received;
    } transfers[] = {
        {acknowledged, {{"ReadFrame|f1|82|", '|' + PREFIX}}, PREFIX},
        {unacknowledged, {{"ReadFrameNoAck|f1|83|", frame}}, frame},
        {unacknowledged, {{"ReadFrameNoAck|f1|83|", prefixInside}}, prefixInside},
        {parameters, {{"ReadFrameParamsNoAck|f1|83|3|p|q", frame}}, frame},
        {aheads,
         {{"ReadAhead|a1|83|", ""}, {"ReadAhead|a2|83|", ""}, {"ReadFrameNoAck|f1|83|", frame}},
         frame},
        {aheadParameters,
         {{"ReadAheadParams|a2|83|3|p|q", ""}, {"ReadFrameParamsNoAck|f1|83|3|p|q", frame}},
         frame},
        {aheadAlone, {{"ReadAhead|a1|9|", ""}}, ""},
        {nothing, {}, ""},
        {write85, {{"WriteFrame|f 1|85|" + written, "|"}}, ""},
        {write0, {{"WriteFrame|f1|0|", "|"}}, ""},
        {stream, {{"ReadStream|s1|8|2|4|5|", "|2|12345678"}}, "12345678"},
        {push, {{"PushFile|dir/r|5|", "|"}, {"hello", "|"}}, ""},
        {pull, {{"PullFile|dir/r|262144|", "3|a|b|"}}, wire("a|b")},
    };
    set("QD_VANTREL_NETIO_BUF_SIZE", "50");  // frames are taken and sent in several steps
    for (const std::size_t piece : {0U, 1U, 2U, 7U}) {
        frames.replyInPieces(piece);
        for (const auto& transfer : transfers) {
            SCOPED_TRACE("row " + std::to_string(&transfer - transfers) + " by " + std::to_string(piece));
            std::vector<std::string> expected = frames.requests();
            for (const auto& [request, reply] : transfer.exchanges) {
                frames.expect(request.size(), wire(reply));
                expected.push_back(wire(request));
            }
            buffer.clear();
            EXPECT_TRUE(transfer.run()) << server.lastError();
            EXPECT_EQ(buffer, transfer.received);
            ASSERT_TRUE(frames.waitForRequests(expected.size()));
            EXPECT_EQ(frames.requests(), expected);
        }
    }
    EXPECT_EQ(frames.connections(), 1U);
}

TEST_F(FramesTest, CacheInvalidationIsASingleWord) {
    describeFrames("2012.0.0.5120");
    frames.expect(16, wire("|"));
    EXPECT_TRUE(server.invalidateCache()) << server.lastError();
    EXPECT_EQ(frames.requests().back(), wire("InvalidateCache|"));
}

// --- Failures ---

TEST_F(FramesTest, AFailedTransferSaysWhyAndTheNextOneWorks) {
    const std::string pulled = folder.write("pulled", "earlier");
    const std::string local = folder.write("sent", "hello");
    const std::string large(LARGE, 'L');
    const std::string largeError = " writing " + std::to_string(LARGE) + " bytes";
    const std::string late = std::strerror(ETIMEDOUT);
    const char* const closed = "Connection closed";
    const std::string e1022(1022, 'e');
    const std::string huge = "9223372036854775807|";
    const auto some = [&] { return read(102); };
    const auto four = [&] { return read(4); };
    const auto pull = [&] { return server.pullStream("r", pulled.c_str()); };
    const auto stream = [&] {
        buffer.assign(8, '?');
        return server.readStream("s1", buffer.data(), 8, 0, 4, count);
    };
    const auto writeLarge = [&] { return server.writeFrame("f1", large.data(), large.size()); };
    const std::size_t someBytes = 15 + 3 + 4;  // "ReadFrameNoAck", "f1", three digits
    const std::size_t fourBytes = READ_SHORT_BYTES;
    const std::size_t pullBytes = 9 + 2 + 7;
    const std::size_t streamBytes = 11 + 3 + 2 + 2 + 2 + 2;
    const struct {
        const char* name;
        std::function<bool()> run;
        std::size_t requestBytes;
        std::string reply;  // see `wire`
        std::string error;
        bool keepsConnection = false;
        Then then = Then::GoOn;
    } rows[] = {
        {"server's error", four, fourBytes, "No such frame.|", "No such frame.", true},
        {"error in the frame", some, someBytes, PREFIX + "Gone.|" + std::string(14, 'x'), "Gone.", true},
        {"error fills the frame", some, someBytes, PREFIX + e1022.substr(0, 20), e1022.substr(0, 20), true},
        {"closed before the reply", some, someBytes, "", closed, false, Then::Close},
        {"closed within the frame", some, someBytes, std::string(101, 'x'), closed, false, Then::Close},
        {"closed within the return code", four, fourBytes, "No su", closed, false, Then::Close},
        {"stalled", some, someBytes, "abc", "Cannot read data on socket: " + late, false, Then::Stall},
        {"endless return code", four, fourBytes, e1022 + e1022, e1022 + 'e', false, Then::Stall},
        {"return code of 1023 bytes", four, fourBytes, e1022 + "e|", e1022 + 'e'},
        {"return code of 1022 bytes", four, fourBytes, e1022 + '|', e1022, true},
        {"stalled write", writeLarge, 30, "", "ret: -1" + largeError + ": " + late, false, Then::Stall},
        {"closed while writing", writeLarge, 30, "", "ret: 0" + largeError, false, Then::Close},
        {"write refused", [&] { return server.writeFrame("f1", "x", 1); }, 17, "Full.|", "Full.", true},
        {"push refused", [&] { return server.pushStream("r", local.c_str()); }, 13, "No!|", "No!", true},
        {"pull of a missing file", pull, pullBytes, "0|No such file.|", "No such file.", true},
        {"pull cut short", pull, pullBytes, "9|half", closed, false, Then::Close},
        {"pull that fails at its end", pull, pullBytes, "4|halfDisk on fire.|", "Disk on fire.", true},
        {"negative size", pull, pullBytes, "-1|", "Invalid size reply: '-1'."},
        {"endless size", pull, pullBytes, std::string(64, '1'),
         "Invalid size reply: '" + std::string(63, '1') + "'.", false, Then::Stall},
        {"huge size, then nothing", pull, pullBytes, huge + "abc", closed, false, Then::Close},
        {"stream refused", stream, streamBytes, "No stream.|", "No stream.", true},
        {"stream one element too long", stream, streamBytes, "|3|abcdefghijkl", "Buffer too small."},
        {"stream of huge size", stream, streamBytes, '|' + huge, "Buffer too small."},
    };
    const auto entries = folder.countEntries();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        expectNextTransferWorks();
        const std::size_t connections = frames.connections();
        count = 1;
        frames.expect(row.requestBytes, wire(row.reply), row.then);
        EXPECT_FALSE(row.run());
        // Which of the two the system reports of a peer that has gone is a matter of time.
        std::string error = server.lastError();
        if (row.then == Then::Close && error.rfind("ret: -1", 0) == 0) error.replace(5, 2, "0");
        EXPECT_EQ(error, row.error);
        EXPECT_TRUE(server.lastErrorCode() == VANTREL_ERROR_REFUSED || !row.keepsConnection);
        expectNextTransferWorks();
        EXPECT_EQ(frames.connections() - connections, row.keepsConnection ? 0U : 1U);
        EXPECT_EQ(folder.read("pulled"), "earlier");
        EXPECT_EQ(folder.countEntries(), entries) << "no partial file stays";
    }
}

TEST_F(FramesTest, AConnectionThatTheServerHasClosedIsOpenedAgain) {
    frames.expect(READ_SHORT_BYTES, wire("|good"), Then::Close);
    EXPECT_TRUE(read(4));
    ASSERT_TRUE(frames.waitForClosed(1));
    expectNextTransferWorks();
}

TEST_F(FramesTest, AServerIsAskedAgainWhereNoneOfItsDataInterfacesAnswers) {
    Received::record();
    VantrelSetLogLevel(VANTREL_LOG_NOTICE);
    const Vantrel::SilentListener silent;  // given up after ten seconds
    const std::pair<int, std::vector<const char*>> rows[] = {
        {0, {"127.0.0.9", "127.0.0.1"}}, {silent.port(), {"127.0.0.1"}}, {frames.port(), {}}};
    for (const auto& [port, addresses] : rows) {
        PeerInfo info;
        info.framePort = port;
        info.frameAddresses = addresses;
        describe(info);
        within(std::chrono::seconds(60), [&] { EXPECT_FALSE(read(4)); });
        EXPECT_STREQ(server.lastError(), "No data interface found");
        EXPECT_EQ(server.lastErrorCode(), VANTREL_ERROR_UNREACHABLE);
    }
    EXPECT_THAT(Received::log(),
                Contains("3 Connecting to server 'Render 1' / 'stor-1' using '127.0.0.1:7550'."))
        << "what a port of 0 stands for";
    EXPECT_EQ(frames.connections(), 0U) << "no frame travels over the metadata address";
    describeFrames("2010.1.1.0");
    expectNextTransferWorks();
    EXPECT_EQ(peer.connections(), 1U) << "the metadata connection is asked, not made again";
}

TEST_F(FramesTest, TransfersToAndFromFilesThatAreNoFilesAreRefused) {
    const std::string pipe = folder.path("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0666), 0);
    const std::tuple<bool, std::string, int> rows[] = {
        {true, folder.path("missing"), ENOENT},
        {true, folder.path(), EINVAL},
        {true, "", ENOENT},
        {true, pipe, EINVAL},
        {false, pipe, ENXIO},
        {false, folder.path("no/dir"), ENOENT},
        {false, folder.path(), EISDIR},
    };
    for (const auto& [push, path, error] : rows) {
        within(std::chrono::seconds(10), [&, push = push, path = path] {
            EXPECT_FALSE(push ? server.pushStream("r", path.c_str()) : server.pullStream("r", path.c_str()));
        });
        EXPECT_EQ(server.lastErrorCode(), VANTREL_ERROR_LOCAL);
        EXPECT_THAT(server.lastError(), HasSubstr("'" + path + "': " + std::strerror(error)));
    }
    EXPECT_FALSE(server.pullStream("r", nullptr) || server.pushStream("r", nullptr) ||
                 server.writeFrame(nullptr, "x", 1));
    expectNextTransferWorks();
}

TEST_F(FramesTest, APulledFileTakesThePlaceOfTheEarlierOneWithItsModeAndLink) {
    const std::string target = folder.write("target", "earlier");
    const std::string link = folder.path("link");
    ASSERT_TRUE(::chmod(target.c_str(), 0640) == 0 && ::symlink("target", link.c_str()) == 0);
    frames.expect(9 + 2 + 7, wire("3|new|"));
    EXPECT_TRUE(server.pullStream("r", link.c_str())) << server.lastError();
    EXPECT_EQ(folder.read("target"), "new");
    struct stat status {};
    EXPECT_TRUE(::lstat(target.c_str(), &status) == 0 && (status.st_mode & 07777U) == 0640U);
    EXPECT_TRUE(::lstat(link.c_str(), &status) == 0 && S_ISLNK(status.st_mode));
}

/// While it lives, this thread has no more right to files than anybody.
class AsNobody {
  public:
    AsNobody() { ::setfsuid(65534); }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;
    ~AsNobody() { ::setfsuid(::geteuid()); }
};

TEST_F(FramesTest, APulledFileIsWrittenInPlaceWhereItCannotTakeAnothers) {
    const std::string pipe = folder.path("pipe");
    const std::string closed = folder.path("closed");
    ASSERT_TRUE(::mkfifo(pipe.c_str(), 0666) == 0 && ::chmod(pipe.c_str(), 0666) == 0);
    ASSERT_EQ(::mkdir(closed.c_str(), 0777), 0);
    const std::string file = folder.write("closed/file", "earlier and longer");
    ASSERT_EQ(::chmod(file.c_str(), 0666), 0);
    ASSERT_TRUE(::chmod(closed.c_str(), 0555) == 0 && ::chmod(folder.path().c_str(), 0755) == 0);
    const Vantrel::PlainFd reader(::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const auto pull = [&](const std::string& path, const std::string& reply) {
        frames.expect(9 + 2 + 7, reply);
        const AsNobody nobody;
        return server.pullStream("r", path.c_str());
    };

    EXPECT_FALSE(pull(file, "0\0No such file.\0"s));
    EXPECT_EQ(folder.read("closed/file"), "earlier and longer");
    for (const std::string& path : {file, pipe, "/dev/null"s}) {
        EXPECT_TRUE(pull(path, "3\0new\0"s)) << server.lastError();
    }
    EXPECT_EQ(folder.read("closed/file"), "new");
    char received[4] = "";
    EXPECT_EQ(::read(reader, received, sizeof received), 3);
    EXPECT_STREQ(received, "new");
    struct stat status {};
    EXPECT_TRUE(::stat("/dev/null", &status) == 0 && S_ISCHR(status.st_mode));

    EXPECT_FALSE(pull(pipe, "100000\0"s + std::string(100000, 'x') + '\0')) << "nobody reads it";
    EXPECT_THAT(server.lastError(), HasSubstr("'" + pipe + "': " + std::strerror(ETIMEDOUT)));
    EXPECT_TRUE(pull(file, "0\0\0"s)) << server.lastError();
    EXPECT_EQ(folder.read("closed/file"), "");
}

TEST_F(FramesTest, AFullDiskDoesNotCostTheEarlierFileOfAPull) {
    const std::string disk = folder.path("disk");
    ASSERT_EQ(::mkdir(disk.c_str(), 0777), 0);
    bool mounted = false;
    std::thread([&] {
        mounted = ::unshare(CLONE_NEWNS) == 0 &&
                  ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                  ::mount("none", disk.c_str(), "tmpfs", 0, "nr_inodes=2") == 0;
        if (!mounted) return;
        const std::string file = folder.write("disk/file", "earlier");
        EXPECT_FALSE(server.pullStream("r", file.c_str()));
        EXPECT_EQ(server.lastError(), "Cannot create '" + file + "': " + std::strerror(ENOSPC));
        EXPECT_EQ(folder.read("disk/file"), "earlier");
    }).join();
    if (!mounted) GTEST_SKIP() << "may not mount a disk";
}

TEST_F(FramesTest, TheEnvironmentSetsDelaysTracesBuffersAndPieces) {
    set("QD_VANTREL_TRACE", "1");
    set("QD_VANTREL_CONNECT_EXTRA_LATENCY_MSEC", "20");
    set("QD_VANTREL_CALL_EXTRA_LATENCY_MSEC", "30");
    set("KS_VANTREL_TCP_BUF_SIZE", "8192");
    set("QD_VANTREL_NETIO_BUF_SIZE", "1000");
    Received::record();
    VantrelSetLogLevel(VANTREL_LOG_DEBUG);
    const auto start = std::chrono::steady_clock::now();
    expectNextTransferWorks();  // connects and asks who the server is before
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20 + 30));
    EXPECT_THAT(
        Received::log(),
        IsSupersetOf({"4 Simulating extra latency of 20 ms"s, "4 Simulating extra latency of 30 ms"s,
                      "4 Calling ReadFrame(f1, 4)"s, "4 Finished ReadFrame()"s,
                      "4 Connecting to '127.0.0.1:" + std::to_string(frames.port()) + " [8192/8192/10s]"}));

    const std::string large(LARGE, 'L');
    frames.expect(30, "", Then::Close);
    EXPECT_FALSE(server.writeFrame("f1", large.data(), large.size()));
    EXPECT_THAT(server.lastError(), HasSubstr(" writing 1000 bytes"));
}

// --- Stopping ---

class StopTransferTest : public FramesTest {
  protected:
    StopTransferTest() { set("VANTREL_FRAME_STALL_TIMEOUT_MS", "0"); }  // read with the first transfer
};

TEST_F(StopTransferTest, EndsTheTransferInProgressAndThoseThatWait) {
    const std::string large(LARGE, 'L');
    const struct {
        const char* name;
        std::function<bool()> run;
        std::function<void()> end;
        const char* lastError;
    } rows[] = {
        {"stop while reading", [&] { return read(4); }, [&] { server.stop("Enough."); }, "Enough."},
        {"disconnect while reading", [&] { return read(4); }, [&] { server.disconnect(); },
         std::strerror(EINTR)},
        {"stop while writing", [&] { return server.writeFrame("f1", large.data(), large.size()); },
         [&] { server.stop(nullptr); }, std::strerror(EINTR)},
        {"the library's end", [&] { return read(4); }, [&] { VantrelClientUninit(); }, "API not initialized"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        expectNextTransferWorks();
        const std::size_t before = frames.requests().size();
        frames.expect(READ_SHORT_BYTES, "", Then::Stall);
        within(std::chrono::seconds(30), [&] {
            BackgroundCall transfer(row.run);
            EXPECT_TRUE(frames.waitForRequests(before + 1));
            BackgroundCall waiting([&] { return server.writeFrame("f1", "x", 1); });
            waiting.awaitSleep();
            row.end();
            EXPECT_FALSE(transfer.result() || waiting.result());
        });
        EXPECT_STREQ(server.lastError(), row.lastError) << "of the call that waited";
        if (VantrelClientIsInitialized()) continue;
        EXPECT_TRUE(frames.waitForClosed(frames.connections()));
        EXPECT_TRUE(VantrelClientInit());
        expectNextTransferWorks();
    }
}

}  // namespace
