#include "VantrelBaseClientAPI.h"

#include <gtest/gtest.h>

#include "ServerProcess.h"
#include "TemporaryDirectory.h"

namespace {

constexpr std::chrono::seconds LIMIT(30);
constexpr unsigned NO_RETRY_MS = 0;

TEST(VantrelBaseClientAPI, ShutdownEndsTheServerOnlyWhereItIsAllowed) {
    for (const bool allowed : {false, true}) {
        const Vantrel::TemporaryDirectory root;
        std::vector<std::string> options{"--protocol-version", "2016.3.0.0"};
        if (allowed) options.emplace_back("--allow-shutdown");
        ServerProcess server(VANTRELD, root.path(), options);
        VantrelClientConnection connection(VantrelServerId(server.id().c_str()));
        VantrelBaseClientAPI api(connection);
        int major = 0;
        int minor = 0;
        EXPECT_TRUE(api.queryVersion(major, minor) && major == 2016 && minor == 3) << api.lastError();
        EXPECT_EQ(api.shutdown(), allowed);
        EXPECT_STREQ(api.lastError(), allowed ? "" : "This server does not let clients shut it down.");
        if (!allowed) {
            EXPECT_TRUE(api.ping(NO_RETRY_MS)) << api.lastError();
            server.process().signal(SIGTERM);
        }
        EXPECT_EQ(server.process().wait(LIMIT).status, 0);
    }
}

}  // namespace
