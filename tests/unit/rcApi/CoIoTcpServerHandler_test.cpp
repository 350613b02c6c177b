#include "CoIoTcpServerHandler.h"

#include <gmock/gmock.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "CapturedLog.h"
#include "RawClient.h"
#include "rcAppContext.h"

namespace Vantrel {
namespace {

using testing::SizeIs;

class CoIoTcpServerHandlerTest : public testing::Test {
  protected:
    CoIoTcpServerHandlerTest()
        : handler([this](CoFd connection) { accepted.push_back(std::move(connection)); },
                  [this](unsigned pauseMs) {
                      ++pauses;
                      loop.reviewInterestsIn(pauseMs);
                  }) {
        loop.registerIOHandler(&handler);
    }
    /// Makes the handler's descriptor one that is always readable and never accepts.
    void breakServer() { handler.server().setId(::eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)); }

    std::vector<CoFd> accepted;
    int pauses = 0;
    struct : rcAppContext {
        using rcAppContext::reviewInterestsIn;
    } loop;
    CoIoTcpServerHandler handler;
};

TEST_F(CoIoTcpServerHandlerTest, PausesWhenItCannotAcceptAndRecovers) {
    const CapturedLog log;
    breakServer();
    int passes = 0;
    for (; pauses < 3 && passes < 100; ++passes) loop.callIOHandlers(30000);
    EXPECT_EQ(pauses, 3);  // it tries again
    EXPECT_LE(passes, 6);  // and does not spin while it waits
    EXPECT_THAT(log.texts(CoMsg::ERROR), SizeIs(1));
    EXPECT_TRUE(log.contains(coErrorText(ENOTSOCK)));
    EXPECT_THAT(log.texts(CoMsg::WARNING), SizeIs(0));

    ASSERT_TRUE(handler.server().listen(0, "127.0.0.1"));
    const RawClient client(handler.server().getPort());
    loop.reviewInterestsIn(0);  // another handler's, within the pause
    EXPECT_EQ(loop.callIOHandlers(30000), 1);
    EXPECT_THAT(accepted, SizeIs(1));
}

}  // namespace
}  // namespace Vantrel
