// What a user of the command-line client sees: exit statuses, messages, JSON, and how it ends when a server
// does not answer.
#include "CliFixture.h"
#include "ScriptedPeer.h"

using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Vantrel::ScriptedPeer;

namespace {

class CliTest : public CliFixture {};

std::vector<std::string> keys(const nlohmann::json& object) {
    std::vector<std::string> names;
    for (const auto& item : object.items()) names.push_back(item.key());
    return names;
}

TEST_F(CliTest, WrongUsageEndsWithStatusTwoAndOutputsNothing) {
    const std::vector<std::vector<std::string>> wrong = {
        {},
        {"nonsense"},
        {"ls"},
        {"ls", server, "relative/path"},
        {"ls", server, "id:"},
        {"ls", server, "/", "/more"},
        {"stat", server},
        {"create", server, "/", "name"},
        {"--timeout", "0", "ping", server},
        {"--timeout", "soon", "ping", server},
        {"--log-level", "loud", "ping", server},
        {"tree", server, "--depth", "-1"},
        {"create-clip", server, "/", "n", "--width", "1"},
        {"create-clip", server, "/", "n", "--width", "1", "--height", "1", "--scan", "sideways"},
        {"export", server, "/", ".", "--as", "gif"},
        {"import", server, "/", "name"},
        {"read-frame", server, "/", "-1", "--output", "x"},
        {"config"},
        {"translate", server},
        {"meta"},
        {"meta", "set", server, "/", "XML"},
        {"meta", "set", server, "/", "XML", "text", "--file", "f"},
    };
    for (const auto& arguments : wrong) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        const ChildProcess::Result result = run(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err, "");
    }
    EXPECT_EQ(run({"--help"}).status, 0);
    EXPECT_EQ(run({"ls", "--help"}).status, 0);
}

TEST_F(CliTest, FailuresEndWithStatusOneAndSayWhy) {
    makeReel();
    const std::string clip = std::string(REEL) + "/clip";
    good({"create-clip", server, REEL, "clip", "--width", "4", "--height", "4", "--frames", "1"});
    const std::string text = folder.write("text", "no image");
    const std::string nul = folder.write("nul", std::string("a\0b", 3));
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{"stat", server, "/stor1/none"}, "'/stor1/none' not found on server '" + server + "'\n"},
        {{"ls", server, "id:none"}, ""},
        {{"create", server, "/", "name", "--type", "NONSENSE"}, ""},
        {{"rm", server, "/"}, ""},
        {{"frames", server, "/stor1/none"}, "'/stor1/none' not found"},
        {{"read-frame", server, clip, "1", "--output", folder.path("f")}, ""},
        {{"read-frame", server, clip, "0", "--output", folder.path("none/f")}, ""},
        {{"write-frame", server, clip, "0", folder.path("none")},
         "cannot open '" + folder.path("none") + "'"},
        {{"write-frame", server, clip, "1", text}, ""},
        {{"import", server, REEL, "new", text}, "cannot open image '" + text + "'"},
        {{"import", server, REEL, "new", folder.path("none.png")}, "cannot open image"},
        {{"export", server, REEL, folder.path("out"), "--as", "png"}, ""},
        {{"pull", server, "none", folder.path("pulled")}, ""},
        {{"pull", server, "../none", folder.path("pulled")}, ""},
        {{"push", server, folder.path("none"), "pushed"}, ""},
        {{"meta", "get", server, "/", "NONSENSE"}, ""},
        {{"meta", "set", server, clip, "XML", "--file", nul}, "NUL"},
        {{"translate", server, "/a", "--from-host", ""}, "Invalid source host name given\n"},
    };
    for (const auto& [arguments, message] : rows) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        const ChildProcess::Result result = run(arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, StartsWith("vantrel: "));
        EXPECT_THAT(result.err, HasSubstr(message));
        EXPECT_GT(result.err.size(), std::string("vantrel: \n").size());
        EXPECT_EQ(result.out, "");
    }
    EXPECT_THAT(json({"ls", server, REEL}), ::testing::SizeIs(1)) << "a failed import left a clip";
    EXPECT_FALSE(std::filesystem::exists(folder.path("pulled")));
    EXPECT_FALSE(std::filesystem::exists(folder.path("f")));
}

