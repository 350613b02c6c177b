#include "rcParam.h"

#include <gmock/gmock.h>

#include <clocale>
#include <string>
#include <vector>

#include "CapturedLog.h"

namespace Vantrel {
namespace {

using testing::ElementsAreArray;

struct TextCase {
    const rcParam::Type& type;
    const char* name;
    const char* read;
    const char* written;
};

TEST(rcParam, everyKindReadsAndWritesItsText) {
    const TextCase cases[] = {
        {rcParamInt::TYPE, "int", "-42", "-42"},
        {rcParamInt::TYPE, "int", " 7 apples", "7"},
        {rcParamInt::TYPE, "int", "0x10", "0"},
        {rcParamInt::TYPE, "int", "apples", "0"},
        {rcParamLong::TYPE, "long", "-9223372036854775808", "-9223372036854775808"},
        {rcParamChar::TYPE, "signed char", "-128", "-128"},
        {rcParamUChar::TYPE, "unsigned char", "200", "200"},
        {rcParamUInt::TYPE, "unsigned int", "4294967295", "4294967295"},
        {rcParamULong::TYPE, "unsigned long", "18446744073709551615", "18446744073709551615"},
        {rcParamLongLong::TYPE, "long long", "9223372036854775807", "9223372036854775807"},
        {rcParamULongLong::TYPE, "unsigned long long", "9223372036854775808", "9223372036854775808"},
        {rcParamFloat::TYPE, "float", "23.976", "23.976000"},
        {rcParamFloat::TYPE, "float", "-1e3 frames", "-1000.000000"},
        {rcParamFloat::TYPE, "float", "340282346638528859811704183484516925440",
         "340282346638528859811704183484516925440.000000"},
        {rcParamBool::TYPE, "bool", "true", "true"},
        {rcParamBool::TYPE, "bool", "YES", "true"},
        {rcParamBool::TYPE, "bool", "On", "true"},
        {rcParamBool::TYPE, "bool", "y", "true"},
        {rcParamBool::TYPE, "bool", "1", "true"},
        {rcParamBool::TYPE, "bool", "2", "false"},
        {rcParamBool::TYPE, "bool", "true ", "false"},
        {rcParamBool::TYPE, "bool", "", "false"},
        {rcParamString::TYPE, "const char *", "a \"b\"\\\n", "a \"b\"\\\n"},
        {rcParamVoid::TYPE, "void", "anything", ""},
    };
    for (const TextCase& test : cases) {
        SCOPED_TRACE(std::string(test.name) + " from '" + test.read + "'");
        EXPECT_STREQ(test.type.name(), test.name);
        const auto parameter = test.type.alloc();
        EXPECT_EQ(&parameter->type(), &test.type);
        parameter->setStringValue(test.read);
        EXPECT_EQ(parameter->stringValue(), test.written);
        EXPECT_EQ(parameter->takeStringValue(), test.written);
    }
}

TEST(rcParam, floatTextKeepsItsPointInALocaleWithAComma) {
    const char* found = nullptr;
    for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "de_DE", "C.UTF-8"}) {
        if (!found) found = std::setlocale(LC_NUMERIC, name);
    }
    rcParamFloat parameter;
    parameter.setStringValue("2.5");
    EXPECT_EQ(parameter.floatValue(), 2.5F) << found;
    EXPECT_EQ(parameter.stringValue(), "2.500000");
    std::setlocale(LC_NUMERIC, "C");
}

TEST(rcParam, aValueOfAnotherTypeIsAnAssertionAndHarmless) {
    const CapturedLog log;
    rcParamString text;
    text.setStringValue("kept");
    text.setIntValue(5);
    EXPECT_EQ(text.intValue(), 0);
    EXPECT_FALSE(text.boolValue());
    EXPECT_EQ(text.stringValue(), "kept");
    EXPECT_EQ(log.texts(CoMsg::ERROR).size(), 3U);
    EXPECT_TRUE(log.contains("Assertion"));
}

