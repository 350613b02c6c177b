#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>
#include <tuple>
#include <utility>

#include "CoEnv.h"

namespace Vantrel {
namespace {

constexpr char NAME[] = "VANTREL_TEST_VARIABLE";

void setOrClear(const char* text) {
    text ? ::setenv(NAME, text, 1) : ::unsetenv(NAME);
}

std::string shown(const char* text) {
    return text ? text : "(not set)";
}

TEST(Environment, NumbersKeepTheirDefaultOrAreMovedIntoRange) {
    const std::pair<const char*, long> cases[] = {{nullptr, 7},
                                                  {"", 7},
                                                  {"42", 42},
                                                  {"42s", 42},
                                                  {"-5", 1},
                                                  {"100", 100},
                                                  {"99999999999999999999", 100}};
    for (const auto& [text, value] : cases) {
        setOrClear(text);
        EXPECT_EQ(CoEnvInt(NAME, 7, 1, 100).get(), value) << shown(text);
    }
}

TEST(Environment, Switches) {
    const std::tuple<const char*, bool, bool> cases[] = {
        {nullptr, false, false}, {"", true, true},       {"1", true, true},
        {"0", true, false},      {"FALSE", true, false}, {"False", true, true},
    };
    for (const auto& [text, whenSet, byText] : cases) {
        setOrClear(text);
        EXPECT_EQ(CoEnvFlag(NAME, CoEnvFlag::Rule::SetMeansOn).get(), whenSet) << shown(text);
        EXPECT_EQ(CoEnvFlag(NAME, CoEnvFlag::Rule::TextDecides).get(), byText) << shown(text);
    }
}

TEST(Environment, EveryKindIsReadOnceAndKept) {
    ::setenv(NAME, "5", 1);
    const CoEnvInt number(NAME, 1, 0, 10);
    const CoEnvFlag flag(NAME, CoEnvFlag::Rule::SetMeansOn);
    static const CoEnvText text(NAME, "default");  // static, as every variable is: it keeps its text for good
    EXPECT_EQ(number.get(), 5);
    EXPECT_TRUE(flag.get());
    EXPECT_STREQ(text.get(), "5");
    // Overwriting in place would show through a pointer into the environment itself.
    ::setenv(NAME, "6", 1);
    EXPECT_EQ(number.get(), 5);
    EXPECT_STREQ(text.get(), "5");
    ::unsetenv(NAME);
    EXPECT_TRUE(flag.get());
    EXPECT_STREQ(text.get(), "5");
    EXPECT_STREQ(CoEnvText(NAME, "default").get(), "default");
    ::setenv(NAME, "", 1);
    EXPECT_STREQ(CoEnvText(NAME, "default").get(), "default");
}

}  // namespace
}  // namespace Vantrel
