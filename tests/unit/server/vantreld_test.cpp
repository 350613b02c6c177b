// The program itself: its arguments, its ready line, its end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "NodeStore.h"
#include "RawClient.h"
#include "ServerProcess.h"
#include "TemporaryDirectory.h"

namespace vantreld {
namespace {

using std::string_literals::operator""s;
using testing::HasSubstr;

constexpr std::chrono::seconds LIMIT(30);

TEST(vantreld, TellsWhyItCannotRun) {
    const Vantrel::TemporaryDirectory root;
    const std::string file = root.write("file", "");
    const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
        {{}, 2, "--root"},
        {{"--root", root.path(), "--port", "65536"}, 2, "--port"},
        {{"--root", root.path(), "--protocol-version", "2012"}, 2, "A.B.C.D"},
        {{"--root", root.path(), "--nonsense"}, 2, "--nonsense"},
        {{"--root", file}, 1, "vantreld: Cannot create directory '" + file + "'"},
        {{"--root", root.path("a"), "--bind", "no address"}, 1, "vantreld: Cannot listen on frame port"},
    };
    for (const auto& [arguments, status, error] : cases) {
        std::vector<std::string> command{VANTRELD};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const ChildProcess::Result result = ChildProcess(command).wait(LIMIT);
        EXPECT_EQ(result.status, status) << error;
        EXPECT_THAT(result.err, HasSubstr(error));
        EXPECT_EQ(result.out, "");
    }
}

TEST(vantreld, TheDemoIsMadeOnceAndKeptWithAllThatWasAcknowledgedHoweverTheServerEnds) {
    const Vantrel::TemporaryDirectory root;
    for (const int signal : {SIGTERM, SIGINT}) {
        ServerProcess server(VANTRELD, root.path(), {"--demo"});
        server.process().signal(signal);
        EXPECT_EQ(server.process().wait(LIMIT).status, 0);
    }
    {
        ServerProcess server(VANTRELD, root.path());
        Vantrel::RawClient client(server.framePort());
        client.send("WriteFrame\0n6-0\0005\0other"s);
        EXPECT_EQ(client.readBytes(1), "\0"s);
        server.process().signal(SIGKILL);
        server.process().wait(LIMIT);
    }
    NodeStore store(root.path());
    std::string path;
    std::string node = store.rootId();
    while (!store.children(node).empty()) {
        ASSERT_EQ(store.children(node).size(), 1u);
        node = store.children(node)[0].id;
        path += "/" + store.node(node).type + " " + store.node(node).displayName;
    }
    EXPECT_EQ(path, "/VOLUME stor1/PROJECT demo/LIBRARY Default Library/REEL reel 1/CLIP bars");
    const auto frames = store.frameIds(node);
    ASSERT_EQ(frames.size(), 24u);
    for (const std::string& frame : frames)
        EXPECT_EQ(store.openFrame(frame).size, frame == "n6-0" ? 5u : 1920u * 1080 * 3) << frame;
}

}  // namespace
}  // namespace vantreld
