#include "VantrelBaseInterface.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <tuple>

namespace {

using Converter = VantrelBaseInterface::Converter;

TEST(BaseInterface, ConvertsBothWays) {
    std::string longText;
    for (int i = 0; i < 1000; ++i) longText += "\xc3\xa9";
    const std::tuple<const char*, const char*, std::string, std::string> cases[] = {
        {"UTF-8", "ISO-8859-1", "caf\xc3\xa9 no\xc3\xabl", "caf\xe9 no\xebl"},
        {"ISO-8859-1", "UTF-8", "caf\xe9", "caf\xc3\xa9"},
        {"ISO-8859-1", "UTF-8", std::string(1000, '\xe9'), longText},
        {"UTF-8", "ISO-2022-JP", "\xe6\x97\xa5", "\x1b$BF|\x1b(B"},
        {"UTF-8", "ISO-8859-1", "\xe6\x97\xa5", "\xe6\x97\xa5"},
        {"UTF-8", "ISO-8859-1", "caf\xe9", "caf\xe9"},
        {"UTF-8", "NO-SUCH-CODE", "caf\xc3\xa9", "caf\xc3\xa9"},
    };
    for (const auto& [from, to, text, expected] : cases) {
        std::string buffer;
        Converter converter(from, to);
        EXPECT_EQ(converter.convert(text, buffer), expected) << to;
        EXPECT_EQ(converter.convert(text, buffer), expected) << to << ", again";
    }
}

TEST(BaseInterface, LeavesInPlaceWhatNeedsNoChange) {
    const std::string ascii = "plain text, long enough for whole words";
    const std::string accented = "no\xc3\xabl";
    std::string buffer;
    Converter latin("UTF-8", "ISO-8859-1");
    EXPECT_EQ(latin.convert(ascii, buffer).data(), ascii.data());
    EXPECT_EQ(Converter("UTF-8", "utf-8").convert(accented, buffer).data(), accented.data());
    for (const char* locale : {"C", "C.UTF-8"}) {
        ASSERT_NE(std::setlocale(LC_CTYPE, locale), nullptr);
        EXPECT_EQ(VantrelBaseInterface::utf8ToLocale(accented, buffer).data(), accented.data()) << locale;
        EXPECT_EQ(VantrelBaseInterface::localeToUTF8(accented, buffer).data(), accented.data()) << locale;
    }
    std::setlocale(LC_CTYPE, "C");
}

TEST(BaseInterface, AsciiIsSeenAtEveryPosition) {
    for (std::size_t size = 0; size < 20; ++size) {
        std::string text(size, '\x7f');
        EXPECT_TRUE(VantrelBaseInterface::isAscii(text)) << size;
        for (std::size_t at = 0; at < size; ++at) {
            text[at] = '\x80';
            EXPECT_FALSE(VantrelBaseInterface::isAscii(text)) << size << " at " << at;
            text[at] = 'a';
        }
    }
}

}  // namespace
