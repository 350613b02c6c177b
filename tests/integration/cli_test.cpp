// What a user of the command-line client sees: exit statuses, messages, JSON, and how it ends when a server
// does not answer.
#include <array>

#include "CliFixture.h"
#include "ScriptedPeer.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Vantrel::ScriptedPeer;

namespace {

class CliTest : public CliFixture {};

TEST_F(CliTest, FailuresSayWhyAndOutputNothing) {
    makeReel();
    const std::string clip = std::string(REEL) + "/clip";
    good({"create-clip", server, REEL, "clip", "--width", "4", "--height", "4", "--frames", "1"});
    const std::string none = folder.path("none");
    const std::string text = folder.write("text", "no image");
    const std::string nul = folder.write("nul", std::string("a\0b", 3));
    const struct {
        int status;
        std::vector<std::string> arguments;
        std::string message = {};
    } rows[] = {
        {2, {}},
        {2, {"nonsense"}},
        {2, {"ls", server, "relative/path"}},
        {2, {"ls", server, "id:"}},
        {2, {"ls", server, "/", "/more"}},
        {2, {"stat", server}},
        {2, {"create", server, "/", "name"}},
        {2, {"--timeout", "0", "ping", server}},
        {2, {"--log-level", "loud", "ping", server}},
        {2, {"tree", server, "--depth", "-1"}},
        {2, {"create-clip", server, "/", "n", "--width", "1"}},
        {2, {"create-clip", server, "/", "n", "--width", "1", "--height", "1", "--scan", "sideways"}},
        {2, {"export", server, "/", ".", "--as", "gif"}},
        {2, {"read-frame", server, "/", "-1", "--output", "x"}},
        {2, {"config"}},
        {2, {"meta", "set", server, "/", "XML"}},
        {2, {"meta", "set", server, "/", "XML", "text", "--file", "f"}},
        {1, {"stat", server, "/stor1/none"}, "vantrel: '/stor1/none' not found on server '" + server + "'\n"},
        {1, {"ls", server, "id:none"}},
        {1, {"create", server, "/", "name", "--type", "NONSENSE"}},
        {1, {"read-frame", server, clip, "1", "--output", folder.path("f")}},
        {1, {"read-frame", server, clip, "0", "--output", none + "/f"}},
        {1, {"write-frame", server, clip, "0", none}, "cannot open '" + none + "'"},
        {1, {"write-frame", server, clip, "1", text}},
        {1, {"import", server, REEL, "new", text}, "cannot open image '" + text + "'"},
        {1, {"export", server, REEL, folder.path("out"), "--as", "png"}},
        {1, {"pull", server, "none", folder.path("pulled")}},
        {1, {"push", server, none, "pushed"}},
        {1, {"meta", "get", server, "/", "NONSENSE"}},
        {1, {"meta", "set", server, clip, "XML", "--file", nul}, "NUL"},
        {1, {"translate", server, "/a", "--from-host", ""}, "Invalid source host name given\n"},
    };
    for (const auto& [status, arguments, message] : rows) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        const ChildProcess::Result result = run(arguments);
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, HasSubstr(message));
        EXPECT_GT(result.err.size(), std::string("vantrel: \n").size());
    }
    EXPECT_THAT(json({"ls", server, REEL}), ::testing::SizeIs(1)) << "a failed import left a clip";
    EXPECT_FALSE(std::filesystem::exists(folder.path("pulled")));
    EXPECT_FALSE(std::filesystem::exists(folder.path("f")));

    EXPECT_EQ(run({"--help"}).status, 0);
    EXPECT_EQ(run({"ls", "--help"}).status, 0);
    const std::string toFull = std::string(VANTREL_PROGRAM) + " ping " + server + " --json >/dev/full";
    const ChildProcess::Result full = ChildProcess({"/bin/sh", "-c", toFull}).wait(LIMIT);
    EXPECT_EQ(full.status, 1);
    EXPECT_THAT(full.err, HasSubstr(std::strerror(ENOSPC)));
}

