#include <vantrel/VantrelFormats.h>

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <utility>

#include "ShownFormat.h"

namespace {

constexpr auto PROGRESSIVE = VantrelClipFormat::PROGRESSIVE;

TEST(VantrelFormats, EachConstructorFillsTheFields) {
    const std::pair<VantrelClipFormat, const char*> cases[] = {
        {VantrelClipFormat(), "1x1 24/3 1 ratio 1 rate 30 [] scan 0 [] [] []"},
        {VantrelClipFormat(1920, 1080, 64, 4, 24.0F, 2.0F, PROGRESSIVE, "rgba", "xml", "<a/>"),
         "1920x1080 64/4 0 ratio 2 rate 24 [rgba] scan 4 [xml] [<a/>] []"},
        {VantrelClipFormat(1920, 1080, 64, 4, "Rec.709", 24.0F, 2.0F, PROGRESSIVE, "rgba", "xml", "<a/>"),
         "1920x1080 64/4 0 ratio 2 rate 24 [rgba] scan 4 [xml] [<a/>] [Rec.709]"},
        {VantrelClipFormat(1920, 1080, 64, 4, 5000000000UL, 24.0F, 2.0F, PROGRESSIVE, "rgba", "xml", "<a/>"),
         "1920x1080 64/4 5000000000 ratio 2 rate 24 [rgba] scan 4 [xml] [<a/>] []"},
        {VantrelClipFormat(1, 1, 1, 1, nullptr, 1, 1, PROGRESSIVE, nullptr, nullptr, nullptr),
         "1x1 1/1 0 ratio 1 rate 1 [] scan 4 [none] [] []"},
        {VantrelAudioFormat(1920, 24, 2, 48000.0F, "wav", "xml", "<a/>"),
         "1920x1 24/2 0 ratio 1 rate 48000 [wav] scan 0 [xml] [<a/>] []"},
    };
    for (const auto& [format, fields] : cases) EXPECT_EQ(Vantrel::show(format), fields);
}

TEST(VantrelClipFormat, BitsPerChannelNeedsChannels) {
    const auto perChannel = [](int bits, int channels) {
        return VantrelClipFormat(1, 1, bits, channels, 1, 1, PROGRESSIVE, "", "", "").bitsPerChannel();
    };
    EXPECT_EQ(perChannel(24, 0), 0);
    EXPECT_EQ(perChannel(32, 3), 10);
    EXPECT_EQ(perChannel(-24, 3), -8);
    perChannel(INT_MIN, -1);  // a server can send this; the quotient has no place in an int
}

TEST(VantrelClipFormat, NamesScanFormats) {
    std::string names;
    for (int number = 0; number < 6; ++number)
        names += VantrelClipFormat::scanFormatStr(static_cast<VantrelClipFormat::ScanFormat>(number)) +
                 std::string(" ");
    EXPECT_EQ(names, "field1_odd field1_even field2_odd field2_even progressive unknown ");
}

TEST(VantrelClipFormat, TagsThatDoNotFollowFromTheirNames) {
    const std::pair<const char*, const char*> cases[] = {
        {VantrelClipFormat::FORMAT_UYVY_LE(), "uyvu_le"},
        {VantrelClipFormat::FORMAT_ALIAS(), "als"},
        {VantrelClipFormat::FORMAT_PIXAR(), "picio"},
        {VantrelClipFormat::FORMAT_SOFTIMAGE(), "pic"},
        {VantrelClipFormat::FORMAT_TDI(), "iff"},
        {VantrelClipFormat::FORMAT_WAVEFRONT(), "rla"},
        {VantrelClipFormat::FORMAT_QD_AUDIO_INT24_MSB32_LE(), "qdaudio_int24_msb32_le"},
    };
    for (const auto& [tag, expected] : cases) EXPECT_STREQ(tag, expected);
}

}  // namespace
