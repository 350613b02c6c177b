// Ending calls from another thread, and how handles share connections.
#include <cerrno>
#include <functional>

#include "ClientFixture.h"

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using Vantrel::ScriptedPeer;

namespace {

// --- Stopping ---

class StopTest : public PeerFixture {
  protected:
    StopTest() { set("VANTREL_CONNECTION_TIMEOUT_MS", "60000"); }
    VantrelClient client{false};
};

TEST_F(StopTest, EndsACallAtOnceInEveryPhaseOfIt) {
    std::size_t before = 0;
    const auto connected = [&] { return peer.waitForConnections(before + 1); };
    const struct {
        const char* name;
        std::function<void()> prepare;
        std::function<bool()> inProgress;
    } rows[] = {
        {"awaiting a reply", [this] { peer.neverAnswer("Ping"); },
         [this] { return peer.waitForCommands(2); }},
        {"logging in", [this] { peer.neverAnswer("_login"); }, connected},
        {"between two attempts", [this] { peer.closeOnAccept(true); }, connected},
    };
    const VantrelServerHandle server(id());
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        peer.dropConnections();
        before = peer.connections();
        row.prepare();
        within(seconds(30), [&] {
            auto pinging = std::async(std::launch::async, [&] { return server.ping(60000); });
            EXPECT_TRUE(row.inProgress());
            server.stop("Enough.");
            EXPECT_FALSE(pinging.get());
        });
        EXPECT_STREQ(server.lastError(), "Enough.");
        peer.closeOnAccept(false);
        peer.answer("Ping", ScriptedPeer::ok(""));
        peer.answer("_login", ScriptedPeer::ok(""));
        EXPECT_TRUE(server.ping(0)) << server.lastError();
    }
}

TEST_F(StopTest, DisconnectEndsACallOfAnotherThread) {
    const VantrelServerHandle server(id());
    peer.neverAnswer("Ping");
    within(seconds(30), [&] {
        auto pinging = std::async(std::launch::async, [&] { return server.ping(60000); });
        ASSERT_TRUE(peer.waitForCommands(2));
        server.disconnect();
        EXPECT_FALSE(pinging.get());
    });
    EXPECT_STREQ(server.lastError(), std::strerror(EINTR));
    EXPECT_TRUE(peer.waitForNoClients());
}

TEST_F(StopTest, WithoutACallInProgressItHasNoEffect) {
    const VantrelServerHandle server(id());
    server.stop("never");
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(server.ping(0)) << server.lastError();
        server.stop("never");
        if (i == 1) peer.dropConnections();
    }
    EXPECT_STREQ(server.lastError(), "");
}

// --- Sharing ---

class SharingTest : public PeerFixture {
  protected:
    VantrelClient client{false};
};

TEST_F(SharingTest, HandlesToOneServerShareOneConnectionUntilItIsReleased) {
    {
        const VantrelServerHandle first(id());
        const VantrelServerHandle second(id());
        const VantrelServerHandle copy(second);
        EXPECT_TRUE(first.ping(0) && second.ping(0) && copy.ping(0));
        EXPECT_EQ(peer.connections(), 1U);
        VantrelClientReleaseUnusedConnections(false);
        EXPECT_TRUE(first.ping(0));
        EXPECT_EQ(peer.connections(), 1U) << "one in use is kept";

        VantrelClientReleaseUnusedConnections(true);
        EXPECT_TRUE(first.ping(0)) << "handles go on with what they hold";
        EXPECT_EQ(peer.connections(), 1U);
        const VantrelServerHandle late(id());
        EXPECT_TRUE(late.ping(0));
        EXPECT_EQ(peer.connections(), 2U);
    }
    const VantrelServerHandle again(id());
    EXPECT_TRUE(again.ping(0));
    EXPECT_EQ(peer.connections(), 2U) << "the cached one serves on";
}

TEST_F(SharingTest, AnUnusedConnectionIsClosedWhenReleased) {
    { EXPECT_TRUE(VantrelServerHandle(id()).ping(0)); }
    EXPECT_FALSE(peer.waitForNoClients(100)) << "kept for its idle time";
    VantrelClientReleaseUnusedConnections(false);
    EXPECT_TRUE(peer.waitForNoClients());
}

class FewConnectionsTest : public PeerFixture {
  protected:
    FewConnectionsTest() {
        set("VANTREL_SHARED_CONNECTIONS", "2");
        VantrelClientInit();
    }
};

TEST_F(FewConnectionsTest, OneVariableSetsTheirNumberAndTheirIdleSeconds) {
    ScriptedPeer other;
    other.answer("GetDaemonInfo", ScriptedPeer::ok(PeerInfo().text(other.port())));
    other.answer("Ping", ScriptedPeer::ok(""));
    const auto use = [](const std::string& id) { VantrelServerHandle(VantrelServerId(id.c_str())).ping(0); };

    use(peer.address());
    const auto start = steady_clock::now();
    use(other.address());
    EXPECT_FALSE(peer.waitForNoClients(100)) << "there is room for two";
    while (!peer.waitForNoClients(50) && steady_clock::now() - start < seconds(20)) use(other.address());
    EXPECT_GE(steady_clock::now() - start, milliseconds(1900));
    EXPECT_LT(steady_clock::now() - start, seconds(10));
    use("third:1");
    use("fourth:1");
    EXPECT_TRUE(other.waitForNoClients()) << "the least recently used one makes room";
}

}  // namespace
