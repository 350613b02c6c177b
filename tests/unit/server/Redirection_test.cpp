#include "Redirection.h"

#include <gtest/gtest.h>

namespace vantreld {
namespace {

TEST(Redirection, IsHostPortAndFramePort) {
    const struct {
        const char* text;
        const char* host;  // null: refused
        int nodePort;
        int framePort;
    } cases[] = {
        {"render02:7549:7550", "render02", 7549, 7550},
        {"10.0.0.2:1:65535", "10.0.0.2", 1, 65535},
        {"[fe80::1]:7549:7550", "fe80::1", 7549, 7550},
        {"", nullptr, 0, 0},
        {"render02", nullptr, 0, 0},
        {"render02:7550", nullptr, 0, 0},
        {":7549:7550", nullptr, 0, 0},
        {"[]:7549:7550", nullptr, 0, 0},
        {"fe80::1:7549:7550", nullptr, 0, 0},
        {"render02:0:7550", nullptr, 0, 0},
        {"render02:7549:65536", nullptr, 0, 0},
        {"render02:7549:-1", nullptr, 0, 0},
        {"render02:7549:7550 ", nullptr, 0, 0},
        {"render02:7549:", nullptr, 0, 0},
    };
    for (const auto& each : cases) {
        const auto redirection = parseRedirection(each.text);
        ASSERT_EQ(redirection.has_value(), each.host != nullptr) << each.text;
        if (!redirection) continue;
        EXPECT_EQ(redirection->host, each.host);
        EXPECT_EQ(redirection->nodePort, each.nodePort) << each.text;
        EXPECT_EQ(redirection->framePort, each.framePort) << each.text;
    }
}

}  // namespace
}  // namespace vantreld
