#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "CoProcess.h"
#include "CoTime.h"
#include "QdDsoMgr.h"

namespace Vantrel {

namespace {

TEST(Process, TheUmaskIsReadWithoutChangingIt) {
    const mode_t earlier = ::umask(0);
    for (const mode_t mask : {mode_t{0}, mode_t{027}, mode_t{0777}}) {
        ::umask(mask);
        EXPECT_EQ(CoProcess::getUmask(), mask);
        EXPECT_EQ(::umask(mask), mask);
    }
    ::umask(earlier);
}

TEST(Process, TheForkGenerationTellsAChildFromItsParent) {
    const unsigned ours = CoProcess::forkGeneration();
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) ::_exit(CoProcess::forkGeneration() == ours + 1 ? 0 : 1);
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(CoProcess::forkGeneration(), ours);
}

TEST(Process, SymbolsOfTheHost) {
    EXPECT_EQ(QdDsoMgr::findInHost("vantrel_no_such_symbol"), nullptr);
    EXPECT_NE(QdDsoMgr::findInHost("getpid"), nullptr);
}

TEST(Time, DeadlinesFollowTheClockAndRoundUp) {
    const CoDeadline none(0);
    EXPECT_TRUE(none.passed());
    EXPECT_EQ(none.leftMs(), 0U);
    const CoDeadline far(4000000000U);  // more milliseconds than an int holds
    EXPECT_GT(far.leftMs(), 3999990000U);
    const CoDeadline deadline(60000);
    EXPECT_GT(deadline.leftMs(), 50000U);
    CoTime::advance(59 * CoTime::PER_SECOND);
    EXPECT_FALSE(deadline.passed());
    CoTime::advance(CoTime::PER_SECOND);
    EXPECT_TRUE(deadline.passed());
}

}  // namespace

}  // namespace Vantrel
