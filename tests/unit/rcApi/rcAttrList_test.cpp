#include "rcAttrList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Vantrel;
using namespace std::string_literals;

using testing::ElementsAre;

namespace {

TEST(AttrList, WritesTheCountThenEachElementBehindItsLength) {
    EXPECT_EQ(rcAttrList<std::string>().toString(), "0 ");
    EXPECT_EQ(rcAttrList<std::string>({"ab", "c"}).toString(), "2 2 ab1 c");
    EXPECT_EQ(rcAttrList<std::string>({"", "a b,c"}).toString(), "2 0 5 a b,c");
    EXPECT_EQ(rcAttrList<int>({-1, 10}).toString(), "2 2 -12 10");
    EXPECT_EQ(rcAttrList<float>({0.5F, 1e6F}).toString(), "2 3 0.55 1e+06");
    EXPECT_EQ(rcAttrList<unsigned>({255U}).toString(), "1 4 0xff");
    EXPECT_EQ(rcAttrList<unsigned long>({1UL << 63}).toString(), "1 18 0x8000000000000000");
    EXPECT_EQ(rcAttrList<bool>({true, false}).toString(), "2 1 11 0");
}

TEST(AttrList, ReadsEachType) {
    rcAttrList<int> ints;
    ASSERT_TRUE(ints.fromString("2 2 -12 10"));
    EXPECT_THAT(ints.values(), ElementsAre(-1, 10));
    rcAttrList<float> floats;
    ASSERT_TRUE(floats.fromString("2 3 0.55 1e+06"));
    EXPECT_THAT(floats.values(), ElementsAre(0.5F, 1e6F));
    rcAttrList<unsigned> hex;
    ASSERT_TRUE(hex.fromString("2 4 0xff2 10"));
    EXPECT_THAT(hex.values(), ElementsAre(255U, 16U));
    rcAttrList<unsigned long> wide;
    ASSERT_TRUE(wide.fromString("1 18 0x8000000000000000"));
    EXPECT_THAT(wide.values(), ElementsAre(1UL << 63));
    rcAttrList<bool> flags;
    ASSERT_TRUE(flags.fromString("3 3 yes1 05 FALSE"));
    EXPECT_THAT(flags.values(), ElementsAre(true, false, false));
}

struct ParseCase {
    std::string text;
    bool good;
    std::vector<std::string> values;
};

void check(const ParseCase& c) {
    SCOPED_TRACE(c.text);
    rcAttrList<std::string> list({"earlier"});
    EXPECT_EQ(list.fromString(c.text), c.good);
    EXPECT_EQ(list.values(), c.good ? c.values : std::vector<std::string>{"earlier"});
}

const ParseCase WELL_FORMED[] = {
    {"", true, {}},
    {"0 ", true, {}},
    {"2 3 a,b1 c", true, {"a,b", "c"}},
    {"3 0 0 1  ", true, {"", "", " "}},
    {"1 1 abc", true, {"a"}},  // bytes behind the last element
    {"1 3 \n\t\\", true, {"\n\t\\"}},
};

const ParseCase MALFORMED[] = {
    {"2", false, {}},
    {" ", false, {}},
    {"x 1 a", false, {}},
    {"1x 1 a", false, {}},
    {"-1 1 a", false, {}},
    {"1 1", false, {}},    // no blank behind the length
    {"1 2 a", false, {}},  // past the end by one
    {"2 1 a", false, {}},  // an element short
    {"1 -1 a", false, {}},
    {"1 x a", false, {}},
    {"1 18446744073709551615 a", false, {}},
    {"1 99999999999999999999 a", false, {}},
    {"9223372036854775807 1 a", false, {}},  // more than memory could ever hold
    {"99999999999999999999 1 a", false, {}},
};

TEST(AttrList, GivesTheElementsOfATextThatIsWellFormed) {
    for (const ParseCase& c : WELL_FORMED) check(c);
}

TEST(AttrList, RefusesACountThatTheBytesCannotHoldBeforeAnyElementIsRead) {
    const struct {
        const char* text;
        bool good;
    } cases[] = {{"2 0 0 ", true}, {"3 0 0 ", false}, {"3 0 0 x", false}, {"0 ", true}, {"1 ", false}};
    for (const auto& c : cases) {
        std::size_t count = 0;
        EXPECT_EQ(rcAttrList_private::ListReader(c.text).readCount(count), c.good) << c.text;
    }
}

TEST(AttrList, LeavesTheListUnchangedForATextThatIsNot) {
    for (const ParseCase& c : MALFORMED) check(c);
}

}  // namespace
