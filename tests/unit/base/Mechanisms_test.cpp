#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <future>
#include <thread>
#include <utility>

#include "CoFd.h"
#include "CoPerProcess.h"
#include "CoWakeUp.h"
#include "ForkedChild.h"

namespace Vantrel {
namespace {

bool isOpen(int id) {
    return ::fcntl(id, F_GETFD) >= 0;
}

int openOne() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

// Each step leaves a descriptor with one owner, and the one given up closed.
TEST(Fd, ADescriptorHasOneOwnerAndIsClosedOnce) {
    const int first = openOne();
    const int second = openOne();
    CoFd owner(first);
    owner.reset(first);
    CoFd& itself = owner;
    owner = std::move(itself);
    EXPECT_TRUE(isOpen(first)) << "it was only given again what it has";
    EXPECT_EQ(owner.get(), first);

    owner.reset(second);
    EXPECT_FALSE(isOpen(first));
    {
        CoFd taker(std::move(owner));
        EXPECT_TRUE(taker.get() == second && taker.isOpen());
        EXPECT_EQ(taker.release(), second);
    }
    EXPECT_TRUE(isOpen(second)) << "given up, not closed";
    {
        CoFd taker(openOne());
        const int replaced = taker.get();
        taker = CoFd(second);
        EXPECT_FALSE(isOpen(replaced));
    }
    EXPECT_FALSE(isOpen(second));
}

TEST(WakeUp, AFlagIsTakenAtOnceAndACountOneByOne) {
    const std::pair<CoWakeUp::Kind, int> cases[] = {{CoWakeUp::Kind::Flag, 1}, {CoWakeUp::Kind::Count, 3}};
    for (const auto& [kind, drains] : cases) {
        const CoWakeUp wakeUp(kind);
        const auto isReadable = [&wakeUp] {
            pollfd entry{wakeUp.descriptor(), POLLIN, 0};
            return ::poll(&entry, 1, 0) == 1;
        };
        EXPECT_FALSE(isReadable() || wakeUp.drain());
        for (int i = 0; i < 3; ++i) EXPECT_TRUE(wakeUp.signal());
        for (int i = 0; i < drains; ++i) EXPECT_TRUE(isReadable() && wakeUp.drain());
        EXPECT_FALSE(isReadable() || wakeUp.drain());
    }
    CoWakeUp closed;
    closed.close();
    EXPECT_FALSE(closed.signal());
}

struct Heir {
    explicit Heir(Heir* parents) : number(parents ? parents->number + 1 : 1) {}
    int number;
};

/// One that takes its time to be made, in the thread that makes the first.
struct Slow {
    Slow() {
        if (made.fetch_add(1) > 0) return;
        started.set_value();
        finish.get_future().wait();
    }
    static inline std::atomic<int> made{0};
    static inline std::promise<void> started;
    static inline std::promise<void> finish;
};

TEST(PerProcess, AChildHasItsOwnAndTakesOverWhatItMay) {
    const auto number = [] { return CoPerProcess<Heir>::get().number; };
    EXPECT_EQ(number(), 1);
    EXPECT_EQ(inForkedChild([number] { return number() * 10 + inForkedChild(number); }), 23);
    EXPECT_EQ(number(), 1);
}

TEST(PerProcess, AForkWhileAnotherThreadMakesItDoesNotHoldTheChildUp) {
    std::thread maker([] { CoPerProcess<Slow>::get(); });
    Slow::started.get_future().wait();
    EXPECT_EQ(inForkedChild([] { return &CoPerProcess<Slow>::get() == &CoPerProcess<Slow>::get() ? 0 : 1; }),
              0);
    Slow& ours = CoPerProcess<Slow>::get();
    Slow::finish.set_value();
    maker.join();
    EXPECT_EQ(&CoPerProcess<Slow>::get(), &ours) << "the later one is dropped";
}

}  // namespace
}  // namespace Vantrel
