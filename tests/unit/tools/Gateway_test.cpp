#include "Gateway.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

TEST(Gateway, IsAnAddressAndPerhapsAPort) {
    const std::tuple<const char*, const char*, int> cases[] = {
        {"host", "host", 0},       {"host:1", "host", 1},       {"10.0.0.1:65535", "10.0.0.1", 65535},
        {"fd00::1", "fd00::1", 0}, {"[fd00::1]", "fd00::1", 0}, {"[fd00::1]:7549", "fd00::1", 7549},
    };
    for (const auto& [text, address, port] : cases) {
        const auto gateway = parseGateway(text);
        ASSERT_TRUE(gateway) << text;
        EXPECT_EQ(gateway->address, address);
        EXPECT_EQ(gateway->port, port);
    }
    for (const char* text : {"", ":7549", "host:", "host:0", "host:65536", "host:7x", "host:-1", "[fd00::1",
                             "[]:1", "[fd00::1]7549", "[fd00::1]:"})
        EXPECT_FALSE(parseGateway(text)) << text;
}

}  // namespace