TEST(rcParamArray, splitsTheArgumentAmongSeveralParameters) {
    struct Case {
        std::string argument;
        std::vector<std::string> pieces;
    };
    const Case cases[] = {
        {"a b c", {"a", "b", "c"}},
        {"a  c", {"a", "", "c"}},
        {" b c", {"", "b", "c"}},
        {"a", {"a", "", ""}},
        {"", {"", "", ""}},
        {"a b c surplus pieces", {"a", "b", "c"}},
        {"\"a b\" \"c d\" e", {"\"a b\"", "\"c d\"", "e"}},
        {"x\"a b\"y c d", {"x\"a b\"y", "c", "d"}},
        {R"("a \" b" c d)", {R"("a \" b")", "c", "d"}},
        {R"("a \\" b c)", {R"("a \\")", "b", "c"}},  // the backslashes pair: the quote ends the piece
        {R"("a \\\" b" c d)", {R"("a \\\" b")", "c", "d"}},
        {R"(\" b c)", {R"(\")", "b", "c"}},  // a literal quote outside quotes starts nothing
        {R"(a\ b c)", {R"(a\)", "b", "c"}},  // a backslash keeps no blank from separating
        {"\"never closed b c", {"\"never closed b c", "", ""}},
        {"a b \\", {"a", "b", "\\"}},
    };
    const rcParam::InfoList three(3, rcParam::Info{&rcParamString::TYPE});
    for (const Case& test : cases) {
        SCOPED_TRACE("'" + test.argument + "'");
        const rcParam::Array parameters(three, test.argument);
        std::vector<std::string> pieces;
        for (std::size_t i = 0; i < parameters.size(); ++i) pieces.push_back(parameters[i].stringValue());
        EXPECT_THAT(pieces, ElementsAreArray(test.pieces));
    }
}

TEST(rcParamArray, oneParameterTakesTheWholeArgumentAndNoneTakesNothing) {
    const rcParam::Array one({{&rcParamString::TYPE}}, "\"a b\"  c");
    ASSERT_EQ(one.size(), 1U);
    EXPECT_EQ(one[0].stringValue(), "\"a b\"  c");

    const CapturedLog log;
    const rcParam::Array none({}, "a b");
    EXPECT_EQ(none.size(), 0U);
    EXPECT_EQ(none[0].stringValue(), "");
    EXPECT_TRUE(log.contains("Assertion"));
}

TEST(rcParamEscapedString, encodesAndDecodes) {
    struct Case {
        std::string plain;
        std::string escaped;
    };
    const Case cases[] = {
        {"", R"("")"},
        {"a b", R"("a b")"},
        {R"(say "hi")", R"("say \"hi\"")"},
        {R"(a\b)", R"("a\\b")"},
        {R"(ends in \)", R"("ends in \\")"},
        {"\"", R"("\"")"},
        {"line\nend", "\"line\nend\""},
    };
    for (const Case& test : cases) {
        EXPECT_EQ(rcParamStringToEscapedString(test.plain), test.escaped);
        EXPECT_EQ(rcParamStringToEscapedString(test.plain.c_str()), test.escaped);
        EXPECT_EQ(rcParamEscapedStringToString(test.escaped), test.plain);
    }
    EXPECT_EQ(rcParamStringToEscapedString(static_cast<const char*>(nullptr)), "");
}

TEST(rcParamEscapedString, decodesWhatNoEncoderWrites) {
    struct Case {
        const char* text;
        const char* plain;
    };
    const Case cases[] = {
        {"", ""},         {"plain", "plain"}, {"\"", ""},       {"\"open", "open"}, {"closed\"", "closed"},
        {"a\"b", "a\"b"}, {"a\\", "a\\"},     {"a\\bc", "abc"}, {"\\\"a", "\"a"},   {"a\\\"", "a\""},
        {"\"\"\"", "\""},
    };
    for (const Case& test : cases)
        EXPECT_EQ(rcParamEscapedStringToString(test.text), test.plain) << test.text;
}

}  // namespace
}  // namespace Vantrel
