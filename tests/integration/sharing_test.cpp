// Ending calls from another thread, and how handles share connections.
#include <cerrno>
#include <functional>
#include <list>

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
    const VantrelServerHandle server{id()};
};

TEST_F(StopTest, EndsACallAtOnceInEveryPhaseOfIt) {
    std::size_t before = 0;
    const auto called = [&] { return peer.waitForCommands(2); };
    const auto connected = [&] { return peer.waitForConnections(before + 1); };
    const auto stop = [&] { server.stop("Enough."); };
    const struct {
        const char* name;
        std::function<void()> prepare;
        std::function<bool()> inProgress;
        std::function<void()> end;
        const char* error;
    } rows[] = {
        {"awaiting a reply", [&] { peer.neverAnswer("Ping"); }, called, stop, "Enough."},
        {"logging in", [&] { peer.neverAnswer("_login"); }, connected, stop, "Enough."},
        {"between two attempts", [&] { peer.closeOnAccept(true); }, connected, stop, "Enough."},
        {"disconnect", [&] { peer.neverAnswer("_login"); }, connected, [&] { server.disconnect(); },
         std::strerror(EINTR)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        peer.dropConnections();
        before = peer.connections();
        row.prepare();
        within(seconds(30), [&] {
            auto pinging = std::async(std::launch::async, [&] { return server.ping(60000); });
            EXPECT_TRUE(row.inProgress());
            row.end();
            EXPECT_FALSE(pinging.get());
        });
        EXPECT_STREQ(server.lastError(), row.error);
        EXPECT_EQ(server.lastErrorCode(), VANTREL_ERROR_STOPPED);
        EXPECT_FALSE(server.isConnected());
        peer.closeOnAccept(false);
        peer.answer("Ping", ScriptedPeer::ok(""));
        peer.answer("_login", ScriptedPeer::ok(""));
        EXPECT_TRUE(server.ping(0)) << server.lastError();
    }
}

TEST_F(StopTest, CallsThatWaitForTheirTurnEndWithTheOneThatRuns) {
    const VantrelServerHandle other(id());
    const std::pair<std::function<void()>, const char*> ends[] = {
        {[&] { server.stop("Enough."); }, "Enough."}, {[&] { other.disconnect(); }, std::strerror(EINTR)}};
    for (const auto& [end, error] : ends) {
        ASSERT_TRUE(server.ping(0) && other.ping(0)) << server.lastError();
        const std::size_t before = peer.arguments("Ping").size();
        peer.neverAnswer("Ping");
        within(seconds(30), [&, &stop = end] {
            BackgroundCall running([&] { return server.ping(0); });
            while (peer.arguments("Ping").size() == before) std::this_thread::yield();
            std::list<BackgroundCall> waiting;
            for (const VantrelServerHandle* handle : {&server, &server, &other, &other}) {
                waiting.emplace_back([handle] { return handle->ping(0); });
                waiting.back().awaitSleep();
            }
            stop();
            EXPECT_FALSE(running.result());
            for (BackgroundCall& call : waiting) EXPECT_FALSE(call.result());
        });
        EXPECT_EQ(peer.arguments("Ping").size(), before + 1) << "none of those that waited was sent";
        EXPECT_STREQ(server.lastError(), error);
        EXPECT_STREQ(other.lastError(), error);
        peer.answer("Ping", ScriptedPeer::ok(""));
    }
    EXPECT_TRUE(server.ping(0) && other.ping(0)) << server.lastError();
}

TEST_F(StopTest, WithoutACallInProgressItHasNoEffect) {
    server.stop("never");
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(server.ping(0)) << server.lastError();
        server.stop("never");
        if (i == 1) peer.dropConnections();
    }
    EXPECT_STREQ(server.lastError(), "");
}

// --- Sharing ---

using SharingTest = StopTest;

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
    { EXPECT_TRUE(VantrelServerHandle(id()).ping(0)); }
    EXPECT_EQ(peer.connections(), 2U) << "the cached one serves on";
    EXPECT_FALSE(peer.waitForNoClients(100)) << "kept for its idle time";
    VantrelClientReleaseUnusedConnections(false);
    EXPECT_TRUE(peer.waitForNoClients());
}

using FewConnectionsTest = PeerFixture;

TEST_F(FewConnectionsTest, OneVariableSetsTheirNumberAndTheirIdleSeconds) {
    set("VANTREL_SHARED_CONNECTIONS", "2");
    VantrelClientInit();
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
    EXPECT_LT(steady_clock::now() - start, seconds(20));
    use("third:1");
    use("fourth:1");
    EXPECT_TRUE(other.waitForNoClients()) << "the least recently used one makes room";
}

}  // namespace
