#include "CoEventLoop.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "CoIoDescriptor.h"

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
    PairHandler(std::string name, std::vector<std::string>& calls) : name_(std::move(name)), calls_(calls) {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
        own.setId(ends[0]);
        peer.setId(ends[1]);
    }

    int descriptorId() const override { return own.getId(); }
    bool wantsRead() const override { return reading; }
    bool wantsWrite() const override { return writing; }
    bool handleRead() override { return called("read", onRead); }
    bool handleWrite() override { return called("write", onWrite); }
    bool handleError() override {
        return called("error", [] { return true; });
    }

    void released() override { calls_.push_back(name_ + " released"); }

    void makeReadable() { peer.writeStr("x"); }

    CoIoDescriptor own;
    CoIoDescriptor peer;
    bool reading = true;
    bool writing = false;
    std::function<bool()> onRead = [] { return true; };
    std::function<bool()> onWrite = [] { return true; };

  private:
    bool called(const char* what, const std::function<bool()>& reaction) {
        calls_.push_back(name_ + " " + what);
        return reaction();
    }

    std::string name_;
    std::vector<std::string>& calls_;
};

class CoEventLoopTest : public testing::Test {
  protected:
    std::vector<std::string> takeCalls() { return std::exchange(calls, {}); }

    std::vector<std::string> calls;
    CoEventLoop loop;
    PairHandler first{"first", calls};
    PairHandler second{"second", calls};
};

TEST_F(CoEventLoopTest, CallsWhatIsReadyAndWanted) {
    EXPECT_TRUE(loop.add(first));
    EXPECT_TRUE(loop.add(second));
    EXPECT_FALSE(loop.add(first));

    EXPECT_EQ(loop.pass(0), 0);
    EXPECT_THAT(takeCalls(), ElementsAre());

    second.makeReadable();
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

TEST_F(CoEventLoopTest, ReadsAHangUpAndReleasesWhatReturnsFalse) {
    loop.add(first);
    first.reading = false;
    first.writing = true;
    first.onRead = [] { return false; };
    first.peer.close();
    EXPECT_EQ(loop.pass(limit()), 1);
    EXPECT_THAT(takeCalls(), ElementsAre("first read", "first released"));
    EXPECT_FALSE(loop.remove(first));
}

TEST_F(CoEventLoopTest, ReleasesAHandlerWithoutDescriptor) {
    loop.add(first);
    loop.add(second);
    first.own.close();
    EXPECT_EQ(loop.pass(0), 0);
    EXPECT_THAT(takeCalls(), ElementsAre("first error", "first released"));
    EXPECT_FALSE(loop.remove(first));
}

TEST_F(CoEventLoopTest, LetsACallbackRemoveAnyAndAddOthers) {
    PairHandler third{"third", calls};
    loop.add(first);
    loop.add(second);
    first.makeReadable();
    second.makeReadable();
    third.makeReadable();
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

TEST_F(CoEventLoopTest, AWakeUpEndsAWaitWithoutLimitAndOnlyOne) {
    auto pass = std::async(std::launch::async, [this] { return loop.pass(); });
    loop.wakeUp();
    ASSERT_EQ(pass.wait_for(LIMIT), std::future_status::ready);
    EXPECT_EQ(pass.get(), 1);
    loop.wakeUp();
    loop.wakeUp();
    EXPECT_EQ(loop.pass(limit()), 1);
    EXPECT_EQ(loop.pass(0), 0);
}

TEST_F(CoEventLoopTest, AsksForInterestsAgainDuringAWait) {
    struct Late : PairHandler {
        using PairHandler::PairHandler;
        bool wantsRead() const override { return ++asked > 1; }
        mutable int asked = 0;
    } late("late", calls);
    loop.add(late);
    late.makeReadable();
    loop.reviewInterestsAt(CoTime::getTime() + CoTime::PER_MILLISECOND);
    EXPECT_EQ(loop.pass(limit()), 1);
}

TEST_F(CoEventLoopTest, RunsUntilItIsStopped) {
    auto run = std::async(std::launch::async, [this] { loop.run(); });
    loop.wakeUp();
    loop.stop();
    ASSERT_EQ(run.wait_for(LIMIT), std::future_status::ready);
}

}  // namespace
}  // namespace Vantrel
