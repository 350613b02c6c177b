// What the public operations send to servers of each age: the table of docs/commands.md, row by row.
#include <array>
#include <fstream>
#include <functional>
#include <sstream>

#include "FramePeer.h"
#include "NodeFixture.h"

using Vantrel::FramePeer;

namespace {

using Version = std::array<int, 4>;

constexpr int HIGHEST_BUILD = 99999;

std::string toText(const Version& v) {
    return std::to_string(v[0]) + '.' + std::to_string(v[1]) + '.' + std::to_string(v[2]) + '.' +
           std::to_string(v[3]);
}

Version oneBelow(Version version) {
    for (std::size_t i = version.size(); i-- > 0;) {
        if (version[i] > 0) {
            --version[i];
            break;
        }
        version[i] = HIGHEST_BUILD;
    }
    return version;
}

struct Row {
    std::string operation;
    Version from;
    std::string sends;
};

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

/// The rows of the document, in order.
std::vector<Row> readTable() {
    std::ifstream file(COMMANDS_TABLE);
    std::vector<Row> rows;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("| `", 0) != 0) continue;
        std::istringstream cells(line.substr(1));
        std::string operation, from, sends;
        std::getline(cells, operation, '|');
        std::getline(cells, from, '|');
        std::getline(cells, sends, '|');
        Version version{};
        std::sscanf(from.c_str(), "%d.%d.%d.%d", &version[0], &version[1], &version[2], &version[3]);
        rows.push_back({trimmed(operation), version, trimmed(sends)});
    }
    return rows;
}

class CommandsTest : public NodeTest {
  protected:
    CommandsTest() { list.push_back("/a"); }

    /// What the operation sends to a server of this version, in the table's words.
    std::string sentTo(const Version& version, const std::string& operation, const std::string& expected) {
        FramePeer frames;
        frames.expect(0, std::string(201, '\0'), FramePeer::Then::Stall);  // enough for each to end
        PeerInfo info;
        info.version = toText(version);
        info.framePort = frames.port();
        describe(info);
        VantrelClientReleaseUnusedConnections(true);
        const std::size_t before = methods().size();

        const VantrelServerHandle server(id());
        VantrelNodeHandle node(server, "n1");
        const bool ok = operations.at(operation)(server, node);
        std::string sent;
        const auto all = methods();
        for (std::size_t i = before; i < all.size(); ++i) sent += (sent.empty() ? "" : " ") + all[i];
        // What needs no answer may still be on its way.
        if (expected.find("frame:") != std::string::npos) frames.waitForRequests(1);
        for (const std::string& request : frames.requests()) {
            sent += (sent.empty() ? "frame:" : " frame:") + std::string(request.c_str());
        }
        return ok || !sent.empty() ? sent : '"' + std::string(server.lastError()) + '"';
    }

    using Operation = std::function<bool(const VantrelServerHandle&, VantrelNodeHandle&)>;

    struct Handler : VantrelNodeEvent::Handler {
        void notify(const VantrelNodeEvent&) override {}
    };

