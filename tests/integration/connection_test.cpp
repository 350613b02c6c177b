// How the library connects, what it does when a connection fails or is lost, and how handles share
// connections.
#include <algorithm>
#include <cerrno>
#include <functional>

#include "ClientFixture.h"
#include "SilentListener.h"

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Vantrel::ScriptedPeer;

namespace {

class ConnectionTest : public PeerFixture {
  protected:
    ConnectionTest() {
        set("VANTREL_DEFAULT_CALL_TIMEOUT_MS", "400");
        set("VANTREL_GET_DAEMON_INFO_CALL_TIMEOUT_MS", "400");
    }
    void SetUp() override {
        Received::record();
        ASSERT_TRUE(VantrelClientInit());
        VantrelSetLogLevel(VANTREL_LOG_NOTICE);
    }
};

// --- One failure, and the next call ---

struct Failure {
    const char* name;
    std::function<void(ScriptedPeer&)> fail;
    std::string error;  // "!" and the reason: "Server not found"; "!" alone: for whatever reason
    bool connectedAfter;
};

TEST_F(ConnectionTest, AFailedCallTellsWhyInTimeAndTheNextOneWorks) {
    const std::string refused = std::strerror(ECONNREFUSED);
    const std::string reset = std::strerror(ECONNRESET);
    const std::string late = std::strerror(ETIMEDOUT);
    const auto dropping = [](std::function<void(ScriptedPeer&)> change) {
        return [change](ScriptedPeer& p) {
            change(p);
            p.dropConnections();
        };
    };
    const Failure failures[] = {
        {"refused port", [](ScriptedPeer& p) { p.refuse(); }, "!" + refused, false},
        {"closes mid-reply", [](ScriptedPeer& p) { p.closeAfter(2); }, "!" + reset, false},
        {"closes instead of a reply", [](ScriptedPeer& p) { p.closeAfter(0); }, "!" + reset, false},
        {"closes at once", dropping([](ScriptedPeer& p) { p.closeOnAccept(true); }), "!", false},
        {"never answers", [](ScriptedPeer& p) { p.neverAnswer("Ping"); }, late, false},
        {"server's own error", [](ScriptedPeer& p) { p.answer("Ping", ScriptedPeer::error("No\nway.")); },
         "No\nway.", true},
        {"error without text", [](ScriptedPeer& p) { p.answer("Ping", "error "); }, "", true},
        {"wrong login", dropping([](ScriptedPeer& p) { p.answer("_login", ScriptedPeer::error("Who?")); }),
         "!Who?", false},
        {"login never answered", dropping([](ScriptedPeer& p) { p.neverAnswer("_login"); }), late, false},
        {"no daemon info",
         dropping([](ScriptedPeer& p) { p.answer("GetDaemonInfo", ScriptedPeer::error("?")); }), "!?", false},
        {"daemon info never answered", dropping([](ScriptedPeer& p) { p.neverAnswer("GetDaemonInfo"); }),
         late, false},
    };
    const VantrelServerHandle server(id());
    for (const Failure& failure : failures) {
        SCOPED_TRACE(failure.name);
        ASSERT_TRUE(server.ping(0)) << server.lastError();
        failure.fail(peer);
        const auto start = steady_clock::now();
        EXPECT_FALSE(server.ping(0));
        EXPECT_LT(steady_clock::now() - start, seconds(5));
        if (failure.error == "!") {
            EXPECT_THAT(server.lastError(), StartsWith("Server not found ["));
        } else if (failure.error[0] == '!') {
            EXPECT_EQ(server.lastError(), notFound(failure.error.substr(1)));
        } else {
            EXPECT_EQ(server.lastError(), failure.error);
        }
        EXPECT_EQ(server.isConnected(), failure.connectedAfter);

        peer.closeAfter(std::nullopt);
        peer.closeOnAccept(false);
        peer.answer("Ping", ScriptedPeer::ok(""));
        peer.answer("_login", ScriptedPeer::ok(""));
        describe({});
        peer.listenAgain();
    }
    ASSERT_TRUE(server.ping(0)) << server.lastError();
}

TEST_F(ConnectionTest, TheDaemonInfoHasATimeOutOfItsOwn) {
    set("VANTREL_DEFAULT_CALL_TIMEOUT_MS", "60000");
    peer.neverAnswer("GetDaemonInfo");
    within(seconds(30), [this] { EXPECT_FALSE(VantrelServerHandle(id()).ping(0)); });
}

TEST_F(ConnectionTest, ALateReplyIsNotTakenForThatOfTheNextCall) {
    const VantrelServerHandle server(id());
    VantrelStr vendor;
    ASSERT_TRUE(server.ping(0));
    for (const char* slow : {"QueryNodePlugInVendor", "GetDaemonInfo"}) {
        peer.answer("QueryNodePlugInVendor", ScriptedPeer::ok("late"));
        if (std::string(slow) == "GetDaemonInfo") peer.dropConnections();
        peer.holdReplies();
        EXPECT_FALSE(server.getVendor(vendor));
        EXPECT_STREQ(server.lastError(), std::strerror(ETIMEDOUT));
        peer.answer("QueryNodePlugInVendor", ScriptedPeer::ok("right"));
        peer.releaseReplies();
        ASSERT_TRUE(server.getVendor(vendor)) << server.lastError();
        EXPECT_STREQ(vendor, "right") << slow;
    }
}

TEST_F(ConnectionTest, ATimeOutReportsTheLostServerAndTheNextCallConnectsAgain) {
    const VantrelServerHandle server(id());
    ASSERT_TRUE(server.ping(0));
    peer.neverAnswer("Ping");
    Received::clear();
    EXPECT_FALSE(server.ping(0));
    const auto lost = Received::lostServers();
    ASSERT_EQ(lost.size(), 1U);
    VantrelServerId expected("SXAFS", "127.0.0.1", peer.port());
    expected.setStorageId("stor-1");
    EXPECT_TRUE(lost[0] == expected) << lost[0].getId();
    EXPECT_THAT(Received::log(), Contains("1 Ping timed-out"));
    EXPECT_TRUE(peer.waitForNoClients());
    peer.answer("Ping", ScriptedPeer::ok(""));
    EXPECT_TRUE(server.ping(0));
    EXPECT_EQ(peer.connections(), 2U);
}

TEST_F(ConnectionTest, ALostConnectionIsReportedAndReestablishedWithinTheCall) {
    const VantrelServerHandle server(id());
    for (unsigned round = 1; round <= 3; ++round) {
        ASSERT_TRUE(server.ping(0)) << server.lastError();
        EXPECT_EQ(peer.connections(), round);
        Received::clear();
        peer.dropConnections();
        ASSERT_TRUE(server.ping(0));
        EXPECT_EQ(peer.connections(), ++round);
        EXPECT_EQ(Received::lostServers().size(), 1U);
        peer.refuse();  // as a restarted server: the same port, later
        peer.listenAgain();
    }
}

TEST_F(ConnectionTest, ACallReconnectsAtMostTwice) {
    const VantrelServerHandle server(id());
    ASSERT_TRUE(server.ping(0));
    peer.closeAfter(100000);  // answers whole, and closes: it can be connected to, but not called
    peer.dropConnections();
    Received::clear();
    EXPECT_FALSE(server.ping(0));
    EXPECT_STRNE(server.lastError(), "");
    EXPECT_EQ(peer.connections(), 3U);
    EXPECT_EQ(Received::lostServers().size(), 3U);
}

TEST_F(ConnectionTest, ARefusedCallIsNotSentAgainThoughThePeerCloses) {
    const VantrelServerHandle server(id());
    VantrelStr vendor;
    peer.answer("QueryNodePlugInVendor", ScriptedPeer::error("No."));
    for (std::size_t calls = 1; calls <= 10; ++calls) {
        ASSERT_TRUE(server.ping(0)) << server.lastError();
        peer.closeAfter(100000);  // answers whole, and closes
        EXPECT_FALSE(server.getVendor(vendor));
        EXPECT_STREQ(server.lastError(), "No.");
        ASSERT_EQ(peer.arguments("QueryNodePlugInVendor").size(), calls);
        peer.closeAfter(std::nullopt);
    }
}

TEST_F(ConnectionTest, ConnectingIsTriedAgainForTheRetryTime) {
    peer.closeOnAccept(true);
    const std::tuple<const char*, unsigned, std::size_t> rows[] = {
        {"a", 0, 1}, {"b", 200, 2}, {"c", 1300, 3}, {"c", 1300, 1}};  // the last was just not found
    std::size_t before = 0;
    for (const auto& [storage, retryMs, attempts] : rows) {
        const VantrelServerHandle server(VantrelServerId(storage, "127.0.0.1", peer.port()));
        const auto start = steady_clock::now();
        EXPECT_FALSE(server.ping(retryMs));
        if (attempts > 1) {
            EXPECT_GE(steady_clock::now() - start, milliseconds(retryMs));
        }
        EXPECT_EQ(peer.connections() - before, attempts) << storage << retryMs;
        EXPECT_THAT(server.lastError(), StartsWith("Server not found ["));
        before = peer.connections();
    }
}

TEST_F(ConnectionTest, AnsweredByTheLastAttempt) {
    const VantrelServerHandle server(id());
    peer.closeOnAccept(true);
    auto pinging = std::async(std::launch::async, [&] { return server.ping(20000); });
    ASSERT_TRUE(peer.waitForConnections(1));
    peer.closeOnAccept(false);
    EXPECT_TRUE(pinging.get()) << server.lastError();
}

// --- Servers that cannot be reached ---

TEST_F(ConnectionTest, AServerThatCannotBeReachedIsToldOfInTime) {
    const Vantrel::SilentListener silent;
    const std::pair<VantrelServerId, std::string> rows[] = {
        {VantrelServerId(silent.port(), "127.0.0.1"), std::string(": ") + std::strerror(ETIMEDOUT) + "."},
        {VantrelServerId("no-such-host.invalid:7549"),
         "Server not found [no-such-host.invalid:7549] [] []: "},
        {VantrelServerId("render01"), "Server not found [render01:0] [SXAFS] []: "},
        {VantrelServerId(""), "Server not found [:0] ["},
    };
    for (const auto& [wanted, error] : rows) {
        const VantrelServerHandle server(wanted);
        const auto start = steady_clock::now();
        EXPECT_FALSE(server.ping(0));
        EXPECT_LT(steady_clock::now() - start, seconds(5));
        EXPECT_THAT(server.lastError(), HasSubstr(error));
        EXPECT_FALSE(server.isConnected());
    }
}

// --- Who answers ---

TEST_F(ConnectionTest, AServerOfOldThatHasNoLoginIsAccepted) {
    for (const bool quoted : {false, true}) {
        peer.loginUnknown(quoted);
        peer.dropConnections();
        const VantrelServerHandle server(id());
        EXPECT_TRUE(server.ping(0)) << quoted << server.lastError();
    }
}

TEST_F(ConnectionTest, AnotherServerAtTheAddressIsRefused) {
    const std::tuple<const char*, const char*, bool> rows[] = {
        {"SXAFS", "stor-1", true}, {"", "", true},   {"SXAFS", "", true},      {"", "stor-1", true},
        {"OTHER", "", false},      {"", "x", false}, {"SXAFS", "stor", false}, {"sxafs", "", false}};
    for (const auto& [database, storageId, matches] : rows) {
        SCOPED_TRACE(std::string(database) + '/' + storageId);
        const std::size_t before = peer.connections();
        VantrelServerId wanted(database, "127.0.0.1", peer.port());
        wanted.setStorageId(storageId);
        const VantrelServerHandle server(wanted);
        EXPECT_EQ(server.ping(3000), matches);
        EXPECT_EQ(peer.connections() - before, 1U) << "a wrong server is not tried again";
        EXPECT_EQ(server.isConnected(), matches);
        if (matches) continue;
        EXPECT_THAT(server.lastError(),
                    StartsWith("Mismatching server information [127.0.0.1:" + std::to_string(peer.port()) +
                               "] [" + database + " vs SXAFS] [" + storageId + " vs stor-1]: "));
        VantrelClientReleaseUnusedConnections(true);
    }
}

TEST_F(ConnectionTest, IPRangesDecideWhoIsContacted) {
    const std::string port = std::to_string(peer.port());
    const struct {
        const char* filtering;
        std::string id;
        bool allowed;
    } rows[] = {
        {"Accept=10.0.0.0/8", "127.0.0.1:" + port, false},  {"Accept=127.0.0.0/8", "127.0.0.1:" + port, true},
        {"Reject=127.0.0.1", "127.0.0.1:" + port, false},   {"Reject=10.0.0.0/8", "127.0.0.1:" + port, true},
        {"Accept=127.0.0.0/8", "localhost:" + port, true},  {"Accept=10.0.0.0/8", "localhost:" + port, false},
        {"Reject=127.0.0.0/8", "localhost:" + port, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.id + ' ' + row.filtering);
        folder.write("network.cfg", std::string("[Filtering]\n") + row.filtering + '\n');
        VantrelClientReleaseUnusedConnections(true);
        const std::size_t before = peer.connections();
        const VantrelServerHandle server(VantrelServerId(row.id.c_str()));
        EXPECT_EQ(server.ping(0), row.allowed) << server.lastError();
        EXPECT_EQ(peer.connections() - before, row.allowed ? 1U : 0U);
        if (row.allowed) continue;
        const std::string text = "Specified IP in server Id [" + row.id + "] rejected by IP range filtering";
        EXPECT_THAT(server.lastError(), HasSubstr(text));
        EXPECT_THAT(Received::log(), Contains("2 " + text));
    }
}

// --- Tracing ---

class TraceTest : public PeerFixture, public ::testing::WithParamInterface<bool> {};

TEST_P(TraceTest, TellsEachCallAndItsResult) {
    set("QD_VANTREL_TRACE", GetParam() ? "1" : "FALSE");
    Received::record();
    const VantrelClient client(false);
    VantrelSetLogLevel(VANTREL_LOG_DEBUG);
    peer.answer("QueryNodePlugInVendor", ScriptedPeer::ok("Q"));
    VantrelStr vendor;
    EXPECT_TRUE(VantrelServerHandle(id()).getVendor(vendor));
    const auto log = Received::log();
    EXPECT_EQ(std::count(log.begin(), log.end(), "4 Calling QueryNodePlugInVendor()"), GetParam() ? 1 : 0);
    EXPECT_EQ(std::count(log.begin(), log.end(), "4 Finished QueryNodePlugInVendor() -> 'Q'"),
              GetParam() ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Values, TraceTest, ::testing::Bool());

}  // namespace
