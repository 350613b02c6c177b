#include "VantrelClipFormatCodec.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <utility>
#include <vector>

#include "ShownFormat.h"
#include "rcAttrStream.h"

namespace {

using Codec = Vantrel::VantrelClipFormatCodec;
using Vantrel::rcAttrStream;

VantrelClipFormat hdFormat(const char* formatTag, const char* metaDataTag, const char* metaData) {
    VantrelClipFormat format(1920, 1080, 24, 3, 6220800UL, 23.976F, 1.0F, VantrelClipFormat::PROGRESSIVE,
                             formatTag, metaDataTag, metaData);
    format.setColourSpace("Rec.709");
    return format;
}

TEST(ClipFormatPlain, IsWrittenForEachDirectionAndReadByTheServer) {
    const std::string longTag(300, 't');
    const std::string longData(5000, 'm');
    const struct {
        VantrelClipFormat format;
        std::string tags;
        std::string requestMetaData;
        std::string replyMetaData;
    } cases[] = {
        {hdFormat("rgb", "xml", " <a b=\"c\\d\"/> "), "rgb 4 xml ", R"(" <a b=\"c\\d\"/> ")",
         R"( <a b="c\d"/> )"},
        {hdFormat("", "", ""), "none 4 none ", "\"\"", ""},
        {hdFormat("uyvu_le", nullptr, "m"), "uyvu_le 4 none ", "\"m\"", "m"},
        {hdFormat(longTag.c_str(), longTag.c_str(), ""),
         longTag.substr(0, 255) + " 4 " + longTag.substr(0, 255) + " ", "\"\"", ""},
        {hdFormat("t", "g", longData.c_str()), "t 4 g ", '"' + longData + '"', longData},
    };
    std::string error;
    VantrelClipFormat read;
    for (const auto& c : cases) {
        const std::string start = "1920 1080 24 3 6220800 1 23.976 " + c.tags;
        EXPECT_EQ(Codec::toRequestText(c.format), start + c.requestMetaData);
        EXPECT_EQ(Codec::toReplyText(c.format), start + c.replyMetaData);
        EXPECT_TRUE(Codec::fromRequestText(start + c.requestMetaData, read, error)) << error;
        EXPECT_EQ(Codec::toRequestText(read), start + c.requestMetaData);
    }
    EXPECT_TRUE(Codec::fromRequestText("1 2 3 4 5 6 7 t 1 g word", read, error)) << error;
    EXPECT_STREQ(read.metaData(), "word") << "without quotes";
}

TEST(ClipFormatPlain, ReplyIsRead) {
    const std::string tag255(255, 't');
    const std::string meta4095(4095, 'm');
    const std::string start = "1 2 3 4 5 6 7 ";
    const std::string shownStart = "1x2 3/4 5 ratio 6 rate 7 ";
    const std::pair<std::string, std::string> cases[] = {
        {"1920 1080 24 3 6220800 1 23.976 rgb 4 none <a b/> c ",
         "1920x1080 24/3 6220800 ratio 1 rate 23.976 [rgb] scan 4 [none] [<a b/> c ]"},
        {"\t1\n2  3\r4 5\v6\f7 t 0 g m", shownStart + "[t] scan 0 [g] [m]"},
        {"", "0x0 0/0 0 ratio 0 rate 0 [] scan 0 [] []"},
        {"1 2 x 4 5 6 7 t 1 g m", "1x2 0/0 0 ratio 0 rate 0 [] scan 0 [] []"},
        {"+1 -2 +3 -4 +5 -6.5 +7 t 1 g m", "1x-2 3/-4 5 ratio -6.5 rate 7 [t] scan 1 [g] [m]"},
        {"99999999999 -99999999999 3 4 99999999999999999999999 1e999 1e-999 t 99999999999 g m",
         "2147483647x-2147483648 3/4 18446744073709551615 ratio 0 rate 0 [t] scan 2147483647 [g] [m]"},
        {"1 2 3 4 -5 6 7 t 1 g m", "1x2 3/4 0 ratio 6 rate 7 [t] scan 1 [g] [m]"},
        {start + tag255 + "t 1 " + tag255 + "tt m",
         shownStart + "[" + tag255 + "] scan 1 [" + tag255 + "] [m]"},
        {start + "t 1 g " + meta4095 + "x", shownStart + "[t] scan 1 [g] [" + meta4095 + "]"},
        {start + "t 1 g m" + std::string("\0n", 2), shownStart + "[t] scan 1 [g] [m]"},
    };
    for (const auto& [text, expected] : cases) {
        VantrelClipFormat format = hdFormat("old", "old", "old");
        Codec::fromReplyText(text, format);
        EXPECT_EQ(Vantrel::show(format), expected + " [Rec.709]") << text;
    }
}

