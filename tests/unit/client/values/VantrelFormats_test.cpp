#include <vantrel/VantrelFormats.h>

#include <gtest/gtest.h>

#include <climits>
#include <sstream>
#include <string>
#include <utility>

namespace {

constexpr auto PROGRESSIVE = VantrelClipFormat::PROGRESSIVE;

// Every field, in a notation of the tests' own, so that a difference is easy to read.
std::string show(const VantrelClipFormat& f) {
    std::ostringstream text;
    text << f.width() << 'x' << f.height() << ' ' << f.bitsPerPixel() << '/' << f.numChannels() << ' '
         << f.frameBufferSize() << " rate " << f.frameRate() << " ratio " << f.pixelRatio() << ' '
         << VantrelClipFormat::scanFormatStr(f.scanFormat()) << " [" << f.formatTag() << "] ["
         << f.metaDataTag() << "] [" << f.metaData() << "] [" << f.colourSpace() << ']';
    return text.str();
}

TEST(VantrelFormats, EachConstructorFillsTheFields) {
    const std::pair<VantrelClipFormat, const char*> cases[] = {
        {VantrelClipFormat(), "1x1 24/3 1 rate 30 ratio 1 field1_odd [] [] [] []"},
        {VantrelClipFormat(1920, 1080, 64, 4, 24.0F, 2.0F, PROGRESSIVE, "rgba", "xml", "<a/>"),
         "1920x1080 64/4 0 rate 24 ratio 2 progressive [rgba] [xml] [<a/>] []"},
        {VantrelClipFormat(1920, 1080, 64, 4, "Rec.709", 24.0F, 2.0F, PROGRESSIVE, "rgba", "xml", "<a/>"),
         "1920x1080 64/4 0 rate 24 ratio 2 progressive [rgba] [xml] [<a/>] [Rec.709]"},
        {VantrelClipFormat(1920, 1080, 64, 4, 5000000000UL, 24.0F, 2.0F, PROGRESSIVE, "rgba", "xml", "<a/>"),
         "1920x1080 64/4 5000000000 rate 24 ratio 2 progressive [rgba] [xml] [<a/>] []"},
        {VantrelClipFormat(1, 1, 1, 1, nullptr, 1, 1, PROGRESSIVE, nullptr, nullptr, nullptr),
         "1x1 1/1 0 rate 1 ratio 1 progressive [] [none] [] []"},
        {VantrelAudioFormat(1920, 24, 2, 48000.0F, "wav", "xml", "<a/>"),
         "1920x1 24/2 0 rate 48000 ratio 1 field1_odd [wav] [xml] [<a/>] []"},
    };
    for (const auto& [format, fields] : cases) EXPECT_EQ(show(format), fields);
}

TEST(VantrelClipFormat, BitsPerChannelNeedsChannels) {
    const auto perChannel = [](int bits, int channels) {
        VantrelClipFormat format;
        format.setBitsPerPixel(bits);
        format.setNumChannels(channels);
        return format.bitsPerChannel();
    };
    EXPECT_EQ(perChannel(24, 0), 0);
    EXPECT_EQ(perChannel(32, 3), 10);
    EXPECT_EQ(perChannel(-24, 3), -8);
    perChannel(INT_MIN, -1);  // a server can send this; the quotient has no place in an int
}

TEST(VantrelClipFormat, NamesScanFormats) {
    int number = 0;
    for (const char* name :
         {"field1_odd", "field1_even", "field2_odd", "field2_even", "progressive", "unknown"})
        EXPECT_STREQ(VantrelClipFormat::scanFormatStr(static_cast<VantrelClipFormat::ScanFormat>(number++)),
                     name);
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