TEST_F(CliTest, OutputThatCannotBeWrittenIsAFailure) {
    const ChildProcess::Result result =
        ChildProcess(
            {"/bin/sh", "-c", std::string(VANTREL_PROGRAM) + " ping " + server + " --json >/dev/full"})
            .wait(LIMIT);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr(std::strerror(ENOSPC)));
}

TEST_F(CliTest, JsonHasTheKeysThatProgramsReadBy) {
    makeReel();
    const std::string clip = std::string(REEL) + "/clip";
    const nlohmann::json created = json(
        {"create-clip", server,        REEL,           "clip", "--width",        "10",      "--height", "3",
         "--bits",      "30",          "--channels",   "3",    "--rate",         "29.97",   "--ratio",  "0.9",
         "--scan",      "field2_even", "--format-tag", "yuv",  "--colour-space", "Rec 709", "--frames", "2"});
    EXPECT_THAT(keys(created), ElementsAre("id"));

    EXPECT_EQ(json({"ping", server}), nlohmann::json::parse(R"({"ok": true})"));
    const nlohmann::json info = json({"info", server});
    EXPECT_THAT(keys(info),
                ::testing::UnorderedElementsAre("hostName", "displayName", "database", "storageId",
                                                "hostUUID", "vendor", "product", "productVersion",
                                                "protocolVersion", "nodePort", "framePort", "id"));
    EXPECT_EQ(info["nodePort"], process.nodePort());
    EXPECT_EQ(info["framePort"], process.framePort());
    EXPECT_THAT(info["protocolVersion"].get<std::string>(), ::testing::MatchesRegex("[0-9]+(\\.[0-9]+){3}"));

    const nlohmann::json stat = json({"stat", server, clip});
    nlohmann::json expected = nlohmann::json::parse(R"({"displayName": "clip", "type": "CLIP", "isClip": true,
        "frames": 2, "format": {"width": 10, "height": 3, "bitsPerPixel": 30, "channels": 3,
        "frameBufferSize": 113, "pixelRatio": 0.9, "frameRate": 29.97, "scanFormat": "field2_even",
        "formatTag": "yuv", "metaDataTag": "none", "metaData": "", "colourSpace": "Rec 709"}})");
    expected["id"] = created["id"];
    EXPECT_EQ(stat, expected);
    EXPECT_EQ(json({"stat", server, "id:" + created["id"].get<std::string>()}), stat);

    const nlohmann::json reel = json({"stat", server, REEL});
    EXPECT_EQ(reel["isClip"], false);
    EXPECT_EQ(reel["frames"], 0);
    EXPECT_TRUE(reel["format"].is_null());

    const nlohmann::json listed = json({"ls", server, REEL});
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_EQ(listed[0], nlohmann::json({{"id", created["id"]}, {"displayName", "clip"}}));
    EXPECT_EQ(json({"frames", server, clip}).size(), 2U);
    EXPECT_EQ(json({"frame-paths", server, clip}).size(), 2U);
}

TEST_F(CliTest, TheTreeShowsAsManyLevelsAsAsked) {
    makeReel();
    EXPECT_EQ(good({"tree", server, "/stor1", "--depth", "0"}), "stor1\n");
    EXPECT_EQ(good({"tree", server, "/stor1", "--depth", "1"}), "stor1\n  demo\n");
    EXPECT_EQ(good({"tree", server, "/stor1/demo"}), "demo\n  Library\n    reel 1\n");
    const nlohmann::json tree = json({"tree", server, "/stor1", "--depth", "1"});
    EXPECT_EQ(tree["displayName"], "stor1");
    ASSERT_EQ(tree["children"].size(), 1U);
    EXPECT_EQ(tree["children"][0]["displayName"], "demo");
    EXPECT_FALSE(tree["children"][0].contains("children"));
}

