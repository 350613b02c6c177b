// Path translation and the other server-wide commands, from the handle and its command client to the wire.
#include <gmock/gmock.h>
#include <vantrel/VantrelClientAPI.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "ScriptedPeer.h"
#include "VantrelBaseClientAPI.h"

using testing::ElementsAre;
using Vantrel::ScriptedPeer;

namespace {

using Handle = VantrelServerHandle;

VantrelStrList list(const std::vector<const char*>& texts) {
    VantrelStrList all;
    for (const char* text : texts) all.push_back(text);
    return all;
}

std::vector<std::string> texts(const VantrelStrList& list) {
    std::vector<std::string> all;
    for (unsigned i = 0; i < list.size(); ++i) all.emplace_back(list.getStr(i));
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

TEST_F(Translations, PathsGoOutAndComeBackInOrderWithTheServersHostsWhereNoneAreGiven) {
    peer_.answer("TranslatePaths", ScriptedPeer::ok(R"("/x,1","C:\\new \"2\"")"));
    const char* const hosts[][2] = {{"one", "two"}, {nullptr, nullptr}, {"one", nullptr}};
    for (const auto& [from, to] : hosts) {
        VantrelStrList result;
        EXPECT_TRUE(server_.translatePaths(list({"/a b", "/c\"\\d"}), result, from, to, VantrelOS::Linux,
                                           VantrelOS::WindowsNT))
            << server_.lastError();
        EXPECT_THAT(texts(result), ElementsAre("/x,1", "C:\\new \"2\""));
    }
    const std::string paths = R"( "/a b","/c\"\\d")";
    EXPECT_THAT(peer_.arguments("TranslatePaths"),
                ElementsAre(R"("one" 2 "two" 3)" + paths, R"("Shown" 2 "the-host" 3)" + paths,
                            R"("one" 2 "the-host" 3)" + paths));
}

TEST_F(Translations, HostsThatAreNoneAreRefusedBeforeAnythingIsSent) {
    const std::tuple<const char*, const char*, std::string> cases[] = {{"", "two", "source"},
                                                                       {"o\nne", "two", "source"},
                                                                       {"one", "", "destination"},
                                                                       {"one", "two\t", "destination"}};
    for (const auto& [from, to, which] : cases) {
        VantrelStr result("kept");
        EXPECT_FALSE(server_.translatePath("/a", result, from, to));
        EXPECT_EQ(server_.lastError(), "Invalid " + which + " host name given");
        EXPECT_STREQ(result.c_str(), "kept");
    }
    EXPECT_EQ(peer_.connections(), 0u);
}

TEST_F(Translations, RepliesThatDoNotFitTheRequestAreRefused) {
    const std::pair<std::string, const char*> cases[] = {
        {ScriptedPeer::ok("\"/a\""), "Invalid path list"},
        {ScriptedPeer::ok(""), "Invalid path list"},
        {ScriptedPeer::error("No such host."), "No such host."}};
    for (const auto& [line, error] : cases) {
        peer_.answer("TranslatePaths", line);
        VantrelStrList result = list({"kept"});
        EXPECT_FALSE(server_.translatePaths(list({"/1", "/2"}), result, "one", "two")) << line;
        EXPECT_STREQ(server_.lastError(), error);
        EXPECT_THAT(texts(result), ElementsAre("kept"));
    }
    peer_.answer("TranslatePaths", ScriptedPeer::ok(""));
    VantrelStrList none = list({"old"});
    EXPECT_TRUE(server_.translatePaths(VantrelStrList(), none, "one", "two")) << server_.lastError();
    EXPECT_EQ(none.size(), 0u);
}

// What the entries hold is the codec's, and read from a real server elsewhere.
TEST_F(Translations, TablesAreAskedForOnceAndAgainWhenCounted) {
    const char* const method = "GetHostTranslations";
    const auto path = [](int index) { return "/" + std::to_string(index); };
    peer_.answer(method, ScriptedPeer::ok("numHostTranslations 1 2"
                                          "0 44 srcHost 1 asrcPath 2 /0dstHost 1 bdstPath 0 "
                                          "1 44 srcHost 1 asrcPath 2 /1dstHost 1 bdstPath 0 "));
    Handle::HostTranslation entry;
    for (const int index : {1, 0, 1}) {
        EXPECT_TRUE(server_.getHostTranslation(index, entry)) << server_.lastError();
        EXPECT_EQ(entry.getSrcPath(), path(index));
    }
    EXPECT_THAT(peer_.arguments(method), ElementsAre("")) << "the first of the calls has asked";
    for (const int index : {-1, 2, 2147483647}) {
        EXPECT_FALSE(server_.getHostTranslation(index, entry));
        EXPECT_EQ(server_.lastError(), "Index " + std::to_string(index) + " is out of the bounds 0,2.");
    }
    int count = -1;
    EXPECT_TRUE(server_.getNumHostTranslations(count));
    EXPECT_EQ(count, 2);
    peer_.answer(method, ScriptedPeer::ok("rubbish"));
    EXPECT_FALSE(server_.getNumHostTranslations(count));
    EXPECT_STREQ(server_.lastError(), "Invalid host translation list");
    EXPECT_TRUE(server_.getHostTranslation(1, entry)) << "a failed count has taken the table away";
    peer_.answer(method, ScriptedPeer::ok("numHostTranslations 1 0"));
    EXPECT_TRUE(server_.getNumHostTranslations(count));
    EXPECT_FALSE(server_.getHostTranslation(0, entry));
    EXPECT_EQ(peer_.arguments(method).size(), 4u);
}

TEST_F(Translations, AVersionIsTwoNumbers) {
    VantrelClientConnection connection(VantrelServerId(peer_.address().c_str()));
    VantrelBaseClientAPI api(connection);
    peer_.answer("QueryVersion", ScriptedPeer::ok("new"));
    int major = -1;
    int minor = -1;
    EXPECT_FALSE(api.queryVersion(major, minor));
    EXPECT_STREQ(api.lastError(), "Invalid version 'new'");
    EXPECT_EQ(major, -1);
}

}  // namespace
