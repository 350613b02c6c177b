#include "PathTranslations.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CoException.h"
#include "NodeCommands.h"
#include "ServerLimits.h"
#include "ServerOptions.h"
#include "TemporaryDirectory.h"

namespace vantreld {
namespace {

using testing::HasSubstr;

constexpr const char* TABLES = R"({
  "groups": [
    {"name": "linux", "osType": "Linux", "hosts": ["flame1", "flame2"]},
    {"name": "pcs", "osType": "WindowsNT", "hosts": ["pc1"]}
  ],
  "hostTranslations": [
    {"srcHost": "flame1", "srcPath": "/mnt", "dstHost": "flame2", "dstPath": "/hosts/flame1/mnt/"},
    {"srcHost": "flame1", "srcPath": "/mnt/fast/", "dstHost": "flame2", "dstPath": "/fast"},
    {"srcHost": "flame1", "srcPath": "/mnt", "dstHost": "flame2", "dstPath": "/never"},
    {"srcHost": "linux", "srcPath": "/", "dstHost": "other", "dstPath": "/all"},
    {"srcHost": "pcs", "srcPath": "C:\\", "dstHost": "linux", "dstPath": "/"}
  ],
  "osTypeTranslations": [
    {"srcType": "linux", "srcPath": "/mnt", "dstType": "WindowsNT", "dstPath": "Z:\\"},
    {"srcType": "WindowsNT", "srcPath": "\\\\nas\\vol", "dstType": "Linux", "dstPath": "/vol"}
  ]
})";

/// What "TranslatePaths" answers, or "error: " and why not.
std::string ask(NodeCommands& commands, const std::string& argument) {
    try {
        return commands.call("TranslatePaths", argument);
    } catch (const Vantrel::CoException& error) {
        return std::string("error: ") + error.what();
    }
}

VantrelDaemonInfo testInfo() {
    VantrelDaemonInfo info;
    info.setDisplayName("Shown");
    info.setHostName("self");
    info.setOsType(VantrelOS::Linux);
    return info;
}

class TranslationCommands : public testing::Test {
  protected:
    Vantrel::TemporaryDirectory directory_;
    NodeStore store_{directory_.path()};
    NodeCommands commands_{store_, DEFAULT_PROTOCOL_VERSION, testInfo,
                           PathTranslations::parse(TABLES, "tables")};
};

TEST_F(TranslationCommands, PathsAreTranslatedByTheirLongestRule) {
    const struct {
        const char* what;
        const char* argument;
        const char* reply;
    } cases[] = {
        {"by host", R"("flame1" 2 "flame2" 2 "/mnt/a")", R"("/hosts/flame1/mnt/a")"},
        {"the path itself", R"("flame1" 2 "flame2" 2 "/mnt")", R"("/hosts/flame1/mnt/")"},
        {"longest first, with its separator", R"("flame1" 2 "flame2" 2 "/mnt/fast/a","/mnt/fast")",
         R"("/fast/a","/fast")"},
        {"whole names only", R"("flame1" 2 "flame2" 2 "/mnt2/a","/mnt/faster")",
         R"("/mnt2/a","/hosts/flame1/mnt/faster")"},
        {"no rule, odd paths", R"("flame1" 2 "flame2" 2 "","relative","/a \"b\"")",
         R"("","relative","/a \"b\"")"},
        {"the other way there is none", R"("flame2" 2 "flame1" 2 "/hosts/flame1/mnt/a")",
         R"("/hosts/flame1/mnt/a")"},
        {"host names in any case", R"("FLAME1" 2 "Flame2" 2 "/mnt/a")", R"("/hosts/flame1/mnt/a")"},
        {"a group stands for its hosts", R"("flame2" 2 "other" 2 "/a","/")", R"("/all/a","/all")"},
        {"from another system, to the root", R"("pc1" 3 "flame2" 2 "C:\\a\\b c","C:/a","C:\\")",
         R"("/a/b c","/a","/")"},
        {"by system", R"("x" 2 "y" 3 "/mnt/a/b","/mnt")", R"("Z:\\a\\b","Z:\\")"},
        {"by system, back", R"("x" 3 "y" 2 "\\\\nas\\vol\\a","\\\\nas\\volume")",
         R"("/vol/a","\\\\nas\\volume")"},
        {"systems known from the groups", R"("flame1" 0 "pc1" 0 "/mnt/a")", R"("Z:\\a")"},
        {"the server's own system", R"("shown" 0 "pc1" 0 "/mnt/a")", R"("Z:\\a")"},
        {"and by its host name", R"("pc1" 0 "self" 0 "\\\\nas\\vol\\a")", R"("/vol/a")"},
        {"what the client says counts more", R"("flame1" 4 "pc1" 0 "/mnt/a")", R"("/mnt/a")"},
        {"nothing known", R"("x" 0 "y" 0 "/mnt/a")", R"("/mnt/a")"},
        {"no paths", R"("flame1" 2 "flame2" 2 )", ""},
        {"malformed", R"("flame1" 2 "flame2" 2 /mnt)", "error: Invalid TranslatePaths parameter: paths"},
        {"empty", "", "error: Invalid TranslatePaths parameter: source host"},
    };
    for (const auto& c : cases) EXPECT_EQ(ask(commands_, c.argument), c.reply) << c.what;
}

