#include "Gateway.h"

#include <gtest/gtest.h>

namespace {

TEST(Gateway, IsAnAddressAndPerhapsAPort) {
    const struct {
        const char* text;
        const char* address;  // null: refused
        int port;
    } cases[] = {
        {"host", "host", 0},
        {"host:1", "host", 1},
        {"10.0.0.1:65535", "10.0.0.1", 65535},
        {"fd00::1", "fd00::1", 0},
        {"[fd00::1]", "fd00::1", 0},
        {"[fd00::1]:7549", "fd00::1", 7549},
        {"", nullptr, 0},
        {":7549", nullptr, 0},
        {"host:", nullptr, 0},
        {"host:0", nullptr, 0},
        {"host:65536", nullptr, 0},
        {"host:7x", nullptr, 0},
        {"host:-1", nullptr, 0},
        {"[fd00::1", nullptr, 0},
        {"[]:1", nullptr, 0},
        {"[fd00::1]7549", nullptr, 0},
        {"[fd00::1]:", nullptr, 0},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.text);
        const auto gateway = parseGateway(each.text);
        ASSERT_EQ(gateway.has_value(), each.address != nullptr);
        if (!gateway) continue;
        EXPECT_EQ(gateway->address, each.address);
        EXPECT_EQ(gateway->port, each.port);
    }
}

}  // namespace
