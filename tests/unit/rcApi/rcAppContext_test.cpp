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
