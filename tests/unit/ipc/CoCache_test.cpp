#include "CoCache.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include "ForkedChild.h"
#include "HeldClock.h"

namespace Vantrel {
namespace {

constexpr CoTime::Microseconds LIMIT = 30 * CoTime::PER_SECOND;

/// Counts how many exist, and runs what it is given when it is destroyed.
struct Item {
    explicit Item(int theNumber) : number(theNumber) { ++alive; }
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;
    ~Item() {
        --alive;
        if (onDestroy) onDestroy();
    }
    const int number;
    std::function<void()> onDestroy;
    static inline std::atomic<int> alive{0};
};

using Cache = CoCache<std::string, Item>;

std::unique_ptr<Item> make(const std::string&) {
    static std::atomic<int> made{0};
    return std::make_unique<Item>(++made);
}

/// Number of the entry, which is created when missing and not kept.
int use(Cache& cache, const char* key) {
    return cache.get(key, make)->number;
}

TEST(CoCache, DropsTheLeastRecentlyUsedAboveTheCapacityUnlessInUse) {
    Cache small(2, LIMIT);
    const int first = use(small, "a");
    use(small, "b");
    EXPECT_EQ(first, use(small, "a"));
    use(small, "c");
    EXPECT_TRUE(small.find("a") && small.find("c"));
    EXPECT_FALSE(small.find("b"));
    small.reset();

    Cache cache(1, LIMIT);
    Cache::Ref a = cache.get("a", make);
    const Cache::Ref b = cache.get("b", make);
    CoTime::advance(10 * LIMIT);
    EXPECT_EQ(a.get(), cache.find("a").get());
    EXPECT_EQ(b.get(), cache.find("b").get());
    a.reset();
    EXPECT_FALSE(cache.find("a")) << "room for one only, which is in use";
    EXPECT_EQ(1, Item::alive);
}

TEST(CoCache, ForgetsEntriesWhenTheirTimeIsOver) {
    const HeldClock clock;
    const std::tuple<const char*, CoCacheExpiry, CoTime::Microseconds, CoTime::Microseconds, bool, bool>
        cases[] = {
            {"idle just below the limit", CoCacheExpiry::Idle, 0, LIMIT - 1, false, true},
            {"idle for the limit", CoCacheExpiry::Idle, 0, LIMIT, false, false},
            {"in use is not idle", CoCacheExpiry::Idle, 0, LIMIT * 2, true, true},
            {"lifetime not over", CoCacheExpiry::Lifetime, LIMIT / 2, LIMIT / 3, false, true},
            {"a use does not prolong the lifetime", CoCacheExpiry::Lifetime, LIMIT / 2, LIMIT * 2 / 3, false,
             false},
            {"nor does a reference", CoCacheExpiry::Lifetime, 0, LIMIT, true, false},
        };
    for (const auto& [what, expiry, untilUse, untilFind, isHeld, found] : cases) {
        SCOPED_TRACE(what);
        Cache cache(16, LIMIT, expiry);
        Cache::Ref held = cache.get("a", make);
        const int number = held->number;
        if (!isHeld) held.reset();
        CoTime::advance(untilUse);
        cache.find("a");
        CoTime::advance(untilFind);
        EXPECT_EQ(found, static_cast<bool>(cache.find("a")));
        EXPECT_EQ(found ? 1U : 0U, cache.size());
        EXPECT_EQ(found || isHeld ? 1 : 0, Item::alive) << "a reference outlasts what was forgotten";
        EXPECT_EQ(found, use(cache, "a") == number);
    }
}

TEST(CoCache, ForgottenEntriesStayWithTheirHolders) {
    struct {
        const char* what;
        void (*forget)(Cache&);
        bool keepsHeld;
        bool keepsUnheld;
    } const cases[] = {
        {"dropUnused", [](Cache& cache) { cache.dropUnused(); }, true, false},
        {"remove", [](Cache& cache) { EXPECT_TRUE(cache.remove("held")); }, false, true},
        {"removeIf",
         [](Cache& cache) { EXPECT_EQ(1U, cache.removeIf([](const auto& key) { return key[0] == 'u'; })); },
         true, false},
        {"reset", [](Cache& cache) { cache.reset(); }, false, false},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        Cache cache(16, LIMIT);
        const Cache::Ref held = cache.get("held", make);
        const int number = held->number;
        use(cache, "unheld");
        each.forget(cache);
        EXPECT_EQ(number, held->number);
        EXPECT_EQ(each.keepsHeld, cache.find("held").get() == held.get());
        EXPECT_EQ(each.keepsUnheld, static_cast<bool>(cache.find("unheld")));
        EXPECT_EQ(each.keepsHeld, use(cache, "held") == number);
    }
    EXPECT_EQ(0, Item::alive);
}

TEST(CoCache, CopiesAndMovesPinTheEntryExactlyOnceEachAndOutliveTheCache) {
    auto cache = std::make_unique<Cache>(0, 0);
    Cache::Ref a = cache->get("a", make);
    Cache::Ref copy = a;
    Cache::Ref moved = std::move(a);
    copy = *&copy;
    copy.reset();
    EXPECT_TRUE(cache->find("a"));
    moved = cache->get("b", make);
    EXPECT_EQ(1, Item::alive);
    EXPECT_FALSE(cache->find("a"));
    cache.reset();
    EXPECT_GT(moved->number, 0);
    moved = Cache::Ref();
    EXPECT_EQ(0, Item::alive);
}

TEST(CoCache, FactoriesMayFailAndTheyAndDestructorsMayUseTheCache) {
    Cache cache(1, LIMIT);
    EXPECT_THROW(cache.get("a", [](const auto&) -> std::unique_ptr<Item> { throw std::runtime_error("no"); }),
                 std::runtime_error);
    EXPECT_FALSE(cache.get("a", [](const auto&) { return std::unique_ptr<Item>(); }));
    EXPECT_EQ(0U, cache.size());
    const auto nested = [&cache](const auto& key) {
        use(cache, "b");
        return make(key);
    };
    cache.get("a", nested)->onDestroy = [&cache] { use(cache, "c"); };
    cache.reset();
    EXPECT_TRUE(cache.find("c"));
}

TEST(CoCache, OthersWaitForTheOneThatMakesTheEntry) {
    Cache cache(16, LIMIT);
    std::promise<void> inFactory;
    std::promise<void> finish;
    std::atomic<int> made{0};
    const auto slowMake = [&](const std::string& key) {
        ++made;
        inFactory.set_value();
        finish.get_future().wait();
        return make(key);
    };
    auto first = std::async(std::launch::async, [&] { return cache.get("a", slowMake).get(); });
    inFactory.get_future().wait();
    EXPECT_FALSE(cache.find("a")) << "not there yet, and no reason to wait";
    EXPECT_GT(use(cache, "b"), 0) << "another key need not wait";
    auto second = std::async(std::launch::async, [&] { return cache.get("a", slowMake).get(); });
    finish.set_value();
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(1, made);
}

TEST(CoCache, ManyThreadsShareIt) {
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 2000;
    const std::string keys[] = {"a", "b", "c", "d", "e"};
    Cache cache(3, LIMIT);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&cache, &keys, thread] {
            for (int round = 0; round < ROUNDS; ++round) {
                const std::string& key = keys[static_cast<std::size_t>(round + thread) % 5];
                const Cache::Ref entry = cache.get(key, make);
                const Cache::Ref copy = entry;
                ASSERT_GT(copy->number, 0);
                if (round % 7 == 0) cache.remove(key);
                if (round % 11 == 0) cache.dropUnused();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_LE(cache.size(), 3U);
    EXPECT_EQ(static_cast<int>(cache.size()), Item::alive);
}

TEST(CoCache, AForkWhileItIsInUseDoesNotHoldAReferenceOfTheChildUp) {
    Cache cache(16, LIMIT);
    Cache::Ref held = cache.get("a", make);
    std::promise<void> locked;
    std::promise<void> forked;
    std::thread user([&] {
        cache.removeIf([&](const std::string&) {
            locked.set_value();
            forked.get_future().wait();
            return false;
        });
    });
    locked.get_future().wait();
    EXPECT_EQ(inForkedChild([&held] {
                  const Cache::Ref copy = held;
                  held.reset();
                  return copy->number > 0 ? 0 : 1;
              }),
              0);
    forked.set_value();
    user.join();
}

}  // namespace
}  // namespace Vantrel
