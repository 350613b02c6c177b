#include "FrameServer.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>

#include "CapturedLog.h"
#include "CoException.h"
#include "CoTime.h"
#include "TemporaryDirectory.h"

namespace vantreld {
namespace {

using std::string_literals::operator""s;
using Vantrel::CoFd;

constexpr unsigned LIMIT_MS = 10000;
const std::string PREFIX =
    "Fetcher la vache! An error occurred while reading a frame from the Vantrel server:";

/// A plain socket to the frame port.
class Peer {
  public:
    explicit Peer(int port) : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::connect(fd_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }

    void send(const std::string& bytes) {
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t count = ::send(fd_.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) return;
            sent += static_cast<std::size_t>(count);
        }
    }
    /// What arrives, up to `length` bytes: fewer when the server closes or stays silent for the limit.
    std::string receive(std::size_t length) {
        std::string bytes;
        while (bytes.size() < length) {
            pollfd polled{fd_.get(), POLLIN, 0};
            if (::poll(&polled, 1, LIMIT_MS) <= 0) return bytes + "<silence>";
            char piece[4096];
            const ssize_t count = ::recv(fd_.get(), piece, std::min(sizeof piece, length - bytes.size()), 0);
            if (count <= 0) return bytes + "<closed>";
            bytes.append(piece, static_cast<std::size_t>(count));
        }
        return bytes;
    }
    std::string ask(const std::string& request, std::size_t replyLength) {
        send(request);
        return receive(replyLength);
    }

  private:
    CoFd fd_;
};

class FrameServerTest : public testing::Test {
  protected:
    FrameServerTest() {
        std::string parent = store_.rootId();
        for (const char* type : {"VOLUME", "PROJECT", "LIBRARY", "CLIP"}) {
            NodeStore::NewNode node;
            node.type = node.displayName = type;
            parent = store_.create(parent, node);
        }
        store_.setNumFrames(parent, 3);
        EXPECT_EQ(store_.frameIds(parent)[0], "n5-0");
        start({});
    }
    void start(FrameServer::Settings settings) {
        settings.bindAddress = "127.0.0.1";
        server_.reset();
        server_ = std::make_unique<FrameServer>(store_, settings);
    }
    Peer connect() { return Peer(server_->port()); }
    /// Writes "0123456789" to frame n5-0 and "abc" to n5-1; n5-2 stays unwritten.
    void writeFrames(Peer& peer) {
        EXPECT_EQ(peer.ask("WriteFrame\0n5-0\00010\0"s
                           "0123456789",
                           1),
                  "\0"s);
        EXPECT_EQ(peer.ask("WriteFrame\0n5-1\0003\0"s
                           "abc",
                           1),
                  "\0"s);
    }
    /// The connection still answers the next request.
    void expectUsable(Peer& peer) { EXPECT_EQ(peer.ask("NoOp\0InvalidateCache\0"s, 1), "\0"s); }

