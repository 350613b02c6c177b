// The program itself: its arguments, its ready line, its end.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "ChildProcess.h"
#include "NodeStore.h"
#include "ServerProcess.h"
#include "TemporaryDirectory.h"

namespace vantreld {
namespace {

using std::string_literals::operator""s;
using testing::HasSubstr;
using Vantrel::CoFd;

constexpr std::chrono::seconds LIMIT(30);

/// Sends a frame request to a server and returns the first byte of its answer.
char ask(const ServerProcess& server, const std::string& request) {
    const CoFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(server.framePort()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    char answer = '?';
    EXPECT_EQ(::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(request.size()));
    EXPECT_EQ(::recv(fd.get(), &answer, 1, 0), 1);
    return answer;
}

TEST(vantreld, EndsWithStatusZeroOnTheSignalsThatEndIt) {
    for (const int signal : {SIGTERM, SIGINT}) {
        const Vantrel::TemporaryDirectory root;
        ServerProcess server(VANTRELD, root.path());
        EXPECT_GT(server.nodePort(), 0);
        EXPECT_GT(server.framePort(), 0);
        server.process().signal(signal);
        EXPECT_EQ(server.process().wait(LIMIT).status, 0);
    }
}

TEST(vantreld, TellsWhyItCannotRun) {
    const Vantrel::TemporaryDirectory root;
    const std::string file = root.write("file", "");
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string error;
    } cases[] = {
        {{}, 2, "--root"},
        {{"--root", root.path(), "--port", "65536"}, 2, "--port"},
        {{"--root", root.path(), "--protocol-version", "2012"}, 2, "A.B.C.D"},
        {{"--root", root.path(), "--nonsense"}, 2, "--nonsense"},
        {{"--root", file}, 1, "vantreld: Cannot create directory '" + file + "'"},
        {{"--root", root.path("a"), "--bind", "no address"}, 1, "vantreld: Cannot listen on frame port"},
    };
    for (const auto& each : cases) {
        std::vector<std::string> command{VANTRELD};
        command.insert(command.end(), each.arguments.begin(), each.arguments.end());
        const ChildProcess::Result result = ChildProcess(command).wait(LIMIT);
        EXPECT_EQ(result.status, each.status) << each.error;
        EXPECT_THAT(result.err, HasSubstr(each.error));
        EXPECT_EQ(result.out, "");
    }
}

TEST(vantreld, WhatWasAcknowledgedIsThereAfterAKill) {
    const Vantrel::TemporaryDirectory root;
    std::string frame;
    {
        NodeStore store(root.path());
        std::string parent = store.rootId();
        for (const char* type : {"VOLUME", "PROJECT", "LIBRARY", "CLIP"}) {
            NodeStore::NewNode node;
            node.type = node.displayName = type;
            parent = store.create(parent, node);
        }
        store.setNumFrames(parent, 1);
        frame = store.frameIds(parent)[0];
    }
    for (const char* content : {"first", "other"}) {
        ServerProcess server(VANTRELD, root.path());
        EXPECT_EQ(ask(server, "WriteFrame\0"s + frame + "\0005\0"s + content), '\0');
        server.process().signal(SIGKILL);
        server.process().wait(LIMIT);
        ServerProcess again(VANTRELD, root.path());
        EXPECT_EQ(ask(again, "ReadFrameNoAck\0"s + frame + "\0005\0"s), content[0]);
    }
}

TEST(vantreld, TheDemoIsMadeOnceInAnEmptyRoot) {
    const Vantrel::TemporaryDirectory root;
    for (int start = 0; start < 2; ++start) {
        ServerProcess server(VANTRELD, root.path(), {"--demo"});
        server.process().signal(SIGTERM);
        EXPECT_EQ(server.process().wait(LIMIT).status, 0);
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
    for (const std::string& frame : frames) EXPECT_EQ(store.openFrame(frame).size, 1920u * 1080 * 3);
}

}  // namespace
}  // namespace vantreld
