#include "NodeCommands.h"

#include <gmock/gmock.h>

#include <tuple>

#include "ServerOptions.h"
#include "StoreFixture.h"

namespace vantreld {
namespace {

using testing::HasSubstr;

VantrelDaemonInfo testInfo() {
    VantrelDaemonInfo info;
    info.setVendor("V");
    info.setProduct("P");
    info.setProductVersionMajorNumber(7);
    info.setStorageId("S");
    return info;
}

/// A store with nodes n1 (root) > n2 (volume) > n3 (project) > n4 (library) > n5 (clip of two frames).
class NodeCommandsTest : public StoreFixture {
  protected:
    NodeCommandsTest() {
        EXPECT_EQ(ask("CreateNode", "n1 \"stor,1\" 0 VOLUME " + FORMAT), "n2");
        EXPECT_EQ(ask("CreateNode", "n2 \"p\" 0 2 " + FORMAT), "n3");
        EXPECT_EQ(ask("CreateNodeEx", "Parent 2 n3Displ 8 line\n\"1\"Type 1 0ExType 7 LIBRARY"), "n4");
        EXPECT_EQ(ask("CreateNode", "n4 \"a \\\"b\\\" \\\\c\" 1  " + FORMAT), "n5");
        EXPECT_EQ(ask("AllocateFrames", "n5 2 " + FORMAT), "n5-0,n5-1");
    }
    /// What a client gets: the reply, or "error: " and the message.
    std::string ask(const char* name, const std::string& argument) {
        std::string reply;
        const std::string failure = failureOf([&] { reply = commands_.functions().at(name)(argument); });
        return failure.empty() ? reply : "error: " + failure;
    }

    const std::string FORMAT = "1920 1080 24 3 6220800 1 24 rgb 4 none \"some \\\"meta\\\"\"";
    const std::string FORMAT_STREAM =
        "w 4 1920h 4 1080bpp 2 24nch 1 3sz 7 6220800asp 1 1rate 2 24fmt 3 rgbscan 1 4metag 4 none"
        "meta 11 some \"meta\"cs 0 ";

    NodeCommands commands_{store(), VANTREL_RELEASE, testInfo};
};

TEST_F(NodeCommandsTest, EachCommandAnswersInItsOwnForm) {
    const std::string child = "Id 2 n5Displ 8 a \"b\" \\c";
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"Ping", "", ""},
        {"QueryVersion", "", "2024 0"},
        {"QueryNodePlugInVendor", "", "V"},
        {"QueryNodePlugInProduct", "", "P"},
        {"QueryNodePlugInVersion", "", "7 0"},
        {"GetStorageId", "", "S"},
        {"GetDaemonInfo", "\"\"", testInfo().toAttrStream().text()},
        {"GetDaemonList", "", "Count 1 1" + attribute("Node0", testInfo().toAttrStream().text())},
        {"GetRootNode", "", "n1"},
        {"GetParentNode", "Node 2 n5", "n4"},
        {"GetChildren", "n4", "n5,a \"b\" \\c"},
        {"GetChildren", "\"n1\"", "n2,stor_1"},
        {"GetChildrenEx", "n4", attribute("0", child)},
        {"GetChildrenEx", "n1", attribute("0", "Id 2 n2Displ 6 stor,1")},
        {"GetChildrenEx", "n5", ""},
        {"GetDisplayName", "n4", "line\n\"1\""},
        {"GetNodeType", "n5", "1 8"},
        {"GetNodeTypeStr", "n5", "CLIP"},
        {"CanCreateNode", "Node 2 n4ExtendedType 4 REEL", "TRUE"},
        {"CanCreateNode", "Node 2 n4ExtendedType 6 VOLUME", "FALSE"},
        {"CanCreateNode", "Node 2 n4ExtendedType 4 reel", "FALSE"},
        {"RenameNode", "Node 2 n2Displ 3 a b", "n2"},
        {"GetDisplayNameEx", "n2", "a b"},
        {"DuplicateNode", "ParentNodeId 2 n4DupeNodeId 2 n5DisplayName 1 d", "n6"},
        {"GetFrames", "n6", "n6-0,n6-1"},
        {"DestroyNode", "n6", ""},
        {"GetNodeTypeStr", "n6", "error: Node 'n6' does not exist."},
        {"QueryMetaDataSupport", "n5", "XML,BLOB"},
        {"SetMetaData", "n5 XML \"<a b=\\\"c\\\"/>\n\\\\\"", ""},
        {"GetMetaData", "n5 XML \"\" 0", "<a b=\"c\"/>\n\\"},
        {"GetMetaData", "n5 BLOB \"\" 0", ""},
        {"GetClipFormat", "n5", "1920 1080 24 3 6220800 1 24 rgb 4 none some \"meta\""},
        {"GetClipFormatEx", "n5", FORMAT_STREAM},
        {"GetFramesEx", "Node 2 n5", "2 4 n5-04 n5-1"},
        {"GetFramePaths", "n5 host 2 \"5.10\"", "n5-0,n5-1"},
        {"AllocateFramesEx", "Node 2 n5NumFrames 1 1" + attribute("Fmt", FORMAT_STREAM), "1 4 n5-0"},
        {"SetFramePathsEx", "Parent 2 n5Paths 9 1 5 a, bc", ""},
        {"GetFramePathsEx", "Parent 2 n5HostName 1 hOSType 1 2OSVersion 0 ", "1 5 a, bc"},
        {"GetFramePaths", "n5 host 2 \"5.10 x\"", "a_ bc"},
        {"SetFramePaths", "n5 ,x/1,,x/3, host 2 5.10 " + FORMAT, ""},
        {"GetFramePathsEx", "Parent 2 n5HostName 1 hOSType 1 2OSVersion 0 ", "5 0 3 x/10 3 x/30 "},
        {"SetFramePaths", "n5  host 2 5.10 " + FORMAT, ""},
        {"GetFramesEx", "Node 2 n5", "0 "},
        {"GetStreamId", "n5", "n5"},
        {"GetNbReadAheads", "n5", "2"},
    };
    for (const auto& [command, argument, reply] : cases) EXPECT_EQ(ask(command, argument), reply) << command;
}

