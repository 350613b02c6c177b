#include "VantrelFrameInterface.h"

#include <gtest/gtest.h>

namespace {

TEST(VantrelFrameInterface, ASizeIsDigitsAndNothingElse) {
    EXPECT_EQ(VantrelFrameInterface::parseSize("0"), 0u);
    EXPECT_EQ(VantrelFrameInterface::parseSize("0042"), 42u);
    EXPECT_EQ(VantrelFrameInterface::parseSize("9223372036854775807"), 9223372036854775807u);
    for (const char* text : {"", "-1", "-0", "+1", " 1", "1 ", "0x1", "1.0", "9223372036854775808", "x"})
        EXPECT_FALSE(VantrelFrameInterface::parseSize(text)) << text;
}

}  // namespace
