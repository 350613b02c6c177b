#include "VantrelNodeCodec.h"

#include <gmock/gmock.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
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

struct ChildrenCase {
    const char* what;
    std::string reply;
    Pairs children;
    bool ok;
};

void PrintTo(const ChildrenCase& c, std::ostream* out) {
    *out << c.what;
}

class ChildrenEx : public testing::TestWithParam<ChildrenCase> {};

TEST_P(ChildrenEx, ReadsWhatIsThere) {
    NodeInfoList children;
    children.reset("old");
    children.add("", "earlier");
    std::string error;
    EXPECT_EQ(VantrelNodeCodec::parseChildrenEx(GetParam().reply, children, error), GetParam().ok);
    EXPECT_EQ(error, GetParam().ok ? "" : "Invalid children list");
    EXPECT_EQ(pairsOf(children), GetParam().children);
}

INSTANTIATE_TEST_SUITE_P(
    Replies, ChildrenEx,
    testing::Values(
        ChildrenCase{"no children", "", {}, true},
        ChildrenCase{
            "two", "0 18 Id 2 n1Displ 3 one1 18 Id 2 n2Displ 3 two", {{"n1", "one"}, {"n2", "two"}}, true},
        ChildrenCase{
            "unknown keys between", "0 34 New 1 xId 2 n1More 2 yzDispl 3 one", {{"n1", "one"}}, true},
        ChildrenCase{"names of any text",
                     "a 29 Id 2 n1Displ 13 a,b \"c\"\n\\\xff 1 ",
                     {{"n1", "a,b \"c\"\n\\\xff 1 "}},
                     true},
        ChildrenCase{"removed entry", "  3 abc1 18 Id 2 n2Displ 3 two", {{"n2", "two"}}, true},
        ChildrenCase{"no name", "0 18 Id 2 n1Displ 3 one1 7 Id 2 n2", {{"n1", "one"}}, false},
        ChildrenCase{"no id", "0 12 Displ 3 one", {}, false},
        ChildrenCase{"child of rubbish", "0 3 xyz", {}, false},
        ChildrenCase{"cut in a name", "0 18 Id 2 n1Displ 3 on", {{"n1", "on"}}, true},
        ChildrenCase{"cut in a key", "0 18 Id 2 n1Disp", {}, false},
        ChildrenCase{"length beyond numbers", "0 99999999999999999999 Id 2 n1Displ 3 one", {}, true}));

class ChildrenPlain : public testing::TestWithParam<ChildrenCase> {};

TEST_P(ChildrenPlain, PairsTokens) {
    NodeInfoList children;
    std::string error;
    EXPECT_EQ(VantrelNodeCodec::parseChildren(GetParam().reply, children, error), GetParam().ok);
    EXPECT_EQ(pairsOf(children), GetParam().children);
}

INSTANTIATE_TEST_SUITE_P(
    Replies, ChildrenPlain,
    testing::Values(ChildrenCase{"no children", "", {}, true},
                    ChildrenCase{"two", "n1,one,n2,two 2", {{"n1", "one"}, {"n2", "two 2"}}, true},
                    ChildrenCase{"id left over", "n1,one,n2", {{"n1", "one"}}, true},
                    ChildrenCase{
                        "empty names keep their place", "n1,,n2,two", {{"n1", ""}, {"n2", "two"}}, true},
                    ChildrenCase{"commas only", ",,,", {{"", ""}, {"", ""}}, true}));

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
        {"", {}},
        {"XML", {"XML"}},
        {",XML,,BLOB,", {"XML", "BLOB"}},
        {"/a b/c.1,/a b/c.2", {"/a b/c.1", "/a b/c.2"}}};
    for (const auto& [reply, expected] : cases) {
        std::vector<std::string> texts{"old"};
        VantrelNodeCodec::parseCommaList(reply, texts);
        EXPECT_EQ(texts, expected) << reply;
        std::vector<VantrelFrameId> frames{VantrelFrameId("old")};
        VantrelNodeCodec::parseCommaList(reply, frames);
        ASSERT_EQ(frames.size(), texts.size()) << reply;
        for (std::size_t i = 0; i < frames.size(); ++i) EXPECT_EQ(frames[i].id(), texts[i]);
    }
    EXPECT_EQ(VantrelNodeCodec::joinWithCommas({}), "");
    EXPECT_EQ(VantrelNodeCodec::joinWithCommas({"a", "", "b"}), "a,,b");
}

TEST(NodeCodec, ListsWithLengths) {
    const std::tuple<const char*, std::vector<std::string>, bool> cases[] = {
        {"", {}, true},
        {"0 ", {}, true},
        {"2 3 a,b1 c", {"a,b", "c"}, true},
        {"2 0 3  b ", {"", " b "}, true},
        {"1 1 abc", {"a"}, true},
        {"1 3 ab", {}, false},
        {"2 1 a", {"a"}, false},
        {"1 -1 abc", {}, false},
        {"1000000000 1 a", {}, false},
        {"1 99999999999999999999 a", {}, false}};
    for (const auto& [reply, expected, ok] : cases) {
        std::vector<std::string> texts{"old"};
        EXPECT_EQ(VantrelNodeCodec::parseList(reply, texts), ok) << reply;
        EXPECT_TRUE(!ok || texts == expected) << reply;
        std::vector<VantrelFrameId> frames;
        EXPECT_EQ(VantrelNodeCodec::parseList(reply, frames), ok) << reply;
        ASSERT_EQ(frames.size(), texts.size()) << reply;
        for (std::size_t i = 0; i < frames.size(); ++i) EXPECT_EQ(frames[i].id(), texts[i]);
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
