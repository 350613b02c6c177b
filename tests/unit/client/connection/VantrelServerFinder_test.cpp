#include "VantrelServerFinder.h"

#include <netdb.h>

#include <future>

#include "CoNameLookup.h"
#include "DiscoveryFixture.h"
#include "FailingAllocations.h"
#include "HeldClock.h"
#include "ScriptedPeer.h"
#include "VantrelClientConnection.h"
#include "VantrelResolver.h"

namespace {

using Vantrel::DaemonRecord;
using Vantrel::rcOutcome;
using Vantrel::ScriptedPeer;

/// One server answers, whatever discovery believes to know.
class ServerFinder : public DiscoveryTest {
  protected:
    ServerFinder() {
        ::setenv("VANTREL_CONNECTION_RETRY_TIMEOUT_MS", "0", 1);
        peer.answer("GetDaemonInfo", ScriptedPeer::ok(ownInfo));
        peer.answer("Ping", ScriptedPeer::ok(""));
    }

    /// The display name of the server that an id leads to, or why it leads to none.
    static std::string found(const VantrelServerId& id) {
        VantrelClientConnection connection(id);
        std::shared_ptr<const VantrelDaemonInfo> info;
        std::string error;
        return connection.getDaemonInfo(false, info, error, VantrelClientConnection::Limits::byDefault()) ==
                       rcOutcome::Answered
                   ? info->getDisplayName()
                   : error;
    }

