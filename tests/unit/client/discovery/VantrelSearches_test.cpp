// The clock moves only when a test moves it: a wait asks `done` without a lock, and there the tests act.
#include "VantrelSearches.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "HeldClock.h"

namespace {

using Vantrel::CoTime;
using Microseconds = VantrelSearches::Microseconds;

constexpr Microseconds STEP = 100 * CoTime::PER_MILLISECOND;
constexpr Microseconds FAR = 60 * CoTime::PER_SECOND;

class Searches : public testing::Test {
  protected:
    /// Waits, and calls `onLook` with the number of each look, one step of the clock apart, before `done` is
    /// false. Returns the number of looks.
    template <typename OnLook>
    int wait(const std::string& storageId, Microseconds latest, OnLook onLook) {
        int looks = 0;
        const auto send = [this] { ++sent; };
        const auto done = [&] {
            onLook(++looks);
            CoTime::advance(STEP);
            searches.recheck();
            return looks > 100;
        };
        searches.wait(storageId, CoTime::getTime() + latest, send, done);
        return looks;
    }
    int waitQuietly(const std::string& storageId) {
        return wait(storageId, FAR, [](int) {});
    }

    const Vantrel::HeldClock clock;
    VantrelSearches searches;
    int sent = 0;
};

TEST_F(Searches, LastAsLongAsRepliesCome) {
    const std::tuple<const char*, Microseconds, int, int> cases[] = {
        {"none comes", FAR, 0, 4},
        {"early ones", FAR, 1, 4},
        {"until 300 ms", FAR, 4, 6},
        {"all the time", FAR, 100, 21},
        {"the caller has less time", 2 * STEP, 100, 3},
        {"the caller has none", 0, 0, 1}};
    for (const auto& [what, latest, repliesUpTo, expected] : cases) {
        const int looks = wait("", latest, [this, last = repliesUpTo](int look) {
            if (look <= last) searches.noteReply();
        });
        EXPECT_EQ(looks, expected) << what;
        CoTime::advance(FAR);
    }
}

TEST_F(Searches, EndWithWhatIsSearchedForOrWithAStop) {
    int asked = 0;
    const auto find = [&asked] { return ++asked == 2; };
    const auto recheck = [this] { searches.recheck(); };
    const auto begun = CoTime::getTime();
    EXPECT_GE(searches.wait("s", begun + FAR, recheck, find), begun);
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(wait("s", FAR, [&](int) { searches.stop(); }), 1);
    EXPECT_EQ(waitQuietly("s"), 0);
}

TEST_F(Searches, AreSharedWhileTheyRun) {
    // The storage of a search, that of one that joins it, at which look it does, and how often is sent.
    const std::tuple<const char*, const char*, int, int> cases[] = {
        {"s", "s", 2, 1},
        {"", "", 2, 1},
        {"s", "t", 2, 2},
        {"s", "s", 4, 2}};  // servers that came up since have not heard it
    for (const auto& [first, second, joinedAt, expected] : cases) {
        sent = 0;
        int looks = 0;
        wait(first, FAR, [&, other = second, at = joinedAt](int look) {
            if (look == at) looks = waitQuietly(other);
        });
        EXPECT_EQ(sent, expected) << first << ", " << second << " at " << joinedAt;
        EXPECT_EQ(looks < 4, expected == 1);
        CoTime::advance(FAR);
    }
}

TEST_F(Searches, ThatBeginLaterDoNotProlongAnEarlierOne) {
    const int looks = wait("", FAR, [&](int look) {
        if (look > 4) ADD_FAILURE() << "the search was over";
        if (look != 4) return;
        CoTime::advance(STEP);
        waitQuietly("");
        searches.noteReply();
    });
    EXPECT_EQ(looks, 4);
}

TEST_F(Searches, ForAllServersStayFreshForAWhile) {
    EXPECT_FALSE(searches.renewForAll()) << "there was none";
    wait("", FAR, [&](int look) { EXPECT_EQ(searches.renewForAll(), look == 4) << "it is running"; });
    EXPECT_TRUE(searches.renewForAll());
    for (const bool fresh : {true, false}) {
        const unsigned validMs = VantrelSearches::SEARCH_VALID_MS;
        CoTime::advance((fresh ? validMs - 100 : validMs) * CoTime::PER_MILLISECOND);
        EXPECT_EQ(searches.renewForAll(), fresh);
    }
    waitQuietly("s");
    EXPECT_FALSE(searches.renewForAll()) << "for one storage only";
    searches.beginForAll();
    EXPECT_FALSE(searches.renewForAll()) << "it is running";
    CoTime::advance(3 * STEP);
    EXPECT_TRUE(searches.renewForAll());
}

}  // namespace
