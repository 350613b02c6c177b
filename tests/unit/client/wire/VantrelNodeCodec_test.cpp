#include "VantrelNodeCodec.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

using NodeInfoList = VantrelNodeInterface::NodeInfoList;

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

/// Id and display name of each child.
Pairs pairsOf(const NodeInfoList& children) {
    Pairs pairs;
    for (std::size_t i = 0; i < children.size(); ++i) {
        pairs.emplace_back(std::string(children[i].id()), std::string(children[i].displayName()));
    }
    return pairs;
}

TEST(NodeCodec, ChildrenAreReadAsFarAsTheReplyIsGood) {
    const std::tuple<const char*, std::string, Pairs, bool> cases[] = {
        {"no children", "", {}, true},
        {"two", "0 18 Id 2 n1Displ 3 one1 18 Id 2 n2Displ 3 two", {{"n1", "one"}, {"n2", "two"}}, true},
        {"unknown keys between", "0 34 New 1 xId 2 n1More 2 yzDispl 3 one", {{"n1", "one"}}, true},
        {"names of any text",
         "a 29 Id 2 n1Displ 13 a,b \"c\"\n\\\xff 1 ",
         {{"n1", "a,b \"c\"\n\\\xff 1 "}},
         true},
        {"removed entry", "  3 abc1 18 Id 2 n2Displ 3 two", {{"n2", "two"}}, true},
        {"no name", "0 18 Id 2 n1Displ 3 one1 7 Id 2 n2", {{"n1", "one"}}, false},
        {"no id", "0 12 Displ 3 one", {}, false},
        {"child of rubbish", "0 3 xyz", {}, false},
        {"cut in a name", "0 18 Id 2 n1Displ 3 on", {{"n1", "on"}}, true},
        {"cut in a key", "0 18 Id 2 n1Disp", {}, false},
        {"length beyond numbers", "0 99999999999999999999 Id 2 n1Displ 3 one", {}, true},
    };
    for (const auto& [what, reply, expected, ok] : cases) {
        SCOPED_TRACE(what);
        NodeInfoList children;
        children.reset("old");
        children.add("", "earlier");
        std::string error;
        EXPECT_EQ(VantrelNodeCodec::parseChildrenEx(reply, children, error), ok);
        EXPECT_EQ(error, ok ? "" : "Invalid children list");
        EXPECT_EQ(pairsOf(children), expected);
    }
}

TEST(NodeCodec, ChildrenBetweenCommasArePairs) {
    const std::pair<const char*, Pairs> cases[] = {
        {"", {}},
        {"n1,one,n2,two 2", {{"n1", "one"}, {"n2", "two 2"}}},
        {"n1,one,n2", {{"n1", "one"}}},
        {"n1,,n2,two", {{"n1", ""}, {"n2", "two"}}},
        {",,,", {{"", ""}, {"", ""}}},
    };
    for (const auto& [reply, expected] : cases) {
        NodeInfoList children;
        std::string error;
        EXPECT_TRUE(VantrelNodeCodec::parseChildren(reply, children, error)) << reply;
        EXPECT_EQ(pairsOf(children), expected) << reply;
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
    EXPECT_EQ(pairsOf(moved), (Pairs{{"n1", "converted"}, {"n1", "1"}}));
    EXPECT_EQ(pairsOf(copy), (Pairs{{"n1", "converted"}, {"n", "other"}}));
    copy.clear();
    EXPECT_TRUE(copy.isEmpty());
    EXPECT_EQ(copy[0].id(), "");  // a bad index is a logged programming error, not a read past the end
}

TEST(NodeCodec, CommaListsDropEmptyTokens) {
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"", {}}, {",XML,,BLOB,", {"XML", "BLOB"}}, {"/a b/c.1,/a b/c.2", {"/a b/c.1", "/a b/c.2"}}};
    for (const auto& [reply, expected] : cases) {
        std::vector<std::string> texts{"old"};
        VantrelNodeCodec::parseCommaList(reply, texts);
        EXPECT_EQ(texts, expected) << reply;
    }
    EXPECT_EQ(VantrelNodeCodec::joinWithCommas({}), "");
    EXPECT_EQ(VantrelNodeCodec::joinWithCommas({"a", "", "b"}), "a,,b");
}

// Malformed lists in every way are the list reader's.
TEST(NodeCodec, ListsWithLengths) {
    const std::tuple<const char*, std::vector<std::string>, bool> cases[] = {
        {"", {}, true},
        {"2 3 a,b1 c", {"a,b", "c"}, true},
        {"1 -1 abc", {}, false},
        {"2 1 abcd", {"a"}, false}};
    for (const auto& [reply, expected, ok] : cases) {
        std::vector<std::string> texts{"old"};
        EXPECT_EQ(VantrelNodeCodec::parseList(reply, texts), ok) << reply;
        EXPECT_EQ(texts, expected) << reply;
    }
}

TEST(NodeCodec, NumberPairs) {
    const struct {
        const char* reply;
        bool ok;
        int first;
        int second;
    } cases[] = {{"1 7", true, 1, 7}, {"  -3\t4 rest", true, -3, 4}, {"5", true, 5, 0},
                 {"", false, 0, 0},   {"2147483648 1", false, 0, 0}, {"1 99999999999999999999", false, 0, 0}};
    for (const auto& c : cases) {
        int first = -99;
        int second = -99;
        EXPECT_EQ(VantrelNodeCodec::parseNumberPair(c.reply, first, second), c.ok) << c.reply;
        EXPECT_EQ(first, c.ok ? c.first : -99) << c.reply;
        EXPECT_EQ(second, c.ok ? c.second : -99) << c.reply;
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
