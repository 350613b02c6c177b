#include "VantrelTranslationCodec.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using std::string_literals::operator""s;
using Codec = VantrelTranslationCodec;
using Texts = std::vector<std::string>;

std::string asText(const VantrelTranslationRequest& r) {
    std::string all =
        r.srcHost + " " + std::to_string(r.srcType) + " " + r.dstHost + " " + std::to_string(r.dstType);
    for (const std::string& path : r.paths) all += " <" + path + ">";
    return all;
}

TEST(TranslationCodec, RequestsOnTheWire) {
    const std::pair<VantrelTranslationRequest, const char*> cases[] = {
        {{"one", VantrelOS::Unknown, "two", VantrelOS::MacOSX, {"/a b", "", "c,d"}},
         R"("one" 0 "two" 4 "/a b","","c,d")"},
        {{"a\\b", VantrelOS::Irix, "two", VantrelOS::WindowsNT, {R"(C:\x "y")", "\\"}},
         R"("a\\b" 1 "two" 3 "C:\\x \"y\"","\\")"},
        {{"Suite 3", VantrelOS::Linux, R"(Ann's "two")", VantrelOS::Linux, {}},
         R"("Suite 3" 2 "Ann's \"two\"" 2 )"},
        {{"one", VantrelOS::Linux, "two", VantrelOS::Linux, {"line\nend\t"}},
         "\"one\" 2 \"two\" 2 \"line\nend\t\""},
    };
    std::string error;
    for (const auto& [request, text] : cases) {
        EXPECT_EQ(Codec::formatRequest(request), text);
        VantrelTranslationRequest parsed;
        parsed.paths = {"old"};
        EXPECT_TRUE(Codec::parseRequest(text, 3, parsed, error)) << text << ": " << error;
        EXPECT_EQ(asText(parsed), asText(request));
    }
    VantrelTranslationRequest request;
    EXPECT_TRUE(Codec::parseRequest("\"one\" -7 \"two\" 5 ", 0, request, error));
    EXPECT_EQ(asText(request), "one 0 two 0") << "numbers of systems that nobody knows";
}

TEST(TranslationCodec, RequestsThatSayWhatIsWrong) {
    const std::pair<std::string, const char*> cases[] = {
        {"", "source host"},
        {"\"\" 2 \"two\" 2 \"/a\"", "source host"},
        {"\"o\tne\" 2 \"two\" 2 \"/a\"", "source host"},
        {"\"one\"2 \"two\" 2 \"/a\"", "source host"},
        {"\"one\" Linux \"two\" 2 \"/a\"", "source OS type"},
        {"\"one\" 99999999999 \"two\" 2 \"/a\"", "source OS type"},
        {"\"one\" 2 \"two\\\" 2 \"/a\"", "destination host"},
        {"\"one\" 2 \"two\x7f\" 2 \"/a\"", "destination host"},
        {"\"one\" 2 \"two\" 2", "destination OS type"},
        {"\"one\" 2 \"two\" 2 /a", "paths"},
        {"\"one\" 2 \"two\" 2 \"/a\",\"/b\",\"/c\"", "paths"}};
    for (const auto& [text, wrong] : cases) {
        VantrelTranslationRequest request{"old", VantrelOS::Irix, "older", VantrelOS::MacOSX, {"oldest"}};
        std::string error;
        EXPECT_FALSE(Codec::parseRequest(text, 2, request, error)) << text;
        EXPECT_EQ(error, std::string("Invalid TranslatePaths parameter: ") + wrong) << text;
        EXPECT_EQ(asText(request), "old 1 older 4 <oldest>") << text;
    }
}

TEST(TranslationCodec, PathsOfReplies) {
    const std::string text = R"("a,\"b\"","c\\d","")";
    const Texts expected{"a,\"b\"", "c\\d", ""};
    Texts paths{"old"};
    EXPECT_TRUE(Codec::parsePaths(text, 3, paths));
    EXPECT_EQ(paths, expected);
    EXPECT_EQ(Codec::formatPaths(paths), text);
    for (const std::string& malformed : {"\"1\",\"2\",\"3\",\"4\""s, "\"/a\"\"/b\""s, "\"/a\", \"/b\""s,
                                         "\"/a\","s, "\"/a\\"s, "\"/a\\\""s, "\"/a\0b\""s}) {
        EXPECT_FALSE(Codec::parsePaths(malformed, 3, paths)) << malformed;
        EXPECT_EQ(paths, expected);
    }
    EXPECT_TRUE(Codec::parsePaths("", 3, paths));
    EXPECT_EQ(paths, Texts());
}

const std::string GROUP = "name 2 g1osType 1 2hosts 12 2 3 one3 two";

/// What `format` makes of the table that `parse` reads; "malformed" when it is refused, and then nothing else
/// has changed.
template <typename Entry>
std::string rewritten(bool (*parse)(std::string_view, std::vector<Entry>&),
                      std::string (*format)(const std::vector<Entry>&), const std::string& text) {
    std::vector<Entry> table(3);
    if (parse(text, table)) return format(table);
    return table.size() == 3 ? "malformed" : "malformed and changed";
}

