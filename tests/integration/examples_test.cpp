// The example programs do what they show, and end cleanly though they leave things open.
#include <gtest/gtest.h>

#include "ServerProcess.h"
#include "TemporaryDirectory.h"

namespace {

TEST(ExamplesTest, EachEndsWithItsResult) {
    const Vantrel::TemporaryDirectory folder;
    const ServerProcess server(VANTRELD_PROGRAM, folder.path("root"), {"--demo"});
    struct Row {
        std::vector<std::string> command;
        int status;
        std::string out;
    };
    const Row rows[] = {
        {{LINK_ONLY_PROGRAM}, 0, ""},
        {{EXIT_WITHOUT_UNINIT_PROGRAM, server.id()}, 0, ""},
        {{LIST_ROOT_PROGRAM, server.id()}, 0, "stor1\n"},
        {{READ_FRAME_PROGRAM, server.id(), "/stor1/demo/Default Library/reel 1/bars"},
         0,
         "1920x1080 rgb, 6220800 bytes\n"},
        {{READ_FRAME_PROGRAM, server.id(), "/stor1/none"}, 1, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.command.at(0));
        const ChildProcess::Result result = ChildProcess(row.command).wait(std::chrono::seconds(60));
        EXPECT_EQ(result.status, row.status) << result.err;
        EXPECT_EQ(result.out, row.out);
    }
}

}  // namespace
