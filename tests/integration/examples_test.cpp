// The example programs do what they show, and end cleanly though they leave things open.
#include <gtest/gtest.h>

#include "FreePort.h"
#include "ServerProcess.h"
#include "TemporaryDirectory.h"

namespace {

TEST(ExamplesTest, EachEndsWithItsResult) {
    const Vantrel::TemporaryDirectory folder;
    const ServerProcess server(VANTRELD_PROGRAM, folder.path("root"), {"--demo"});
    const std::tuple<std::vector<std::string>, int, std::string> rows[] = {
        {{LINK_ONLY_PROGRAM}, 0, ""},
        {{EXIT_WITHOUT_UNINIT_PROGRAM, server.id()}, 0, ""},
        {{LIST_ROOT_PROGRAM, server.id()}, 0, "stor1\n"},
        {{READ_FRAME_PROGRAM, server.id(), "/stor1/demo/Default Library/reel 1/bars"},
         0,
         "1920x1080 rgb, 6220800 bytes\n"},
        {{READ_FRAME_PROGRAM, server.id(), "/stor1/none"}, 1, ""},
    };
    for (const auto& [command, status, out] : rows) {
        const ChildProcess::Result result = ChildProcess(command).wait(std::chrono::seconds(60));
        EXPECT_EQ(result.status, status) << command[0] << result.err;
        EXPECT_EQ(result.out, out);
    }
}

TEST(ExamplesTest, ListServersFindsTheServer) {
    const Vantrel::TemporaryDirectory folder;
    const std::string port = std::to_string(Vantrel::freeUdpPort());
    const auto config = [&folder](const std::string& number) {
        return "QD_NETWORK_CFG_FILE=" + folder.write(number,
                                                     "[Local]\nUUID=00000000-0000-4000-8000-000000000000\n"
                                                     "[Interfaces]\nMulticast=lo\n[SelfDiscovery]\nPort=" +
                                                         number + "\n");
    };
    const auto server = ServerProcess::onNetwork(
        VANTRELD_PROGRAM, folder.path("root"),
        {"--bind", "127.0.0.1", "--display-name", "shown", "--storage-id", "kept", "--discovery-port", port},
        {config("1")});
    ChildProcess::Result result;
    for (int i = 0; i < 20 && result.out.empty(); ++i) {  // a server on a busy machine may miss a search
        result = ChildProcess({LIST_SERVERS_PROGRAM}, {config(port)}).wait(std::chrono::seconds(60));
        EXPECT_EQ(result.status, 0) << result.err;
    }
    EXPECT_EQ(result.out, "shown\t" + server.id() + "\tkept\n");
}

}  // namespace