TEST_F(TranslationCommands, ARequestHasSoManyPathsAtMost) {
    std::string paths = "\"a\"";
    for (std::size_t i = 1; i < MAX_TRANSLATED_PATHS; ++i) paths += ",\"a\"";
    const std::string head = "\"x\" 2 \"y\" 2 ";
    EXPECT_EQ(ask(commands_, head + paths), paths);
    EXPECT_EQ(ask(commands_, head + paths + ",\"a\""), "error: Invalid TranslatePaths parameter: paths");
}

TEST_F(TranslationCommands, TheTablesAreToldAsTheyAreWritten) {
    EXPECT_EQ(commands_.call("GetTranslationGroups", ""),
              "numGroups 1 20 49 name 5 linuxosType 1 2hosts 18 2 6 flame16 flame21 35 name 3 pcsosType 1 "
              "3hosts 7 1 3 pc1");
    EXPECT_THAT(
        commands_.call("GetHostTranslations", ""),
        testing::AllOf(testing::StartsWith("numHostTranslations 1 5"),
                       HasSubstr("1 68 srcHost 6 flame1srcPath 10 /mnt/fast/dstHost 6 flame2dstPath 5 "
                                 "/fast2 ")));
    EXPECT_THAT(commands_.call("GetOsTypeTranslations", ""),
                HasSubstr("0 49 srcType 1 2srcPath 4 /mntdstType 1 3dstPath 3 Z:\\1 "));

    NodeCommands without(store_, {2, 0, 0, 0}, testInfo);
    EXPECT_EQ(without.call("GetHostTranslations", ""), "numHostTranslations 1 0");
    EXPECT_EQ(ask(without, "\"a\" 2 \"b\" 3 \"/mnt/a\""), "\"/mnt/a\"");
}

TEST(PathTranslations, AFileThatIsWrongSaysWhere) {
    const Vantrel::TemporaryDirectory directory;
    const std::string long4097(4097, 'x');
    std::string many = R"({"hostTranslations": [{})";
    for (int i = 0; i < 1000; ++i) many += ",{}";
    const struct {
        std::string content;
        std::string error;
    } cases[] = {
        {"", "no JSON from line 1, column 1 on."},
        {"{\n  \"groups\": [,]\n}", "no JSON from line 2, column 14 on."},
        {"{} {}", "no JSON from line 1, column 4 on."},
        {std::string(200000, '['), "no JSON from line 1, column 200001 on."},
        {"{\"groups\": \"\xff\"}", "no JSON from line 1, column 13 on."},
        {"[]", "the document is not an object"},
        {R"({"group": []})", "the document has an unknown key 'group'."},
        {R"({"groups": {}})", "the document has a 'groups' that is not a list."},
        {R"({"groups": [7]})", "groups[0] is not an object"},
        {R"({"groups": [{"name": "a", "osType": "BeOS", "hosts": []}]})",
         "groups[0] has a 'osType' that is not Linux, MacOSX, WindowsNT or Irix."},
        {R"({"groups": [{"name": "a", "osType": "Linux"}]})", "groups[0] has no 'hosts'."},
        {R"({"groups": [{"name": "a", "osType": "Linux", "hosts": "b"}]})",
         "groups[0] has a 'hosts' that is not a list."},
        {R"({"groups": [{"name": "a", "osType": "Linux", "hosts": ["b", "c d"]}]})",
         "groups[0] has a 'hosts' that holds a text that cannot be the name of a host."},
        {R"({"groups": [{"name": "a b", "osType": "Linux", "hosts": []}]})",
         "groups[0] has a 'name' that cannot be the name of a host."},
        {R"({"hostTranslations": [{"srcHost": "a", "srcPath": 1, "dstHost": "b", "dstPath": "/"}]})",
         "hostTranslations[0] has a 'srcPath' that is not a text."},
        {R"({"hostTranslations": [{"srcHost": "a", "srcPath": "", "dstHost": "b", "dstPath": "/"}]})",
         "hostTranslations[0] has a 'srcPath' that is empty."},
        {R"({"hostTranslations": [{"srcHost": "a", "srcPath": "/\u0000", "dstHost": "b", "dstPath": "/"}]})",
         "hostTranslations[0] has a 'srcPath' that holds a NUL."},
        {R"({"hostTranslations": [{"srcHost": ")" + long4097 + R"(", "srcPath": "/", "dstHost": "b"}]})",
         "hostTranslations[0] has a 'srcHost' that is too long."},
        {many + "]}", "the document has 1001 'hostTranslations', but no more than 1000 can be."},
        {R"({"osTypeTranslations": [{"srcType": "Linux", "srcpath": "/"}]})",
         "osTypeTranslations[0] has an unknown key 'srcpath'."},
        {std::string(MAX_TRANSLATION_FILE_BYTES + 1, ' '), "1048577 bytes, but no more than 1048576 can be."},
    };
    for (const auto& c : cases) {
        const std::string file = directory.write("translations.json", c.content);
        try {
            PathTranslations::load(file);
            ADD_FAILURE() << "accepted: " << c.content.substr(0, 200);
        } catch (const Vantrel::CoException& error) {
            const std::string head = "Invalid path translations '" + file + "': ";
            EXPECT_EQ(error.what(), head + c.error);
        }
    }
}

TEST(PathTranslations, AFileMayBeMissingButNotUnreadable) {
    const Vantrel::TemporaryDirectory directory;
    EXPECT_TRUE(PathTranslations::load(directory.path("none")).tables().hosts.empty());
    EXPECT_TRUE(PathTranslations::load(directory.write("empty", "{}")).tables().groups.empty());
    EXPECT_THROW(PathTranslations::load(directory.path()), Vantrel::CoException);
}

}  // namespace
}  // namespace vantreld
