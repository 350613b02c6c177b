#include "VantrelClipFormatCodec.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "CoMsg.h"
#include "rcAttrStream.h"

namespace {

using Codec = Vantrel::VantrelClipFormatCodec;

// Every field but the colour space, in a notation of the tests' own, so that a difference is easy to read.
std::string show(const VantrelClipFormat& f) {
    return Vantrel::coFormat("%dx%d %d/%d %lu ratio %.6f rate %.6f [%s] scan %d [%s] [%s]", f.width(),
                             f.height(), f.bitsPerPixel(), f.numChannels(), f.frameBufferSize(),
                             static_cast<double>(f.pixelRatio()), static_cast<double>(f.frameRate()),
                             f.formatTag(), static_cast<int>(f.scanFormat()), f.metaDataTag(), f.metaData());
}

VantrelClipFormat hdFormat(const char* formatTag, const char* metaDataTag, const char* metaData) {
    VantrelClipFormat format(1920, 1080, 24, 3, 6220800UL, 23.976F, 1.0F, VantrelClipFormat::PROGRESSIVE,
                             formatTag, metaDataTag, metaData);
    format.setColourSpace("Rec.709");
    return format;
}

constexpr const char* HD_WORDS = "1920 1080 24 3 6220800 1 23.976 ";

TEST(ClipFormatPlain, IsWrittenForEachDirectionAndReadByTheServer) {
    const std::string longTag(300, 't');
    const std::string longData(5000, 'm');
    const struct {
        const char* name;
        VantrelClipFormat format;
        std::string tail;
        std::string requestMetaData;
        std::string replyMetaData;
    } cases[] = {
        {"plain", hdFormat("rgb", "xml", " <a b=\"c\\d\"/> "), "rgb 4 xml ", R"(" <a b=\"c\\d\"/> ")",
         R"( <a b="c\d"/> )"},
        {"nothing to say", hdFormat("", "", ""), "none 4 none ", "\"\"", ""},
        {"null metadata tag", hdFormat("uyvu_le", nullptr, "m"), "uyvu_le 4 none ", "\"m\"", "m"},
        {"over-long tags", hdFormat(longTag.c_str(), longTag.c_str(), ""),
         longTag.substr(0, 255) + " 4 " + longTag.substr(0, 255) + " ", "\"\"", ""},
        {"long metadata", hdFormat("t", "g", longData.c_str()), "t 4 g ", '"' + longData + '"', longData},
    };
    std::string error;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string request = HD_WORDS + c.tail + c.requestMetaData;
        EXPECT_EQ(Codec::toRequestText(c.format), request);
        EXPECT_EQ(Codec::toReplyText(c.format), HD_WORDS + c.tail + c.replyMetaData);
        VantrelClipFormat read;
        EXPECT_TRUE(Codec::fromRequestText(request, read, error)) << error;
        EXPECT_EQ(Codec::toRequestText(read), request);
    }
    VantrelClipFormat read;
    EXPECT_TRUE(Codec::fromRequestText("1 2 3 4 5 6 7 t 1 g word", read, error)) << error;
    EXPECT_STREQ(read.metaData(), "word") << "without quotes";
}

TEST(ClipFormatPlain, ReplyIsRead) {
    const std::string tag255(255, 't');
    const std::string meta4095(4095, 'm');
    const std::string start = "1 2 3 4 5 6 7 ";
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"whole", "1920 1080 24 3 6220800 1 23.976 rgb 4 none <a b/> c ",
         "1920x1080 24/3 6220800 ratio 1.000000 rate 23.976000 [rgb] scan 4 [none] [<a b/> c ]"},
        {"any white space", "\t1\n2  3\r4 5\v6\f7 t 0 g m",
         "1x2 3/4 5 ratio 6.000000 rate 7.000000 [t] scan 0 [g] [m]"},
        {"empty", "", "0x0 0/0 0 ratio 0.000000 rate 0.000000 [] scan 0 [] []"},
        {"stops at the first bad word", "1 2 x 4 5 6 7 t 1 g m",
         "1x2 0/0 0 ratio 0.000000 rate 0.000000 [] scan 0 [] []"},
        {"signs", "+1 -2 +3 -4 +5 -6.5 +7 t 1 g m",
         "1x-2 3/-4 5 ratio -6.500000 rate 7.000000 [t] scan 1 [g] [m]"},
        {"out of range",
         "99999999999 -99999999999 3 4 99999999999999999999999 1e999 1e-999 t 99999999999 g m",
         "2147483647x-2147483648 3/4 18446744073709551615 ratio 0.000000 rate 0.000000 [t] scan 2147483647 "
         "[g] [m]"},
        {"negative size", "1 2 3 4 -5 6 7 t 1 g m",
         "1x2 3/4 0 ratio 6.000000 rate 7.000000 [t] scan 1 [g] [m]"},
        {"longer tags keep the step", start + tag255 + "t 1 " + tag255 + "tt m",
         "1x2 3/4 5 ratio 6.000000 rate 7.000000 [" + tag255 + "] scan 1 [" + tag255 + "] [m]"},
        {"longer metadata", start + "t 1 g " + meta4095 + "x",
         "1x2 3/4 5 ratio 6.000000 rate 7.000000 [t] scan 1 [g] [" + meta4095 + "]"},
        {"a zero ends the text", start + "t 1 g m" + std::string("\0n", 2),
         "1x2 3/4 5 ratio 6.000000 rate 7.000000 [t] scan 1 [g] [m]"},
    };
    for (const auto& [name, text, expected] : cases) {
        SCOPED_TRACE(name);
        VantrelClipFormat format = hdFormat("old", "old", "old");
        Codec::fromReplyText(text, format);
        EXPECT_EQ(show(format), expected);
        EXPECT_STREQ(format.colourSpace(), "Rec.709") << "the plain form has no place for it";
    }
}

