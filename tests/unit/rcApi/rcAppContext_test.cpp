#include "rcAppContext.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <future>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "CapturedLog.h"

namespace Vantrel {
namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr unsigned LIMIT_MS = 10000;

/// One end of a socket pair in a loop; what happens to it is written to a list that handlers share.
class PairHandler : public CoIoHandler {
  public:
    PairHandler(std::string name, std::vector<std::string>& calls) : name_(std::move(name)), calls_(calls) {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
        own_.setId(ends[0]);
        peer.setId(ends[1]);
    }

    CoIoDescriptor* getDescriptor() override { return hasDescriptor ? &own_ : nullptr; }
    bool wantsRead() const override { return reading; }
    bool wantsWrite() const override { return writing; }
    bool handleRead() override { return called("read", onRead); }
    bool handleWrite() override { return called("write", onWrite); }
    bool handleError() override {
        return called("error", [] { return true; });
    }

    void makeReadable() { peer.writeStr("x"); }

    CoIoDescriptor peer;
    bool hasDescriptor = true;
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
    CoIoDescriptor own_;
};

class rcAppContextTest : public testing::Test {
  protected:
    std::vector<std::string> takeCalls() { return std::exchange(calls, {}); }

    std::vector<std::string> calls;
    rcAppContext context;
    PairHandler first{"first", calls};
    PairHandler second{"second", calls};
};

TEST_F(rcAppContextTest, CallsWhatIsReadyAndWanted) {
    EXPECT_TRUE(context.registerIOHandler(&first));
    EXPECT_TRUE(context.registerIOHandler(&second));
    EXPECT_FALSE(context.registerIOHandler(&first));
    EXPECT_FALSE(context.registerIOHandler(nullptr));

    EXPECT_EQ(context.callIOHandlers(0U), 0);
    EXPECT_THAT(takeCalls(), ElementsAre());

    second.makeReadable();
    first.writing = true;
    EXPECT_EQ(context.callIOHandlers(LIMIT_MS), 2);
    EXPECT_THAT(takeCalls(), ElementsAre("first write", "second read"));

    second.reading = false;
    EXPECT_EQ(context.callIOHandlers(nullptr), 1);
    EXPECT_THAT(takeCalls(), ElementsAre("first write"));

    EXPECT_TRUE(context.unregisterIOHandler(&first));
    EXPECT_FALSE(context.unregisterIOHandler(&first));
    EXPECT_EQ(context.callIOHandlers(0U), 0);
}

TEST_F(rcAppContextTest, AHangUpIsReadAndACallbackThatReturnsFalseIsTheLast) {
    context.registerIOHandler(&first);
    first.reading = false;
    first.writing = true;
    first.onRead = [] { return false; };
    first.peer.close();
    EXPECT_EQ(context.callIOHandlers(LIMIT_MS), 1);
    EXPECT_THAT(takeCalls(), ElementsAre("first read"));
    EXPECT_FALSE(context.unregisterIOHandler(&first));
}

TEST_F(rcAppContextTest, OneWithoutDescriptorIsToldAndUnregistered) {
    context.registerIOHandler(&first);
    context.registerIOHandler(&second);
    first.hasDescriptor = false;
    second.getDescriptor()->close();
    EXPECT_EQ(context.callIOHandlers(0U), 0);
    EXPECT_THAT(takeCalls(), ElementsAre("first error", "second error"));
    EXPECT_FALSE(context.unregisterIOHandler(&first));
    EXPECT_FALSE(context.unregisterIOHandler(&second));
}

TEST_F(rcAppContextTest, ACallbackMayUnregisterAnyoneAndRegisterOthers) {
    PairHandler third{"third", calls};
    context.registerIOHandler(&first);
    context.registerIOHandler(&second);
    first.makeReadable();
    second.makeReadable();
    third.makeReadable();
    first.writing = true;
    first.onRead = [&] {
        EXPECT_TRUE(context.unregisterIOHandler(&second));
        EXPECT_TRUE(context.unregisterIOHandler(&first));
        EXPECT_TRUE(context.registerIOHandler(&third));
        return true;
    };
    context.callIOHandlers(LIMIT_MS);
    EXPECT_THAT(takeCalls(), ElementsAre("first read"));
    context.callIOHandlers(LIMIT_MS);
    EXPECT_THAT(takeCalls(), ElementsAre("third read"));
}

TEST_F(rcAppContextTest, CancelEndsAWaitWithoutLimitAndOnlyOne) {
    auto pass = std::async(std::launch::async, [this] { return context.callIOHandlers(nullptr); });
    context.cancel();
    ASSERT_EQ(pass.wait_for(std::chrono::milliseconds(LIMIT_MS)), std::future_status::ready);
    EXPECT_EQ(pass.get(), 1);
    context.cancel();
    context.cancel();
    EXPECT_EQ(context.callIOHandlers(LIMIT_MS), 1);
    EXPECT_EQ(context.callIOHandlers(0U), 0);
}

TEST_F(rcAppContextTest, LogsItsWaits) {
    const CapturedLog log;
    context.callIOHandlers(0U);
    context.cancel();
    timeval long_{7200, 0};
    context.callIOHandlers(&long_);
    context.cancel();
    timeval fine{12, 345678};
    context.callIOHandlers(&fine);
    context.cancel();
    context.callIOHandlers(nullptr);
    EXPECT_THAT(
        log.texts(CoMsg::DEBUG),
        ElementsAre("Waiting for IO handlers (0.000000000 sec)", "IO handlers timed out",
                    "Waiting for IO handlers (3600.000000000 sec)",
                    "Waiting for IO handlers (12.345678000 sec)", "Waiting for IO handlers (no-timeout)"));
}

}  // namespace
}  // namespace Vantrel