    Handler handler;
    Handler otherHandler;
    VantrelNodeHandle out;
    VantrelStr text;
    VantrelServerInfo serverInfo;
    VantrelClipFormat format;
    VantrelStrList list;
    VantrelStrList translated;
    VantrelServerHandle::TranslationGroup group;
    VantrelServerHandle::HostTranslation hostTranslation;
    VantrelServerHandle::OsTypeTranslation osTranslation;
    char bytes[200] = {};
    int number = 0;
    int other = 0;
    bool flag = false;
    unsigned long count = 1;
    const VantrelStr paths[1] = {"/a"};
    const std::string local = folder.write("local", "x");

#define ON_SERVER(call) [&](const VantrelServerHandle& server, VantrelNodeHandle&) { return server.call; }
#define ON_NODE(call) [&](const VantrelServerHandle&, VantrelNodeHandle& node) { return node.call; }
#define WITH_BOTH(call) [&](const VantrelServerHandle& server, VantrelNodeHandle& node) { return call; }
    const std::map<std::string, Operation> operations = {
        {"`ping`", ON_SERVER(ping(0))},
        {"`getRootNode`", ON_SERVER(getRootNode(out))},
        {"`getVendor`", ON_SERVER(getVendor(text))},
        {"`getProduct`", ON_SERVER(getProduct(text))},
        {"`getVersion`", ON_SERVER(getVersion(number, other))},
        {"`getInfo`", ON_SERVER(getInfo(serverInfo))},
        {"`compareVersion`", ON_SERVER(compareVersion(flag, 1, 0, 0, 0))},
        {"`readFrame`", ON_SERVER(readFrame("f1", bytes, sizeof bytes))},
        {"`readFrame` of a buffer no longer than the error prefix", ON_SERVER(readFrame("f1", bytes, 82))},
        {"`readFrame` with a request", ON_SERVER(readFrame("f1", "q", 1, bytes, sizeof bytes))},
        {"`readFrame` of a read-ahead alone", ON_SERVER(readFrame("", nullptr, 9, "a1"))},
        {"`readFrame` of a read-ahead alone, with a request",
         ON_SERVER(readFrame("", "q", 1, nullptr, 9, "a1"))},
        {"`writeFrame`", ON_SERVER(writeFrame("f1", bytes, sizeof bytes))},
        {"`readStream`", ON_SERVER(readStream("s1", bytes, sizeof bytes, 0, 1, count))},
        {"`pushStream`", ON_SERVER(pushStream("remote", local.c_str()))},
        {"`pullStream`", ON_SERVER(pullStream("remote", local.c_str()))},
        {"`invalidateCache`", ON_SERVER(invalidateCache())},
        {"`registerEventHandler`", ON_SERVER(registerEventHandler("n1", &handler))},
        {"`unregisterEventHandler` of a node's last handler",
         ON_SERVER(registerEventHandler("n1", &handler) && server.unregisterEventHandler("n1", &handler))},
        {"`unregisterEventHandler` of another",
         ON_SERVER(registerEventHandler("n1", &handler) && server.registerEventHandler("n1", &otherHandler) &&
                   server.unregisterEventHandler("n1", &handler))},
        {"`translatePath`", ON_SERVER(translatePath("/a", text, "h1", "h2"))},
        {"`translatePaths`", ON_SERVER(translatePaths(list, translated, "h1", "h2"))},
        {"`getNumTranslationGroups`", ON_SERVER(getNumTranslationGroups(number))},
        {"`getTranslationGroup`", ON_SERVER(getTranslationGroup(0, group))},
        {"`getNumHostTranslations`", ON_SERVER(getNumHostTranslations(number))},
        {"`getHostTranslation`", ON_SERVER(getHostTranslation(0, hostTranslation))},
        {"`getNumOsTypeTranslations`", ON_SERVER(getNumOsTypeTranslations(number))},
        {"`getOsTypeTranslation`", ON_SERVER(getOsTypeTranslation(0, osTranslation))},
        {"`getNumChildren`", ON_NODE(getNumChildren(number))},
        {"`getChild`", ON_NODE(getChild(1, out))},
        {"`getParentNode`", ON_NODE(getParentNode(out))},
        {"`getDisplayName`", ON_NODE(getDisplayName(text))},
        {"`getNodeType`", ON_NODE(getNodeType(number))},
        {"`getNodeTypeStr`", ON_NODE(getNodeTypeStr(text))},
        {"`getIsClipNode`", ON_NODE(getIsClipNode(flag))},
        {"`canCreateNode`", ON_NODE(canCreateNode("CLIP", flag))},
        {"`createNode`", ON_NODE(createNode("name", "REEL", out))},
        {"`createClipNode`", ON_NODE(createClipNode("name", format, "CLIP", out))},
        {"`duplicateNode`", WITH_BOTH(node.duplicateNode(VantrelNodeHandle(server, "n5"), "name", out))},
        {"`renameNode`", ON_NODE(renameNode("name"))},
        {"`destroyNode`", ON_NODE(destroyNode())},
        {"`getNumAvailableMetaDataStreams`", ON_NODE(getNumAvailableMetaDataStreams(number))},
        {"`getAvailableMetaDataStream`", ON_NODE(getAvailableMetaDataStream(1, text))},
        {"`getIsMetaDataStreamAvailable`", ON_NODE(getIsMetaDataStreamAvailable("XML", flag))},
        {"`getMetaData`", ON_NODE(getMetaData("XML", nullptr, 0, text))},
        {"`setMetaData`", ON_NODE(setMetaData("XML", "<x/>"))},
        {"`getClipFormat`", ON_NODE(getClipFormat(format))},
        {"`getNumFrames`", ON_NODE(getNumFrames(number))},
        {"`getFrameId`", ON_NODE(getFrameId(1, text))},
        {"`setNumFrames`", ON_NODE(setNumFrames(1))},
        {"`getFrameIdPath`", ON_NODE(getFrameIdPath(1, text))},
        {"`getNumFrameIdPaths`", ON_NODE(getNumFrameIdPaths(number))},
        {"`linkToFrames`", ON_NODE(linkToFrames(paths, 1))},
        {"`getStreamId`", ON_NODE(getStreamId(text))},
        {"`getNbReadAheads`", ON_NODE(getNbReadAheads(number))},
        {"`activateReadAhead`", ON_NODE(activateReadAhead())},
        {"`readFrame` by index", ON_NODE(readFrame(1, bytes, sizeof bytes))},
        {"`writeFrame` by index", ON_NODE(writeFrame(1, bytes, sizeof bytes))},
        {"`VantrelFindChild`",
         [&](auto&, VantrelNodeHandle& node) { return VantrelFindChild(node, "b", out); }},
        {"`VantrelResolveDisplayPath` of two names",
         [&](auto& server, auto&) { return VantrelResolveDisplayPath(server, "/a/b", out); }},
    };
#undef ON_SERVER
#undef ON_NODE
#undef WITH_BOTH
};