TEST(ClipFormatPlain, RequestSaysWhatItLacks) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "cannot read the width."},
        {"1 x", "cannot read the height."},
        {"1 2 3 4 z", "cannot read the frame buffer size."},
        {"1 2 3 4 5 6 7 ", "cannot read the format tag."},
        {"1 2 3 4 5 6 7 t 1", "cannot read the metadata tag."},
        {"1 2 3 4 5 6 7 t 5 g", "unknown scan format 5."},
        {"1 2 3 4 5 6 7 t -1 g", "unknown scan format -1."},
    };
    for (const auto& [text, expected] : cases) {
        VantrelClipFormat format = hdFormat("old", "old", "old");
        std::string error;
        EXPECT_FALSE(Codec::fromRequestText(text, format, error)) << text;
        EXPECT_EQ(error, std::string("Invalid clip format: ") + expected);
        EXPECT_STREQ(format.formatTag(), "old");
    }
}

TEST(ClipFormatStream, WritesTwelveKeysInOrder) {
    const std::pair<unsigned long, std::string> cases[] = {{2147483647UL, "sz 10 2147483647"},
                                                           {2147483648UL, "szu 10 0x80000000"},
                                                           {ULONG_MAX, "szu 18 0xffffffffffffffff"}};
    for (const auto& [size, text] : cases) {
        VantrelClipFormat format = hdFormat("rgb", nullptr, "a \"b\"");
        format.setFrameBufferSize(size);
        rcAttrStream stream;
        Codec::toStream(format, stream);
        EXPECT_EQ(stream.text(), "w 4 1920h 4 1080bpp 2 24nch 1 3" + text +
                                     "asp 1 1rate 6 23.976fmt 3 rgbscan 1 4metag 4 nonemeta 5 a \"b\"cs 7 "
                                     "Rec.709");
    }
}

const std::vector<std::pair<std::string, const char*>> ENTRIES = {
    {"w", "1"},    {"h", "2"},   {"bpp", "3"},  {"nch", "4"},  {"sz", "5"},     {"asp", "6.5"},
    {"rate", "7"}, {"fmt", "t"}, {"scan", "4"}, {"metag", ""}, {"meta", "m n"}, {"cs", "c"}};

/// The entries above, without `left` and with `name` set to `value`.
rcAttrStream streamWith(const std::string& left, const char* name = nullptr, const char* value = nullptr) {
    rcAttrStream stream;
    for (const auto& entry : ENTRIES)
        if (entry.first != left) stream.addStringValue(entry.first.c_str(), entry.second);
    if (name) stream.addStringValue(name, value);
    return stream;
}

TEST(ClipFormatStream, IsReadWholeOrNotAtAll) {
    const auto shown = [](const std::string& size) {
        return "1x2 3/4 " + size + " ratio 6.5 rate 7 [t] scan 4 [] [m n] [c]";
    };
    std::vector<std::pair<rcAttrStream, std::string>> cases = {
        {streamWith(""), shown("5")},
        {streamWith("", "szu", "0x1ffffffff"), shown("8589934591")},
        {streamWith("", "szu", "0x0"), shown("5")},
        {streamWith("", "sz", "-1"), shown("0")},
    };
    for (const auto& entry : ENTRIES)
        cases.emplace_back(streamWith(entry.first), "Missing GetClipFormatEx parameter: " + entry.first);
    for (const char* scan : {"5", "-1", "99999999999"})
        cases.emplace_back(streamWith("", "scan", scan), "GetClipFormatEx: Invalid scan format");
    for (const auto& [stream, expected] : cases) {
        VantrelClipFormat format;
        std::string error;
        const bool ok = Codec::fromStream(stream, "GetClipFormatEx", format, error);
        EXPECT_EQ(ok ? Vantrel::show(format) : error, expected) << stream.text();
        EXPECT_EQ(Vantrel::show(format) == Vantrel::show(VantrelClipFormat()), !ok);
    }
}

}  // namespace
