#include "VantrelFrameInterface.h"

#include <gtest/gtest.h>

namespace {

using std::string_literals::operator""s;

TEST(VantrelFrameInterface, MethodsHaveTheirNumbersAndTexts) {
    const char* const texts[] = {"ReadFrame",
                                 "WriteFrame",
                                 "ReadAhead",
                                 "NoOp",
                                 "PullFile",
                                 "PushFile",
                                 "ReadStream",
                                 "ReadFrameNoAck",
                                 "ReadFrameParams",
                                 "ReadAheadParams",
                                 "ReadFrameParamsNoAck",
                                 "ReadAheadRedirect",
                                 "InvalidateCache"};
    int number = 0;
    for (const char* text : texts) {
        const auto method = VantrelFrameInterface::strToMethod(text);
        ASSERT_TRUE(method) << text;
        EXPECT_EQ(*method, number++);
        EXPECT_STREQ(VantrelFrameInterface::methodToStr(*method), text);
    }
    for (const char* text : {"", "readframe", "ReadFrame ", "ReadFrameX"})
        EXPECT_FALSE(VantrelFrameInterface::strToMethod(text)) << text;
    EXPECT_STREQ(VantrelFrameInterface::methodToStr(static_cast<VantrelFrameInterface::Method>(13)), "");
    EXPECT_STREQ(VantrelFrameInterface::methodToStr(static_cast<VantrelFrameInterface::Method>(-1)), "");
}

TEST(VantrelFrameInterface, EveryTextOfARequestEndsWithANul) {
    EXPECT_EQ(VantrelFrameInterface::header(VantrelFrameInterface::READ_FRAME, "F", 4096),
              "ReadFrame\0F\0004096\0"s);
    EXPECT_EQ(VantrelFrameInterface::bareMethod(VantrelFrameInterface::NO_OP), "NoOp\0"s);
    EXPECT_EQ(VantrelFrameInterface::sizeText(18446744073709551615u), "18446744073709551615\0"s);
}

TEST(VantrelFrameInterface, ASizeIsDigitsAndNothingElse) {
    EXPECT_EQ(VantrelFrameInterface::parseSize("0"), 0u);
    EXPECT_EQ(VantrelFrameInterface::parseSize("0042"), 42u);
    EXPECT_EQ(VantrelFrameInterface::parseSize("9223372036854775807"), 9223372036854775807u);
    for (const char* text : {"", "-1", "-0", "+1", " 1", "1 ", "0x1", "1.0", "9223372036854775808", "x"})
        EXPECT_FALSE(VantrelFrameInterface::parseSize(text)) << text;
}

}  // namespace