TEST_F(CommandsTest, EachOperationSendsWhatTheTableSaysAtEachVersionAndOneBuildBelow) {
    const std::vector<Row> rows = readTable();
    std::map<std::string, const Row*> earlier;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.operation + " at " + toText(row.from));
        ASSERT_EQ(operations.count(row.operation), 1U);
        EXPECT_EQ(sentTo(row.from, row.operation, row.sends), row.sends);
        const Row*& before = earlier[row.operation];
        if (before) {
            EXPECT_EQ(sentTo(oneBelow(row.from), row.operation, before->sends), before->sends)
                << "one build below";
        }
        before = &row;
    }
    EXPECT_EQ(earlier.size(), operations.size()) << "operations that the table leaves out";
    for (const auto& operation : earlier) {
        EXPECT_EQ(sentTo({HIGHEST_BUILD, 0, 0, 0}, operation.first, operation.second->sends),
                  operation.second->sends)
            << operation.first;
    }
}

TEST_F(CommandsTest, EachOperationIsRefusedWhileTheLibraryIsNotUp) {
    VantrelClientUninit();
    for (const auto& operation : operations) {
        SCOPED_TRACE(operation.first);
        const VantrelServerHandle server(id());
        VantrelNodeHandle node(server, "n1");
        EXPECT_FALSE(operation.second(server, node));
        EXPECT_STREQ(server.lastError(), "API not initialized");
        EXPECT_EQ(server.lastErrorCode(), VANTREL_ERROR_NOT_INITIALIZED);
        EXPECT_FALSE(server.isConnected() || server.getHostName());
    }
    const VantrelServerHandle server(id());
    EXPECT_FALSE(server.unregisterEventHandler("n1", &handler));
    EXPECT_STREQ(server.lastError(), "API not initialized");
    EXPECT_EQ(peer.connections(), 0U);
}

}  // namespace
