// Path translation and the other server-wide commands, from the handle and its command client to the wire.
#include <gmock/gmock.h>
#include <vantrel/VantrelClientAPI.h>

#include <functional>
#include <string>
#include <vector>

#include "ScriptedPeer.h"
#include "VantrelBaseClientAPI.h"

using testing::ElementsAre;
using testing::IsEmpty;
using Vantrel::ScriptedPeer;

namespace {

using Handle = VantrelServerHandle;

VantrelStrList list(const std::vector<const char*>& texts) {
    VantrelStrList all;
    for (const char* text : texts) all.push_back(text);
    return all;
}

std::string told(const VantrelStrList& texts) {
    std::string all;
    for (unsigned i = 0; i < texts.size(); ++i) all += std::string("<") + texts.getStr(i) + ">";
    return all;
}

class Translations : public testing::Test {
  protected:
    Translations() {
        peer_.answer("GetDaemonInfo",
                     ScriptedPeer::ok("HostName 8 the-hostDisplayName 5 ShownNodePort " +
                                      std::to_string(std::to_string(peer_.port()).size()) + " " +
                                      std::to_string(peer_.port()) + "VersionMajor 4 2024"));
    }

    VantrelClient client_;
    ScriptedPeer peer_;
    const Handle server_{VantrelServerId(peer_.address().c_str())};
};

TEST_F(Translations, PathsGoOutAndComeBackInOrder) {
    peer_.answer("TranslatePaths", ScriptedPeer::ok(R"("/x,1","C:\\new \"2\"")"));
    VantrelStrList result;
    ASSERT_TRUE(server_.translatePaths(list({"/a b", "/c\"\\d"}), result, "one", "two", VantrelOS::Linux,
                                       VantrelOS::WindowsNT))
        << server_.lastError();
    EXPECT_EQ(told(result), "</x,1><C:\\new \"2\">");
    EXPECT_THAT(peer_.arguments("TranslatePaths"), ElementsAre(R"("one" 2 "two" 3 "/a b","/c\"\\d")"));
}

TEST_F(Translations, HostsThatAreNotGivenAreTheServers) {
    peer_.answer("TranslatePaths", ScriptedPeer::ok("\"/new\""));
    VantrelStr result;
    const char* const hosts[][2] = {{nullptr, nullptr}, {"one", nullptr}, {nullptr, "two"}};
    for (const auto& [from, to] : hosts) {
        EXPECT_TRUE(server_.translatePath("/old", result, from, to)) << server_.lastError();
        EXPECT_STREQ(result.c_str(), "/new");
    }
    EXPECT_THAT(peer_.arguments("TranslatePaths"),
                ElementsAre("\"Shown\" 0 \"the-host\" 0 \"/old\"", "\"one\" 0 \"the-host\" 0 \"/old\"",
                            "\"Shown\" 0 \"two\" 0 \"/old\""));
}

TEST_F(Translations, HostsThatAreNoneAreRefusedBeforeAnythingIsSent) {
    const char* const source = "Invalid source host name given";
    const char* const destination = "Invalid destination host name given";
    const struct {
        const char* from;
        const char* to;
        const char* error;
    } cases[] = {{"", "two", source},      {"o ne", "two", source},  {"o\"ne", "two", source},
                 {"\n", "", source},       {"one", "", destination}, {"one", "two\t", destination},
                 {"one", "'", destination}};
    for (const auto& c : cases) {
        VantrelStr result("kept");
        EXPECT_FALSE(server_.translatePath("/a", result, c.from, c.to));
        EXPECT_STREQ(server_.lastError(), c.error);
        EXPECT_STREQ(result.c_str(), "kept");
    }
    EXPECT_EQ(peer_.connections(), 0u);
}

TEST_F(Translations, RepliesThatDoNotFitTheRequestAreRefused) {
    const struct {
        std::string line;
        const char* error;
    } cases[] = {{ScriptedPeer::ok("\"/a\""), "Invalid path list"},
                 {ScriptedPeer::ok("\"/a\",\"/b\",\"/c\""), "Invalid path list"},
                 {ScriptedPeer::ok("/a,/b"), "Invalid path list"},
                 {ScriptedPeer::ok(""), "Invalid path list"},
                 {ScriptedPeer::error("No such host."), "No such host."}};
    for (const auto& c : cases) {
        peer_.answer("TranslatePaths", c.line);
        VantrelStrList result = list({"kept"});
        EXPECT_FALSE(server_.translatePaths(list({"/1", "/2"}), result, "one", "two")) << c.line;
        EXPECT_STREQ(server_.lastError(), c.error);
        EXPECT_EQ(told(result), "<kept>");
    }
    peer_.answer("TranslatePaths", ScriptedPeer::ok(""));
    VantrelStrList none = list({"old"});
    EXPECT_TRUE(server_.translatePaths(VantrelStrList(), none, "one", "two")) << server_.lastError();
    EXPECT_EQ(none.size(), 0u);
}

/// One of the three tables, with its entries as text.
struct TableCase {
    const char* method;
    std::string reply;  ///< two entries
    std::string empty;
    const char* error;  ///< of a malformed reply
    bool (Handle::*count)(int&) const;
    std::function<bool(const Handle&, int, std::string&)> get;
    const char* entries[2];
};

void PrintTo(const TableCase& c, std::ostream* out) {
    *out << c.method;
}

class TranslationTables : public Translations, public testing::WithParamInterface<TableCase> {};

TEST_P(TranslationTables, AreAskedForOnceAndAgainWhenCounted) {
    const TableCase& c = GetParam();
    const auto asked = [&] { return peer_.arguments(c.method); };
    peer_.answer(c.method, ScriptedPeer::ok(c.reply));
    std::string entry;
    for (const int index : {1, 0, 1}) {
        EXPECT_TRUE(c.get(server_, index, entry)) << server_.lastError();
        EXPECT_EQ(entry, c.entries[index]);
    }
    EXPECT_THAT(asked(), ElementsAre("")) << "the first of the calls has asked";
    for (const int index : {-1, 2, 2147483647}) {
        EXPECT_FALSE(c.get(server_, index, entry));
        EXPECT_EQ(server_.lastError(), "Index " + std::to_string(index) + " is out of the bounds 0,2.");
    }
    EXPECT_EQ(entry, c.entries[1]);

    int count = -1;
    EXPECT_TRUE((server_.*c.count)(count));
    EXPECT_EQ(count, 2);
    peer_.answer(c.method, ScriptedPeer::ok("rubbish"));
    EXPECT_FALSE((server_.*c.count)(count));
    EXPECT_STREQ(server_.lastError(), c.error);
    EXPECT_EQ(count, 2);
    EXPECT_TRUE(c.get(server_, 1, entry)) << "a failed count has taken the table away";
    peer_.answer(c.method, ScriptedPeer::ok(c.empty));
    EXPECT_TRUE((server_.*c.count)(count));
    EXPECT_EQ(count, 0);
    EXPECT_FALSE(c.get(server_, 0, entry));
    EXPECT_STREQ(server_.lastError(), "Index 0 is out of the bounds 0,0.");
    EXPECT_EQ(asked().size(), 4u);
}

INSTANTIATE_TEST_SUITE_P(
    Tables, TranslationTables,
    testing::Values(
        TableCase{
            "GetTranslationGroups",
            "numGroups 1 20 40 name 2 g1osType 1 2hosts 12 2 3 one3 two1 27 name 0 osType 1 0hosts 2 0 ",
            "numGroups 1 0",
            "Invalid translation group list",
            &Handle::getNumTranslationGroups,
            [](const Handle& server, int index, std::string& text) {
                Handle::TranslationGroup group;
                if (!server.getTranslationGroup(index, group)) return false;
                text = group.getName() + std::string("|") + VantrelOS::OsTypeStr(group.getOsType()) + "|" +
                       told(group.getHosts());
                return true;
            },
            {"g1|Linux|<one><two>", "|Unknown|"}},
        TableCase{
            "GetHostTranslations",
            "numHostTranslations 1 20 51 srcHost 3 onesrcPath 4 /a bdstHost 3 twodstPath 1 /1 43 srcHost "
            "0 srcPath 0 dstHost 0 dstPath 3 end",
            "numHostTranslations 1 0",
            "Invalid host translation list",
            &Handle::getNumHostTranslations,
            [](const Handle& server, int index, std::string& text) {
                Handle::HostTranslation got;
                if (!server.getHostTranslation(index, got)) return false;
                text = got.getSrcHost() + std::string("|") + got.getSrcPath() + "|" + got.getDstHost() + "|" +
                       got.getDstPath();
                return true;
            },
            {"one|/a b|two|/", "|||end"}},
        TableCase{
            "GetOsTypeTranslations",
            "numOsTypeTranslations 1 20 48 srcType 1 2srcPath 4 /mntdstType 1 3dstPath 2 Z:1 42 srcType "
            "1 4srcPath 0 dstType 1 1dstPath 0 ",
            "numOsTypeTranslations 1 0",
            "Invalid OS type translation list",
            &Handle::getNumOsTypeTranslations,
            [](const Handle& server, int index, std::string& text) {
                Handle::OsTypeTranslation got;
                if (!server.getOsTypeTranslation(index, got)) return false;
                text = VantrelOS::OsTypeStr(got.getSrcType()) + std::string("|") + got.getSrcPath() + "|" +
                       VantrelOS::OsTypeStr(got.getDstType()) + "|" + got.getDstPath();
                return true;
            },
            {"Linux|/mnt|WindowsNT|Z:", "MacOSX||Irix|"}}));

TEST_F(Translations, HandlesThatCannotWorkSayWhy) {
    Handle moved{VantrelServerId(peer_.address().c_str())};
    const Handle taker(std::move(moved));
    VantrelStr path;
    int count = 0;
    Handle::HostTranslation entry;
    EXPECT_FALSE(moved.translatePath("/a", path, "one", "two"));
    EXPECT_FALSE(moved.getNumHostTranslations(count));
    EXPECT_FALSE(moved.getHostTranslation(0, entry));
    VantrelClientUninit();
    EXPECT_FALSE(taker.translatePath("/a", path, "one", "two"));
    EXPECT_STREQ(taker.lastError(), "API not initialized");
    VantrelClientInit();
    EXPECT_EQ(peer_.connections(), 0u);
}

TEST(BaseClient, VersionAndShutdown) {
    ScriptedPeer peer;
    peer.answer("GetDaemonInfo", ScriptedPeer::ok(""));
    VantrelClientConnection connection(VantrelServerId(peer.address().c_str()));
    VantrelBaseClientAPI api(connection);
    const struct {
        std::string line;
        const char* error;
        int major;
        int minor;
    } cases[] = {{ScriptedPeer::ok("2024 7"), nullptr, 2024, 7},
                 {ScriptedPeer::ok("new"), "Invalid version 'new'", -1, -1},
                 {ScriptedPeer::error("Busy."), "Busy.", -1, -1}};
    for (const auto& c : cases) {
        peer.answer("QueryVersion", c.line);
        int major = -1;
        int minor = -1;
        EXPECT_EQ(api.queryVersion(major, minor), c.error == nullptr) << c.line;
        EXPECT_STREQ(api.lastError(), c.error ? c.error : "");
        EXPECT_EQ(major, c.major);
        EXPECT_EQ(minor, c.minor);
    }
    EXPECT_FALSE(api.shutdown());
    EXPECT_STREQ(api.lastError(), "Unknown method: 'Shutdown'.");
    peer.answer("Shutdown", ScriptedPeer::ok(""));
    EXPECT_TRUE(api.shutdown());
    EXPECT_THAT(peer.arguments("Shutdown"), ElementsAre("", ""));
}

}  // namespace
