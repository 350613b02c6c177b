// Events from the store to clients.

#include <gmock/gmock.h>

#include <functional>
#include <thread>

#include "CapturedLog.h"
#include "EventPublisher.h"
#include "NodeIds.h"
#include "NodePortFixture.h"
#include "ScriptedPeer.h"
#include "rcAttrStream.h"

namespace vantreld {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::chrono::seconds LIMIT(30);

/// The event port of a client, whose connection 7 hears what it registered for.
class EventClient : public Vantrel::ScriptedPeer {
  public:
    static constexpr int CONNECTION = 7;

    EventClient() { answer("NodeEvent", ok("")); }

    EventAddress address() const { return {"127.0.0.1", port()}; }

    /// "node type details" each.
    std::vector<std::string> events() const {
        EXPECT_THAT(commands(), testing::Each(testing::StartsWith("sync 7 NodeEvent ")));
        std::vector<std::string> events;
        for (const std::string& argument : arguments("NodeEvent")) {
            const Vantrel::rcAttrStream event(argument);
            std::string node, type, details;
            event.getStringValue("NodeId", node);
            event.getStringValue("Type", type);
            event.getStringValue("Details", details);
            events.push_back(node + " " + type + " " + details);
        }
        return events;
    }
};

NodeChange numbered(int number) {
    return NodeChange::metaDataSet(1, std::to_string(number));
}

bool eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + LIMIT;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

TEST(EventQueue, TheOldestGiveWay) {
    EventQueue queue({3, 100});
    QueuedEvent event;
    const auto push = [&](int connection, std::size_t size) {
        queue.push({connection, std::make_shared<const std::string>(size, 'x')});
    };
    const auto next = [&] { return queue.take(event) ? event.connection : 0; };
    for (int i = 1; i <= 5; ++i) push(i, 1);
    EXPECT_EQ(queue.takeDropped(), 2U);
    EXPECT_EQ(next(), 3);
    queue.putBack({event});
    push(6, 99);  // 3, 4 and 5 for number and for bytes
    EXPECT_EQ(queue.takeDropped(), 2U);
    EXPECT_EQ(next(), 5);
    push(7, 1000);
    EXPECT_EQ(next(), 7) << "a single one stays, however long";
    EXPECT_EQ(next(), 0);
}

TEST(EventPublisher, ASlowClientDelaysNobodyAndLosesTheOldest) {
    const Vantrel::CapturedLog log;
    EventPublisher::Settings settings;
    settings.queue = {10, 1000000};
    EventClient slow, quick;
    EventPublisher publisher(settings);
    for (const EventClient* client : {&slow, &quick})
        publisher.registerEvents(client->address(), EventClient::CONNECTION, 1);
    slow.holdReplies();
    constexpr int EVENTS = 1000;
    for (int i = 0; i < EVENTS; ++i) {
        publisher.nodeChanged(numbered(i));
        // The quick one's queue is as short.
        ASSERT_TRUE(quick.waitForCommands(static_cast<std::size_t>(i) + 1));
    }
    slow.releaseReplies();
    const std::string last = "n1 MetaDataChanged Stream 3 999";
    ASSERT_TRUE(eventually([&] { return !slow.events().empty() && slow.events().back() == last; }));
    EXPECT_LT(slow.events().size(), static_cast<std::size_t>(EVENTS));
    EXPECT_TRUE(log.contains("is slower than its events"));
}

void expectForgotten(EventPublisher& publisher) {
    EXPECT_TRUE(eventually([&] { return publisher.numRegistrations() == 0; }));
}

TEST(EventPublisher, AConnectionThatTheClientForgotIsForgotten) {
    EventClient client;
    EventPublisher publisher;
    for (const std::int64_t node : {1, 2}) publisher.registerEvents(client.address(), 7, node);
    client.answer("NodeEvent", EventClient::error("Invalid Object: 7"));
    publisher.nodeChanged(numbered(0));
    expectForgotten(publisher);
}

TEST(EventPublisher, AnUnreachableClientLosesItsRegistrations) {
    const Vantrel::CapturedLog log;
    EventPublisher::Settings settings;
    settings.unreachableMs = 300;
    EventPublisher publisher(settings);
    {
        EventClient client;
        publisher.registerEvents(client.address(), EventClient::CONNECTION, 1);
        publisher.nodeChanged(numbered(0));
        EXPECT_TRUE(client.waitForCommands(1));
    }
    expectForgotten(publisher);
    EXPECT_TRUE(eventually([&] { return log.contains("its 1 event registrations are removed"); }));
}

TEST(EventPublisher, AClientThatNeverAnswersTheLoginLosesItsRegistrations) {
    EventClient client;
    client.neverAnswer("_login");
    EventPublisher publisher;
    publisher.registerEvents(client.address(), 1, 1);
    ASSERT_TRUE(eventually([&] { return !client.arguments("_login").empty(); }));
    Vantrel::CoTime::advance(30 * Vantrel::CoTime::PER_SECOND);
    publisher.nodeChanged(numbered(0));  // the thread looks at the clock again
    expectForgotten(publisher);
}

TEST(EventPublisher, KeepsNoMoreThanItsLimits) {
    EventPublisher::Settings settings;
    settings.maxClients = 2;
    settings.maxRegistrations = 3;
    EventPublisher publisher(settings);
    const auto failure = [&](int port, std::int64_t node) {
        return failureOf([&] { publisher.registerEvents({"127.0.0.1", port}, 1, node); });
    };
    EXPECT_EQ(failure(1, 1), "");
    EXPECT_EQ(failure(2, 1), "");
    EXPECT_THAT(failure(3, 1), HasSubstr("2 clients"));
    EXPECT_EQ(failure(1, 2), "");
    EXPECT_THAT(failure(1, 3), HasSubstr("3 registrations"));
    EXPECT_EQ(failure(1, 2), "") << "there already";
    publisher.unregisterEvents({"127.0.0.1", 2}, 1, 1);
    publisher.unregisterEvents({"127.0.0.1", 2}, 1, 1);
    EXPECT_EQ(failure(3, 1), "") << "the second client has gone";
}

class EventServerTest : public NodePortFixture {
  protected:
    std::string request(const std::string& node) const {
        return attribute("Port", std::to_string(client_.port())) + "Connection 1 7" +
               attribute("Subject", node);
    }

