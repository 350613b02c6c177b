#include "CoEventLoop.h"

#include <chrono>
#include <functional>
#include <future>
#include <utility>

#include "TcpFixtures.h"

namespace Vantrel {
namespace {

using testing::ElementsAre;

constexpr std::chrono::seconds LIMIT(10);

CoTime::Microseconds limit() {
    return CoTime::getTime() + std::chrono::microseconds(LIMIT).count();
}

/// One end of a socket pair in a loop; what happens to it is written to a list that handlers share.
class PairHandler : public CoIoHandler {
  public:
    PairHandler(std::string name, std::vector<std::string>& calls) : name_(std::move(name)), calls_(calls) {}

    int descriptorId() const override { return pair.descriptor.getId(); }
    bool wantsRead() const override { return reading; }
    bool wantsWrite() const override { return writing; }
    bool handleRead() override { return called("read") && onRead(); }
    bool handleWrite() override { return called("write"); }
    bool handleError() override { return called("error"); }
    void released() override { called("released"); }

    Pair pair;
    bool reading = true;
    bool writing = false;
    std::function<bool()> onRead = [] { return true; };

  private:
    bool called(const char* what) {
        calls_.push_back(name_ + " " + what);
        return true;
    }

    std::string name_;
    std::vector<std::string>& calls_;
};

class CoEventLoopTest : public testing::Test {
  protected:
    CoEventLoopTest() { loop.add(first); }

    std::vector<std::string> takeCalls() { return std::exchange(calls, {}); }

    std::vector<std::string> calls;
    CoEventLoop loop;
    PairHandler first{"first", calls};
    PairHandler second{"second", calls};
};

TEST_F(CoEventLoopTest, CallsWhatIsReadyAndWanted) {
    EXPECT_TRUE(loop.add(second));
    EXPECT_FALSE(loop.add(first));
    EXPECT_EQ(loop.pass(0), 0);
    EXPECT_THAT(takeCalls(), ElementsAre());

    second.pair.send("x");
    first.writing = true;
    EXPECT_EQ(loop.pass(limit()), 2);
    EXPECT_THAT(takeCalls(), ElementsAre("first write", "second read"));

    second.reading = false;
    EXPECT_EQ(loop.pass(), 1);
    EXPECT_THAT(takeCalls(), ElementsAre("first write"));

    EXPECT_TRUE(loop.remove(first));
    EXPECT_FALSE(loop.remove(first));
    EXPECT_EQ(loop.pass(0), 0);
}

TEST_F(CoEventLoopTest, ReleasesWhatReturnsFalseAndWhatHasNoDescriptor) {
    first.reading = false;
    first.writing = true;
    first.onRead = [] { return false; };
    first.pair.peer.close();
    EXPECT_EQ(loop.pass(limit()), 1);
    EXPECT_THAT(takeCalls(), ElementsAre("first read", "first released"));
    EXPECT_FALSE(loop.remove(first));

    loop.add(second);
    second.pair.descriptor.close();
    EXPECT_EQ(loop.pass(0), 0);
    EXPECT_THAT(takeCalls(), ElementsAre("second error", "second released"));
    EXPECT_FALSE(loop.remove(second));
}

TEST_F(CoEventLoopTest, LetsACallbackRemoveAnyAndAddOthers) {
    PairHandler third{"third", calls};
    loop.add(second);
    first.pair.send("x");
    second.pair.send("x");
    third.pair.send("x");
    first.writing = true;
    first.onRead = [&] {
        EXPECT_TRUE(loop.remove(second));
        EXPECT_TRUE(loop.remove(first));
        EXPECT_TRUE(loop.add(third));
        return true;
    };
    loop.pass(limit());
    EXPECT_THAT(takeCalls(), ElementsAre("first read"));
    loop.pass(limit());
    EXPECT_THAT(takeCalls(), ElementsAre("third read"));
}

TEST_F(CoEventLoopTest, AWakeUpEndsOneWaitWithoutLimitAndAStopTheRun) {
    std::atomic<pid_t> waiter{0};
    auto pass = std::async(std::launch::async, [&] {
        waiter = ::gettid();
        return loop.pass();
    });
    interruptSleep(waiter, 20);  // a signal ends none
    loop.wakeUp();
    ASSERT_EQ(pass.wait_for(LIMIT), std::future_status::ready);
    EXPECT_EQ(pass.get(), 1);
    loop.wakeUp();
    loop.wakeUp();
    EXPECT_EQ(loop.pass(limit()), 1);
    EXPECT_EQ(loop.pass(0), 0);

    auto run = std::async(std::launch::async, [this] { loop.run(); });
    loop.wakeUp();
    loop.stop();
    ASSERT_EQ(run.wait_for(LIMIT), std::future_status::ready);
}

TEST_F(CoEventLoopTest, AsksForInterestsAgainDuringAWait) {
    struct Late : PairHandler {
        using PairHandler::PairHandler;
        bool wantsRead() const override { return ++asked > 1; }
        mutable int asked = 0;
    } late("late", calls);
    loop.add(late);
    late.pair.send("x");
    loop.reviewInterestsAt(CoTime::getTime() + CoTime::PER_MILLISECOND);
    EXPECT_EQ(loop.pass(limit()), 1);
}

}  // namespace
}  // namespace Vantrel
