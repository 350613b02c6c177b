// How the library connects, what it does when a connection fails or is lost, and how handles share
// connections.
#include <algorithm>
#include <cerrno>
#include <functional>

#include "BareHost.h"
#include "ClientFixture.h"
#include "RawClient.h"
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
        set("VANTREL_DEFAULT_CALL_TIMEOUT_MS", "1000");
        set("VANTREL_GET_DAEMON_INFO_CALL_TIMEOUT_MS", "1000");
    }
    void SetUp() override {
        Received::record();
        ASSERT_TRUE(VantrelClientInit());
        VantrelSetLogLevel(VANTREL_LOG_NOTICE);
    }
};

// --- One failure, and the next call ---

TEST_F(ConnectionTest, AFailedCallSaysWhyInTimeAndTheNextOneWorks) {
    const std::string refused = notFound(std::strerror(ECONNREFUSED));
    const std::string reset = notFound(std::strerror(ECONNRESET));
    const std::string late = std::strerror(ETIMEDOUT);
    const std::string info = "GetDaemonInfo";
    const bool again = true;
    const struct {
        const char* name;
        std::function<void()> fail;
        ::testing::Matcher<std::string> error;
        VantrelErrorCode code;
        bool connects = false;  // it is a new connection that fails
        bool staysOpen = false;
    } failures[] = {
        {"refused port", [&] { peer.refuse(); }, refused, VANTREL_ERROR_UNREACHABLE},
        {"closes mid-reply", [&] { peer.closeAfter(2); }, reset, VANTREL_ERROR_MAYBE_EXECUTED},
        {"closes instead of a reply", [&] { peer.closeAfter(0); }, reset, VANTREL_ERROR_MAYBE_EXECUTED},
        {"closes instead of a reply, and gives no login",
         [&] { peer.closeAfter(0), peer.neverAnswer("_login"); }, late, VANTREL_ERROR_MAYBE_EXECUTED},
        {"closes at once", [&] { peer.closeOnAccept(true); }, StartsWith("Server not found ["),
         VANTREL_ERROR_UNREACHABLE, again},
        {"never answers", [&] { peer.neverAnswer("Ping"); }, late, VANTREL_ERROR_TIMED_OUT},
        {"server's own error", [&] { peer.answer("Ping", ScriptedPeer::error("No\nway.")); }, "No\nway.",
         VANTREL_ERROR_REFUSED, false, true},
        {"error without text", [&] { peer.answer("Ping", "error "); }, "", VANTREL_ERROR_REFUSED, false,
         true},
        {"wrong login", [&] { peer.answer("_login", ScriptedPeer::error("Who?")); }, notFound("Who?"),
         VANTREL_ERROR_UNREACHABLE, again},
        {"login never answered", [&] { peer.neverAnswer("_login"); }, late, VANTREL_ERROR_TIMED_OUT, again},
        {"no daemon info", [&] { peer.answer(info, ScriptedPeer::error("?")); }, notFound("?"),
         VANTREL_ERROR_UNREACHABLE, again},
        {"daemon info never answered", [&] { peer.neverAnswer(info); }, late, VANTREL_ERROR_TIMED_OUT, again},
    };
    const VantrelServerHandle server(id());
    for (const auto& failure : failures) {
        SCOPED_TRACE(failure.name);
        ASSERT_TRUE(server.ping(0)) << server.lastError();
        failure.fail();
        if (failure.connects) peer.dropConnections();
        const auto start = steady_clock::now();
        EXPECT_FALSE(server.ping(0));
        EXPECT_LT(steady_clock::now() - start, seconds(20));
        EXPECT_THAT(server.lastError(), failure.error);
        EXPECT_EQ(server.lastErrorCode(), failure.code);
        const bool wasSent = !failure.connects && failure.code != VANTREL_ERROR_UNREACHABLE;
        EXPECT_EQ(server.mayHaveExecuted(), wasSent && failure.code != VANTREL_ERROR_REFUSED);
        EXPECT_EQ(server.isConnected(), failure.staysOpen);

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
    VantrelServerId expected("SXAFS", "127.0.0.1", peer.port());
    expected.setStorageId("stor-1");
    ASSERT_EQ(Received::lostServers().size(), 1U);
    EXPECT_TRUE(Received::lostServers()[0] == expected) << Received::lostServers()[0].getId();
    EXPECT_THAT(Received::log(), Contains("1 Ping timed-out"));
    EXPECT_TRUE(peer.waitForNoClients());
    peer.answer("Ping", ScriptedPeer::ok(""));
    EXPECT_TRUE(server.ping(0));
    EXPECT_EQ(peer.connections(), 2U);
}

TEST_F(ConnectionTest, ALostConnectionIsReportedAndReestablishedWithinTheCall) {
    const VantrelServerHandle server(id());
    for (unsigned connections = 1; connections <= 3; ++connections) {
        ASSERT_TRUE(server.ping(0)) << server.lastError();
        EXPECT_EQ(peer.connections(), connections);
        EXPECT_EQ(Received::lostServers().size(), connections) << "one comes with the first connection";
        peer.dropConnections();
        if (connections == 2) peer.refuse();  // as a restarted server: the same port, later
        peer.listenAgain();
    }
}

TEST_F(ConnectionTest, AFirstConnectionIsReportedOnceWhicheverCallMakesIt) {
    using Server = const VantrelServerHandle;
    VantrelNodeHandle node;
    int number = 0;
    const std::function<bool(Server&)> calls[] = {
        [](Server& server) { return server.ping(0); },
        [](Server& server) { return server.getHostName() != nullptr; },
        [&](Server& server) { return server.getRootNode(node); },
        [&](Server& server) { return server.getProtocolVersion(number, number); },
        [&](Server& server) { return !VantrelNodeHandle(server, "n1").getNumChildren(number); },
    };
    for (const auto& call : calls) {
        VantrelClientReleaseUnusedConnections(true);
        Received::clear();
        const VantrelServerHandle server(id());
        EXPECT_TRUE(call(server)) << server.lastError();
        ASSERT_EQ(Received::lostServers().size(), 1U) << &call - calls;
        EXPECT_TRUE(Received::lostServers()[0] == id());
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

TEST_F(ConnectionTest, ACallThatHasNoTimeLeftIsNotSentAgain) {
    const VantrelServerHandle server(id());
    VantrelNodeHandle node(server, "n1");
    ASSERT_TRUE(server.ping(0));
    std::promise<void> released;
    peer.answerWith([&](const std::string& method, const std::string&) {
        if (method == "Block") released.get_future().wait();
        return std::optional<std::string>();
    });
    const std::size_t commands = peer.commands().size();
    Vantrel::RawClient(peer.port()).send("sync 0 Block \n");
    ASSERT_TRUE(peer.waitForCommands(commands + 1));  // it reads nothing more
    const std::string much(32U << 20, 'x');
    EXPECT_FALSE(node.setMetaData("XML", much.c_str()));
    EXPECT_STREQ(server.lastError(), std::strerror(ETIMEDOUT));
    released.set_value();
    EXPECT_TRUE(peer.waitForNoClients());
    EXPECT_TRUE(server.ping(0));
    EXPECT_EQ(peer.connections(), 3U);
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
    for (const auto& [storage, retryMs, attempts] : rows) {
        const VantrelServerHandle server(VantrelServerId(storage, "127.0.0.1", peer.port()));
        const std::size_t before = peer.connections();
        const auto start = steady_clock::now();
        EXPECT_FALSE(server.ping(retryMs));
        EXPECT_TRUE(attempts == 1 || steady_clock::now() - start >= milliseconds(retryMs));
        EXPECT_EQ(peer.connections() - before, attempts) << storage << retryMs;
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

TEST_F(ConnectionTest, AServerThatCannotBeReachedIsReportedInTime) {
    set("VANTREL_CONNECTION_TIMEOUT_MS", "60000");  // the call's is shorter
    const Vantrel::SilentListener silent;
    peer.neverAnswer("_login");
    const std::tuple<VantrelServerId, std::string, VantrelErrorCode> rows[] = {
        {VantrelServerId(silent.port(), "127.0.0.1"), std::string(": ") + std::strerror(ETIMEDOUT) + ".",
         VANTREL_ERROR_UNREACHABLE},
        {id(), std::strerror(ETIMEDOUT), VANTREL_ERROR_TIMED_OUT},
        {VantrelServerId("no-such-host.invalid:7549"),
         "Server not found [no-such-host.invalid:7549] [] []: ", VANTREL_ERROR_UNREACHABLE},
        {VantrelServerId("render01"), "Server not found [render01:0] [SXAFS] []: ", VANTREL_ERROR_NOT_FOUND},
        {VantrelServerId(""), "Server not found [:0] [", VANTREL_ERROR_NOT_FOUND},
    };
    for (const auto& [wanted, error, code] : rows) {
        const VantrelServerHandle server(wanted);
        const auto start = steady_clock::now();
        EXPECT_FALSE(server.ping(0));
        EXPECT_LT(steady_clock::now() - start, seconds(20));
        EXPECT_THAT(server.lastError(), HasSubstr(error));
        EXPECT_EQ(server.lastErrorCode(), code) << error;
        EXPECT_FALSE(server.isConnected() || server.mayHaveExecuted());
    }
}

// --- Who answers ---

TEST_F(ConnectionTest, AServerOfOldThatHasNoLoginIsAccepted) {
    for (const bool quoted : {false, true}) {
        peer.loginUnknown(quoted);
        peer.dropConnections();
        EXPECT_TRUE(VantrelServerHandle(id()).ping(0)) << quoted;
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
        EXPECT_EQ(server.lastErrorCode(), VANTREL_ERROR_NOT_FOUND);
        EXPECT_THAT(server.lastError(),
                    StartsWith("Mismatching server information [127.0.0.1:" + std::to_string(peer.port()) +
                               "] [" + database + " vs SXAFS] [" + storageId + " vs stor-1]: "));
        VantrelClientReleaseUnusedConnections(true);
    }
}

TEST_F(ConnectionTest, IPRangesDecideWhoIsContacted) {
    const std::tuple<const char*, const char*, bool> rows[] = {
        {"Accept=10.0.0.0/8", "127.0.0.1", false},  {"Reject=10.0.0.0/8", "127.0.0.1", true},
        {"Accept=127.0.0.0/8", "localhost", true},  {"Reject=127.0.0.0/8", "localhost", false},
        {"Accept=10.0.0.0/33", "127.0.0.1", false},
    };
    for (const auto& [filtering, host, allowed] : rows) {
        const std::string wanted = std::string(host) + ':' + std::to_string(peer.port());
        SCOPED_TRACE(wanted + ' ' + filtering);
        folder.write("network.cfg", std::string("[Filtering]\n") + filtering + '\n');
        VantrelClientReleaseUnusedConnections(true);
        const std::size_t before = peer.connections();
        const VantrelServerHandle server(VantrelServerId(wanted.c_str()));
        EXPECT_EQ(server.ping(0), allowed) << server.lastError();
        EXPECT_EQ(peer.connections() - before, allowed ? 1U : 0U);
        if (allowed) continue;
        const std::string text = "Specified IP in server Id [" + wanted + "] rejected by IP range filtering";
        EXPECT_THAT(server.lastError(), HasSubstr(text));
        EXPECT_THAT(Received::log(), Contains("2 " + text));
    }
}

TEST_F(ConnectionTest, TheLoginRecordCanNameAMetadataAddressThatLeadsBackHere) {
    set("VANTREL_USE_CLIENT_IP", "");
    bool linked = false;
    const bool made = Vantrel::onBareHost([&] {
        linked = Vantrel::runCommand("ip link set lo up") && Vantrel::addCable("link1", 1);
        if (!linked) return;
        const ScriptedPeer there;
        const VantrelServerHandle server(VantrelServerId(there.address().c_str()));
        server.ping(0);
        EXPECT_THAT(there.arguments("_login"), ElementsAre(HasSubstr("10.0.1.1")));
    });
    if (!made || !linked) GTEST_SKIP() << "may not make a network namespace, or iproute2 is missing";
}

// --- Tracing ---

TEST_F(ConnectionTest, ATraceShowsEachCallAndItsResult) {
    set("QD_VANTREL_TRACE", "1");
    VantrelSetLogLevel(VANTREL_LOG_DEBUG);
    peer.answer("QueryNodePlugInVendor", ScriptedPeer::ok("Q"));
    VantrelStr vendor;
    EXPECT_TRUE(VantrelServerHandle(id()).getVendor(vendor));
    EXPECT_THAT(Received::log(), Contains("4 Calling QueryNodePlugInVendor()").Times(1));
    EXPECT_THAT(Received::log(), Contains("4 Finished QueryNodePlugInVendor() -> 'Q'").Times(1));
}

}  // namespace
