// What is registered again, when, and without waiting for whom.
#include "VantrelEventHealthCheck.h"

#include <gmock/gmock.h>

#include <future>
#include <memory>
#include <string>

#include "ScriptedPeer.h"
#include "VantrelBaseClientAPI.h"

namespace {

using Restored = VantrelEventRegistrations::Restored;
using Vantrel::CoTime;
using Vantrel::ScriptedPeer;

class Port : public VantrelEventPort {
  public:
    unsigned number() const override { return 4711; }
    bool isOwnThread() const override { return true; }
    void watchSoon() override {}
    void removeConnection(int) override {}
};

class EventHealthCheckTest : public testing::Test {
  protected:
    EventHealthCheckTest() {
        for (const char* method : {"RegisterEvents", "UnregisterEvents", "Ping", "GetDaemonInfo"})
            peer.answer(method, ScriptedPeer::ok(""));
        VantrelClientConnection::Shared::init();
        client = VantrelClientConnection::Shared(VantrelServerId(peer.address().c_str()));
        for (const char* node : {"n1", "n2"}) {
            connections.push_back(VantrelEventConnection::make(port, client));
            EXPECT_TRUE(connections.back()->registerEventHandler(node, &handler, "", ""));
        }
        takeRegistrations();
    }
    ~EventHealthCheckTest() override {
        for (auto& connection : connections) VantrelEventConnection::release(connection);
        client.reset(nullptr);
        VantrelClientConnection::Shared::uninit();
    }

    /// The nodes registered since the last call.
    std::string takeRegistrations() {
        std::string nodes;
        const auto all = peer.arguments("RegisterEvents");
        for (; seen < all.size(); ++seen) nodes += all[seen].substr(all[seen].size() - 2);
        return nodes;
    }
    void run() {
        if (now < check.due(now)) return;
        check.run(now, connections, [](const auto& each) { return each->registrations().restore(); });
    }

    struct : VantrelNodeEvent::Handler {
        void notify(const VantrelNodeEvent&) override {}
    } handler;
    ScriptedPeer peer;
    const std::shared_ptr<Port> port = std::make_shared<Port>();
    VantrelClientConnection::Shared client;
    VantrelEventHealthCheck::Connections connections;
    VantrelEventHealthCheck check;
    CoTime::Microseconds now = CoTime::getTime();
    std::size_t seen = 0;
};

TEST_F(EventHealthCheckTest, OnlyWhatAClientThatLeftDeliveredToIsRegisteredAgain) {
    const int first = connections[0]->getId();
    check.clientGone(1);
    run();
    EXPECT_EQ(check.due(now), VantrelEventHealthCheck::NEVER);
    for (const unsigned each : {2U, 2U, 3U}) check.delivered(each, first);
    check.delivered(4, connections[1]->getId());
    check.clientGone(1);
    check.clientGone(2);
    const int gone = -1;
    check.delivered(5, gone);
    run();
    EXPECT_EQ(takeRegistrations(), "n1");
    check.clientGone(5);
    EXPECT_EQ(check.due(now), now + CoTime::PER_SECOND);
    check.request();
    EXPECT_EQ(check.due(now), now + 100 * CoTime::PER_MILLISECOND);
}

TEST_F(EventHealthCheckTest, AClosedConnectionTakesNoHandler) {
    VantrelEventConnection::release(connections[0]);
    EXPECT_FALSE(connections[0]->registerEventHandler("n1", &handler, "", ""));
    EXPECT_EQ(connections[0]->lastFailure().text, "Event connection is closed");
    run();
    EXPECT_EQ(takeRegistrations(), "");
}

TEST_F(EventHealthCheckTest, IntervalsGrowWhenClientsComeAndGo) {
    const auto comeAndGo = [this](unsigned each) {
        check.delivered(each, connections[0]->getId());
        check.clientGone(each);
        run();
    };
    for (unsigned second = 0; second <= 60; ++second, now += CoTime::PER_SECOND) comeAndGo(second);
    EXPECT_EQ(takeRegistrations(), "n1n1n1n1n1n1");  // after 0, 1, 3, 7, 15 and 31 s
    now += 3600 * CoTime::PER_SECOND;
    comeAndGo(100);
    EXPECT_EQ(takeRegistrations(), "n1");
}

TEST_F(EventHealthCheckTest, ACallOfTheApplicationIsNotWaitedFor) {
    VantrelEventRegistrations& registrations = connections[0]->registrations();
    const std::size_t commands = peer.commands().size();
    peer.holdReplies();
    auto call =
        std::async(std::launch::async, [this] { return VantrelBaseClientAPI(*client.get()).ping(0); });
    ASSERT_TRUE(peer.waitForCommands(commands + 1));
    registrations.renewLater();
    EXPECT_EQ(registrations.restore(), Restored::Busy);
    peer.releaseReplies();
    EXPECT_TRUE(call.get());
    EXPECT_EQ(takeRegistrations(), "");
    EXPECT_EQ(registrations.restore(), Restored::Up);
    EXPECT_EQ(takeRegistrations(), "n1");
}

}  // namespace