    ScriptedPeer peer;
    const std::string ownInfo =
        DaemonRecord{"new", "", "d", "127.0.0.1", "", "itself", peer.port()}.info().toAttrStream().text();
    const std::shared_ptr<VantrelMulticastClient> discovery = VantrelMulticastClient::getInstance();
};

TEST_F(ServerFinder, TriesEveryRecordOfAnAddress) {
    ScriptedPeer gone;
    gone.refuse();
    discovery->setServers({DaemonRecord{"a", "", "d", "127.0.0.1", "", "a", gone.port()}.info(),
                           DaemonRecord{"b", "", "d", "127.0.0.1", "", "b", 70000}.info(),
                           DaemonRecord{"c", "", "d", "127.0.0.1", "", "c", peer.port()}.info()});
    EXPECT_EQ(found(VantrelServerId("127.0.0.1:d")), "c");
}

TEST_F(ServerFinder, AsksTheServerItselfWhereSeveralClaimItsAddress) {
    const VantrelDaemonInfo old = DaemonRecord{"old", "", "d", "127.0.0.1", "", "old", peer.port()}.info();
    const VantrelDaemonInfo now = DaemonRecord{"new", "", "d", "127.0.0.1", "", "now", peer.port()}.info();
    const std::string mismatch =
        "Mismatching server information [:0] [ vs d] [old vs new]: Another storage answers at this address.";
    const struct {
        std::vector<VantrelDaemonInfo> known;
        VantrelServerId id;
        std::string found;
        std::size_t asked;
    } cases[] = {
        {{now}, VantrelServerId(peer.port(), "127.0.0.1"), "now", 0},
        {{now}, storage("new"), "now", 0},
        {{old, now}, VantrelServerId(peer.port(), "127.0.0.1"), "itself", 1},
        {{old, now}, VantrelServerId("127.0.0.1:d"), "itself", 1},
        {{old, now}, storage("new"), "itself", 1},
        {{old, now}, storage("old"), "Server not found [:0] [] [old]: " + mismatch + ".", 1},
    };
    std::size_t asked = 0;
    for (const auto& c : cases) {
        discovery->setServers(c.known);
        EXPECT_EQ(found(c.id), c.found);
        asked += c.asked;
        EXPECT_EQ(peer.arguments("GetDaemonInfo").size(), asked) << c.found;
    }
}

TEST_F(ServerFinder, ALoginThatGetsNoAnswerIsNotTriedAtTheNextAddress) {
    ::setenv("VANTREL_CONNECTION_TIMEOUT_MS", "1000", 1);
    discovery->setServers({DaemonRecord{"new", "", "d", "127.0.0.1 127.0.0.2", "", "a", peer.port()}.info()});
    peer.neverAnswer("_login");
    EXPECT_EQ(found(storage("new")), Vantrel::coErrorText(ETIMEDOUT));
    peer.answer("_login", ScriptedPeer::error("No."));  // nobody listens at the next one
    EXPECT_THAT(found(storage("new")), HasSubstr(Vantrel::coErrorText(ECONNREFUSED)));
}

// A resolver that holds every look-up until the gate opens.
std::promise<void> begun;
std::promise<void> gate;

int resolveWhenOpen(const char*, const char*, const addrinfo*, addrinfo**) {
    begun.set_value();
    gate.get_future().wait();
    return EAI_FAIL;
}

TEST_F(ServerFinder, AStopDoesNotWaitForTheLookUpThatFilteringNeeds) {
    configure("Multicast=lo", "[Filtering]\nReject=10.0.0.0/8");
    Vantrel::CoNameLookup::resolver() = &resolveWhenOpen;
    VantrelClientConnection connection(VantrelServerId(peer.port(), "slow.test"));
    auto limits = VantrelClientConnection::Limits::byDefault();
    limits.connectMs = 20000;
    auto call = std::async(std::launch::async, [&] {
        std::string reply;
        return connection.callMethod("Ping", "", reply, limits) == rcOutcome::Stopped;
    });
    begun.get_future().wait();
    EXPECT_LT(took([&] { connection.disconnect(); }), 10000);
    EXPECT_TRUE(call.get());
    gate.set_value();
    Vantrel::CoNameLookup::resolver() = &::getaddrinfo;
}

TEST_F(ServerFinder, TheWaitForDiscoveryTakesNoTimeFromConnecting) {
    const Vantrel::HeldClock clock;
    const FakeServers network(group());
    VantrelClientConnection connection(storage("new"));
    auto limits = VantrelClientConnection::Limits::byDefault();
    limits.callMs = 100;
    std::string error;
    auto call = std::async(std::launch::async, [&] {
        std::shared_ptr<const VantrelDaemonInfo> info;
        return connection.getDaemonInfo(false, info, error, limits) == rcOutcome::Answered;
    });
    network.searches.wait(1);
    Vantrel::CoTime::advance(limits.callMs * Vantrel::CoTime::PER_MILLISECOND);
    discovery->setServers({DaemonRecord{"new", "", "d", "127.0.0.1", "", "a", peer.port()}.info()});
    VantrelMulticastClient::recheckWaits();
    EXPECT_TRUE(call.get()) << error;
}

TEST_F(ServerFinder, TheTimeOutOfAListDoesNotBoundConnecting) {
    const VantrelServerId id(peer.port(), "127.0.0.1");
    EXPECT_ANY_THROW(VantrelClientConnection::fetchDaemonList(id, 0));
    EXPECT_EQ(peer.arguments("GetDaemonInfo").size(), 1U);
}

TEST_F(ServerFinder, APortThatIsNoneIsNotConnectedTo) {
    const Vantrel::CapturedLog log;
    for (const int port : {-5, 99999}) {
        EXPECT_THAT(found(VantrelServerId(port, "127.0.0.1")), HasSubstr(Vantrel::coErrorText(EINVAL)));
    }
    EXPECT_FALSE(log.contains("Assertion"));
}

TEST_F(ServerFinder, AServerThatIsReachedIsNotDeadAnyMore) {
    const VantrelServerId id(peer.port(), "127.0.0.1");
    const VantrelDaemonInfo record = DaemonRecord{"new", "", "d", "127.0.0.1"}.info();
    VantrelResolver::flagUnreachableServer(id);
    VantrelResolver::flagInaccessibleIP("127.0.0.1");
    EXPECT_EQ(found(id), "itself");
    EXPECT_FALSE(VantrelResolver::isUnreachableServer(id));
    EXPECT_EQ(VantrelResolver(record).getIP(VantrelResolver::Metadata, 0), "127.0.0.1");
}

TEST_F(ServerFinder, AReplyWithoutMemoryForItIsNotGoneOnWithByTheNextCall) {
    const struct {
        const char* method;
        bool sent;
    } cases[] = {{"Get", true}, {"_login", false}, {"GetDaemonInfo", false}};
    for (const auto& [method, sent] : cases) {
        SCOPED_TRACE(method);
        VantrelClientConnection connection(VantrelServerId(peer.port(), "127.0.0.1"));
        const auto limits = VantrelClientConnection::Limits::byDefault();
        std::string reply;
        if (sent) {
            ASSERT_EQ(connection.callMethod("Ping", "", reply, limits), rcOutcome::Answered) << reply;
        }
        peer.answer(method, ScriptedPeer::ok(std::string(4U << 20, 'x')));
        tooMuchHere = 1U << 20;
        const VantrelCallOutcome outcome = connection.callMethod("Get", "", reply, limits);
        tooMuchHere = SIZE_MAX;
        EXPECT_EQ(outcome.code(), VANTREL_ERROR_LOCAL) << reply;
        EXPECT_EQ(outcome.sent(), sent);
        EXPECT_FALSE(connection.isConnected());
        peer.answer("_login", ScriptedPeer::ok(""));
        peer.answer("GetDaemonInfo", ScriptedPeer::ok(ownInfo));
        peer.answer("Get", ScriptedPeer::ok("right"));
        EXPECT_EQ(connection.callMethod("Get", "", reply, limits), rcOutcome::Answered);
        EXPECT_EQ(reply, "right");
    }
}

}  // namespace