TEST_F(NodeCommandsTest, ExtendedCreationTakesFormatAndFirstMetadata) {
    const std::string format =
        "w 1 2h 1 3bpp 1 8nch 1 1szu 11 0x100000000asp 1 1rate 2 25fmt 4 monoscan 1 0metag 0 meta 0 cs 7 "
        "Rec.709";
    EXPECT_EQ(ask("CreateNodeEx", "Parent 2 n4Displ 1 xType 1 1ExType 1 8" + attribute("Fmt", format) +
                                      "Stream 3 XMLMeta 4 <m/>"),
              "n6");
    EXPECT_EQ(ask("GetMetaData", "n6 XML \"\" 0"), "<m/>");
    EXPECT_THAT(ask("GetClipFormatEx", "n6"), HasSubstr("cs 7 Rec.709"));
    EXPECT_THAT(ask("GetClipFormat", "n6"), HasSubstr("2 3 8 1 4294967296 1 25 mono 0 none "));
}

TEST_F(NodeCommandsTest, ABadRequestGetsAnErrorThatNamesItAndChangesNothing) {
    const std::tuple<const char*, std::string, const char*> cases[] = {
        {"GetParentNode", "", "Missing GetParentNode parameter: Node"},
        {"GetChildrenEx", " n4", "Node ' n4' does not exist."},
        {"CreateNode", "n4", "Missing CreateNode parameter: name"},
        {"CreateNode", "n4 \"x\" one CLIP", "Invalid CreateNode parameter: type is 'one', not a number."},
        {"CreateNode", "n4 \"x\" 1 REEL 1 1", "Cannot create clip 'x': a REEL is not a clip."},
        {"CreateNode", "n4 \"x\" 0  1 1", "Cannot create 'x': unknown node type ''."},
        {"CreateNodeEx", "Parent 2 n4Displ 1 xType 1 1Fmt 5 w 1 1", "h"},
        {"CreateNodeEx", "Parent 2 n4Displ 1 xType 1 0ExType 4 REELStream 2 NO",
         "Metadata stream 'NO' is not supported."},
        {"SetMetaData", "n5 XML", "Missing SetMetaData parameter: data"},
        {"SetMetaData", "n5 XML half of it", "text follows the data"},
        {"AllocateFrames", "n5 -1 ", "-1"},
        {"AllocateFrames", "n5 2x ",
         "Invalid AllocateFrames parameter: number of frames is '2x', not a number."},
        {"AllocateFramesEx", "Node 2 n5NumFrames 10 4294967296", "4294967296"},
        {"AllocateFramesEx", "Node 2 n5NumFrames 10 2147483647", "A clip cannot have 2147483647 frames"},
        {"SetFramePathsEx", "Parent 2 n5Paths 14 999999999 1 a", "Paths is a malformed list."},
        {"SetFramePaths", "n5 my dir/a,b host 2 5 ", "OS type"},
        {"GetFrames", "n4", "Node 'n4' is a LIBRARY, not a clip."},
        {"GetStreamId", "n4", "Node 'n4' is a LIBRARY, not a clip."},
    };
    for (const auto& [command, argument, error] : cases) {
        EXPECT_THAT(ask(command, argument), testing::AllOf(testing::StartsWith("error: "), HasSubstr(error)))
            << command;
    }
    EXPECT_EQ(ask("GetFrames", "n5"), "n5-0,n5-1");
    EXPECT_EQ(ask("GetChildren", "n4"), "n5,a \"b\" \\c");
}

TEST_F(NodeCommandsTest, AServerOfAnAgeHasTheCommandsOfThatAge) {
    for (const int build : {5133, 5134}) {
        NodeCommands commands(store(), {2012, 0, 0, build}, testInfo);
        EXPECT_EQ(commands.functions().count("GetChildrenEx"), build == 5134 ? 1U : 0U);
    }
}

}  // namespace
}  // namespace vantreld
