#include <gtest/gtest.h>
#include <sys/stat.h>

#include "CoProcess.h"
#include "CoTime.h"
#include "HeldClock.h"

namespace Vantrel {
namespace {

TEST(Process, TheUmaskIsReadWithoutChangingIt) {
    const mode_t earlier = ::umask(0);
    for (const mode_t mask : {mode_t{0}, mode_t{027}, mode_t{0777}}) {
        ::umask(mask);
        EXPECT_EQ(CoProcess::getUmask(), mask);
        EXPECT_EQ(::umask(earlier), mask);
    }
}

TEST(Time, DeadlinesFollowTheClockAndRoundUp) {
    const CoDeadline none(0);
    EXPECT_TRUE(none.passed());
    EXPECT_EQ(none.leftMs(), 0U);
    const CoDeadline far(4000000000U);  // more milliseconds than an int holds
    EXPECT_GT(far.leftMs(), 3999990000U);
    const CoTime::Microseconds start = CoTime::getTime();
    for (const CoDeadline near(1); !near.passed();) continue;
    EXPECT_GE(CoTime::getTime() - start, CoTime::PER_MILLISECOND) << "no part of it is left out";
    const HeldClock clock;
    const CoDeadline deadline(60000);
    EXPECT_EQ(deadline.leftMs(), 60000U);
    CoTime::advance(59 * CoTime::PER_SECOND);
    EXPECT_FALSE(deadline.passed());
    CoTime::advance(CoTime::PER_SECOND);
    EXPECT_TRUE(deadline.passed());
}

}  // namespace
}  // namespace Vantrel
