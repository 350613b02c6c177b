#include "FrameServer.h"

#include <gmock/gmock.h>
#include <poll.h>

#include "CapturedLog.h"
#include "CoTime.h"
#include "RawClient.h"
#include "StoreFixture.h"

namespace vantreld {
namespace {

using std::string_literals::operator""s;

constexpr unsigned LIMIT_MS = 30000;
const std::string OK(1, '\0');
const std::string PREFIX =
    "Fetcher la vache! An error occurred while reading a frame from the Vantrel server:";

const std::string REFUSED =
    "' is refused: names are relative to the server's file folder and may not leave it.\0"s;

/// A plain socket to the frame port.
class Peer : public Vantrel::RawClient {
  public:
    using RawClient::RawClient;

    std::string ask(const std::string& request, std::size_t replyLength, std::size_t pieceSize = 0) {
        send(request, pieceSize);
        return readBytes(replyLength);
    }
};

class FrameServerTest : public StoreFixture {
  protected:
    FrameServerTest() {
        createClip(3);
        start({});
    }
    void start(FrameServer::Settings settings) {
        settings.bindAddress = "127.0.0.1";
        server_.reset();
        server_ = std::make_unique<FrameServer>(store(), settings);
    }
    Peer connect() const { return Peer(server_->port()); }
    /// Frame n5-2 stays unwritten.
    void writeFrames(Peer& peer) {
        EXPECT_EQ(peer.ask("WriteFrame\0n5-0\00010\0"s + "0123456789", 1), OK);
        EXPECT_EQ(peer.ask("WriteFrame\0n5-1\0003\0abc"s, 1), OK);
    }
    /// The connection still answers the next request.
    void expectUsable(Peer& peer) { EXPECT_EQ(peer.ask("NoOp\0InvalidateCache\0"s, 1), OK); }
    static void waitFor(const Vantrel::CapturedLog& log, const std::string& text) {
        for (const Vantrel::CoDeadline limit(LIMIT_MS); !log.contains(text); ::poll(nullptr, 0, 1))
            ASSERT_FALSE(limit.passed()) << text;
    }

