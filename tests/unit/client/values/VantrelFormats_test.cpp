#include <vantrel/VantrelFormats.h>

#include <gtest/gtest.h>

#include <climits>
#include <utility>

namespace {

constexpr auto PROGRESSIVE = VantrelClipFormat::PROGRESSIVE;

TEST(VantrelFormats, DefaultsAreThoseThatApplicationsKnow) {
    const VantrelClipFormat format;
    EXPECT_EQ(format.width() * format.height(), 1);
    EXPECT_EQ(format.frameBufferSize(), 1U);
    EXPECT_EQ(format.pixelRatio(), 1.0F);
    EXPECT_EQ(format.frameRate(), 30.0F);
    EXPECT_EQ(format.bitsPerPixel(), 24);
    EXPECT_EQ(format.numChannels(), 3);
    EXPECT_EQ(format.scanFormat(), VantrelClipFormat::FIELD1_ODD);
    VantrelAudioFormat audio(1920, 24, 2, 48000.0F, "wav", nullptr, nullptr);
    audio.setSampleRate(44100.0F);
    const VantrelClipFormat& asClip = audio;
    EXPECT_EQ(asClip.width(), 1920);
    EXPECT_EQ(asClip.height(), 1);
    EXPECT_EQ(asClip.bitsPerPixel(), 24);
    EXPECT_EQ(asClip.frameRate(), 44100.0F);
}

TEST(VantrelClipFormat, ConstructorsFillTheFields) {
    struct Case {
        const char* name;
        VantrelClipFormat format;
        unsigned long size;
        const char* colourSpace;
        const char* metaDataTag;
    };
    const Case cases[] = {
        {"plain", VantrelClipFormat(1920, 1080, 64, 4, 24.0F, 2.0F, PROGRESSIVE, "rgba", "xml", "<a/>"), 0,
         "", "xml"},
        {"no metadata tag",
         VantrelClipFormat(1920, 1080, 64, 4, 24.0F, 2.0F, PROGRESSIVE, "rgba", nullptr, "<a/>"), 0, "",
         "none"},
        {"colour space",
         VantrelClipFormat(1920, 1080, 64, 4, "Rec.709", 24.0F, 2.0F, PROGRESSIVE, "rgba", "xml", "<a/>"), 0,
         "Rec.709", "xml"},
        {"frame buffer size",
         VantrelClipFormat(1920, 1080, 64, 4, 5000000000UL, 24.0F, 2.0F, PROGRESSIVE, "rgba", "xml", "<a/>"),
         5000000000UL, "", "xml"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        VantrelClipFormat copy;
        copy = VantrelClipFormat(c.format);
        EXPECT_EQ(copy.width(), 1920);
        EXPECT_EQ(copy.height(), 1080);
        EXPECT_EQ(copy.bitsPerPixel(), 64);
        EXPECT_EQ(copy.numChannels(), 4);
        EXPECT_EQ(copy.frameBufferSize(), c.size);
        EXPECT_EQ(copy.frameRate(), 24.0F);
        EXPECT_EQ(copy.pixelRatio(), 2.0F);
        EXPECT_EQ(copy.scanFormat(), PROGRESSIVE);
        EXPECT_STREQ(copy.formatTag(), "rgba");
        EXPECT_STREQ(copy.metaDataTag(), c.metaDataTag);
        EXPECT_STREQ(copy.metaData(), "<a/>");
        EXPECT_STREQ(copy.colourSpace(), c.colourSpace);
    }
    const VantrelClipFormat nulls(1, 1, 1, 1, nullptr, 1, 1, PROGRESSIVE, nullptr, nullptr, nullptr);
    EXPECT_STREQ(nulls.formatTag(), "");
    EXPECT_STREQ(nulls.metaData(), "");
    EXPECT_STREQ(nulls.colourSpace(), "");
}

TEST(VantrelClipFormat, BitsPerChannelNeedsChannels) {
    VantrelClipFormat format;
    struct Case {
        int bits, channels, expected;
    };
    for (const Case& c : {Case{24, 0, 0}, Case{32, 3, 10}, Case{-24, 3, -8}}) {
        format.setBitsPerPixel(c.bits);
        format.setNumChannels(c.channels);
        EXPECT_EQ(format.bitsPerChannel(), c.expected);
    }
    format.setBitsPerPixel(INT_MIN);
    format.setNumChannels(-1);
    format.bitsPerChannel();  // a server can send this; the quotient has no place in an int
}

TEST(VantrelClipFormat, NamesScanFormats) {
    const char* const names[] = {"field1_odd",  "field1_even", "field2_odd",
                                 "field2_even", "progressive", "unknown"};
    for (int i = 0; i < 6; ++i) {
        EXPECT_STREQ(VantrelClipFormat::scanFormatStr(static_cast<VantrelClipFormat::ScanFormat>(i)),
                     names[i]);
    }
    EXPECT_STREQ(VantrelClipFormat::scanFormatStr(static_cast<VantrelClipFormat::ScanFormat>(-1)), "unknown");
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
