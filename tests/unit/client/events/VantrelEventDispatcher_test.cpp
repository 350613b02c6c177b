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
    explicit Handler(std::function<void(const VantrelNodeEvent&)> body) : body_(std::move(body)) {}
    void notify(const VantrelNodeEvent& event) override { body_(event); }

  private:
    std::function<void(const VantrelNodeEvent&)> body_;
};

class EventDispatcherTest : public testing::Test {
  protected:
    /// What a handler does that notes its name and the event's type, and then runs `then`.
    std::function<void(const VantrelNodeEvent&)> noting(
        const std::string& name, std::function<void()> then = [] {}) {
        return [this, name, then = std::move(then)](const VantrelNodeEvent& event) {
            noted.push_back(name + ":" + event.getType());
            then();
        };
    }
    std::vector<std::string> takeNoted() { return std::exchange(noted, {}); }

    static constexpr std::size_t MAX_QUEUED = 5;
    std::vector<std::string> noted;
    VantrelEventDispatcher dispatcher{MAX_QUEUED};
};

TEST_F(EventDispatcherTest, HandlersOfANodeAreCalledInTheOrderOfTheirRegistration) {
    Handler first(noting("first"));
    Handler second(noting("second"));
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
    std::vector<std::unique_ptr<Handler>> handlers;
    const auto remove = [&](std::size_t i) {
        dispatcher.remove("n1", handlers[i].get());
        dispatcher.awaitEnd(handlers[i].get());
    };
    const auto make = [&](const std::string& name, std::function<void()> then) {
        handlers.push_back(std::make_unique<Handler>(noting(name, std::move(then))));
    };
    make("a", [&] {
        remove(0);
        remove(1);
        dispatcher.add({"n1", "", ""}, handlers[3].get());
        dispatcher.notify(event("n1", "nested"));
        throw std::runtime_error("oops");
    });
    make("b", [] {});
    make("c", [&] { remove(2); });
    make("d", [&] { dispatcher.removeAll(); });
    for (int i = 0; i < 3; ++i) dispatcher.add({"n1", "", ""}, handlers[static_cast<std::size_t>(i)].get());
    const Vantrel::CapturedLog log;
    dispatcher.notify(event("n1", "1"));
    EXPECT_THAT(takeNoted(), ElementsAre("a:1", "c:1", "d:nested"));
    EXPECT_THAT(log.texts(Vantrel::CoMsg::ERROR), ElementsAre(HasSubstr("threw on event n1/1: oops")));
    EXPECT_FALSE(dispatcher.hasHandlers());
    dispatcher.add({"n1", "", ""}, handlers[1].get());
    dispatcher.notify(event("n1", "2"));
    EXPECT_THAT(takeNoted(), ElementsAre("b:2"));
}

TEST_F(EventDispatcherTest, BeyondTheBoundTheOldestUndeliveredEventsAreDropped) {
    std::promise<void> begun, released;
    Handler busy([&](const VantrelNodeEvent& event) {
        noted.push_back(event.getType());
        if (noted.size() > 1) return;
        begun.set_value();
        released.get_future().wait();
    });
    dispatcher.add({"n1", "", ""}, &busy);
    const Vantrel::CapturedLog log;
    auto delivering = std::async(std::launch::async, [&] { dispatcher.notify(event("n1", "0")); });
    begun.get_future().wait();
    for (int i = 1; i <= 12; ++i) dispatcher.notify(event("n1", std::to_string(i)));
    released.set_value();
    delivering.get();
    EXPECT_THAT(noted, ElementsAre("0", "8", "9", "10", "11", "12"));
    EXPECT_THAT(log.texts(Vantrel::CoMsg::WARNING), ElementsAre(HasSubstr("7 undelivered events dropped")));
}

TEST(EventDispatcherThreadsTest, NoEventIsLostOrOvertakesAnotherOfItsThread) {
    constexpr int THREADS = 4;
    constexpr int EVENTS = 5000;
    VantrelEventDispatcher dispatcher(THREADS * EVENTS);
    std::vector<int> next(THREADS);  // handlers run one at a time
    int misplaced = 0;
    Handler handler([&](const VantrelNodeEvent& event) {
        const std::string type = event.getType();
        const auto thread = static_cast<std::size_t>(type[0] - '0');
        if (std::stoi(type.substr(1)) != next[thread]++) ++misplaced;
    });
    dispatcher.add({"n1", "", ""}, &handler);
    std::vector<std::future<void>> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.push_back(std::async(std::launch::async, [&dispatcher, thread] {
            for (int i = 0; i < EVENTS; ++i)
                dispatcher.notify(event("n1", std::to_string(thread) + std::to_string(i)));
        }));
    }
    for (auto& thread : threads) thread.get();
    EXPECT_EQ(misplaced, 0);
    EXPECT_EQ(next, std::vector<int>(THREADS, EVENTS));
}

TEST(EventDispatcherThreadsTest, ARemovedHandlerIsNotRunningAndWillNotRun) {
    VantrelEventDispatcher dispatcher(1000);
    std::atomic<bool> over{false};
    auto notifying = std::async(std::launch::async, [&] {
        for (; !over; std::this_thread::yield()) dispatcher.notify(event("n1", "x"));
    });
    int calls = 0;
    for (int i = 0; i < 500 || (calls < 100 && i < 1000000); ++i) {
        // The sanitizers see a call that comes later, or lasts longer, than the handler's life.
        int seen = 0;
        auto handler = std::make_unique<Handler>([&seen](const VantrelNodeEvent&) { ++seen; });
        dispatcher.add({"n1", "", ""}, handler.get());
        std::this_thread::yield();
        dispatcher.remove("n1", handler.get());
        dispatcher.awaitEnd(handler.get());
        calls += std::exchange(seen, -1000);
        handler.reset();
        ASSERT_EQ(seen, -1000);
    }
    over = true;
    notifying.get();
    EXPECT_GE(calls, 100);
}

}  // namespace