    std::unique_ptr<FrameServer> server_;
};

TEST_F(FrameServerTest, EachRequestWholeOrInPiecesGetsItsReplyAndTheNextOneIsFound) {
    Peer peer = connect();
    const std::pair<std::string, std::string> cases[] = {
        {"ReadFrame\0n5-0\00010\0"s, OK + "0123456789"},
        {"ReadFrame\0n5-0\0000\0"s, OK},
        {"ReadFrame\0n5-0\00011\0"s, "Frame has 10 bytes, 11 asked.\0"s},
        {"ReadFrame\0n5-2\0001\0"s, "Frame 'n5-2' has not been written.\0"s},
        {"ReadFrame\0../lock\0001\0"s, "Frame '../lock' does not exist.\0"s},
        {"ReadFrameParams\0n5-1\0003\0005\0\0\1\2\3\4"s, OK + "abc"},
        {"ReadFrameNoAck\0n5-1\0002\0"s, "ab"},
        {"ReadFrameNoAck\0n5-2\000120\0"s,
         PREFIX + "Frame 'n5-2' has not been written." + std::string(120 - PREFIX.size() - 34, '\0')},
        {"ReadFrameNoAck\0n5-2\0005\0"s, PREFIX.substr(0, 5)},
        {"ReadAhead\0n5-0\0004\0NoOp\0InvalidateCache\0"s, OK},
        {"ReadAheadParams\0n5-9\0004\0001\0xInvalidateCache\0"s, OK},
        {"ReadAheadRedirect\0n5-0\0004\0000\0"s, "0\0"s},
        {"WriteFrame\0n5-7\0003\0abc"s, "Frame 'n5-7' does not exist.\0"s},
        {"WriteFrame\0n5-1\0000\0"s, OK},
        {"ReadFrame\0n5-1\0001\0"s, "Frame has 0 bytes, 1 asked.\0"s},
        {"WriteFrame\0n5-1\0003\0xyz"s, OK},
        {"ReadStream\0n5\000100\0002\0002\0003\0"s, "\0003\000456789"s},
        {"ReadStream\0n5\000100\0003\0003\0001\0"s, "\0001\0009xy"s},
        {"ReadStream\0n5\0005\0000\0002\0003\0"s, "\0003\0"s},
        {"ReadStream\0n5\000100\0000\0000\0001\0"s,
         "Cannot read stream 'n5': 1 elements of 0 bytes from 0 on are no range.\0"s},
        {"ReadStream\0n4\0009\0000\0001\0001\0"s, "Node 'n4' is a LIBRARY, not a clip.\0"s},
        {"PullFile\0../lock\000262144\0"s, "0\0Remote file name '../lock"s + REFUSED},
        {"PushFile\0/etc/x\0005\0"s, "Remote file name '/etc/x" + REFUSED},
        {"PushFile\0a/b/c\0005\0bytes"s, OK + OK},
        {"PullFile\0a/b/c\000262144\0"s, "5\0bytes\0"s},
    };
    for (const std::size_t pieceSize : {0U, 1U}) {
        writeFrames(peer);
        for (const auto& [request, reply] : cases) {
            EXPECT_EQ(peer.ask(request, reply.size(), pieceSize), reply) << request;
            expectUsable(peer);
        }
    }
    EXPECT_EQ(directory_.read("files/a/b/c"), "bytes");
}

TEST_F(FrameServerTest, FramesLargerThanTheSocketBuffersPassWhole) {
    std::string pixels(12'000'001, '\0');
    for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<char>(i * 7 + i / 251);
    const std::string size = std::to_string(pixels.size());
    Peer peer = connect();
    EXPECT_EQ(peer.ask("WriteFrame\0n5-0\0"s + size + OK + pixels, 1), OK);
    EXPECT_TRUE(peer.ask("ReadFrameNoAck\0n5-0\0"s + size + OK, pixels.size()) == pixels);
    // A refused one of that size is taken from the connection all the same.
    EXPECT_EQ(peer.ask("WriteFrame\0n5-9\0"s + size + "\0"s + pixels, 29), "Frame 'n5-9' does not exist.\0"s);
    expectUsable(peer);
}

TEST_F(FrameServerTest, RubbishIsAnsweredAndEndsThatConnectionOnly) {
    Peer bystander = connect();
    writeFrames(bystander);
    const std::pair<std::string, std::string> cases[] = {
        {"Nonsense\0"s, "Unknown method: Nonsense\0"s},
        {"\0"s, "Unknown method: \0"s},
        {std::string(100000, 'x'), "The request's method is too long.\0"s},
        {"ReadFrame\0"s + std::string(100000, 'x'),
         "The text of a ReadFrame request has more than 4096 bytes.\0"s},
        {"ReadFrame\0n5-0\000-1\0"s, "Invalid size '-1' in a ReadFrame request.\0"s},
        {"ReadFrame\0n5-0\0001 \0"s, "Invalid size '1 ' in a ReadFrame request.\0"s},
        {"WriteFrame\0n5-0\00099999999999999999999\0"s,
         "Invalid size '99999999999999999999' in a WriteFrame request.\0"s},
        {"WriteFrame\0n5-0\0009223372036854775807\0"s + std::string(100000, 'x'),
         "Cannot write frame 'n5-0': it has 9223372036854775807 bytes, at most 4294967296 are taken.\0"s},
        {"ReadFrameParams\0n5-0\0001\0009999999999\0"s,
         "9999999999 bytes of ReadFrameParams parameters; at most 1048576 are taken.\0"s},
        {"ReadStream\0n5\0001\0-1\0001\0001\0"s, "Invalid position '-1' in a ReadStream request.\0"s},
    };
    for (const auto& [bytes, error] : cases) {
        Peer peer = connect();
        EXPECT_EQ(peer.ask(bytes, error.size()), error);
        EXPECT_TRUE(peer.isClosedByPeer());
    }
    EXPECT_EQ(bystander.ask("ReadFrame\0n5-0\00010\0"s, 11), OK + "0123456789");
}

TEST_F(FrameServerTest, AnUploadCutShortLeavesTheEarlierFrame) {
    Peer peer = connect();
    writeFrames(peer);
    const Vantrel::CapturedLog log;
    connect().send("WriteFrame\0n5-0\0001000\0half"s);
    waitFor(log, "the peer closed within a request");
    EXPECT_EQ(peer.ask("ReadFrame\0n5-0\00010\0"s, 11), OK + "0123456789");
}

TEST_F(FrameServerTest, APeerThatStallsWithinARequestIsDroppedAndAnIdleOneIsNot) {
    FrameServer::Settings settings;
    settings.stallTimeoutMs = 100;
    start(settings);
    Peer idle = connect();
    Peer stalled = connect();
    stalled.send("WriteFrame\0n5-0\00010\0half"s);
    EXPECT_TRUE(stalled.isClosedByPeer());
    const Vantrel::CapturedLog log;
    Peer neverReads = connect();
    neverReads.send("ReadFrameNoAck\0n5-0\0001000000000\0"s);  // far more than the sockets hold
    waitFor(log, Vantrel::coErrorText(ETIMEDOUT));
    expectUsable(idle);
}

TEST_F(FrameServerTest, ConnectionsBeyondTheMaximumAreClosedUntilOthersLeave) {
    FrameServer::Settings settings;
    settings.maxConnections = 1;
    start(settings);
    {
        Peer first = connect();
        expectUsable(first);
        EXPECT_TRUE(connect().isClosedByPeer());
    }
    const Vantrel::CoDeadline limit(LIMIT_MS);
    while (connect().ask("InvalidateCache\0"s, 1) != OK) ASSERT_FALSE(limit.passed());
}

TEST_F(FrameServerTest, AServerOfAnAgeLacksTheMethodsThatCameLater) {
    const std::pair<std::string, VantrelVersion> cases[] = {{"ReadFrameNoAck\0n5-0\0001\0"s, {2010, 0, 0, 0}},
                                                            {"InvalidateCache\0"s, {2012, 0, 0, 5120}}};
    for (const auto& [request, since] : cases) {
        FrameServer::Settings settings;
        settings.version = since;
        start(settings);
        EXPECT_NE(connect().ask(request, 1), "U");
        --settings.version.major;
        start(settings);
        const std::string unknown = "Unknown method: " + request.substr(0, request.find('\0') + 1);
        EXPECT_EQ(connect().ask(request, unknown.size()), unknown);
    }
}

TEST_F(FrameServerTest, ItEndsAtOnceThoughPeersAreInTheMiddleOfSomething) {
    Peer idle = connect();
    Peer uploading = connect();
    expectUsable(idle);
    EXPECT_EQ(uploading.ask("InvalidateCache\0WriteFrame\0n5-0\0001000\0half"s, 1), OK);
    server_.reset();
    EXPECT_TRUE(idle.isClosedByPeer());
    EXPECT_TRUE(uploading.isClosedByPeer());
}

}  // namespace
}  // namespace vantreld
