#include "rcAttrStream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <locale>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "CapturedLog.h"

using namespace Vantrel;
using namespace std::string_literals;

namespace {

using Entries = std::vector<std::pair<std::string, std::string>>;

constexpr const char* PARSE_ERROR = "Error parsing attribute stream.";

Entries entriesOf(const rcAttrStream& stream) {
    Entries entries;
    rcAttrStream::ConstIterator iterator(stream);
    std::string_view name;
    std::string_view value;
    while (iterator.next(name, value)) entries.emplace_back(name, value);
    return entries;
}

TEST(AttrStreamReading, GivesTheLiveEntriesInOrderUntilAFault) {
    const Entries onlyA{{"A", "x"}};
    const std::tuple<std::string, Entries, bool> cases[] = {
        {"", {}, true},
        {"Name 0 Next 1 x", {{"Name", ""}, {"Next", "x"}}, true},
        {"T 9 a\nb\tc\\ \"'", {{"T", "a\nb\tc\\ \"'"}}, true},
        {"A   2 xy", {{"A", "xy"}}, true},                    // more blanks before the length
        {"A 003 xyz", {{"A", "xyz"}}, true},                  // leading zeros
        {"A 1 x  1 yB 1 z", {{"A", "x"}, {"B", "z"}}, true},  // removed in the middle
        {"      3 a bB 1 z", {{"B", "z"}}, true},             // removed, of a longer name
        {"  1 1   2 22", {}, true},                           // all removed
        {"A 1 xtail", onlyA, true},                           // no blank: the normal end
        {"A 5 abc", {{"A", "abc"}}, true},                    // cut to what is there
        {"A 2147483647 abcB 1 z", {{"A", "abcB 1 z"}}, true},
        {"Name 5", {}, false},
        {" ", {}, false},
        {"A 1 xB -1 yC 1 z", onlyA, false},
        {"A 1 xB 1y zC 1 z", onlyA, false},
        {"A 1 xB 99999999999999999999 y", onlyA, false},
        {"A 1 xB 18446744073709551617 y", onlyA, false},  // 2^64 + 1
        {"A 1 xB 2147483648 y", onlyA, false},
    };
    for (const auto& [text, entries, good] : cases) {
        SCOPED_TRACE(text);
        const CapturedLog log;
        const rcAttrStream stream(text);
        EXPECT_EQ(stream.text(), text);
        EXPECT_EQ(entriesOf(stream), entries);
        EXPECT_EQ(log.texts(), std::vector<std::string>(good ? 0 : 1, PARSE_ERROR));
        EXPECT_EQ(stream.isEmpty(), entries.empty());
        EXPECT_EQ(rcAttrStream::ConstIterator(stream).getSize(), entries.size());
    }
}

TEST(AttrStreamReading, IsShownOnOneLineWithLongValuesCut) {
    const std::pair<std::string, const char*> cases[] = {
        {"", ""},
        {"A 1 1B 0 ", "A='1' B=''"},
        {"A 3 x\ny", "A='x y'"},
        {"A 8 12345678", "A='12345678'"},
        {"A 9 123456789", "A='123456789"},
        {"A 10 1234567890", "A='12345...'"},
        {"A\0B 10 1234567890"s, "A='1234567890'"},  // the whole name makes the room
    };
    for (const auto& [text, line] : cases) EXPECT_EQ(rcAttrStream(text).toPrettyString(8), line) << text;
    EXPECT_EQ(rcAttrStream("A 5 12345"s).toPrettyString(-1), "A='...'") << "three bytes at least";
}

TEST(AttrStreamReading, LookUpGoesOnFromTheCursorWrapsAndComesBackWhenNothingIsFound) {
    const rcAttrStream stream("A 1 1B 1 2A 1 3C 1 4"s);  // received text may hold a name twice
    rcAttrStream::ConstIterator iterator(stream);
    const std::pair<const char*, std::string> steps[] = {{"A", "1"},    {"A", "3"}, {"nope", ""}, {"C", "4"},
                                                         {nullptr, ""}, {"A", "1"}, {"", ""},     {"B", "2"},
                                                         {"B", "2"},    {"A", "3"}};
    for (const auto& [name, expected] : steps) {
        std::string_view value;
        std::string got;  // by the getters, which have a cursor of their own
        EXPECT_EQ(iterator.find(name, value), !expected.empty());
        EXPECT_EQ(stream.getStringValue(name, got), !expected.empty());
        EXPECT_EQ(value, expected);
        EXPECT_EQ(got, expected);
    }
}

TEST(AttrStreamReading, ACopyAndAMovedStreamReadTheirOwnText) {
    rcAttrStream stream("A 1 1B 1 2"s);
    int value = 0;
    ASSERT_TRUE(stream.getIntValue("B", value));
    const rcAttrStream copy(stream);
    stream.addIntValue("A", 7);
    const rcAttrStream moved(std::move(stream));
    EXPECT_TRUE(copy.getIntValue("A", value) && value == 1);
    EXPECT_TRUE(moved.getIntValue("A", value) && value == 7);
}

TEST(AttrStreamGetters, ConvertAsTheTypeAskedFor) {
    // int, unsigned, 32 and 64 bits in hexadecimal, unsigned char, bool
    using Integers = std::tuple<int, unsigned, unsigned, unsigned long, unsigned char, bool>;
    const std::tuple<std::string, Integers, float> cases[] = {
        {"0xff", {0, 0, 255, 255, 0, false}, 0},
        {"-1", {-1, ~0U, ~0U, ~0UL, 255, false}, -1},
        {"4294967295", {-1, ~0U, 0x94967295U, 0x4294967295UL, 255, false}, 4294967295.0F},
        {"300", {300, 300, 0x300, 0x300, 44, false}, 300},
        {"", {0, 0, 0, 0, 0, false}, 0},
        {"true", {0, 0, 0, 0, 0, true}, 0},
        {"oN", {0, 0, 0, 0, 0, true}, 0},
        {"1", {1, 1, 1, 1, 1, true}, 1},
        {"false", {0, 0, 0xfa, 0xfa, 0, false}, 0},
        {"23.976", {23, 23, 0x23, 0x23, 23, false}, 23.976F},
        {" 12 x", {12, 12, 0x12, 0x12, 12, false}, 12},
        {"-.5", {0, 0, 0, 0, 0, false}, -0.5F},
        {"7\0008"s, {7, 7, 7, 7, 7, false}, 7},
        // Digits behind the 63rd byte do not count.
        {std::string(62, '0') + "12", {1, 1, 1, 1, 1, false}, 12},
        {std::string(70, ' ') + "5", {0, 0, 0, 0, 0, false}, 5},
    };
    for (const auto& [value, integers, asFloat] : cases) {
        SCOPED_TRACE(value);
        const rcAttrStream stream("V " + std::to_string(value.size()) + ' ' + value);
        Integers read{77, 77, 77, 77, 77, !std::get<bool>(integers)};
        auto& [i, u, x, ul, uc, b] = read;
        float f = 77;
        EXPECT_TRUE(stream.getIntValue("V", i) && stream.getUIntValue("V", u) &&
                    stream.getUInt32Value("V", x) && stream.getUInt64Value("V", ul) &&
                    stream.getUCharValue("V", uc) && stream.getBoolValue("V", b) &&
                    stream.getFloatValue("V", f));
        EXPECT_EQ(read, integers);
        EXPECT_FLOAT_EQ(f, asFloat);
    }
}

TEST(AttrStreamGetters, LeaveTheOutputAloneForAnUnknownOrNullName) {
    const rcAttrStream stream("A 1 1"s);
    for (const char* name : {static_cast<const char*>(nullptr), "B", "a", ""}) {
        int i = 77;
        unsigned u = 77;
        unsigned char uc = 77;
        std::string s = "77";
        char buffer[] = "77";
        EXPECT_FALSE(stream.getIntValue(name, i) || stream.getUIntValue(name, u) ||
                     stream.getUCharValue(name, uc) || stream.getStringValue(name, s) ||
                     stream.getStringValue(name, buffer, sizeof buffer));
        EXPECT_TRUE(i == 77 && u == 77 && uc == 77 && s == "77" && buffer == s);
    }
}

TEST(AttrStreamGetters, CutAValueToTheBufferAndTerminateIt) {
    const rcAttrStream stream("A 4 abcd"s);
    const std::pair<unsigned, std::string> cases[] = {
        {0, "######"}, {1, "\0#####"s}, {4, "abc\0##"s}, {5, "abcd\0#"s}, {6, "abcd\0#"s}};
    for (const auto& [size, bytes] : cases) {
        std::string buffer(6, '#');
        EXPECT_TRUE(stream.getStringValue("A", buffer.data(), size));
        EXPECT_EQ(buffer, bytes) << size;
    }
}

TEST(AttrStreamGetters, AndAddersDoNotFollowTheProcessLocale) {
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\1"; }
    };
    const std::locale earlier = std::locale::global(std::locale(std::locale::classic(), new Comma));
    rcAttrStream stream("F 4 +2.5"s);
    stream.addFloatValue("G", 1234.5F);
    stream.addIntValue("I", 1234);
    float value = 0;
    EXPECT_TRUE(stream.getFloatValue("F", value));
    std::locale::global(earlier);
    EXPECT_EQ(value, 2.5F);
    EXPECT_EQ(stream.text(), "F 4 +2.5G 6 1234.5I 4 1234");
}

TEST(AttrStreamEquality, ComparesLiveEntriesInAnyOrder) {
    const std::tuple<std::string, std::string, bool> cases[] = {
        {"", "  1 1", true},
        {"A 1 1B 2 22", "B 2 22A 1 1", true},
        {"A 1 1", "A 1 2", false},
        {"A 1 1", "A 2 11", false},
        {"A 1 1", "A 1 1B 0 ", false},
        {"A 1 1Name 5", "A 1 1", true},  // both readable as far as they are well formed
    };
    for (const auto& [left, right, equal] : cases) {
        EXPECT_EQ(rcAttrStream(left) == rcAttrStream(right), equal) << left << " / " << right;
        EXPECT_EQ(rcAttrStream(right) != rcAttrStream(left), !equal) << left << " / " << right;
    }
}

}  // namespace