TEST(TranslationCodec, TablesOnTheWire) {
    const std::string groups = "numGroups 1 20 40 " + GROUP + "1 27 name 0 osType 1 0hosts 2 0 ";
    EXPECT_EQ(Codec::formatGroups({{"g1", VantrelOS::Linux, {"one", "two"}}, {"", VantrelOS::Unknown, {}}}),
              groups);
    EXPECT_EQ(rewritten(Codec::parseGroups, Codec::formatGroups, groups), groups);
    const std::string hosts =
        "numHostTranslations 1 10 51 srcHost 3 onesrcPath 4 /a bdstHost 3 twodstPath 1 /";
    EXPECT_EQ(Codec::formatHostTranslations({{"one", "/a b", "two", "/"}}), hosts);
    EXPECT_EQ(rewritten(Codec::parseHostTranslations, Codec::formatHostTranslations, hosts), hosts);
    const std::string osTypes =
        "numOsTypeTranslations 1 10 48 srcType 1 2srcPath 4 /mntdstType 1 3dstPath 2 Z:";
    EXPECT_EQ(Codec::formatOsTypeTranslations({{VantrelOS::Linux, "/mnt", VantrelOS::WindowsNT, "Z:"}}),
              osTypes);
    EXPECT_EQ(rewritten(Codec::parseOsTypeTranslations, Codec::formatOsTypeTranslations, osTypes), osTypes);
    std::vector<VantrelHostTranslation> none;
    EXPECT_FALSE(Codec::parseHostTranslations("numHostTranslations 1 10 40 " + hosts.substr(29), none))
        << "cut";
    EXPECT_FALSE(Codec::parseHostTranslations(osTypes, none)) << "another table";
}

TEST(TranslationCodec, TablesThatAreOddOrMalformed) {
    const std::string one = "0 40 " + GROUP;
    const std::string bad = "malformed";
    const std::pair<std::string, std::string> cases[] = {
        {"numGroups 1 0", "numGroups 1 0"},
        // Entries count wherever they stand, once, and as far as the count goes.
        {one + "numGroups 1 1", "numGroups 1 1" + one},
        {"numGroups 1 21 27 name 0 osType 1 9hosts 2 0 " + one,
         "numGroups 1 2" + one + "1 27 name 0 osType 1 0hosts 2 0 "},
        {"numGroups 1 1" + one + "1 3 xyz", "numGroups 1 1" + one},
        {"numGroups 1 1" + one + "0 3 xyz", "numGroups 1 1" + one},
        {"numGroups 1 10 25 name 0 osType 1 4hosts 0 ", "numGroups 1 10 27 name 0 osType 1 4hosts 2 0 "},
        {one, bad},
        {"numGroups 1 2" + one, bad},
        {"numGroups 2 -1" + one, bad},
        {"numGroups 2 1x" + one, bad},
        {"numGroups 10 2147483647" + one, bad},
        // A field is missing, cut or has a NUL.
        {"numGroups 1 10 19 name 2 g1osType 1 2", bad},
        {"numGroups 1 10 17 name 2 g1hosts 0 ", bad},
        {"numGroups 1 10 31 osType 1 2hosts 12 2 3 one3 two", bad},
        {"numGroups 1 10 32 name 2 g1osType 1 2hosts 5 9 1 a", bad},
        {"numGroups 1 10 28 name 1 "s + '\0' + "osType 1 2hosts 4 1 0 ", bad},
        {"numGroups 1 10 30 name 0 osType 1 2hosts 5 1 1 "s + '\0', bad},
    };
    for (const auto& [text, result] : cases)
        EXPECT_EQ(rewritten(Codec::parseGroups, Codec::formatGroups, text), result) << text;
}

TEST(TranslationCodec, TablesHaveALimit) {
    std::string entries;
    std::string hosts;
    for (std::size_t i = 0; i <= Codec::MAX_TABLE_ENTRIES; ++i) {
        entries += std::to_string(i) + " 25 name 0 osType 1 0hosts 0 ";
        hosts += "0 ";
    }
    const auto groupOf = [&hosts](const std::string& count) {
        const std::string list = count + " " + hosts;
        const std::string group = "name 0 osType 1 0hosts " + std::to_string(list.size()) + " " + list;
        return "numGroups 1 10 " + std::to_string(group.size()) + " " + group;
    };
    std::vector<VantrelPathTranslationGroup> groups;
    EXPECT_TRUE(Codec::parseGroups("numGroups 6 100000" + entries, groups));
    EXPECT_EQ(groups.size(), Codec::MAX_TABLE_ENTRIES);
    EXPECT_TRUE(Codec::parseGroups(groupOf("100000"), groups));
    EXPECT_FALSE(Codec::parseGroups("numGroups 6 100001" + entries, groups));
    EXPECT_FALSE(Codec::parseGroups(groupOf("100001"), groups));
}

}  // namespace
