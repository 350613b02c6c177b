#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

#include "CapturedLog.h"
#include "CoObserverList.h"
#include "CoTime.h"

namespace Vantrel {
namespace {

struct Watcher {
    std::function<void()> react = [] {};
    int calls = 0;
};

using Watchers = CoObserverList<Watcher>;

void notify(Watchers& watchers) {
    watchers.notify("A watcher", [](Watcher& watcher) {
        ++watcher.calls;
        watcher.react();
    });
}

TEST(ObserverList, CallsThoseThatAreThereWhateverTheOthersDo) {
    const CapturedLog log;
    Watchers watchers;
    Watcher thrower{[] { throw std::runtime_error("too much"); }};
    Watcher gone;
    Watcher remover;
    Watcher late;
    Watcher last;
    remover.react = [&] {
        watchers.remove(&gone);
        watchers.remove(&remover);  // must not wait for itself
        watchers.add(&late);
    };
    for (Watcher* each : {&thrower, &remover, &gone, &last}) watchers.add(each);
    notify(watchers);
    EXPECT_THAT((std::vector<int>{thrower.calls, remover.calls, gone.calls, last.calls, late.calls}),
                testing::ElementsAre(1, 1, 0, 1, 0));
    EXPECT_THAT(log.texts(CoMsg::ERROR), testing::ElementsAre("A watcher failed: too much"));
    std::async(std::launch::async, [&] { watchers.remove(&thrower); }).get();  // its call is over
    notify(watchers);
    EXPECT_EQ(late.calls, 1);
}

TEST(ObserverList, RemovingWaitsForACallOnAnotherThread) {
    Watchers watchers;
    std::promise<void> entered;
    std::promise<void> removing;
    std::atomic<bool> left{false};
    Watcher watcher{[&] {
        entered.set_value();
        removing.get_future().wait();
        // Long enough for a removal that does not wait to be over.
        for (const CoDeadline over(20); !over.passed();) std::this_thread::yield();
        left = true;
    }};
    watchers.add(&watcher);
    auto notifying = std::async(std::launch::async, [&] { notify(watchers); });
    entered.get_future().wait();
    removing.set_value();
    watchers.remove(&watcher);
    EXPECT_TRUE(left);
    EXPECT_TRUE(watchers.isEmpty());
    notifying.get();
}

}  // namespace
}  // namespace Vantrel
