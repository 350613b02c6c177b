#include "VantrelEventDispatcher.h"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "CapturedLog.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

VantrelNodeEvent event(const std::string& node, const std::string& type) {
    return VantrelNodeEvent(VantrelNodeId(node.c_str()), VantrelStr(type.c_str()), VantrelDictionary());
}

class Handler : public VantrelNodeEvent::Handler {
  public:
    explicit Handler(std::function<void(const std::string& type)> body) : body_(std::move(body)) {}
    void notify(const VantrelNodeEvent& event) override { body_(event.getType()); }

  private:
    std::function<void(const std::string&)> body_;
};

class EventDispatcherTest : public testing::Test {
  protected:
    /// A handler that notes its name and the event's type, and then runs `then`.
    Handler noting(
        const std::string& name, std::function<void()> then = [] {}) {
        return Handler([this, name, then = std::move(then)](const std::string& type) {
            noted.push_back(name + ":" + type);
            then();
        });
    }
    std::vector<std::string> takeNoted() { return std::exchange(noted, {}); }

    std::vector<std::string> noted;
    VantrelEventDispatcher dispatcher{5};
};

TEST_F(EventDispatcherTest, HandlersOfANodeAreCalledInTheOrderOfTheirRegistration) {
    Handler first = noting("first");
    Handler second = noting("second");
    dispatcher.add({"n1", "", ""}, &second);
    dispatcher.add({"n2", "", ""}, &first);
    dispatcher.add({"n1", "", ""}, &first);
    dispatcher.add({"n1", "f", "m"}, &second);  // again: keeps its place
    for (const char* node : {"n1", "n2", "n3", ""}) dispatcher.notify(event(node, node));
    EXPECT_THAT(takeNoted(), ElementsAre("second:n1", "first:n1", "first:n2"));

    using Removal = VantrelEventDispatcher::Removal;
    EXPECT_EQ(dispatcher.remove("n1", &second), Removal::OthersLeft);
    EXPECT_EQ(dispatcher.remove("n1", &second), Removal::Unknown);
    dispatcher.notify(event("n1", "later"));
    EXPECT_THAT(takeNoted(), ElementsAre("first:later"));
    const auto subjects = dispatcher.removeAll();
    EXPECT_EQ(subjects.size(), 2U);
    EXPECT_EQ(subjects[subjects[0].nodeId == "n1" ? 0 : 1].format, "f");
    dispatcher.notify(event("n1", "last"));
    EXPECT_THAT(takeNoted(), ElementsAre());
}

TEST_F(EventDispatcherTest, HandlersMayChangeTheRegistrationsThatTheyAreCalledFor) {
    const auto remove = [&](Handler& handler) {
        dispatcher.remove("n1", &handler);
        dispatcher.awaitEnd(&handler);
    };
    Handler b = noting("b");
    Handler c = noting("c", [&] { remove(c); });
    Handler d = noting("d", [&] { dispatcher.removeAll(); });
    Handler a = noting("a", [&] {
        remove(a);
        remove(b);
        dispatcher.add({"n1", "", ""}, &d);
        dispatcher.notify(event("n1", "nested"));
        throw std::runtime_error("oops");
    });
    for (Handler* handler : {&a, &b, &c}) dispatcher.add({"n1", "", ""}, handler);
    const Vantrel::CapturedLog log;
    dispatcher.notify(event("n1", "1"));
    EXPECT_THAT(takeNoted(), ElementsAre("a:1", "c:1", "d:nested"));
    EXPECT_THAT(log.texts(Vantrel::CoMsg::ERROR), ElementsAre(HasSubstr("threw on event n1/1: oops")));
    EXPECT_FALSE(dispatcher.hasHandlers());
    dispatcher.add({"n1", "", ""}, &b);
    dispatcher.notify(event("n1", "2"));
    EXPECT_THAT(takeNoted(), ElementsAre("b:2"));
}

TEST_F(EventDispatcherTest, BeyondTheBoundTheOldestUndeliveredEventsAreDropped) {
    std::promise<void> begun, released;
    Handler busy = noting("busy", [&] {
        if (noted.size() > 1) return;
        begun.set_value();
        released.get_future().wait();
    });
    dispatcher.add({"n1", "", ""}, &busy);
    const Vantrel::CapturedLog log;
    auto delivering = std::async(std::launch::async, [&] { dispatcher.notify(event("n1", "0")); });
    begun.get_future().wait();
    for (int i = 1; i <= 6; ++i) dispatcher.notify(event("n1", std::to_string(i)));
    released.set_value();
    delivering.get();
    EXPECT_THAT(noted, ElementsAre("busy:0", "busy:2", "busy:3", "busy:4", "busy:5", "busy:6"));
    EXPECT_THAT(log.texts(Vantrel::CoMsg::WARNING), ElementsAre(HasSubstr("1 undelivered events dropped")));
}

TEST_F(EventDispatcherTest, EventsAreTracedOnRequest) {
    ::setenv("QD_DEBUG_VANTREL_EVENTS", "0", 1);  // set is on
    const Vantrel::CapturedLog log;
    Handler handler(noting("h"));
    dispatcher.add({"n1", "", ""}, &handler);
    dispatcher.notify(event("n1", "type"));
    const auto* address = static_cast<void*>(&handler);
    EXPECT_THAT(log.texts(Vantrel::CoMsg::USER),
                ElementsAre("Received node event n1/type [].",
                            Vantrel::coFormat("Notifying event handler %p of event n1/type [].", address)));
}

// The sanitizers see a call that comes later, or lasts longer, than its handler's life.
TEST(EventDispatcherThreadsTest, NoEventIsLostOrOvertakesAnotherOrReachesARemovedHandler) {
    constexpr int THREADS = 4;
    constexpr int EVENTS = 5000;
    VantrelEventDispatcher dispatcher(THREADS * EVENTS);
    std::vector<int> next(THREADS);  // handlers run one at a time
    int misplaced = 0;
    Handler handler([&](const std::string& type) {
        const auto thread = static_cast<std::size_t>(type[0] - '0');
        if (std::stoi(type.substr(1)) != next[thread]++) ++misplaced;
    });
    dispatcher.add({"n1", "", ""}, &handler);
    std::atomic<int> running{THREADS};
    std::vector<std::future<void>> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.push_back(std::async(std::launch::async, [&, thread] {
            for (int i = 0; i < EVENTS; ++i)
                dispatcher.notify(event("n1", std::to_string(thread) + std::to_string(i)));
            --running;
        }));
    }
    while (running > 0) {
        int calls = 0;
        auto shortLived = std::make_unique<Handler>([&calls](const std::string&) { ++calls; });
        dispatcher.add({"n1", "", ""}, shortLived.get());
        std::this_thread::yield();
        dispatcher.remove("n1", shortLived.get());
        dispatcher.awaitEnd(shortLived.get());
        const int before = calls;
        shortLived.reset();
        ASSERT_EQ(calls, before);
    }
    for (auto& thread : threads) thread.get();
    EXPECT_EQ(misplaced, 0);
    EXPECT_EQ(next, std::vector<int>(THREADS, EVENTS));
}

}  // namespace