TEST_F(CliTest, JsonHasTheKeysThatProgramsReadBy) {
    makeReel();
    const std::string clip = std::string(REEL) + "/clip";
    const nlohmann::json created = json(
        {"create-clip", server,        REEL,           "clip", "--width",        "10",      "--height", "3",
         "--bits",      "30",          "--channels",   "3",    "--rate",         "29.97",   "--ratio",  "0.9",
         "--scan",      "field2_even", "--format-tag", "yuv",  "--colour-space", "Rec 709", "--frames", "2"});
    const nlohmann::json id = created["id"];
    EXPECT_EQ(created, nlohmann::json({{"id", id}}));
    EXPECT_EQ(json({"ping", server}), nlohmann::json({{"ok", true}}));

    nlohmann::json info = json({"info", server});
    EXPECT_THAT(info["protocolVersion"].get<std::string>(), ::testing::MatchesRegex("[0-9]+(\\.[0-9]+){3}"));
    nlohmann::json expected{{"nodePort", process.nodePort()}, {"framePort", process.framePort()}};
    for (const char* key : {"hostName", "displayName", "database", "storageId", "hostUUID", "vendor",
                            "product", "productVersion", "protocolVersion", "id"})
        expected[key] = info[key];
    EXPECT_EQ(info, expected);

    const nlohmann::json stat = json({"stat", server, clip});
    expected = nlohmann::json::parse(R"({"displayName": "clip", "type": "CLIP", "isClip": true,
        "frames": 2, "format": {"width": 10, "height": 3, "bitsPerPixel": 30, "channels": 3,
        "frameBufferSize": 113, "pixelRatio": 0.9, "frameRate": 29.97, "scanFormat": "field2_even",
        "formatTag": "yuv", "metaDataTag": "none", "metaData": "", "colourSpace": "Rec 709"}})");
    expected["id"] = id;
    EXPECT_EQ(stat, expected);
    EXPECT_EQ(json({"stat", server, "id:" + id.get<std::string>()}), stat);
    const nlohmann::json reel = json({"stat", server, REEL});
    EXPECT_EQ(reel["isClip"], false);
    EXPECT_EQ(reel["frames"], 0);
    EXPECT_TRUE(reel["format"].is_null());
    EXPECT_EQ(json({"ls", server, REEL})[0], nlohmann::json({{"id", id}, {"displayName", "clip"}}));
    EXPECT_EQ(json({"frames", server, clip}).size(), 2U);
    EXPECT_EQ(json({"frame-paths", server, clip}).size(), 2U);
}

TEST_F(CliTest, NamesOfAnyBytesAreListedAndFound) {
    // Names, and how they print as lines and as JSON where that differs.
    const std::array<std::string, 3> rows[] = {
        {"7 16 x, 100%s \"c\" \\d \xC3\xA9"},
        {"two\nlines\t\x1B[31m", "two\\nlines\\t\\x1B[31m"},
        {"bad \xFF byte", "", "bad \xEF\xBF\xBD byte"},
    };
    std::string lines;
    for (const auto& [name, line, unused] : rows) {
        good({"create", server, "/", name, "--type", "VOLUME"});
        lines += (line.empty() ? name : line) + "\n";
    }
    EXPECT_EQ(good({"ls", server}), lines);
    const nlohmann::json listed = json({"ls", server});
    ASSERT_EQ(listed.size(), std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto& [name, unused, inJson] = rows[i];
        EXPECT_EQ(listed[i]["displayName"], inJson.empty() ? name : inJson);
        EXPECT_EQ(json({"stat", server, "/" + name})["id"], listed[i]["id"]);
    }
}

TEST_F(CliTest, FramePathsAreThoseThatTheServerNames) {
    ScriptedPeer withoutFrames;
    withoutFrames.answer("GetDaemonInfo", ScriptedPeer::ok("VersionMajor 4 2024"));
    withoutFrames.answer("GetFramePathsEx", ScriptedPeer::ok("3 2 /a2 /b2 /c"));
    EXPECT_EQ(good({"frame-paths", withoutFrames.address(), "id:n1"}), "/a\n/b\n/c\n");
}

TEST_F(CliTest, NodesAreShownRenamedDuplicatedAndRemoved) {
    makeReel();
    EXPECT_EQ(good({"tree", server, "/stor1", "--depth", "0"}), "stor1\n");
    EXPECT_EQ(good({"tree", server, "/stor1/demo"}), "demo\n  Library\n    reel 1\n");
    const nlohmann::json tree = json({"tree", server, "/stor1", "--depth", "1"});
    EXPECT_EQ(tree["displayName"], "stor1");
    ASSERT_EQ(tree["children"].size(), 1U);
    EXPECT_EQ(tree["children"][0]["displayName"], "demo");
    EXPECT_FALSE(tree["children"][0].contains("children"));

    const std::string library = "/stor1/demo/Library";
    good({"rename", server, REEL, "reel 2"});
    const std::string copy = json({"duplicate", server, library + "/reel 2", library, "reel 3"})["id"];
    EXPECT_EQ(good({"ls", server, library}), "reel 2\nreel 3\n");
    EXPECT_EQ(json({"rm", server, "id:" + copy}), nlohmann::json({{"ok", true}}));
    EXPECT_EQ(good({"ls", server, library}), "reel 2\n");
    EXPECT_EQ(good({"rm", server, "/stor1"}), "");
    EXPECT_EQ(good({"ls", server}), "");
}

