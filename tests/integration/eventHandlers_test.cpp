// Event handlers beside a scripted server: what is registered with it, what it may send, and what becomes of
// both when either side goes away.
#include <sys/wait.h>

#include <cstring>
#include <list>
#include <memory>
#include <sstream>

#include "ClientFixture.h"
#include "EventRecorder.h"
#include "RawClient.h"
#include "Sanitizers.h"

using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using Vantrel::RawClient;
using Vantrel::ScriptedPeer;

namespace {

/// A record with an empty password: its checksum is that of the address, the time stamp and the serial.
const std::string LOGIN =
    "sync 0 _login StrUserName 4 janeStrPassword 0 StrProcessName 4 testIntProcessId 2 77StrHostName 2 "
    "wsStrIpAddr 8 10.0.0.1IntSerial 1 5IntTimestamp 1 0IntCRC 10 -125785413ULongVersion 3 0x0\n";

std::string nodeEvent(const std::string& node, const std::string& type, const std::string& details = "") {
    const auto entry = PeerInfo::entry;
    return entry("NodeId", node) + entry("Type", type) + entry("Details", details);
}

class EventHandlersTest : public PeerFixture {
  protected:
    EventHandlersTest() {
        peer.answer("RegisterEvents", ScriptedPeer::ok(""));
        peer.answer("UnregisterEvents", ScriptedPeer::ok(""));
        VantrelClientInit();
        server = std::make_unique<VantrelServerHandle>(id());
    }
    ~EventHandlersTest() override {
        sender.reset();
        server.reset();
    }
    bool add(const char* node, EventRecorder& handler) {
        return server->registerEventHandler(node, &handler);
    }
    /// Port and connection that the last registration named.
    void readRoute() {
        const auto arguments = peer.arguments("RegisterEvents");
        ASSERT_FALSE(arguments.empty());
        std::sscanf(arguments.back().c_str(), "Port %*d %dConnection %*d %d", &port, &connection);
    }
    void connectSender() {
        readRoute();
        sender = std::make_unique<RawClient>(port);
        sender->send(LOGIN);
        EXPECT_EQ(sender->readLine(), "ok ");
    }
    std::string line(const std::string& argument) const {
        return "sync " + std::to_string(connection) + " NodeEvent " + argument + "\n";
    }
    /// What the client answers to an event that comes on its event port.
    std::string send(const std::string& argument) {
        if (!sender) connectSender();
        sender->send(line(argument));
        return sender->readLine();
    }
    /// "+node" for every registration and "-node" for every unregistration since the last call.
    std::string takeRegistrations() {
        std::string all;
        for (const auto lines = peer.commands(); seen < lines.size(); ++seen) {
            const std::size_t subject = lines[seen].find("Subject 2 ");
            if (subject == std::string::npos) continue;
            all += lines[seen].find("UnregisterEvents") != std::string::npos ? '-' : '+';
            all += lines[seen].substr(subject + 10, 2);
        }
        return all;
    }
    /// Waits until they are `wanted` (other calls do not count).
    void awaitRegistrations(const std::string& wanted) {
        std::string all;
        while (all.size() < wanted.size() && peer.waitForCommands(seen + 1)) all += takeRegistrations();
        EXPECT_EQ(all, wanted);
    }

