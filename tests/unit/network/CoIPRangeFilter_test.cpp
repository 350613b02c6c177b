#include "CoIPRangeFilter.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace Vantrel {
namespace {

TEST(CoIPRangeFilter, HoldsTheAddressesOfTheRange) {
    using Addresses = std::vector<const char*>;
    const std::tuple<const char*, const char*, Addresses, Addresses> cases[] = {
        {"192.168.0.0/24",
         "192.168.0.0/24",
         {"192.168.0.0", "192.168.0.255", "::ffff:192.168.0.9"},
         {"192.168.1.0", "192.167.255.255", "::1", "fe80::1", "192.168.0", "host", "", " 192.168.0.1"}},
        {"192.168.0.0/255.255.255.0", "192.168.0.0/24", {"192.168.0.255"}, {"192.168.1.0"}},
        {" 192.168.0.7 / 24 ", "192.168.0.0/24", {"192.168.0.255"}, {"192.168.1.0"}},
        {"10.1.2.3", "10.1.2.3", {"10.1.2.3"}, {"10.1.2.2", "10.1.2.4"}},
        {"128.0.0.0/1", "128.0.0.0/1", {"128.0.0.0", "255.255.255.255"}, {"127.255.255.255"}},
        {"1.2.3.4/0", "0.0.0.0/0", {"0.0.0.0", "255.255.255.255"}, {"::1"}},
    };
    for (const auto& [given, text, inside, outside] : cases) {
        SCOPED_TRACE(given);
        CoIPRangeFilter range;
        std::string error;
        ASSERT_TRUE(range.parse(given, error)) << error;
        EXPECT_EQ(text, range.toText());
        for (const char* ip : inside) EXPECT_TRUE(range.inRange(ip)) << ip;
        for (const char* ip : outside) EXPECT_FALSE(range.inRange(ip)) << ip;
        EXPECT_FALSE(range.inRange(nullptr));
    }
}

TEST(CoIPRangeFilter, TellsWhatIsWrong) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "Invalid IP range filter "},
        {"192.168.0.256", "Invalid IP range filter 192.168.0.256"},
        {"fe80::/10", "Invalid IP range filter fe80::/10"},
        {"10.0.0.0/33", "Invalid IP range filter prefix 33"},
        {"10.0.0.0/-1", "Invalid IP range filter prefix -1"},
        {"10.0.0.0/", "Invalid IP range filter prefix "},
        {"10.0.0.0/99999999999999999999", "Invalid IP range filter prefix 99999999999999999999"},
        {"10.0.0.0/255.0.255.0", "Invalid IP range filter mask 255.0.255.0"},
    };
    for (const auto& [given, expected] : cases) {
        CoIPRangeFilter range;
        std::string error;
        ASSERT_TRUE(range.parse("10.1.2.3", error));
        EXPECT_FALSE(range.parse(given, error)) << given;
        EXPECT_EQ(expected, error);
        EXPECT_EQ("10.1.2.3", range.toText());
    }
}

}  // namespace
}  // namespace Vantrel