TEST_F(CliTest, NamesOfAnyBytesAreListedAndFound) {
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"a,b \"c\" \\d", "a,b \"c\" \\d", "a,b \"c\" \\d"},
        {"two\nlines\t\x1B[31m", "two\\nlines\\t\\x1B[31m", "two\nlines\t\x1B[31m"},
        {"\xC3\xA9t\xC3\xA9", "\xC3\xA9t\xC3\xA9", "\xC3\xA9t\xC3\xA9"},
        {"bad \xFF byte", "bad \xFF byte", "bad \xEF\xBF\xBD byte"},
        {"ls", "ls", "ls"},
        {"7 16 x, 100%s", "7 16 x, 100%s", "7 16 x, 100%s"},
    };
    std::string lines;
    for (const auto& [name, line, unused] : rows) {
        good({"create", server, "/", name, "--type", "VOLUME"});
        lines += line + std::string("\n");
    }
    EXPECT_EQ(good({"ls", server}), lines);
    const nlohmann::json listed = json({"ls", server});
    ASSERT_EQ(listed.size(), std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(listed[i]["displayName"], std::get<2>(rows[i]));
        const std::string path = std::string("/") + std::get<0>(rows[i]);
        EXPECT_EQ(json({"stat", server, path})["id"], listed[i]["id"]);
    }
}

TEST_F(CliTest, NodesAreRenamedDuplicatedAndRemoved) {
    makeReel();
    good({"rename", server, REEL, "reel 2"});
    const std::string copy =
        json({"duplicate", server, "/stor1/demo/Library/reel 2", "/stor1/demo/Library", "reel 3"})["id"];
    EXPECT_EQ(good({"ls", server, "/stor1/demo/Library"}), "reel 2\nreel 3\n");
    EXPECT_EQ(json({"rm", server, "id:" + copy}), nlohmann::json::parse(R"({"ok": true})"));
    EXPECT_EQ(good({"ls", server, "/stor1/demo/Library"}), "reel 2\n");
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
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, std::size_t{262144}, std::size_t{600001}}) {
        std::string content(size, '\0');
        for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>(i % 251);
        good({"push", server, folder.write("local", content), "remote"});
        good({"pull", server, "remote", folder.path("back")});
        EXPECT_TRUE(readFile(folder.path("back")) == content) << size << " bytes";
    }
}

TEST_F(CliTest, AServerThatDoesNotAnswerIsReportedWithinTheTimeout) {
    ScriptedPeer refusing;
    refusing.refuse();
    ScriptedPeer silent;
    silent.neverAnswer("_login");
    const std::pair<std::string, const char*> rows[] = {
        {refusing.address(), "ping"}, {refusing.address(), "ls"},          {silent.address(), "ping"},
        {silent.address(), "info"},   {"no.such.host.invalid:7549", "ls"},
    };
    for (const auto& [address, name] : rows) {
        SCOPED_TRACE(address + " " + name);
        const auto start = steady_clock::now();
        const ChildProcess::Result result = run({"--timeout", "1000", name, address});
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, StartsWith("vantrel: "));
        EXPECT_GT(result.err.size(), std::string("vantrel: \n").size());
        // Connecting again, and a slow machine, are allowed for; the library's own time-outs are not.
        EXPECT_LT(steady_clock::now() - start, std::chrono::milliseconds(4500));
    }
}

TEST_F(CliTest, ASignalEndsAWaitingCommandAtOnce) {
    for (const int signal : {SIGINT, SIGTERM}) {
        ScriptedPeer silent;
        silent.neverAnswer("_login");
        ChildProcess client(command({"--timeout", "600000", "ls", silent.address()}));
        ASSERT_TRUE(silent.waitForConnections(1));
        client.signal(signal);
        const ChildProcess::Result result = client.wait(std::chrono::seconds(10));
        EXPECT_EQ(result.status, 128 + signal);
        EXPECT_EQ(result.err, "vantrel: interrupted\n");
    }
}

TEST_F(CliTest, TheNetworkConfigurationIsCreatedAndShown) {
    const std::string file = folder.path("cfg/network.cfg");
    const std::vector<std::string> variables{"QD_NETWORK_CFG_FILE=" + file};
    const auto config = [&](const char* what) {
        return ChildProcess({VANTREL_PROGRAM, "config", what}, variables).wait(LIMIT);
    };
    const ChildProcess::Result missing = config("show");
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "vantrel: cannot open '" + file + "': " + std::strerror(ENOENT) + "\n");
    const ChildProcess::Result created = config("create");
    EXPECT_EQ(created.status, 0) << created.err;
    EXPECT_EQ(created.out, file + "\n");
    const ChildProcess::Result shown = config("show");
    EXPECT_EQ(shown.status, 0) << shown.err;
    EXPECT_THAT(shown.out, StartsWith("[Local]\n"));
    EXPECT_EQ(shown.out, readFile(file));
}

}  // namespace
