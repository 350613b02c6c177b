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
    const HeldClock clock;
    EXPECT_TRUE(CoDeadline(0).passed());
    EXPECT_EQ(CoDeadline(4000000000U).leftMs(), 4000000000U) << "more milliseconds than an int holds";
    const CoDeadline deadline(60000);
    CoTime::advance(60 * CoTime::PER_SECOND - 1);
    EXPECT_EQ(deadline.leftMs(), 1U) << "no part of one is left out";
    EXPECT_FALSE(deadline.passed());
    CoTime::advance(1);
    EXPECT_TRUE(deadline.passed());
    EXPECT_EQ(deadline.leftMs(), 0U);
}

}  // namespace
}  // namespace Vantrel
