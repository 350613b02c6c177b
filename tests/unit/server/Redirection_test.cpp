#include "Redirection.h"

#include <gtest/gtest.h>

#include <tuple>

namespace vantreld {
namespace {

TEST(Redirection, IsHostPortAndFramePort) {
    const std::tuple<const char*, const char*, int, int> cases[] = {
        {"render02:7549:7550", "render02", 7549, 7550},
        {"10.0.0.2:1:65535", "10.0.0.2", 1, 65535},
        {"[fe80::1]:7549:7550", "fe80::1", 7549, 7550}};
    for (const auto& [text, host, nodePort, framePort] : cases) {
        const auto redirection = parseRedirection(text);
        ASSERT_TRUE(redirection) << text;
        EXPECT_EQ(redirection->host, host);
        EXPECT_EQ(redirection->nodePort, nodePort);
        EXPECT_EQ(redirection->framePort, framePort);
    }
    for (const char* text : {"", "render02", "render02:7550", ":7549:7550", "[]:7549:7550",
                             "fe80::1:7549:7550", "render02:0:7550", "render02:7549:65536",
                             "render02:7549:-1", "render02:7549:7550 ", "render02:7549:"})
        EXPECT_FALSE(parseRedirection(text)) << text;
}

}  // namespace
}  // namespace vantreld
