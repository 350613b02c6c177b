#include "ImageFiles.h"

#include <gtest/gtest.h>

#include <tuple>

#include "TemporaryDirectory.h"

namespace {

constexpr int WIDTH = 7;
constexpr int HEIGHT = 5;

/// Bytes that differ from one to the next. Floating-point samples made of them, low byte first, are ordinary
/// numbers, negative ones among them.
std::string pixelsOf(const FrameLayout& layout) {
    std::string pixels(layout.frameBytes(), '\0');
    for (std::size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<char>((i * 37 + 11) % 59 + (i % 3 == 0 ? 128 : 0));
    return pixels;
}

TEST(ImageFilesTest, SamplesOfEveryTypeComeBackUnchangedAndGiveTheirTag) {
    using Type = ImageFileType;
    const struct {
        Type file;
        const char* tag;
        int channels;
        SampleType samples;
    } rows[] = {
        {Type::Png, "mono", 1, SampleType::UInt8},          {Type::Png, "rgb", 3, SampleType::UInt8},
        {Type::Png, "rgba", 4, SampleType::UInt8},          {Type::Png, "rgb_le", 3, SampleType::UInt16},
        {Type::Png, "rgba_le", 4, SampleType::UInt16},      {Type::Tif, "rgb", 3, SampleType::UInt8},
        {Type::Tif, "rgba_le", 4, SampleType::UInt16},      {Type::Tif, "rgb_float_le", 3, SampleType::Half},
        {Type::Tif, "rgba_float_le", 4, SampleType::Float}, {Type::Dpx, "rgb", 3, SampleType::UInt8},
        {Type::Dpx, "rgba", 4, SampleType::UInt8},          {Type::Dpx, "rgb_le", 3, SampleType::UInt16},
        {Type::Exr, "mono_float_le", 1, SampleType::Half},  {Type::Exr, "rgb_float_le", 3, SampleType::Half},
        {Type::Exr, "rgba_float_le", 4, SampleType::Float},
    };
    const Vantrel::TemporaryDirectory folder;
    for (const auto& [type, tag, channels, samples] : rows) {
        const std::string path = folder.path(std::string(tag) + '.' + imageFileTypeName(type));
        SCOPED_TRACE(path);
        const FrameLayout layout{WIDTH, HEIGHT, channels, samples, false};
        const std::string pixels = pixelsOf(layout);
        writeImage(path, type, layout, "", pixels.data());
        const FrameLayout found = describeImage(path).layout;
        const VantrelClipFormat format = clipFormatOf(found, 24, 1, VantrelClipFormat::PROGRESSIVE, "");
        EXPECT_STREQ(format.formatTag(), tag);
        EXPECT_EQ(frameLayoutOf(format).type, samples);
        ASSERT_EQ(format.frameBufferSize(), pixels.size());
        std::string again(pixels.size(), '\0');
        readImage(path, found, again.data());
        EXPECT_TRUE(again == pixels);
    }
    for (const auto& [type, samples, stored] : {std::tuple(Type::Exr, SampleType::UInt8, SampleType::Half),
                                                {Type::Exr, SampleType::UInt16, SampleType::Float},
                                                {Type::Dpx, SampleType::Half, SampleType::Float}}) {
        const FrameLayout layout{WIDTH, HEIGHT, 1, samples, false};
        const std::string path = folder.path(std::string("wider.") + imageFileTypeName(type));
        writeImage(path, type, layout, "", pixelsOf(layout).data());
        EXPECT_EQ(describeImage(path).layout.type, stored);
    }
}

}  // namespace
