#include "FrameLayout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <utility>

#include "LocalFile.h"
#include "ToolError.h"

using ::testing::AllOf;
using ::testing::HasSubstr;

namespace {

VantrelClipFormat formatOf(const char* tag, int width, int height, int bits, int channels,
                           unsigned long size) {
    VantrelClipFormat format(width, height, bits, channels, 24.0F, 1.0F, VantrelClipFormat::PROGRESSIVE, tag,
                             nullptr, nullptr);
    format.setFrameBufferSize(size);
    return format;
}

TEST(FrameLayoutTest, FormatsThatDescribeNoPlainPixelsAreRefusedWithTheReason) {
    const std::pair<VantrelClipFormat, const char*> rows[] = {
        {formatOf("yuv", 4, 4, 24, 3, 48), "no mono, rgb or rgba"},
        {formatOf("rgb", 4, 4, 32, 4, 64), "no known layout"},
        {formatOf("rgb", 4, 4, 30, 3, 60), "no known layout"},
        {formatOf("rgb", 4, 4, 25, 3, 48), "no known layout"},
        {formatOf("rgb_float", 4, 4, 24, 3, 48), "no known layout"},
        {formatOf("rgb", 4, 4, 0, 3, 0), "no known layout"},
        {formatOf("rgb", 4, 4, 24, 3, 47), "48"},
        {formatOf("rgb", 4, 4, 24, 3, 49), "48"},
        {formatOf("rgb", 0, 4, 24, 3, 0), "impossible size"},
        {formatOf("rgb", INT_MAX, INT_MAX, 24, 3, 48), "impossible size"},
    };
    for (const auto& [format, reason] : rows) {
        try {
            frameLayoutOf(format);
            ADD_FAILURE() << format.formatTag() << " was taken";
        } catch (const ToolError& error) {
            EXPECT_THAT(error.what(), AllOf(HasSubstr(reason), HasSubstr(format.formatTag())));
        }
    }
}

// The other layouts are those of images that the client imports and exports.
TEST(FrameLayoutTest, FloatsWithoutAByteOrderInTheirTagAreBigEndian) {
    const FrameLayout layout = frameLayoutOf(formatOf("mono_float", 2, 1, 32, 1, 8));
    EXPECT_EQ(layout.type, SampleType::Float);
    EXPECT_TRUE(layout.bigEndian);
    char samples[] = {1, 2, 3, 4, 5, 6, 7, 8};
    swapSamples(layout, samples);
    EXPECT_THAT(samples, ::testing::ElementsAre(4, 3, 2, 1, 8, 7, 6, 5));
}

TEST(LocalFileTest, DisplayNamesBecomeOneSafeComponent) {
    const std::pair<std::string, std::string> rows[] = {
        {"shot 10", "shot 10"},         {"", "frame"},
        {"../../etc/x", "_._.._etc_x"}, {"..", "_."},
        {".hidden", "_hidden"},         {"a\nb\x7F", "a_b_"},
        {"\xC3\xA9", "\xC3\xA9"},       {std::string(199, 'a') + "\xC3\xA9", std::string(199, 'a')},
    };
    for (const auto& [name, file] : rows) EXPECT_EQ(safeFileName(name, "frame"), file) << name;
}

}  // namespace
