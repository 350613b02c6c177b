// What node handles remember, decide by themselves and hand on, and how they fail.
#include <functional>
#include <tuple>

#include "NodeFixture.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using Vantrel::ScriptedPeer;

namespace {

static_assert(!std::is_constructible_v<VantrelNodeHandle, VantrelServerHandle, const char*> &&
                  !std::is_constructible_v<VantrelNodeHandle, VantrelServerHandle, VantrelNodeId>,
              "a temporary server handle would be gone after the statement");

// --- What is remembered ---

TEST_F(NodeTest, AnswersAreKeptUntilTheNodeChanges) {
    VantrelServerHandle server(id());
    const VantrelServerHandle sameServer(server);
    const VantrelNodeHandle other(server, "n2");
    VantrelNodeHandle node(server, "n1");
    const auto askAll = [&] {
        const std::size_t before = methods().size();
        int number = 0;
        bool flag = false;
        VantrelStr text;
        VantrelClipFormat format;
        EXPECT_TRUE(node.getNumChildren(number) && node.getNumFrames(number) &&
                    node.getFrameIdPath(0, text) && node.getNumAvailableMetaDataStreams(number) &&
                    node.getNodeType(number) && node.getDisplayName(text) && node.getClipFormat(format) &&
                    node.getIsClipNode(flag))
            << server.lastError();
        return methods().size() - before;
    };
    const std::tuple<const char*, std::function<void()>, std::size_t> changes[] = {
        {"none", [] {}, 8},
        {"none since", [] {}, 0},
        {"the id already held", [&] { node.setNodeId("n1"); }, 0},
        {"another id", [&] { node.setNodeId("n2"); }, 8},
        {"another server handle", [&] { node.setServer(sameServer); }, 8},
        {"assignment", [&] { node = other; }, 8},
        {"its server handle is assigned", [&] { server = VantrelServerHandle(id()); }, 8},
        {"nothing, after that", [&] { node.setServer(server); }, 0},
    };
    for (const auto& [name, change, asked] : changes) {
        change();
        EXPECT_EQ(askAll(), asked) << name;
    }
}

TEST_F(NodeTest, ACommandThatWentOutMakesOldWhatItMayHaveChanged) {
    const VantrelServerHandle server(id());
    VantrelNodeHandle node(server, "n1");
    VantrelNodeHandle out;
    VantrelStr text;
    int number = 0;
    const VantrelStr paths[] = {"/a"};
    const std::function<bool()> children = [&] { return node.getNumChildren(number); };
    const std::function<bool()> frames = [&] { return node.getNumFrames(number); };
    const struct {
        const char* command;
        std::function<bool()> edit;
        const char* query;
        std::function<bool()> ask;
    } rows[] = {
        {"CreateNodeEx", [&] { return node.createNode("c", "REEL", out); }, "GetChildrenEx", children},
        {"DuplicateNode", [&] { return node.duplicateNode(node, "d", out); }, "GetChildrenEx", children},
        {"AllocateFramesEx", [&] { return node.setNumFrames(1); }, "GetFramesEx", frames},
        {"SetFramePathsEx", [&] { return node.linkToFrames(paths, 1); }, "GetFramePathsEx",
         [&] { return node.getFrameIdPath(0, text); }},
        {"RenameNode", [&] { return node.renameNode("e"); }, "GetDisplayNameEx",
         [&] { return node.getDisplayName(text); }},
        {"SetMetaData", [&] { return node.setMetaData("XML", "<x/>"); }, "QueryMetaDataSupport",
         [&] { return node.getNumAvailableMetaDataStreams(number); }},
        {"DestroyNode", [&] { return node.destroyNode(); }, "GetNodeType",
         [&] { return node.getNodeType(number); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        const std::string works = answers.at(row.command);
        for (const bool refused : {true, false}) {
            node.setNodeId("n1");
            EXPECT_TRUE(row.ask()) << server.lastError();
            const std::size_t before = peer.arguments(row.query).size();
            peer.answer(row.command, refused ? ScriptedPeer::error("No.") : ScriptedPeer::ok(works));
            EXPECT_EQ(row.edit(), !refused) << server.lastError();
            EXPECT_TRUE(row.ask()) << server.lastError();
            EXPECT_EQ(peer.arguments(row.query).size() - before, 1U) << refused;
        }
    }
    EXPECT_STREQ(node.getNodeId().id(), "") << "destroyed";
    peer.answer("RenameNode", ScriptedPeer::ok("n77"));
    ASSERT_TRUE(node.renameNode("f"));
    EXPECT_STREQ(node.getNodeId().id(), "n77");
}

TEST_F(NodeTest, AnEditThatWasNotSentLeavesWhatIsKnown) {
    const VantrelServerHandle server(id());
    VantrelNodeHandle node(server, "n1");
    VantrelNodeHandle out;
    int number = 0;
    ASSERT_TRUE(node.getNumChildren(number));
    peer.refuse();
    EXPECT_FALSE(node.createNode("c", "REEL", out) || server.mayHaveExecuted());
    EXPECT_TRUE(node.getNumChildren(number));
}

TEST_F(NodeTest, AListOfChildrenDoesNotGiveNamesThatItsServerHandleHasChanged) {
    const VantrelServerHandle server(id());
    VantrelNodeHandle parent(server, "n1");
    VantrelNodeHandle children[2];
    VantrelNodeHandle again;
    VantrelStr name;
    int number = 0;
    for (int i = 0; i < 2; ++i) ASSERT_TRUE(parent.getChild(i, children[i]));
    peer.answer("RenameNode", ScriptedPeer::ok("n22"));
    peer.answer("GetDisplayNameEx", ScriptedPeer::ok("new"));
    ASSERT_TRUE(children[0].renameNode("newer"));
    peer.answer("RenameNode", ScriptedPeer::ok("n222"));
    ASSERT_TRUE(children[0].renameNode("new"));
    ASSERT_TRUE(parent.getChild(0, again) && again.getDisplayName(name)) << server.lastError();
    EXPECT_STREQ(name, "new");
    EXPECT_STREQ(again.getNodeId().id(), "n222");
    EXPECT_TRUE(parent.getChild(1, again) && again.getDisplayName(name) && name == "b");
    EXPECT_EQ(peer.arguments("GetDisplayNameEx").size(), 1U);

    ASSERT_TRUE(children[1].destroyNode() && parent.getChild(1, again)) << "a walk goes on";
    EXPECT_EQ(peer.arguments("GetChildrenEx").size(), 1U);
    EXPECT_TRUE(parent.getNumChildren(number));
    EXPECT_EQ(peer.arguments("GetChildrenEx").size(), 2U);
}

TEST_F(NodeTest, AFailedQueryIsNotRemembered) {
    const VantrelServerHandle server(id());
    VantrelNodeHandle node(server, "n1");
    int number = -1;
    peer.answer("GetChildrenEx", ScriptedPeer::error("Busy."));
    EXPECT_FALSE(node.getNumChildren(number));
    EXPECT_STREQ(node.lastError(), "Busy.");
    EXPECT_EQ(number, -1);
    peer.answer("GetChildrenEx", ScriptedPeer::ok(""));
    EXPECT_TRUE(node.getNumChildren(number));
    EXPECT_EQ(number, 0);
}

TEST_F(NodeTest, ACreatedClipKnowsItsFormatAndAChildItsName) {
    const VantrelServerHandle server(id());
    VantrelNodeHandle node(server, "n1");
    VantrelClipFormat format;
    format.setWidth(1234);
    VantrelNodeHandle made;
    ASSERT_TRUE(node.createClipNode("c", format, "CLIP", made));
    EXPECT_STREQ(made.getNodeId().id(), "n9");
    VantrelClipFormat known;
    EXPECT_TRUE(made.getClipFormat(known) && known.width() == 1234);
    VantrelStr name;
    ASSERT_TRUE(node.getChild(1, node)) << "the child may take the place of its parent";
    EXPECT_STREQ(node.getNodeId().id(), "n3");
    EXPECT_TRUE(node.getDisplayName(name) && name == "b");
    EXPECT_THAT(methods(), ElementsAre("CreateNodeEx", "GetChildrenEx"));
}

// --- Names and paths ---

TEST_F(NodeTest, DisplayPathsAreWalkedByOneListPerLevel) {
    const std::string duplicates = PeerInfo::entry("0", child("n5", "x")) +
                                   PeerInfo::entry("1", child("n6", "x")) +
                                   PeerInfo::entry("2", child("n7", "X"));
    peer.answerWith([&](const auto& method, const auto& argument) -> std::optional<std::string> {
        if (method != "GetChildrenEx" || argument == "n1") return std::nullopt;  // a, b
        return ScriptedPeer::ok(argument == "n2" ? duplicates : "");
    });
    const struct {
        const char* path;
        const char* id;  // null: not found
        std::size_t lists;
    } rows[] = {
        {"/", "n1", 0},         {nullptr, "n1", 0},        {"a//x/", "n5", 2}, {"/a/./X", "n7", 2},
        {"/b/../a/x", "n5", 2}, {"/a/x/deep", nullptr, 3}, {"/A", nullptr, 1}, {"/b", "n3", 1},
    };
    const VantrelServerHandle server(id());
    VantrelStr unused;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path ? row.path : "null");
        peer.answer("QueryNodePlugInVendor", ScriptedPeer::error("An earlier failure."));
        EXPECT_FALSE(server.getVendor(unused));
        const std::size_t before = peer.arguments("GetChildrenEx").size();
        VantrelNodeHandle node;
        EXPECT_EQ(VantrelResolveDisplayPath(server, row.path, node), row.id != nullptr);
        EXPECT_EQ(peer.arguments("GetChildrenEx").size() - before, row.lists);
        EXPECT_TRUE(!row.id || node.getNodeId().id() == std::string(row.id)) << node.getNodeId().id();
        EXPECT_EQ(server.lastErrorCode(), row.id ? VANTREL_ERROR_REFUSED : VANTREL_ERROR_NOT_FOUND);
        EXPECT_TRUE(row.id || !*server.lastError()) << "an earlier failure must not pass for the reason";
    }
    EXPECT_THAT(methods(), Not(Contains("GetDisplayNameEx")));
    VantrelNodeHandle parent(server, "n2");
    VantrelNodeHandle found;
    EXPECT_FALSE(VantrelFindChild(parent, nullptr, found) || VantrelFindChild(parent, "none", found));
    EXPECT_STREQ(found.getNodeId().id(), "n7") << "the last child examined";
    peer.answerWith(nullptr);
    peer.answer("GetChildrenEx", ScriptedPeer::error("Gone."));
    EXPECT_FALSE(VantrelResolveDisplayPath(server, "/a", found));
    EXPECT_STREQ(server.lastError(), "Gone.");
}

// --- Rules that the handle decides by itself ---

TEST_F(NodeTest, WhatMayBeCreatedUnderWhatOnServersThatCannotBeAsked) {
    describe({"2014.9.9.9"});
    const VantrelServerHandle server(id());
    bool can = false;
    peer.answer("GetNodeTypeStr", ScriptedPeer::ok("LIBRARY"));
    EXPECT_TRUE(VantrelNodeHandle(server, "n1").canCreateNode("REEL", can) && can) << server.lastError();
    EXPECT_TRUE(VantrelNodeHandle(server, "n1").canCreateNode("SHELF", can) && !can);
    peer.answer("GetNodeTypeStr", ScriptedPeer::ok("SHELF"));
    EXPECT_FALSE(VantrelNodeHandle(server, "n1").canCreateNode("CLIP", can));
    EXPECT_STREQ(server.lastError(), "Unhandled parent node type 'SHELF'");
    EXPECT_EQ(server.lastErrorCode(), VANTREL_ERROR_NOT_SUPPORTED);
}

TEST_F(NodeTest, AnIndexOutsideTheListFails) {
    const VantrelServerHandle server(id());
    VantrelNodeHandle node(server, "n1");
    VantrelNodeHandle out;
    VantrelStr text;
    char bytes[4] = {};
    const std::tuple<const char*, std::function<bool(int)>, int> rows[] = {
        {"child", [&](int i) { return node.getChild(i, out); }, 2},
        {"frame id", [&](int i) { return node.getFrameId(i, text); }, 3},
        {"frame path", [&](int i) { return node.getFrameIdPath(i, text); }, 2},
        {"metadata stream", [&](int i) { return node.getAvailableMetaDataStream(i, text); }, 2},
    };
    for (const auto& [name, at, size] : rows) {
        EXPECT_TRUE(at(size - 1)) << name << server.lastError();
        for (const int index : {-1, size, 0x7fffffff}) {
            EXPECT_FALSE(at(index)) << name;
            EXPECT_EQ(node.lastErrorCode(), VANTREL_ERROR_INVALID_ARGUMENT);
            EXPECT_EQ(server.lastError(), "Index " + std::to_string(index) + " is out of the bounds 0," +
                                              std::to_string(size) + ".");
        }
    }
    EXPECT_FALSE(node.readFrame(3, bytes, sizeof bytes) || node.writeFrame(-1, bytes, sizeof bytes));
    EXPECT_FALSE(node.linkToFrames(nullptr, 1) || node.linkToFrames(&text, -1));
    EXPECT_FALSE(node.setNumFrames(0x80000000U));
    EXPECT_STREQ(server.lastError(), "Invalid number of frames: 2147483648");
}

TEST_F(NodeTest, NumbersOfExtendedTypesTravelAsText) {
    const VantrelServerHandle server(id());
    VantrelNodeHandle node(server, "n1");
    VantrelNodeHandle out;
    ASSERT_TRUE(node.createNode("r", 6, out) && node.createNode("r", "REEL", "XML", "<m/>", out));
    const auto arguments = peer.arguments("CreateNodeEx");
    EXPECT_THAT(arguments[0], HasSubstr(PeerInfo::entry("ExType", "6")));
    EXPECT_THAT(arguments[0], Not(HasSubstr("Stream")));
    EXPECT_THAT(arguments[1], HasSubstr(PeerInfo::entry("Stream", "XML") + PeerInfo::entry("Meta", "<m/>")));
    int number = -1;
    bool isClip = true;
    EXPECT_TRUE(node.getNodeType(number) && node.getIsClipNode(isClip) && number == 6 && !isClip);
}

TEST_F(NodeTest, AColourSpaceThatTheServerDoesNotGiveIsLeftAsItIs) {
    const std::tuple<const char*, bool, std::string> rows[] = {
        {"2016.0.0.0", false, ""}, {"2016.0.0.0", true, "cs 4 ACES"}, {"2024.0.0.0", true, "cs 3 P3 "}};
    std::string reply =
        "w 1 4h 1 2bpp 2 24nch 1 3sz 2 24asp 1 1rate 2 24fmt 3 rgbscan 1 4metag 4 nonemeta 0 cs 3 P3 ";
    peer.answer("GetClipFormatEx", ScriptedPeer::ok(reply));
    VantrelClipFormat format;
    format.setColourSpace("ACES");
    const VantrelStr paths[] = {"/a"};
    for (const auto& [version, creates, sent] : rows) {
        describe({version});
        VantrelClientReleaseUnusedConnections(true);
        const VantrelServerHandle server(id());
        VantrelNodeHandle clip(server, "n9");
        EXPECT_TRUE(!creates || VantrelNodeHandle(server, "n1").createClipNode("c", format, "CLIP", clip));
        EXPECT_TRUE(clip.setNumFrames(1) && clip.linkToFrames(paths, 1)) << server.lastError();
        for (const char* command : {"AllocateFramesEx", "SetFramePathsEx"}) {
            const std::string argument = peer.arguments(command).back();
            EXPECT_THAT(argument, HasSubstr(sent)) << version;
            EXPECT_EQ(argument.find("cs ") == std::string::npos, sent.empty()) << argument;
        }
    }
}

TEST_F(NodeTest, MovedFromAndEmptyHandlesFailSafely) {
    Received::record();
    VantrelSetLogLevel(VANTREL_LOG_ERROR);
    VantrelServerHandle server(id());
    const VantrelServerHandle owner(std::move(server));
    VantrelNodeHandle node(owner, "n1");
    VantrelNodeHandle taken(std::move(node));
    VantrelNodeHandle onMoved(server, "n1");
    VantrelNodeHandle empty;
    VantrelStr text;
    int number = 0;
    const std::pair<const char*, std::function<bool()>> rows[] = {
        {"server ping", [&] { return server.ping(0); }},
        {"server root", [&] { return server.getRootNode(empty); }},
        {"server copy", [&] { return VantrelServerHandle(server).ping(0); }},
        {"server stop", [&] { return server.stop(""), server.disconnect(), *server.lastError() != '\0'; }},
        {"root into moved node", [&] { return owner.getRootNode(node); }},
        {"node name", [&] { return node.getDisplayName(text); }},
        {"node children", [&] { return node.getNumChildren(number); }},
        {"node id", [&] { return *node.getNodeId().id() || *node.lastError(); }},
        {"child into moved node", [&] { return taken.getChild(0, node); }},
        {"duplicate of moved node", [&] { return taken.duplicateNode(node, "d", empty); }},
        {"found in moved node", [&] { return VantrelFindChild(node, "a", empty); }},
        {"node on moved server", [&] { return onMoved.getNumChildren(number); }},
    };
    for (const auto& [name, call] : rows) {
        Received::clear();
        EXPECT_FALSE(call()) << name;
        EXPECT_THAT(Received::log(), Contains(HasSubstr("imp_ != 0"))) << name;
    }
    EXPECT_FALSE(VantrelNodeHandle().getNumChildren(number)) << "of no server";
    EXPECT_TRUE(taken.getNumChildren(number)) << taken.lastError();
    node = taken;
    EXPECT_TRUE(node.getNumChildren(number)) << "assignment brings it back";
}

}  // namespace
