// Path translation from a file under the server's root to an application and to the command-line client.
#include <vantrel/VantrelClientAPI.h>

#include <filesystem>

#include "CliFixture.h"

using ::testing::StartsWith;

namespace {

constexpr const char* TABLES = R"({
    "groups": [{"name": "suite", "osType": "Linux", "hosts": ["flame1", "flame2"]}],
    "hostTranslations": [
        {"srcHost": "flame1", "srcPath": "/mnt", "dstHost": "flame2", "dstPath": "/hosts/flame1"},
        {"srcHost": "suite", "srcPath": "/mnt", "dstHost": "pc1", "dstPath": "Z:"}],
    "osTypeTranslations": [
        {"srcType": "Linux", "srcPath": "/mnt/a, \"b\"", "dstType": "WindowsNT", "dstPath": "\\\\nas\\a"}]})";

class TranslationsTest : public CliFixture {
  protected:
    static std::string rootWith(const Vantrel::TemporaryDirectory& directory, const std::string& tables) {
        std::filesystem::create_directory(directory.path("translating"));
        directory.write("translating/translations.json", tables);
        return directory.path("translating");
    }

    const ServerProcess process_{VANTRELD_PROGRAM, rootWith(folder, TABLES), {"--display-name", "flame1"}};
    const std::string id_ = process_.id();
};

TEST_F(TranslationsTest, AnApplicationTranslatesPathsAndReadsTheTables) {
    const VantrelClient client;
    const VantrelServerHandle handle{VantrelServerId(id_.c_str())};
    VantrelStr path;
    ASSERT_TRUE(handle.translatePath("/mnt/a\tb\n\"c\"", path, nullptr, "flame2")) << handle.lastError();
    EXPECT_STREQ(path.c_str(), "/hosts/flame1/a\tb\n\"c\"");
    int hosts = 0;
    VantrelServerHandle::TranslationGroup group;
    VantrelServerHandle::HostTranslation host;
    VantrelServerHandle::OsTypeTranslation osType;
    ASSERT_TRUE(handle.getNumHostTranslations(hosts) && handle.getTranslationGroup(0, group) &&
                handle.getHostTranslation(1, host) && handle.getOsTypeTranslation(0, osType))
        << handle.lastError();
    EXPECT_EQ(hosts, 2);
    EXPECT_STREQ(group.getName(), "suite");
    EXPECT_EQ(group.getOsType(), VantrelOS::Linux);
    ASSERT_EQ(group.getHosts().size(), 2U);
    EXPECT_STREQ(group.getHosts()[1], "flame2");
    EXPECT_STREQ(host.getSrcHost(), "suite");
    EXPECT_STREQ(host.getDstPath(), "Z:");
    EXPECT_STREQ(osType.getSrcPath(), "/mnt/a, \"b\"");
    EXPECT_EQ(osType.getDstType(), VantrelOS::WindowsNT);
}

TEST_F(TranslationsTest, TheClientShowsALineForEachPath) {
    EXPECT_EQ(good({"translate", id_, "/mnt/a b", "/other", "/mnt", "--to-host", "flame2"}),
              "/hosts/flame1/a b\n/other\n/hosts/flame1\n");
    EXPECT_EQ(json({"translate", id_, "/mnt/x", "--from-host", "flame2", "--to-host", "pc1"}),
              nlohmann::json({"Z:/x"}));
    EXPECT_EQ(good({"translate", id_, "/mnt/x"}), "/mnt/x\n");
    const ServerProcess suite(VANTRELD_PROGRAM, folder.path("suite"),
                              {"--display-name", "Ann's \"Suite 3\""});
    EXPECT_EQ(good({"translate", suite.id(), "/a"}), "/a\n");
}

TEST(Translations, AServerDoesNotStartWithTablesThatItCannotRead) {
    const Vantrel::TemporaryDirectory root;
    const std::string file = root.write("translations.json", "{\"groups\": 1}");
    const ChildProcess::Result result =
        ChildProcess({VANTRELD_PROGRAM, "--root", root.path(), "--port", "0", "--frame-port", "0", "--demo"})
            .wait(std::chrono::seconds(30));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, StartsWith("vantreld: Invalid path translations '" + file +
                                       "': the document has a 'groups' that is not a list."));
    EXPECT_EQ(result.out, "");
}

}  // namespace
