#include "rcParam.h"

#include <gmock/gmock.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "CapturedLog.h"
#include "rcParamNumbers.h"

namespace Vantrel {
namespace {

using testing::ElementsAreArray;

TEST(rcParam, EveryKindReadsAndWritesItsText) {
    const std::tuple<const rcParam::Type*, const char*, const char*, const char*> cases[] = {
        {&rcParamInt::TYPE, "int", " -42 apples", "-42"},
        {&rcParamInt::TYPE, "int", "0x10", "0"},
        {&rcParamLong::TYPE, "long", "-9223372036854775808", "-9223372036854775808"},
        {&rcParamFloat::TYPE, "float", "23.976", "23.976000"},
        {&rcParamFloat::TYPE, "float", "-1e3 frames", "-1000.000000"},
        {&rcParamBool::TYPE, "bool", "YES", "true"},
        {&rcParamBool::TYPE, "bool", "true ", "false"},
        {&rcParamString::TYPE, "const char *", "a \"b\"\\\n", "a \"b\"\\\n"},
        {&rcParamVoid::TYPE, "void", "anything", ""},
    };
    for (const auto& [type, name, read, written] : cases) {
        EXPECT_STREQ(type->name(), name);
        const auto parameter = type->alloc();
        parameter->setStringValue(read);
        EXPECT_EQ(parameter->stringValue(), written) << name;
    }
    const CapturedLog log;
    rcParamString text;
    text.setStringValue("7");
    text.setLongValue(8);
    EXPECT_EQ(text.intValue(), 0);
    EXPECT_EQ(text.stringValue(), "7") << "it holds nothing of another kind";
    EXPECT_TRUE(log.contains("Assertion"));
}

TEST(rcParamArray, SplitsTheArgumentAmongSeveralParameters) {
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"a  c", {"a", "", "c"}},
        {" b c", {"", "b", "c"}},
        {"", {"", "", ""}},
        {"a b c surplus pieces", {"a", "b", "c"}},
        {"\"a b\" \"c d\" e", {"\"a b\"", "\"c d\"", "e"}},
        {R"("a \" b" c d)", {R"("a \" b")", "c", "d"}},
        {R"("a \\" b c)", {R"("a \\")", "b", "c"}},  // the backslashes pair: the quote ends the piece
        {R"("a \\\" b" c d)", {R"("a \\\" b")", "c", "d"}},
        {R"(\" b c)", {R"(\")", "b", "c"}},  // a literal quote outside quotes starts nothing
        {"\"never closed b c", {"\"never closed b c", "", ""}},
    };
    const rcParam::InfoList three(3, rcParam::Info{&rcParamString::TYPE});
    for (const auto& [argument, expected] : cases) {
        SCOPED_TRACE("'" + argument + "'");
        const rcParam::Array parameters(three, argument);
        std::vector<std::string> pieces;
        for (std::size_t i = 0; i < parameters.size(); ++i) pieces.push_back(parameters[i].stringValue());
        EXPECT_THAT(pieces, ElementsAreArray(expected));
    }
}

TEST(rcParamArray, OneParameterTakesTheWholeArgumentAndNoneTakesNothing) {
    const rcParam::Array one({{&rcParamString::TYPE}}, "\"a b\"  c");
    ASSERT_EQ(one.size(), 1U);
    EXPECT_EQ(one[0].takeStringValue(), "\"a b\"  c");

    const CapturedLog log;
    const rcParam::Array none({}, "a b");
    EXPECT_EQ(none.size(), 0U);
    EXPECT_EQ(none[0].stringValue(), "");
    EXPECT_TRUE(log.contains("Assertion"));
}

TEST(rcParamEscapedString, EncodesAndDecodes) {
    const std::pair<std::string, std::string> cases[] = {
        {"a b", R"("a b")"}, {R"(say "hi")", R"("say \"hi\"")"}, {R"(a\b)", R"("a\\b")"}};
    for (const auto& [plain, escaped] : cases) {
        EXPECT_EQ(rcParamStringToEscapedString(plain.c_str()), escaped);
        EXPECT_EQ(rcParamEscapedStringToString(escaped), plain);
    }
    EXPECT_EQ(rcParamStringToEscapedString(static_cast<const char*>(nullptr)), "");
    const std::pair<const char*, const char*> unusual[] = {
        {"", ""},         {"plain", "plain"}, {"\"", ""},       {"\"open", "open"}, {"closed\"", "closed"},
        {"a\"b", "a\"b"}, {"a\\", "a\\"},     {"a\\bc", "abc"}, {"\\\"a", "\"a"},   {"a\\\"", "a\""},
        {"\"\"\"", "\""}};
    for (const auto& [text, plain] : unusual) EXPECT_EQ(rcParamEscapedStringToString(text), plain) << text;
}

}  // namespace
}  // namespace Vantrel