    Vantrel::TemporaryDirectory directory_;
    NodeStore store_{directory_.path()};
    std::unique_ptr<FrameServer> server_;
};

TEST_F(FrameServerTest, EachRequestGetsItsReplyAndTheNextOneIsFound) {
    Peer peer = connect();
    writeFrames(peer);
    directory_.write("files/f", "file");
    const struct {
        std::string request;
        std::string reply;
    } cases[] = {
        {"ReadFrame\0n5-0\00010\0"s,
         "\0"s
         "0123456789"},
        {"ReadFrame\0n5-0\0004\0"s,
         "\0"s
         "0123"},
        {"ReadFrame\0n5-0\0000\0"s, "\0"s},
        {"ReadFrame\0n5-0\00011\0"s, "Frame has 10 bytes, 11 asked.\0"s},
        {"ReadFrame\0n5-2\0001\0"s, "Frame 'n5-2' has not been written.\0"s},
        {"ReadFrame\0n5-3\0001\0"s, "Frame 'n5-3' does not exist.\0"s},
        {"ReadFrame\0../lock\0001\0"s, "Frame '../lock' does not exist.\0"s},
        {"ReadFrameParams\0n5-1\0003\0005\0"s
         "\0\1\2\3\4"s,
         "\0"s
         "abc"},
        {"ReadFrameNoAck\0n5-1\0002\0"s, "ab"},
        {"ReadFrameParamsNoAck\0n5-1\0002\0000\0"s, "ab"},
        {"ReadFrameNoAck\0n5-2\000120\0"s,
         PREFIX + "Frame 'n5-2' has not been written." + std::string(120 - PREFIX.size() - 34, '\0')},
        {"ReadFrameNoAck\0n5-2\00090\0"s,
         PREFIX + std::string("Frame 'n5-2' has").substr(0, 90 - PREFIX.size())},
        {"ReadFrameNoAck\0n5-2\0005\0"s, PREFIX.substr(0, 5)},
        {"ReadAhead\0n5-0\0004\0NoOp\0InvalidateCache\0"s, "\0"s},
        {"ReadAheadParams\0n5-9\0004\0001\0xInvalidateCache\0"s, "\0"s},
        {"ReadAheadRedirect\0n5-0\0004\0000\0"s, "0\0"s},
        {"WriteFrame\0n5-7\0003\0abc"s, "Frame 'n5-7' does not exist.\0"s},
        {"WriteFrame\0n5-1\0000\0"s, "\0"s},
        {"ReadFrame\0n5-1\0001\0"s, "Frame has 0 bytes, 1 asked.\0"s},
        {"WriteFrame\0n5-1\0003\0xyz"s, "\0"s},
        {"ReadStream\0n5\000100\0002\0002\0003\0"s,
         "\0"s
         "3\0"s
         "456789"},
        {"ReadStream\0n5\000100\0003\0003\0001\0"s,
         "\0"s
         "1\0"s
         "9xy"},
        {"ReadStream\0n5\0005\0000\0002\0003\0"s,
         "\0"s
         "3\0"s},
        {"ReadStream\0n5\000100\0000\0000\0001\0"s,
         "Cannot read stream 'n5': 1 elements of 0 bytes from 0 on are no range.\0"s},
        {"ReadStream\0n4\0009\0000\0001\0001\0"s, "Node 'n4' is a LIBRARY, not a clip.\0"s},
        {"PullFile\0f\000262144\0"s,
         "4\0"s
         "file"
         "\0"s},
        {"PullFile\0../lock\000262144\0"s,
         "0\0Remote file name '../lock' is refused: names are relative to the server's file folder and may "
         "not "
         "leave it.\0"s},
        {"PushFile\0/etc/x\0005\0"s,
         "Remote file name '/etc/x' is refused: names are relative to the server's file folder and may not "
         "leave "
         "it.\0"s},
        {"PushFile\0a/b/c\0005\0"s
         "bytes",
         "\0\0"s},
        {"PullFile\0a/b/c\000262144\0"s,
         "5\0"s
         "bytes"
         "\0"s},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(peer.ask(each.request, each.reply.size()), each.reply) << each.request;
        expectUsable(peer);
    }
    EXPECT_EQ(directory_.read("files/a/b/c"), "bytes");
}

TEST_F(FrameServerTest, ARequestInOneBytePiecesIsTheSameRequest) {
    Peer peer = connect();
    for (const char byte :
         "WriteFrame\0n5-0\00010\0"s
         "0123456789")
        peer.send(std::string(1, byte));
    EXPECT_EQ(peer.receive(1), "\0"s);
    for (const char byte : "ReadFrame\0n5-0\00010\0"s) peer.send(std::string(1, byte));
    EXPECT_EQ(peer.receive(11),
              "\0"s
              "0123456789");
}

TEST_F(FrameServerTest, FramesLargerThanTheSocketBuffersPassWhole) {
    std::string pixels(12'000'001, '\0');
    for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<char>(i * 7 + i / 251);
    const std::string size = std::to_string(pixels.size());
    Peer peer = connect();
    EXPECT_EQ(peer.ask("WriteFrame\0n5-0\0"s + size + "\0"s + pixels, 1), "\0"s);
    const std::string frame = peer.ask("ReadFrameNoAck\0n5-0\0"s + size + "\0"s, pixels.size());
    EXPECT_TRUE(frame == pixels);
    // A refused one of that size is taken from the connection all the same.
    EXPECT_EQ(peer.ask("WriteFrame\0n5-9\0"s + size + "\0"s + pixels, 29), "Frame 'n5-9' does not exist.\0"s);
    expectUsable(peer);
}

TEST_F(FrameServerTest, RubbishIsAnsweredAndEndsThatConnectionOnly) {
    Peer bystander = connect();
    writeFrames(bystander);
    const struct {
        std::string bytes;
        std::string error;
    } cases[] = {
        {"Nonsense\0"s, "Unknown method: Nonsense\0"s},
        {"\0"s, "Unknown method: \0"s},
        {std::string(100000, 'x'), "The request's method is too long.\0"s},
        {"ReadFrame\0"s + std::string(100000, 'x'),
         "The text of a ReadFrame request has more than 4096 bytes.\0"s},
        {"ReadFrame\0n5-0\000-1\0"s, "Invalid size '-1' in a ReadFrame request.\0"s},
        {"ReadFrame\0n5-0\0\0"s, "Invalid size '' in a ReadFrame request.\0"s},
        {"ReadFrame\0n5-0\0001 \0"s, "Invalid size '1 ' in a ReadFrame request.\0"s},
        {"WriteFrame\0n5-0\00099999999999999999999\0"s,
         "Invalid size '99999999999999999999' in a WriteFrame request.\0"s},
        {"WriteFrame\0n5-0\0009223372036854775807\0"s + std::string(100000, 'x'),
         "Cannot write frame 'n5-0': it has 9223372036854775807 bytes, at most 4294967296 are taken.\0"s},
        {"ReadFrameParams\0n5-0\0001\0009999999999\0"s,
         "9999999999 bytes of ReadFrameParams parameters; at most 1048576 are taken.\0"s},
        {"ReadStream\0n5\0001\0-1\0001\0001\0"s, "Invalid position '-1' in a ReadStream request.\0"s},
    };
    for (const auto& each : cases) {
        Peer peer = connect();
        EXPECT_EQ(peer.ask(each.bytes, each.error.size()), each.error);
        EXPECT_EQ(peer.receive(1), "<closed>");
    }
    EXPECT_EQ(bystander.ask("ReadFrame\0n5-0\00010\0"s, 11),
              "\0"s
              "0123456789");
}

TEST_F(FrameServerTest, AnUploadCutShortLeavesTheEarlierFrame) {
    Peer peer = connect();
    writeFrames(peer);
    {
        Vantrel::CapturedLog log;
        { connect().send("WriteFrame\0n5-0\0001000\0half"s); }
        const Vantrel::CoDeadline limit(LIMIT_MS);
        while (!log.contains("Frame connection lost") && !limit.passed()) ::poll(nullptr, 0, 1);
        EXPECT_TRUE(log.contains("the peer closed within a request"));
    }
    EXPECT_EQ(peer.ask("ReadFrame\0n5-0\00010\0"s, 11),
              "\0"s
              "0123456789");
}

TEST_F(FrameServerTest, APeerThatStallsWithinARequestIsDroppedAndAnIdleOneIsNot) {
    FrameServer::Settings settings;
    settings.stallTimeoutMs = 100;
    start(settings);
    Peer idle = connect();
    Peer stalled = connect();
    EXPECT_EQ(stalled.ask("WriteFrame\0n5-0\00010\0half"s, 1), "<closed>");
    Vantrel::CapturedLog log;
    Peer neverReads = connect();
    neverReads.send("ReadFrameNoAck\0n5-0\0001000000000\0"s);  // far more than the sockets hold
    const Vantrel::CoDeadline limit(LIMIT_MS);
    while (!log.contains(Vantrel::coErrorText(ETIMEDOUT)) && !limit.passed()) ::poll(nullptr, 0, 1);
    EXPECT_TRUE(log.contains(Vantrel::coErrorText(ETIMEDOUT)));
    expectUsable(idle);
}

TEST_F(FrameServerTest, ConnectionsBeyondTheMaximumAreClosedUntilOthersLeave) {
    FrameServer::Settings settings;
    settings.maxConnections = 1;
    start(settings);
    {
        Peer first = connect();
        expectUsable(first);
        EXPECT_EQ(connect().receive(1), "<closed>");
    }
    const Vantrel::CoDeadline limit(LIMIT_MS);
    std::string reply;
    do {
        reply = connect().ask("InvalidateCache\0"s, 1);
    } while (reply != "\0"s && !limit.passed());
    EXPECT_EQ(reply, "\0"s);
}

TEST_F(FrameServerTest, AServerOfAnAgeLacksTheMethodsThatCameLater) {
    const struct {
        std::string request;
        VantrelVersion since;
    } cases[] = {
        {"ReadFrameNoAck\0n5-0\0000\0InvalidateCache\0"s, {2010, 0, 0, 0}},
        {"ReadAheadRedirect\0n5-0\0000\0000\0"s, {2011, 0, 0, 0}},
        {"InvalidateCache\0"s, {2012, 0, 0, 5120}},
        {"PullFile\0x\0001\0"s, {2007, 1, 0, 0}},
    };
    for (const auto& each : cases) {
        const std::string unknown = "Unknown method: " + each.request.substr(0, each.request.find('\0') + 1);
        FrameServer::Settings settings;
        settings.version = each.since;
        --settings.version.major;
        start(settings);
        EXPECT_EQ(connect().ask(each.request, unknown.size()), unknown);
        settings.version = DEFAULT_PROTOCOL_VERSION;
        start(settings);
        EXPECT_NE(connect().ask(each.request, 1), "U");
    }
}

TEST_F(FrameServerTest, ItEndsAtOnceThoughPeersAreInTheMiddleOfSomething) {
    Peer idle = connect();
    Peer uploading = connect();
    expectUsable(idle);
    EXPECT_EQ(uploading.ask("InvalidateCache\0WriteFrame\0n5-0\0001000\0half"s, 1), "\0"s);
    server_.reset();
    EXPECT_EQ(idle.receive(1), "<closed>");
    EXPECT_EQ(uploading.receive(1), "<closed>");
}

}  // namespace
}  // namespace vantreld
