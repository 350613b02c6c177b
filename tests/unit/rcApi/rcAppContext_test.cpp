#include "rcAppContext.h"

#include <gmock/gmock.h>

#include "CapturedLog.h"

namespace Vantrel {
namespace {

using testing::ElementsAre;

TEST(rcAppContext, LogsItsWaits) {
    const CapturedLog log;
    rcAppContext context;
    context.callIOHandlers(0U);
    for (timeval time : {timeval{7200, 0}, timeval{12, 345678}}) {
        context.cancel();
        context.callIOHandlers(&time);
    }
    context.cancel();
    context.callIOHandlers(nullptr);
    const std::string waiting = "Waiting for IO handlers ";
    EXPECT_THAT(
        log.texts(CoMsg::DEBUG),
        ElementsAre(waiting + "(0.000000000 sec)", "IO handlers timed out", waiting + "(3600.000000000 sec)",
                    waiting + "(12.345678000 sec)", waiting + "(no-timeout)"));
}

}  // namespace
}  // namespace Vantrel