TEST_F(CliTest, MetadataAndFilesComeBackUnchanged) {
    makeReel();
    const std::string text = "<a>\n\ttext \\n with \"quotes\" and no end of line</a>";
    good({"meta", "set", server, REEL, "XML", text});
    EXPECT_EQ(good({"meta", "get", server, REEL, "XML"}), text);
    good({"meta", "set", server, REEL, "XML", "--file", folder.write("meta", text + "\n")});
    EXPECT_EQ(good({"meta", "get", server, REEL, "XML"}), text + "\n");
    EXPECT_THAT(good({"meta", "list", server, REEL}), HasSubstr("XML\n"));

    // Whole pieces of the transfer and a rest, with every byte value.
    for (const int size : {0, 1, 262144, 600001}) {
        std::string content(static_cast<std::size_t>(size), '\0');
        for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i % 251);
        good({"push", server, folder.write("local", content), "remote"});
        good({"pull", server, "remote", folder.path("back")});
        EXPECT_TRUE(folder.read("back") == content) << size << " bytes";
    }
}

// Every time-out that the option does not replace lasts longer than the test.
TEST_F(CliTest, AServerThatDoesNotAnswerIsReportedWithinTheTimeout) {
    std::vector<std::string> longer;
    for (const char* name : {"DEFAULT_CALL", "GET_DAEMON_INFO_CALL", "CONNECTION", "CONNECTION_RETRY"})
        longer.push_back(std::string("VANTREL_") + name + "_TIMEOUT_MS=600000");
    ScriptedPeer peers[4];
    peers[0].refuse();
    peers[1].neverAnswer("_login");
    peers[2].neverAnswer("GetDaemonInfo");
    peers[3].answer("GetDaemonInfo", ScriptedPeer::ok("VersionMajor 4 2024"));
    peers[3].neverAnswer("Ping");
    std::vector<std::string> servers{"no.such.host.invalid:7549"};
    for (const ScriptedPeer& peer : peers) servers.push_back(peer.address());
    for (const std::string& each : servers) {
        SCOPED_TRACE(each);
        const auto result = ChildProcess(command({"--timeout", "500", "ping", each}), longer).wait(LIMIT);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, StartsWith("vantrel: "));
        EXPECT_GT(result.err.size(), std::string("vantrel: \n").size());
    }
}

TEST_F(CliTest, ASignalEndsAWaitingCommandAtOnce) {
    for (const int signal : {SIGINT, SIGTERM}) {
        ScriptedPeer silent;
        silent.neverAnswer("_login");
        ChildProcess client(command({"--timeout", "600000", "ls", silent.address()}));
        ASSERT_TRUE(silent.waitForConnections(1));
        client.signal(signal);
        const ChildProcess::Result result = client.wait(LIMIT);
        EXPECT_EQ(result.status, 128 + signal);
        EXPECT_EQ(result.err, "vantrel: interrupted\n");
    }
}

TEST_F(CliTest, TheNetworkConfigurationIsCreatedAndShown) {
    const std::string file = folder.path("cfg/network.cfg");
    const std::vector<std::string> variables{"QD_NETWORK_CFG_FILE=" + file};
    const auto config = [&](const char* what) {
        return ChildProcess(command({"config", what}), variables).wait(LIMIT);
    };
    EXPECT_EQ(config("show").err, "vantrel: cannot open '" + file + "': " + std::strerror(ENOENT) + "\n");
    EXPECT_EQ(config("create").out, file + "\n");
    const ChildProcess::Result shown = config("show");
    EXPECT_EQ(shown.status, 0) << shown.err;
    EXPECT_THAT(shown.out, StartsWith("[Local]\n"));
    EXPECT_EQ(shown.out, folder.read("cfg/network.cfg"));
}

}  // namespace
