#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include <cerrno>
#include <tuple>
#include <utility>

#include "CapturedLog.h"
#include "CoIoMsgQDescriptor.h"
#include "TcpFixtures.h"
#include "TemporaryDirectory.h"

namespace Vantrel {
namespace {

using IoError = CoIoDescriptor::IoError;

constexpr uid_t OTHER_USER = 65534;

/// Makes `path` a socket file; listening on it is the caller's part.
int bindTo(const std::string& path) {
    const int id = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    EXPECT_LT(path.size(), sizeof address.sun_path);
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(id, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return id;
}

class MsgQConnect : public testing::Test {
  protected:
    MsgQConnect() : server(bindTo(path)) {}

    /// One connection that nobody accepts fills the queue.
    void fillQueue() {
        ASSERT_EQ(::listen(server.getId(), 0), 0);
        ASSERT_TRUE(filler.connect(path.c_str(), LONG_MS));
    }

    const TemporaryDirectory directory;
    const std::string path = directory.path("socket");
    CoIoDescriptor server;
    CoIoMsgQDescriptor filler;
    CoIoMsgQDescriptor client;
    CapturedLog log;
};

TEST_F(MsgQConnect, GivesASocketThatIsReadyToUse) {
    ASSERT_EQ(::listen(server.getId(), 1), 0);
    ASSERT_TRUE(client.connect(path.c_str(), LONG_MS)) << client.lastErrorText();
    EXPECT_EQ(client.lastError(), IoError::None);
    EXPECT_TRUE(isNonBlockingAndCloseOnExec(client.getId()));
    CoIoDescriptor peer(::accept4(server.getId(), nullptr, nullptr, SOCK_CLOEXEC));
    ASSERT_TRUE(client.writeStr("to the peer\n"));
    char line[32];
    EXPECT_EQ(peer.readLine(line, sizeof line), 11);
    EXPECT_STREQ(line, "to the peer");
    peer.close();
    EXPECT_FALSE(client.isActive());
}

TEST_F(MsgQConnect, TellsWhyItFailsAndCloses) {
    const std::string longest(sizeof(sockaddr_un::sun_path) - 1, 'x');  // fits, and is not there
    const std::pair<std::string, int> cases[] = {
        {path, ECONNREFUSED},  // bound, but nobody listens: what a killed server leaves
        {directory.path("nothing"), ENOENT},
        {longest, ENOENT},
        {longest + 'x', ENAMETOOLONG},
    };
    for (const auto& [where, error] : cases) {
        EXPECT_FALSE(client.connect(where.c_str(), LONG_MS)) << where;
        EXPECT_EQ(client.lastErrorText(), coErrorText(error)) << where;
        EXPECT_FALSE(client.isValid());
    }
    EXPECT_TRUE(log.texts(CoMsg::ERROR).empty());
    EXPECT_FALSE(client.connect(nullptr, 0));
    EXPECT_EQ(client.lastError(), IoError::Invalid);
    EXPECT_EQ(log.texts(CoMsg::ERROR).size(), 1u);  // the assertion
}

TEST_F(MsgQConnect, AFullQueueIsTriedUntilThereIsRoomOrTheTimeIsOver) {
    fillQueue();
    const long sleepsBefore = threadSleeps();
    const double seconds = secondsOf([&] { EXPECT_FALSE(client.connect(path.c_str(), 200)); });
    EXPECT_GE(seconds, 0.19);
    EXPECT_LT(seconds, LONG_SEC / 2);
    EXPECT_EQ(client.lastError(), IoError::TimedOut);
    EXPECT_FALSE(client.isValid());
    EXPECT_GT(threadSleeps() - sleepsBefore, 0) << "between two attempts";

    std::atomic<bool> connecting{false};
    std::thread acceptor([&] {
        while (!connecting) std::this_thread::yield();
        const CoIoDescriptor first(::accept4(server.getId(), nullptr, nullptr, SOCK_CLOEXEC));
    });
    ASSERT_FALSE(client.connect(path.c_str(), 0));
    connecting = true;
    EXPECT_TRUE(client.connect(path.c_str(), LONG_MS)) << client.lastErrorText();
    acceptor.join();
}

TEST_F(MsgQConnect, CanBeStoppedAndThenUsedAgain) {
    fillQueue();
    expectStopEnds(client, [&] { EXPECT_FALSE(client.connect(path.c_str(), LONG_MS)); });
    EXPECT_FALSE(client.isValid());
    const CoIoDescriptor room(::accept4(server.getId(), nullptr, nullptr, SOCK_CLOEXEC));
    EXPECT_TRUE(client.connect(path.c_str(), LONG_MS)) << client.lastErrorText();
}

/// Only root can give files away and listen as somebody else.
class MsgQOwner : public MsgQConnect {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "needs root";
        ASSERT_EQ(::chmod(directory.path().c_str(), 0755), 0);
    }
    /// The kernel notes the credentials of the thread that calls listen.
    void listenAs(uid_t user) {
        std::thread([&] {
            ASSERT_EQ(::syscall(SYS_setresuid, -1, user, -1), 0);
            ASSERT_EQ(::listen(server.getId(), 4), 0);
        }).join();
    }
};

TEST_F(MsgQOwner, TheFileAndTheListenerMustBelongToRootOrToThisUser) {
    const std::tuple<uid_t, uid_t, bool> cases[] = {
        {0, 0, true}, {OTHER_USER, 0, false}, {0, OTHER_USER, false}};
    for (const auto& [file, listener, trusted] : cases) {
        ASSERT_EQ(::chown(path.c_str(), file, 0), 0);
        listenAs(listener);
        EXPECT_EQ(client.connect(path.c_str(), LONG_MS), trusted);
        if (trusted) continue;
        EXPECT_FALSE(client.isValid());
        EXPECT_EQ(client.lastErrorText(),
                  "It belongs to user 65534, who is neither root nor this process's user");
    }
}

}  // namespace
}  // namespace Vantrel
