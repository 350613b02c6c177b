#include <netinet/tcp.h>

#include <cerrno>
#include <tuple>

#include "CapturedLog.h"
#include "TcpFixtures.h"

namespace Vantrel {
namespace {

using IoError = CoIoDescriptor::IoError;

int socketOption(int id, int level, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(::getsockopt(id, level, name, &value, &size), 0);
    return value;
}

class Connect : public testing::Test {
  protected:
    Connect() { EXPECT_TRUE(server.listen(0, "127.0.0.1")); }

    CoIoTcpServerDescriptor server;
    CoIoTcpDescriptor client;
    CapturedLog log;
};

TEST_F(Connect, GivesASocketThatIsReadyToUse) {
    ASSERT_TRUE(client.connect("127.0.0.1", server.getPort(), 8192, 16384, 10)) << client.lastErrorText();
    EXPECT_EQ(client.lastError(), IoError::None);
    EXPECT_EQ(socketOption(client.getId(), IPPROTO_TCP, TCP_NODELAY), 1);
    // The system doubles what it is given, for its own book-keeping.
    EXPECT_EQ(socketOption(client.getId(), SOL_SOCKET, SO_SNDBUF), 2 * 8192);
    EXPECT_EQ(socketOption(client.getId(), SOL_SOCKET, SO_RCVBUF), 2 * 16384);
    EXPECT_TRUE(isNonBlockingAndCloseOnExec(client.getId()));
    ASSERT_TRUE(client.setNonBlocking(false));
    EXPECT_EQ(::fcntl(client.getId(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_TRUE(log.contains(coFormat("Connecting to '127.0.0.1:%d [8192/16384/10s]", server.getPort())));
    EXPECT_TRUE(
        log.contains(coFormat("Connected to 127.0.0.1:%d [fd:%d]", server.getPort(), client.getId())));
    std::string local;
    std::string remote;
    EXPECT_TRUE(client.getSocketIP(local) && client.getPeerIP(remote));
    EXPECT_EQ(local + ' ' + remote, "127.0.0.1 127.0.0.1");
}

TEST_F(Connect, ARefusedPortTellsWhyAndCloses) {
    const int port = server.getPort();
    server.close();
    EXPECT_FALSE(client.connect("127.0.0.1", port, 0, 0, 10));
    EXPECT_EQ(client.lastErrorText(), coErrorText(ECONNREFUSED));
    EXPECT_EQ(client.getLastSocketErrorStr(), coErrorText(ECONNREFUSED));
    EXPECT_FALSE(client.isValid());
    std::string ip = "kept";
    EXPECT_FALSE(client.getPeerIP(ip));
    EXPECT_EQ(ip, "kept");
}

TEST_F(Connect, ASilentPeerTimesOut) {
    const SilentListener silent;
    const double seconds =
        secondsOf([&] { EXPECT_FALSE(client.connect("127.0.0.1", silent.port(), 0, 0, 1)); });
    EXPECT_GE(seconds, 0.99);
    EXPECT_LT(seconds, 5);
    EXPECT_EQ(client.lastError(), IoError::TimedOut);
    EXPECT_EQ(client.lastErrorText(), coErrorText(ETIMEDOUT));
    EXPECT_LT(secondsOf([&] { EXPECT_FALSE(client.connect("127.0.0.1", silent.port(), 0, 0, 0)); }), 1);
    EXPECT_EQ(client.lastError(), IoError::TimedOut);
}

TEST_F(Connect, CanBeStoppedAndThenUsedAgain) {
    const SilentListener silent;
    expectStopEnds(client,
                   [&] { EXPECT_FALSE(client.connect("127.0.0.1", silent.port(), 0, 0, LONG_MS / 1000)); });
    EXPECT_FALSE(client.isValid());
    EXPECT_TRUE(client.connect("127.0.0.1", server.getPort(), 0, 0, 10));
}

TEST_F(Connect, BadArgumentsAreAssertionsThatFailSafely) {
    const std::tuple<const char*, int, int, int, int> cases[] = {{nullptr, 1, 0, 0, 1},
                                                                 {"127.0.0.1", -1, 0, 0, 1},
                                                                 {"127.0.0.1", 1, -1, 0, 1},
                                                                 {"127.0.0.1", 1, 0, 0, -1}};
    for (const auto& [host, port, send, receive, seconds] : cases) {
        EXPECT_FALSE(client.connect(host, port, send, receive, seconds));
        EXPECT_EQ(client.lastError(), IoError::Invalid);
    }
    EXPECT_EQ(log.texts(CoMsg::ERROR).size(), std::size(cases));
}

}  // namespace
}  // namespace Vantrel
