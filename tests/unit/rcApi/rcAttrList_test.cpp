#include "rcAttrList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using namespace Vantrel;

namespace {

template <typename Value>
void checkBothWays(const std::vector<Value>& values, const char* text) {
    EXPECT_EQ(rcAttrList<Value>(values).toString(), text);
    rcAttrList<Value> read;
    EXPECT_TRUE(read.fromString(text));
    EXPECT_EQ(read.values(), values);
}

TEST(AttrList, IsTheCountThenEachElementBehindItsLength) {
    checkBothWays<std::string>({}, "0 ");
    checkBothWays<std::string>({"", "a b,c", "\n\t\\"}, "3 0 5 a b,c3 \n\t\\");
    checkBothWays<int>({-1, 10}, "2 2 -12 10");
    checkBothWays<float>({0.5F, 1e6F}, "2 3 0.55 1e+06");
    checkBothWays<unsigned>({255U}, "1 4 0xff");
    checkBothWays<unsigned long>({1UL << 63}, "1 18 0x8000000000000000");
    checkBothWays<bool>({true, false}, "2 1 11 0");
}

TEST(AttrList, IsReadWholeOrNotAtAll) {
    const std::vector<std::string> earlier{"earlier"};
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"", {}},
        {"3 0 0 1  ", {"", "", " "}},
        {"1 1 abc", {"a"}},  // bytes behind the last element
        {"2", earlier},
        {"x 1 a", earlier},
        {"-1 1 a", earlier},
        {"1 1", earlier},    // no blank behind the length
        {"1 2 a", earlier},  // past the end by one
        {"2 1 a", earlier},  // an element short
        {"1 -1 a", earlier},
        {"1 18446744073709551615 a", earlier},
        {"9223372036854775807 1 a", earlier},  // more than memory could ever hold
    };
    for (const auto& [text, expected] : cases) {
        rcAttrList<std::string> list(earlier);
        EXPECT_EQ(list.fromString(text), expected != earlier) << text;
        EXPECT_EQ(list.values(), expected) << text;
    }
    // A count that the bytes cannot hold is refused before any element is read.
    std::size_t count = 0;
    EXPECT_TRUE(rcAttrList_private::ListReader("2 0 0 ").readCount(count));
    EXPECT_FALSE(rcAttrList_private::ListReader("3 0 0 x").readCount(count));
}

}  // namespace
