#include <vantrel/VantrelFormats.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <fstream>
#include <map>
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
        {VantrelClipFormat(1, 1, 1, 1, 0, 1, 1, PROGRESSIVE, "", "", ""),
         "1x1 1/1 0 ratio 1 rate 1 [] scan 4 [] [] []"},
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

#define TAG(name) \
    { "FORMAT_" #name, VantrelClipFormat::FORMAT_##name() }
// clang-format off
const std::map<std::string, std::string> TAGS = {
    TAG(MONO), TAG(RGB), TAG(HLS), TAG(YUV), TAG(RGBA), TAG(HLSA), TAG(YUVA), TAG(UYVY), TAG(MONO_LE),
    TAG(RGB_LE), TAG(HLS_LE), TAG(YUV_LE), TAG(RGBA_LE), TAG(HLSA_LE), TAG(YUVA_LE), TAG(UYVY_LE),
    TAG(RGB_FLOAT), TAG(RGB_FLOAT_LE), TAG(RGBA_FLOAT), TAG(RGBA_FLOAT_LE), TAG(MONO_FLOAT),
    TAG(MONO_FLOAT_LE), TAG(ALIAS), TAG(DPX), TAG(JPEG), TAG(PICT), TAG(PIXAR), TAG(SGI), TAG(SOFTIMAGE),
    TAG(TARGA), TAG(MAYA), TAG(TDI), TAG(TIFF), TAG(WAVEFRONT), TAG(PHOTOSHOP), TAG(CINEON), TAG(OPENEXR),
    TAG(MIXED), TAG(WAV), TAG(AIFF), TAG(AIFC), TAG(QD_AUDIO), TAG(QD_AUDIO_MIXED), TAG(QD_AUDIO_FLOAT),
    TAG(QD_AUDIO_FLOAT_LE), TAG(QD_AUDIO_INT8), TAG(QD_AUDIO_INT8_UNSIGNED), TAG(QD_AUDIO_INT16),
    TAG(QD_AUDIO_INT16_LE), TAG(QD_AUDIO_INT24), TAG(QD_AUDIO_INT24_LE), TAG(QD_AUDIO_INT24_MSB32_LE),
};
// clang-format on
#undef TAG

TEST(VantrelClipFormat, TagsAreThoseOfTheDocument) {
    auto left = TAGS;
    std::ifstream document(FRAMES_DOCUMENT);
    for (std::string line; std::getline(document, line);) {
        char function[64] = "";
        char tag[64] = "";
        if (std::sscanf(line.c_str(), "| `%63[A-Z0-9_]` | `%63[^`]` |", function, tag) != 2) continue;
        EXPECT_EQ(left[function], tag) << function;
        left.erase(function);
    }
    EXPECT_TRUE(left.empty()) << left.size() << " are not in the document";
}

}  // namespace