TEST(ClipFormatPlain, RequestSaysWhatItLacks) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "Invalid clip format: cannot read the width."},
        {"1 x", "Invalid clip format: cannot read the height."},
        {"1 2 3 4 z", "Invalid clip format: cannot read the frame buffer size."},
        {"1 2 3 4 5 6 7 ", "Invalid clip format: cannot read the format tag."},
        {"1 2 3 4 5 6 7 t 1", "Invalid clip format: cannot read the metadata tag."},
        {"1 2 3 4 5 6 7 t 5 g", "Invalid clip format: unknown scan format 5."},
        {"1 2 3 4 5 6 7 t -1 g", "Invalid clip format: unknown scan format -1."},
    };
    for (const auto& [text, expected] : cases) {
        VantrelClipFormat format = hdFormat("old", "old", "old");
        std::string error;
        EXPECT_FALSE(Codec::fromRequestText(text, format, error)) << text;
        EXPECT_EQ(error, expected);
        EXPECT_STREQ(format.formatTag(), "old");
    }
}

TEST(ClipFormatStream, WritesTwelveKeysInOrder) {
    const std::pair<unsigned long, const char*> cases[] = {{2147483647UL, "sz 10 2147483647"},
                                                           {2147483648UL, "szu 10 0x80000000"},
                                                           {ULONG_MAX, "szu 18 0xffffffffffffffff"}};
    for (const auto& [size, text] : cases) {
        VantrelClipFormat format = hdFormat("rgb", nullptr, "a \"b\"");
        format.setFrameBufferSize(size);
        Vantrel::rcAttrStream stream;
        Codec::toStream(format, stream);
        EXPECT_EQ(stream.text(),
                  std::string("w 4 1920h 4 1080bpp 2 24nch 1 3") + text +
                      "asp 1 1rate 6 23.976fmt 3 rgbscan 1 4metag 4 nonemeta 5 a \"b\"cs 7 Rec.709");
    }
}

struct Entry {
    const char* name;
    const char* value;
};

constexpr Entry ENTRIES[] = {{"w", "1"},    {"h", "2"},     {"bpp", "3"},    {"nch", "4"},
                             {"sz", "5"},   {"asp", "6.5"}, {"rate", "7"},   {"fmt", "t"},
                             {"scan", "4"}, {"metag", ""},  {"meta", "m n"}, {"cs", "c"}};

// The entries above, without `left` and with `name` set to `value`.
Vantrel::rcAttrStream streamWith(const char* left, const char* name = nullptr, const char* value = nullptr) {
    Vantrel::rcAttrStream stream;
    for (const Entry& entry : ENTRIES) {
        if (!left || std::string(entry.name) != left) stream.addStringValue(entry.name, entry.value);
    }
    if (name) stream.addStringValue(name, value);
    return stream;
}

TEST(ClipFormatStream, IsRead) {
    const std::tuple<const char*, Vantrel::rcAttrStream, unsigned long> cases[] = {
        {"short size", streamWith(nullptr), 5},
        {"long size wins", streamWith(nullptr, "szu", "0x1ffffffff"), 0x1ffffffffUL},
        {"long size of 0", streamWith(nullptr, "szu", "0x0"), 5},
        {"negative short size", streamWith(nullptr, "sz", "-1"), 0},
    };
    for (const auto& [name, stream, size] : cases) {
        SCOPED_TRACE(name);
        VantrelClipFormat format;
        std::string error;
        EXPECT_TRUE(Codec::fromStream(stream, "GetClipFormatEx", format, error)) << error;
        EXPECT_EQ(format.frameBufferSize(), size);
        format.setFrameBufferSize(0);
        EXPECT_EQ(show(format), "1x2 3/4 0 ratio 6.500000 rate 7.000000 [t] scan 4 [] [m n]");
        EXPECT_STREQ(format.colourSpace(), "c");
    }
}

TEST(ClipFormatStream, EveryKeyIsMandatoryAndAScanFormatKnown) {
    std::vector<std::pair<Vantrel::rcAttrStream, std::string>> cases;
    for (const Entry& entry : ENTRIES)
        cases.emplace_back(streamWith(entry.name),
                           std::string("Missing GetClipFormatEx parameter: ") + entry.name);
    for (const char* scan : {"5", "-1", "99999999999"})
        cases.emplace_back(streamWith(nullptr, "scan", scan), "GetClipFormatEx: Invalid scan format");
    for (const auto& [stream, expected] : cases) {
        VantrelClipFormat format = hdFormat("old", "old", "old");
        std::string error;
        EXPECT_FALSE(Codec::fromStream(stream, "GetClipFormatEx", format, error)) << stream.text();
        EXPECT_EQ(error, expected);
        EXPECT_STREQ(format.formatTag(), "old");
    }
}

}  // namespace
