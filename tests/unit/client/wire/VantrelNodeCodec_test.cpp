#include "VantrelNodeCodec.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

using NodeInfoList = VantrelNodeInterface::NodeInfoList;

namespace {

/// "id|display name " of each child.
std::string shown(const NodeInfoList& children) {
    std::string all;
    for (std::size_t i = 0; i < children.size(); ++i)
        all.append(children[i].id()).append("|").append(children[i].displayName()).append(" ");
    return all;
}

TEST(NodeCodec, ChildrenAreReadAsFarAsTheReplyIsGood) {
    const std::tuple<std::string, std::string, bool> cases[] = {
        {"", "", true},
        {"0 18 Id 2 n1Displ 3 one1 18 Id 2 n2Displ 3 two", "n1|one n2|two ", true},
        {"0 34 New 1 xId 2 n1More 2 yzDispl 3 one", "n1|one ", true},
        {"a 29 Id 2 n1Displ 13 a,b \"c\"\n\\\xff 1 ", "n1|a,b \"c\"\n\\\xff 1  ", true},
        {"  3 abc1 18 Id 2 n2Displ 3 two", "n2|two ", true},
        {"0 18 Id 2 n1Displ 3 one1 7 Id 2 n2", "n1|one ", false},
        {"0 12 Displ 3 one", "", false},
        {"0 3 xyz", "", false},
        {"0 18 Id 2 n1Displ 3 on", "n1|on ", true},
        {"0 18 Id 2 n1Disp", "", false},
        {"0 99999999999999999999 Id 2 n1Displ 3 one", "", true},
    };
    for (const auto& [reply, expected, ok] : cases) {
        NodeInfoList children;
        children.reset("old");
        children.add("", "earlier");
        std::string error;
        EXPECT_EQ(VantrelNodeCodec::parseChildrenEx(reply, children, error), ok) << reply;
        EXPECT_EQ(error, ok ? "" : "Invalid children list") << reply;
        EXPECT_EQ(shown(children), expected) << reply;
    }
}

TEST(NodeCodec, ChildrenBetweenCommasArePairs) {
    for (const auto& [reply, expected] : {std::pair("", ""), std::pair("n1,one,n2,two 2", "n1|one n2|two 2 "),
                                          std::pair("n1,,n2", "n1| "), std::pair(",,,", "| | ")}) {
        NodeInfoList children;
        std::string error;
        EXPECT_TRUE(VantrelNodeCodec::parseChildren(reply, children, error)) << reply;
        EXPECT_EQ(shown(children), expected) << reply;
    }
}

TEST(NodeInfoList, CopiesAndMovesOwnTheirTexts) {
    // Short enough to lie inside the string object, which moves with the list.
    NodeInfoList first;
    first.reset("n1");
    first.add(first.reply(), "converted");
    NodeInfoList copy(first);
    NodeInfoList moved(std::move(first));
    moved.add(moved.reply(), std::string_view(moved.reply()).substr(1));
    copy.add(std::string_view(copy.reply()).substr(0, 1), "other");
    EXPECT_EQ(shown(moved), "n1|converted n1|1 ");
    EXPECT_EQ(shown(copy), "n1|converted n|other ");
    copy.clear();
    EXPECT_TRUE(copy.isEmpty());
    EXPECT_EQ(copy[0].id(), "");  // a bad index is a logged programming error, not a read past the end
}

TEST(NodeCodec, NumberPairs) {
    const std::tuple<const char*, int, int> cases[] = {
        {"1 7", 1, 7},  {"  -3\t4 rest", -3, 4},    {"5", 5, 0},
        {"", -99, -99}, {"2147483648 1", -99, -99}, {"1 99999999999999999999", -99, -99}};
    for (const auto& [reply, expectedFirst, expectedSecond] : cases) {
        int first = -99;
        int second = -99;
        EXPECT_EQ(VantrelNodeCodec::parseNumberPair(reply, first, second), expectedFirst != -99) << reply;
        EXPECT_EQ(std::pair(first, second), std::pair(expectedFirst, expectedSecond)) << reply;
    }
    EXPECT_EQ(VantrelNodeCodec::parseNumber("12 frames"), 12);
    EXPECT_EQ(VantrelNodeCodec::parseNumber("many"), 0);
    EXPECT_EQ(VantrelNodeCodec::parseNumber("-99999999999999999999"), -2147483647 - 1);
}

TEST(NodeCodec, PlainWordsAreQuotedForBlanksOnly) {
    const std::pair<const char*, const char*> cases[] = {
        {"n1", "n1"}, {"", ""}, {"n 1", "\"n 1\""}, {"a\"b\\c", "a\"b\\c"}, {"a \"b\\c", "\"a \\\"b\\\\c\""},
    };
    for (const auto& [text, word] : cases) EXPECT_EQ(VantrelNodeCodec::plainWord(text), word);
}

}  // namespace