    EventClient client_;
};

TEST_F(EventServerTest, TellsEveryChange) {
    const std::string library = createLibrary();
    const std::string volume = store().parentId(store().parentId(library));
    EXPECT_EQ(ask("RegisterEvents", request(library)), "");
    const std::string clip = create(library, "CLIP", "c");
    EXPECT_EQ(ask("RegisterEvents", request(clip) + attribute("Fmt", "f") + attribute("Meta", "m")), "");

    store().rename(clip, "d d");
    store().setMetaData(clip, "XML", "<x/>");
    store().setNumFrames(clip, 2);
    store().setNumFrames(clip, 2);  // changes nothing
    write(clip + "-1", "x");
    store().setFramePaths(clip, {"/a", "/b"});
    const std::string copy = store().duplicate(library, clip, "");
    EXPECT_NE(failureOf([&] { store().destroy(store().rootId()); }), "");
    store().destroy(volume);  // with all that is under it

    ASSERT_TRUE(client_.waitForCommands(11));
    EXPECT_THAT(client_.events(),
                ElementsAre(library + " NodeCreated " + attribute("Child", clip) + "Displ 1 c",
                            clip + " NodeRenamed Displ 3 d d",
                            library + " NodeRenamed " + attribute("Child", clip) + "Displ 3 d d",
                            clip + " MetaDataChanged Stream 3 XML", clip + " FramesChanged NumFrames 1 2",
                            clip + " NodeChanged NumFrames 1 2",
                            clip + " FramesChanged " + attribute("Frame", clip + "-1") + "Index 1 1",
                            clip + " FramesChanged NumFrames 1 2",
                            library + " NodeCreated " + attribute("Child", copy) + "Displ 3 d d",
                            library + " NodeChanged Destroyed 1 1", clip + " NodeChanged Destroyed 1 1"));
    EXPECT_EQ(ask("RegisterEvents", request(copy)), "") << "as after a time away";
    ASSERT_TRUE(client_.waitForCommands(12));
    EXPECT_EQ(client_.events().back(), copy + " NodeChanged Destroyed 1 1");
}

TEST_F(EventServerTest, RefusesWhatItCannotKeep) {
    const std::string root = store().rootId();
    const std::string port = "Port 4 4711";
    const std::string connection = "Connection 1 7";
    const std::string subject = attribute("Subject", root);
    const std::pair<std::string, const char*> cases[] = {
        {connection + subject, "error Missing RegisterEvents parameter: Port"},
        {port + subject, "error Missing RegisterEvents parameter: Connection"},
        {port + connection, "error Missing RegisterEvents parameter: Subject"},
        {"Port 5 65536" + connection + subject, "error Invalid RegisterEvents parameter: Port is 65536."},
        {port + "Connection 1 0" + subject, "error Invalid RegisterEvents parameter: Connection is 0."},
        {port + connection + attribute("Subject", "n99"), "error Node 'n99' does not exist."},
    };
    for (const auto& [argument, error] : cases) EXPECT_EQ(ask("RegisterEvents", argument), error);
    EXPECT_EQ(ask("RegisterEvents", request(root)), "");
    EXPECT_EQ(server_.events().numRegistrations(), 1U);
    EXPECT_EQ(ask("UnregisterEvents", request(root)), "");
    EXPECT_EQ(ask("UnregisterEvents", request(root)), "") << "as when it was forgotten";
    EXPECT_EQ(server_.events().numRegistrations(), 0U);
}

}  // namespace
}  // namespace vantreld
