#include <netinet/in.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <tuple>
#include <utility>

#include "CapturedLog.h"
#include "TcpFixtures.h"

namespace Vantrel {
namespace {

using IoError = CoIoDescriptor::IoError;

TEST(IoErrors, AreTiedToTheSystemsErrors) {
    char text[256];
    errno = ECONNRESET;
    EXPECT_EQ(CoIoDescriptor::getIoError(), IoError::ConnectionReset);
    errno = EDOM;  // no number of its own; it must not matter to those that have one
    CoIoDescriptor::getIoError(IoError::ConnectionReset, text, sizeof text);
    EXPECT_EQ(text, coErrorText(ECONNRESET));
    const CapturedLog log;
    EXPECT_EQ(CoIoDescriptor::getIoError(), IoError::Other);
    EXPECT_THAT(log.texts(CoMsg::WARNING),
                testing::ElementsAre(coFormat("Unexpected error %d: %s", EDOM, coErrorText(EDOM).c_str())));
    CoIoDescriptor::getIoError(IoError::Other, text, sizeof text);
    EXPECT_EQ(text, coErrorText(EDOM));
    CoIoDescriptor::getIoError(IoError::None, text, sizeof text);
    EXPECT_STREQ(text, "");
    char small[4] = {'x', 'x', 'x', 'x'};
    CoIoDescriptor::getIoError(IoError::TimedOut, small, 3);
    EXPECT_EQ(small, coErrorText(ETIMEDOUT).substr(0, 2));
    EXPECT_EQ(small[3], 'x');
}

TEST(Descriptor, WithoutADescriptorEveryTransferIsNotConnected) {
    CoIoDescriptor descriptor;
    char byte = 0;
    EXPECT_FALSE(descriptor.isValid() || descriptor.isActive());
    const std::function<ssize_t()> calls[] = {
        [&] { return ssize_t{descriptor.nonBlockingReadWithTimeout(&byte, 1, LONG_MS)}; },
        [&] { return ssize_t{descriptor.nonBlockingWriteWithTimeout(&byte, 1, LONG_MS)}; },
        [&] { return descriptor.blockingRead(&byte, 1); },
        [&] { return descriptor.blockingWrite(&byte, 1); },
    };
    for (const auto& call : calls) {
        EXPECT_EQ(call(), -1);
        EXPECT_EQ(descriptor.lastError(), IoError::NotConnected);
        EXPECT_EQ(descriptor.lastErrorText(), coErrorText(ENOTCONN));
    }
    const CapturedLog log;
    EXPECT_FALSE(descriptor.writeStr("x"));
    EXPECT_EQ(descriptor.readLine(nullptr, 5), 0);
    EXPECT_FALSE(descriptor.writeStr(nullptr));
    EXPECT_EQ(log.texts(CoMsg::ERROR).size(), 2U) << "null is an assertion that fails safely";
}

TEST(Descriptor, ReadWaitsForDataAndTellsSilenceFromTheEnd) {
    for (const bool waitsInRead : {false, true}) {
        Pair pair;
        ASSERT_TRUE(!waitsInRead || pair.descriptor.enableWaitInRead());
        // Longer than the wait in the read, so that the one in poll follows.
        EXPECT_GE(secondsOf([&] { EXPECT_EQ(pair.read(300), 0); }), waitsInRead ? 0.28 : 0.299);
        EXPECT_GE(secondsOf([&] { EXPECT_EQ(pair.read(1), 0); }), 0.001) << "the shortest wait is one";
        EXPECT_EQ(pair.descriptor.lastError(), IoError::None);
        pair.send("abcdefghij");
        EXPECT_EQ(pair.read(LONG_MS), 8);
        EXPECT_EQ(std::string(pair.buffer, 8), "abcdefgh");
        EXPECT_TRUE(pair.descriptor.isActive());
        pair.peer.close();
        EXPECT_TRUE(pair.descriptor.isActive()) << "data is still waiting";
        EXPECT_EQ(pair.read(LONG_MS), 2);
        EXPECT_FALSE(pair.descriptor.isActive());
        EXPECT_EQ(pair.read(LONG_MS), -1);
        EXPECT_EQ(pair.descriptor.lastError(), IoError::ConnectionReset);
    }
}

TEST(Descriptor, ResetByThePeerIsReportedWithTheSystemsText) {
    CoIoTcpServerDescriptor server;
    ASSERT_TRUE(server.listen(0, "127.0.0.1"));
    CoIoTcpDescriptor client;
    ASSERT_TRUE(client.connect("127.0.0.1", server.getPort(), 0, 0, 10));
    CoIoDescriptor peer(server.accept());
    const linger hard{1, 0};
    ASSERT_EQ(::setsockopt(peer.getId(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard), 0);
    peer.close();
    char byte;
    EXPECT_EQ(client.nonBlockingReadWithTimeout(&byte, 1, LONG_MS), -1);
    EXPECT_EQ(client.lastError(), IoError::ConnectionReset);
    EXPECT_EQ(client.lastErrorText(), coErrorText(ECONNRESET));
}

// A peer that went away, on a socket and on a pipe, with SIGPIPE at its deadly default.
TEST(Descriptor, NoWriteRaisesTheBrokenPipeSignal) {
    ASSERT_NE(::signal(SIGPIPE, SIG_DFL), SIG_ERR);
    for (const Pair::Kind kind : {Pair::Kind::Sockets, Pair::Kind::Pipe}) {
        Pair pair(kind);
        pair.peer.close();
        EXPECT_EQ(pair.descriptor.nonBlockingWriteWithTimeout("x", 1, LONG_MS), -1);
        EXPECT_EQ(pair.descriptor.blockingWrite("x", 1), 0);
        EXPECT_EQ(pair.descriptor.lastError(), IoError::ConnectionReset);
        EXPECT_FALSE(pair.descriptor.writeStr("x"));
    }
    sigset_t set;
    ::sigpending(&set);
    EXPECT_EQ(::sigismember(&set, SIGPIPE), 0);
    ::pthread_sigmask(SIG_SETMASK, nullptr, &set);
    EXPECT_EQ(::sigismember(&set, SIGPIPE), 0);
}

// Whole transfers through sockets that block and that do not, and through a pipe, in pieces of every size.
TEST(Descriptor, BlockingTransfersMoveEveryByte) {
    std::string sent(300000, '\0');
    for (std::size_t i = 0; i < sent.size(); ++i) sent[i] = static_cast<char>(i * 7 + i / 251);
    using Kind = Pair::Kind;
    for (const Kind kind : {Kind::Sockets, Kind::NonBlocking, Kind::Pipe}) {
        for (const unsigned piece : {0U, 1U, 3U, 4097U}) {
            SCOPED_TRACE(testing::Message() << "kind " << static_cast<int>(kind) << " piece " << piece);
            CoIoDescriptor::faults().maxReadBytes = piece;
            CoIoDescriptor::faults().maxWriteBytes = piece;
            Pair pair(kind);
            const std::size_t size = piece == 0 || piece > 100 ? sent.size() : 3000;
            std::thread writer([&] {
                EXPECT_EQ(pair.descriptor.blockingWrite(sent.data(), size), static_cast<ssize_t>(size));
            });
            std::string received(size, '?');
            EXPECT_EQ(pair.peer.blockingRead(received.data(), size, LONG_MS), static_cast<ssize_t>(size));
            writer.join();
            EXPECT_TRUE(std::equal(received.begin(), received.end(), sent.begin()));
        }
    }
}

TEST(Descriptor, BlockingTransfersFailWhenThePeerClosesOrStalls) {
    char buffer[100];
    Pair pair;
    pair.send("part");
    EXPECT_EQ(pair.descriptor.blockingRead(buffer, sizeof buffer, 60), -1);
    EXPECT_EQ(pair.descriptor.lastError(), IoError::TimedOut);
    pair.send("part");
    pair.fillSendBuffer();
    EXPECT_EQ(pair.descriptor.blockingWrite(buffer, sizeof buffer, 60), -1);
    EXPECT_EQ(pair.descriptor.lastErrorText(), coErrorText(ETIMEDOUT));
    pair.peer.close();
    // Unread bytes on the other side make the close a reset here, which must look the same.
    EXPECT_EQ(pair.descriptor.blockingRead(buffer, sizeof buffer), 0);
    EXPECT_EQ(pair.descriptor.lastError(), IoError::ConnectionReset);
}

// The limit is on silence, not on the transfer: bytes that come slowly but steadily are all taken.
TEST(Descriptor, AStallLimitStartsAgainWithEveryByte) {
    Pair pair;
    std::thread sender([&] {
        for (int i = 0; i < 12; ++i) {
            ::poll(nullptr, 0, 150);  // the pace itself is what is tested
            pair.send("x");
        }
    });
    char buffer[12];
    EXPECT_EQ(pair.descriptor.blockingRead(buffer, 12, 1500), 12);
    sender.join();
}

TEST(Descriptor, ASignalEndsNoTransfer) {
    Pair pair;
    const std::atomic<pid_t> reader{::gettid()};
    std::thread sender([&] {
        interruptSleep(reader, 20);
        pair.send("x");
    });
    EXPECT_EQ(pair.descriptor.blockingRead(pair.buffer, 1, LONG_MS), 1);
    sender.join();
}

TEST(Descriptor, ReadLine) {
    const std::tuple<const char*, int, int, const char*> cases[] = {
        {"abc\n", 10, 3, "abc"},     {"abc\n", 4, 3, "abc"},  // exactly size - 1
        {"abcdefgh\n", 4, 3, "abh"}, {"ab\n", 1, 0, ""},     {"a\r\n", 10, 2, "a\r"},
    };
    for (const auto& [sent, size, length, text] : cases) {
        SCOPED_TRACE(testing::Message() << sent << " into " << size);
        Pair pair;
        pair.send(std::string(sent) + "next");
        char buffer[16];
        std::fill(std::begin(buffer), std::end(buffer), '#');
        EXPECT_EQ(pair.descriptor.readLine(buffer, size), length);
        EXPECT_STREQ(buffer, text);
        EXPECT_EQ(buffer[size], '#') << "wrote past the buffer";
        EXPECT_EQ(pair.read(LONG_MS), 4) << "read past the line";
    }
    Pair cut;
    cut.send("abc");
    cut.peer.close();
    EXPECT_EQ(cut.descriptor.readLine(cut.buffer, sizeof cut.buffer), 0);
    EXPECT_EQ(cut.descriptor.lastError(), IoError::ConnectionReset);
}

}  // namespace
}  // namespace Vantrel
