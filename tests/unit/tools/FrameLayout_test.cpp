#include "FrameLayout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

#include "LocalFile.h"
#include "ToolError.h"

namespace {

VantrelClipFormat formatOf(const char* tag, int width, int height, int bits, int channels,
                           unsigned long size) {
    VantrelClipFormat format(width, height, bits, channels, 24.0F, 1.0F, VantrelClipFormat::PROGRESSIVE, tag,
                             nullptr, nullptr);
    format.setFrameBufferSize(size);
    return format;
}

TEST(FrameLayoutTest, FormatsThatDescribeNoPlainPixelsAreRefusedWithTheReason) {
    struct Row {
        VantrelClipFormat format;
        const char* reason;
    };
    const Row rows[] = {
        {formatOf("yuv", 4, 4, 24, 3, 48), "no mono, rgb or rgba"},
        {formatOf("", 4, 4, 24, 3, 48), "no mono, rgb or rgba"},
        {formatOf("rgb", 4, 4, 32, 4, 64), "no known layout"},
        {formatOf("rgb", 4, 4, 30, 3, 60), "no known layout"},
        {formatOf("rgb", 4, 4, 25, 3, 48), "no known layout"},
        {formatOf("rgb_float", 4, 4, 24, 3, 48), "no known layout"},
        {formatOf("rgb", 4, 4, 0, 3, 0), "no known layout"},
        {formatOf("rgb", 4, 4, 24, 3, 47), "48"},
        {formatOf("rgb", 4, 4, 24, 3, 49), "48"},
        {formatOf("rgb", 0, 4, 24, 3, 0), "impossible size"},
        {formatOf("rgb", 4, -4, 24, 3, 48), "impossible size"},
        {formatOf("rgb", INT_MAX, INT_MAX, 24, 3, 48), "impossible size"},
    };
    for (const Row& row : rows) {
        try {
            frameLayoutOf(row.format);
            ADD_FAILURE() << row.format.formatTag() << " was taken";
        } catch (const ToolError& error) {
            EXPECT_THAT(error.what(), ::testing::HasSubstr(row.reason));
            EXPECT_THAT(error.what(), ::testing::HasSubstr(row.format.formatTag()));
        }
    }
}

TEST(FrameLayoutTest, ByteOrderFollowsTheTag) {
    struct Row {
        VantrelClipFormat format;
        SampleType type;
        bool bigEndian;
    };
    const Row rows[] = {
        {formatOf("mono", 2, 1, 8, 1, 2), SampleType::UInt8, false},
        {formatOf("mono", 2, 1, 16, 1, 4), SampleType::UInt16, true},
        {formatOf("rgba_le", 2, 1, 64, 4, 16), SampleType::UInt16, false},
        {formatOf("rgb_float", 2, 1, 96, 3, 24), SampleType::Float, true},
        {formatOf("rgb_float_le", 2, 1, 48, 3, 12), SampleType::Half, false},
    };
    for (const Row& row : rows) {
        const FrameLayout layout = frameLayoutOf(row.format);
        EXPECT_EQ(layout.type, row.type) << row.format.formatTag();
        EXPECT_EQ(layout.bigEndian, row.bigEndian) << row.format.formatTag();
        EXPECT_EQ(layout.frameBytes(), row.format.frameBufferSize());
    }
    char floats[] = {1, 2, 3, 4, 5, 6, 7, 8};
    FrameLayout two{2, 1, 1, SampleType::Float, true};
    swapSamples(two, floats);
    EXPECT_THAT(floats, ::testing::ElementsAre(4, 3, 2, 1, 8, 7, 6, 5));
}

TEST(LocalFileTest, DisplayNamesBecomeOneSafeComponent) {
    struct Row {
        std::string name;
        std::string file;
    };
    const Row rows[] = {
        {"shot 10", "shot 10"},         {"", "frame"},
        {"../../etc/x", "_._.._etc_x"}, {"..", "_."},
        {".hidden", "_hidden"},         {"a\nb\x7F", "a_b_"},
        {"\xC3\xA9", "\xC3\xA9"},       {std::string(199, 'a') + "\xC3\xA9", std::string(199, 'a')},
    };
    for (const Row& row : rows) EXPECT_EQ(safeFileName(row.name, "frame"), row.file) << row.name;
}

}  // namespace
