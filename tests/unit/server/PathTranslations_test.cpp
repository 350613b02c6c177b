#include "PathTranslations.h"

#include <gtest/gtest.h>

#include <tuple>
#include <utility>

#include "NodeCommands.h"
#include "ServerLimits.h"
#include "ServerOptions.h"
#include "StoreFixture.h"

namespace vantreld {
namespace {

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
    {"srcHost": "Ann's \"Suite 3\"", "srcPath": "/mnt", "dstHost": "flame2", "dstPath": "/suite"},
    {"srcHost": "pcs", "srcPath": "C:\\", "dstHost": "linux", "dstPath": "/"}
  ],
  "osTypeTranslations": [
    {"srcType": "linux", "srcPath": "/mnt", "dstType": "WindowsNT", "dstPath": "Z:\\"},
    {"srcType": "WindowsNT", "srcPath": "\\\\nas\\vol", "dstType": "Linux", "dstPath": "/vol"}
  ]
})";

VantrelDaemonInfo testInfo() {
    VantrelDaemonInfo info;
    info.setDisplayName("Shown");
    info.setHostName("self");
    info.setOsType(VantrelOS::Linux);
    return info;
}

class TranslationCommands : public StoreFixture {
  protected:
    /// What "TranslatePaths" answers, or "error: " and why not.
    std::string ask(const std::string& argument) {
        std::string reply;
        const std::string failure =
            failureOf([&] { reply = commands_.functions().at("TranslatePaths")(argument); });
        return failure.empty() ? reply : "error: " + failure;
    }

    NodeCommands commands_{store(), VANTREL_RELEASE, testInfo, PathTranslations::parse(TABLES, "tables")};
};

TEST_F(TranslationCommands, PathsAreTranslatedByTheirLongestRule) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"the path itself, longest first", R"("flame1" 2 "flame2" 2 "/mnt","/mnt/fast/a","/mnt/fast")",
         R"("/hosts/flame1/mnt/","/fast/a","/fast")"},
        {"whole names only", R"("flame1" 2 "flame2" 2 "/mnt2/a","/mnt/faster")",
         R"("/mnt2/a","/hosts/flame1/mnt/faster")"},
        {"no rule, odd paths", R"("flame1" 2 "flame2" 2 "","relative","/a \"b\"")",
         R"("","relative","/a \"b\"")"},
        {"the other way there is none", R"("flame2" 2 "flame1" 2 "/hosts/flame1/mnt/a")",
         R"("/hosts/flame1/mnt/a")"},
        {"host names of people", R"("Ann's \"Suite 3\"" 2 "flame2" 2 "/mnt/a")", R"("/suite/a")"},
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
        {"no paths", R"("flame1" 2 "flame2" 2 )", ""},
        {"malformed", R"("flame1" 2 "flame2" 2 /mnt)", "error: Invalid TranslatePaths parameter: paths"},
        {"empty", "", "error: Invalid TranslatePaths parameter: source host"},
    };
    for (const auto& [what, argument, reply] : cases) EXPECT_EQ(ask(argument), reply) << what;
}

TEST_F(TranslationCommands, ARequestHasSoManyPathsAtMost) {
    std::string paths = "\"a\"";
    for (std::size_t i = 1; i < MAX_TRANSLATED_PATHS; ++i) paths += ",\"a\"";
    const std::string head = "\"x\" 2 \"y\" 2 ";
    EXPECT_EQ(ask(head + paths), paths);
    EXPECT_EQ(ask(head + paths + ",\"a\""), "error: Invalid TranslatePaths parameter: paths");
}

TEST(PathTranslations, AFileThatIsWrongSaysWhere) {
    const Vantrel::TemporaryDirectory directory;
    std::string many = R"({"hostTranslations": [{})";
    for (int i = 0; i < 1000; ++i) many += ",{}";
    const std::string group = R"({"groups": [{"osType": "Linux", "name": "a)";
    const std::string hosts = R"({"hostTranslations": [{"srcHost": "a)";
    const std::pair<std::string, const char*> cases[] = {
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
        {group + R"("}]})", "groups[0] has no 'hosts'."},
        {group + R"(", "hosts": "b"}]})", "groups[0] has a 'hosts' that is not a list."},
        {group + R"(", "hosts": ["b", "c\td"]}]})",
         "groups[0] has a 'hosts' that holds a text that cannot be the name of a host."},
        {group + R"(\n", "hosts": []}]})", "groups[0] has a 'name' that cannot be the name of a host."},
        {hosts + R"(", "srcPath": 1}]})", "hostTranslations[0] has a 'srcPath' that is not a text."},
        {hosts + R"(", "srcPath": ""}]})", "hostTranslations[0] has a 'srcPath' that is empty."},
        {hosts + R"(", "srcPath": "/\u0000"}]})", "hostTranslations[0] has a 'srcPath' that holds a NUL."},
        {hosts + std::string(4097, 'x') + R"("}]})", "hostTranslations[0] has a 'srcHost' that is too long."},
        {many + "]}", "the document has 1001 'hostTranslations', but no more than 1000 can be."},
        {R"({"osTypeTranslations": [{"srcType": "Linux", "srcpath": "/"}]})",
         "osTypeTranslations[0] has an unknown key 'srcpath'."},
        {std::string(MAX_TRANSLATION_FILE_BYTES + 1, ' '), "1048577 bytes, but no more than 1048576 can be."},
    };
    for (const auto& [content, error] : cases) {
        const std::string file = directory.write("translations.json", content);
        EXPECT_EQ(failureOf([&] { PathTranslations::load(file); }),
                  "Invalid path translations '" + file + "': " + error);
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
