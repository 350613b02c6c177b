#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <tuple>

#include "CapturedLog.h"
#include "CoAssert.h"
#include "CoMsg.h"

namespace Vantrel {
namespace {

TEST(Messages, LevelsHaveNames) {
    int level = -1;
    for (const char* name : {"unknown", "user", "error", "warn", "notice", "debug", "unknown"})
        EXPECT_STREQ(CoMsg::levelName(level++), name);
}

TEST(Messages, PlainAndVerboseLines) {
    const CoMsg::Message message{CoMsg::WARNING, "common/src/base/tcp/src/CoX", 12, "100% %s text"};
    EXPECT_EQ(CoMsg::formatLine(message, false), "100% %s text\n");
    EXPECT_THAT(CoMsg::formatLine(message, true),
                testing::MatchesRegex("\\[warn\\] " + std::to_string(::getpid()) +
                                      " common/src/base/tcp/src/CoX:12 [^ ]+:[0-9][0-9]:[0-9][0-9]:[0-9][0-9]"
                                      "\\.[0-9][0-9][0-9] 100% %s text\n"));
}

TEST(Messages, ARouterGetsWhatPassesTheFilterWithoutTrailingBlanks) {
    CapturedLog outer;
    {
        const CapturedLog inner;
        CoMsg::setFilterLevel(CoMsg::WARNING);
        CO_MSG_WARNING("kept %d \t\r\n\n", 1);
        CO_MSG_ERROR("%s", std::string(5000, 'x').c_str());
        int evaluated = 0;
        CO_MSG_NOTICE("dropped %d", ++evaluated);
        EXPECT_EQ(evaluated, 0);
        EXPECT_THAT(inner.texts(), testing::ElementsAre("kept 1", std::string(5000, 'x')));
        EXPECT_EQ(inner.entries().at(0).level, CoMsg::WARNING);
        EXPECT_EQ(inner.entries().at(0).source, "tests/unit/base/Messages_test");
    }
    CO_MSG_USER("after");
    EXPECT_THAT(outer.texts(), testing::ElementsAre("after")) << "the earlier router is back";
}

TEST(Messages, AFailedAssertionIsLoggedAndFalse) {
    const CapturedLog log;
    int checks = 0;
    EXPECT_TRUE(CO_ASSERT(++checks == 1));
    EXPECT_TRUE(log.entries().empty());
    EXPECT_FALSE(CO_ASSERT(++checks == 1));
    const std::string place = " failed in tests/unit/base/Messages_test:" + std::to_string(__LINE__ + 1);
    EXPECT_FALSE(CO_ASSERT_NAMED(checks == 7, "seven"));
    EXPECT_EQ(checks, 2) << "a condition is evaluated once";
    EXPECT_THAT(log.texts(CoMsg::ERROR),
                testing::ElementsAre(testing::StartsWith("Assertion \"++checks == 1\" "),
                                     "Assertion \"seven\"" + place));
}

// The environment is read once, so every row runs in a process of its own, which prints to standard error.
TEST(Messages, TheEnvironmentWinsOverTheProgram) {
    const std::tuple<const char*, const char*, int, const char*> cases[] = {
        {nullptr, nullptr, CoMsg::ERROR, "^user\nerror\n$"},
        {"rubbish", nullptr, CoMsg::ERROR, "^user\nerror\n$"},
        {"warn", nullptr, CoMsg::ERROR, "^user\nerror\nwarn\n$"},
        {"2", nullptr, CoMsg::USER, "^user\nerror\nwarn\n$"},
        {"0", nullptr, CoMsg::DEBUG, "^user\n$"},
        {"user", "1", CoMsg::DEBUG, "^\\[user\\] "},
    };
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const auto& [level, verbose, programLevel, printed] : cases) {
        SCOPED_TRACE(printed);
        EXPECT_EXIT(
            {
                if (level) ::setenv("QD_MSG_LEVEL", level, 1);
                if (verbose) ::setenv("QD_MSG_VERBOSE", verbose, 1);
                CoMsg::setFilterLevel(programLevel);
                CO_MSG_USER("user");
                CO_MSG_ERROR("error");
                CO_MSG_WARNING("warn");
                CO_MSG_NOTICE("notice");
                CO_MSG_DEBUG("debug");
                ::_exit(0);
            },
            testing::ExitedWithCode(0), printed);
    }
}

}  // namespace
}  // namespace Vantrel