    std::unique_ptr<VantrelServerHandle> server;
    std::unique_ptr<RawClient> sender;
    int port = 0;
    int connection = 0;
    std::size_t seen = 0;
};

TEST_F(EventHandlersTest, RegistrationsSayWhereToSendWhat) {
    EventRecorder first, second;
    EXPECT_TRUE(add("n1", first));
    EXPECT_TRUE(server->registerEventHandler("n1", &second, "rgb", "tag 1"));
    readRoute();
    const std::string route = PeerInfo::entry("Port", std::to_string(port)) +
                              PeerInfo::entry("Connection", std::to_string(connection)) +
                              PeerInfo::entry("Subject", "n1");
    EXPECT_THAT(peer.arguments("RegisterEvents"),
                ElementsAre(route, route + PeerInfo::entry("Fmt", "rgb") + PeerInfo::entry("Meta", "tag 1")));
    EXPECT_EQ(send(nodeEvent("n1", "Any thing", PeerInfo::entry("Child", "n2"))), "ok ");
    EXPECT_EQ(send(nodeEvent("n9", "Unheard")), "ok ");
    EXPECT_THAT(second.events(), ElementsAre("n1 Any thing Child 2 n2"));
    EXPECT_TRUE(server->unregisterEventHandler("n1", &second));
    EXPECT_THAT(peer.arguments("UnregisterEvents"), ElementsAre());
    EXPECT_TRUE(server->unregisterEventHandler("n1", &first));
    EXPECT_THAT(peer.arguments("UnregisterEvents"), ElementsAre(route));
    EXPECT_EQ(send(nodeEvent("n1", "Late")), "ok ");
    EXPECT_EQ(first.events(), second.events());

    EXPECT_FALSE(server->unregisterEventHandler("n1", &first));
    EXPECT_THAT(server->lastError(), HasSubstr("is not registered for 'n1'"));
    EXPECT_FALSE(server->registerEventHandler("n1", nullptr));
    EXPECT_STREQ(server->lastError(), "Invalid handler pointer");
    peer.answer("RegisterEvents", ScriptedPeer::error("No such node"));
    EXPECT_FALSE(add("n1", first));
    EXPECT_STREQ(server->lastError(), "No such node");
    EXPECT_EQ(send(nodeEvent("n1", "Refused")), "ok ");
    EXPECT_EQ(first.events().size(), 1U);
}

TEST_F(EventHandlersTest, WhatIsNoEventIsAnsweredAndDisturbsNobody) {
    EventRecorder handler;
    ASSERT_TRUE(add("n1", handler));
    const std::string node = PeerInfo::entry("NodeId", "n1");
    const std::string type = PeerInfo::entry("Type", "t");
    EXPECT_EQ(send(type + "Details 0 "), "error Missing 'NodeId' parameter");
    EXPECT_EQ(send(node + "Details 0 "), "error Missing 'Type' parameter");
    EXPECT_EQ(send(node + type), "error Missing 'Details' parameter");
    EXPECT_EQ(send("NodeId -7 x"), "error Missing 'NodeId' parameter");
    for (const char* object : {"0", "77"}) {
        sender->send(std::string("sync ") + object + " NodeEvent " + nodeEvent("n1", "t") + "\n");
        EXPECT_EQ(sender->readLine(), std::string("error Invalid Object: ") + object);
    }
    EXPECT_EQ(send(nodeEvent("n1", "", "no stream")), "ok ");
    RawClient unauthenticated(port);
    unauthenticated.send(line(nodeEvent("n1", "t")));
    EXPECT_EQ(unauthenticated.readLine(), "error Not logged in.");
    EXPECT_THAT(handler.events(), ElementsAre("n1  no stream"));
    EXPECT_EQ(::getenv("QD_RC_CONNINFO"), nullptr);  // the environment is the application's
}

TEST_F(EventHandlersTest, RegistrationsAreRestoredByWhoeverFindsTheConnectionLost) {
    EventRecorder handler;
    ASSERT_TRUE(add("n1", handler) && add("n2", handler));
    ASSERT_TRUE(server->unregisterEventHandler("n2", &handler));
    EXPECT_EQ(takeRegistrations(), "+n1+n2-n2");
    peer.dropConnections();
    ASSERT_TRUE(server->ping(0));
    EXPECT_EQ(takeRegistrations(), "-n1+n1");

    peer.refuse();  // nobody calls now
    peer.listenAgain();
    awaitRegistrations("-n1+n1");
    ASSERT_TRUE(server->ping(0));  // the thread that restored them is done
    // The peer answers for longer than this lasts.
    peer.answerWith([refusals = 1](const std::string& method, const std::string&) mutable {
        const bool refuse = method == "RegisterEvents" && refusals-- > 0;
        return refuse ? std::optional<std::string>(ScriptedPeer::error("Not yet")) : std::nullopt;
    });
    peer.dropConnections();
    awaitRegistrations("-n1+n1-n1+n1");
    EXPECT_EQ(send(nodeEvent("n1", "t")), "ok ");
    EXPECT_EQ(handler.events().size(), 1U);

    takeRegistrations();
    sender.reset();  // a server that gives up sending may have dropped them, and stays connected
    awaitRegistrations("+n1");
}

TEST_F(EventHandlersTest, AHandlerMayCallEverythingWhileItIsWaitedFor) {
    EventRecorder other;
    std::promise<void> begun;
    EventRecorder handler([&] {
        begun.set_value();
        // The unregistration below waits for this call, and must hold nothing that is wanted here.
        while (peer.arguments("UnregisterEvents").empty()) EXPECT_TRUE(server->ping(0));
        VantrelNodeHandle root;
        EXPECT_TRUE(server->getRootNode(root));
        EXPECT_TRUE(add("n2", other) && server->unregisterEventHandler("n2", &other));
    });
    ASSERT_TRUE(add("n1", handler));
    within(seconds(30), [&] {
        auto sending = std::async(std::launch::async, [&] { return send(nodeEvent("n1", "t")); });
        begun.get_future().wait();
        EXPECT_TRUE(server->unregisterEventHandler("n1", &handler));
        EXPECT_EQ(peer.arguments("UnregisterEvents").size(), 2U);
        EXPECT_EQ(sending.get(), "ok ");
    });
}

TEST_F(EventHandlersTest, AHandlerMayEndItsServerHandleAndTheLibrary) {
    EventRecorder destroying([this] { server.reset(); });
    ASSERT_TRUE(add("n1", destroying) && add("n2", destroying));
    within(seconds(30), [&] { EXPECT_EQ(send(nodeEvent("n1", "t")), "ok "); });
    EXPECT_EQ(server, nullptr);
    EXPECT_EQ(send(nodeEvent("n2", "t")), "error Invalid Object: " + std::to_string(connection));
    EXPECT_EQ(peer.arguments("UnregisterEvents").size(), 2U);
    EXPECT_EQ(destroying.events().size(), 1U);

    server = std::make_unique<VantrelServerHandle>(id());
    std::promise<void> ended;
    EventRecorder ending([&ended] {
        VantrelClientUninit();
        ended.set_value();
    });
    ASSERT_TRUE(add("n1", ending));
    readRoute();
    sender->send(line(nodeEvent("n1", "t")));
    ASSERT_EQ(ended.get_future().wait_for(seconds(30)), std::future_status::ready);
    EXPECT_FALSE(VantrelClientIsInitialized());

    sender.reset();
    ASSERT_TRUE(VantrelClientInit());
    EventRecorder again;
    ASSERT_TRUE(add("n1", again)) << server->lastError();
    EXPECT_EQ(send(nodeEvent("n1", "t")), "ok ");
    EXPECT_EQ(again.events().size(), 1U);
}

TEST_F(EventHandlersTest, DestroyingAHandleDoesNotWaitForADeadServer) {
    EventRecorder handler;
    ASSERT_TRUE(add("n1", handler) && add("n2", handler));
    peer.neverAnswer("UnregisterEvents");
    within(seconds(10), [&] { server.reset(); });
    EXPECT_EQ(peer.arguments("UnregisterEvents").size(), 1U);  // and is not connected again for the other
}

TEST_F(EventHandlersTest, RegisteringHasATimeOutOfItsOwn) {
    set("VANTREL_EVENTS_CALL_TIMEOUT_MS", "300");
    EventRecorder handler;
    peer.neverAnswer("RegisterEvents");
    within(seconds(10), [&] { EXPECT_FALSE(add("n1", handler)); });
    EXPECT_STREQ(server->lastError(), std::strerror(ETIMEDOUT));
    // Registering again, after the loss, is what loses the connection now, before the call itself is made.
    within(seconds(30), [&] { EXPECT_FALSE(add("n1", handler)); });
    EXPECT_STREQ(server->lastError(), "Not connected");
}

TEST_F(EventHandlersTest, ShuttingDownDoesNotWaitForADeadServer) {
    EventRecorder handler;
    const VantrelServerHandle second(id());
    ASSERT_TRUE(add("n1", handler) && second.registerEventHandler("n2", &handler));
    peer.neverAnswer("UnregisterEvents");
    VantrelClientReleaseUnusedConnections(true);
    within(seconds(10), [] { VantrelClientUninit(); });
    readRoute();
    EXPECT_THROW(RawClient{port}, std::system_error);
    EXPECT_FALSE(server->unregisterEventHandler("n1", &handler));
}

TEST_F(EventHandlersTest, ThePortServesSoManyServersAtATime) {
    constexpr int MOST = 256;
    EventRecorder handler;
    ASSERT_TRUE(add("n1", handler));
    readRoute();
    std::list<RawClient> servers;
    for (int i = 0; i <= MOST; ++i) {
        servers.emplace_back(port).send(LOGIN);
        ASSERT_EQ(servers.back().readLine(), i < MOST ? "ok " : "") << i;
    }
}

TEST_F(EventHandlersTest, ThePortIsOneOfTheRangeOfTheNextStart) {
    EventRecorder handler;
    const int wanted = ScriptedPeer().port();
    VantrelClientSetEventsPortRange(wanted, wanted);
    ASSERT_TRUE(add("n1", handler)) << server->lastError();
    readRoute();
    EXPECT_EQ(port, wanted);
    VantrelClientUninit();
    VantrelClientInit();
    VantrelClientSetEventsPortRange(peer.port(), peer.port());
    EXPECT_FALSE(add("n1", handler));
    EXPECT_STREQ(server->lastError(), "Vantrel client not correctly configured to receive events.");
}

TEST_F(EventHandlersTest, AForkedChildHasAMonitorOfItsOwn) {
    // The runtime of the sanitizers may be inherited in the middle of something that another thread does.
    if (Vantrel::HAS_ADDRESS_SANITIZER || Vantrel::HAS_THREAD_SANITIZER)
        GTEST_SKIP() << "A forked child may not start threads here";
    EventRecorder handler;
    ASSERT_TRUE(add("n1", handler));
    readRoute();
    const int parents = port;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::promise<void> notified;
        EventRecorder childs([&notified] { notified.set_value(); });
        const bool inherited = server->unregisterEventHandler("n1", &handler);
        const bool added = !inherited && add("n2", childs);
        const bool came = added && notified.get_future().wait_for(seconds(30)) == std::future_status::ready;
        server.reset();
        std::_Exit(came && handler.events().empty() ? 0 : 1);
    }
    awaitRegistrations("+n1-n2+n2+n2");  // the child found the connection lost, as it must
    connectSender();
    EXPECT_NE(port, parents);
    send(nodeEvent("n2", "t"));  // the child may be gone before it answers
    int status = -1;
    within(seconds(30), [&] { ::waitpid(child, &status, 0); });
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(server->unregisterEventHandler("n1", &handler) && add("n1", handler));
    connectSender();
    EXPECT_EQ(port, parents);
    EXPECT_EQ(send(nodeEvent("n1", "t")), "ok ");
    EXPECT_EQ(handler.events().size(), 1U);
}

}  // namespace
