#include "CoIPRangeFilter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Vantrel {
namespace {

TEST(CoIPRangeFilter, HoldsTheAddressesOfTheRange) {
    struct {
        const char* range;
        const char* text;
        std::vector<const char*> inside;
        std::vector<const char*> outside;
    } const cases[] = {
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
    for (const auto& each : cases) {
        SCOPED_TRACE(each.range);
        CoIPRangeFilter range;
        std::string error;
        ASSERT_TRUE(range.parse(each.range, error)) << error;
        EXPECT_EQ(each.text, range.toText());
        for (const char* ip : each.inside) EXPECT_TRUE(range.inRange(ip)) << ip;
        for (const char* ip : each.outside) EXPECT_FALSE(range.inRange(ip)) << ip;
        EXPECT_FALSE(range.inRange(nullptr));
    }
}

TEST(CoIPRangeFilter, TellsWhatIsWrong) {
    struct {
        const char* range;
        const char* error;
    } const cases[] = {
        {"", "Invalid IP range filter "},
        {"192.168.0.256", "Invalid IP range filter 192.168.0.256"},
        {"fe80::/10", "Invalid IP range filter fe80::/10"},
        {"10.0.0.0/33", "Invalid IP range filter prefix 33"},
        {"10.0.0.0/-1", "Invalid IP range filter prefix -1"},
        {"10.0.0.0/", "Invalid IP range filter prefix "},
        {"10.0.0.0/99999999999999999999", "Invalid IP range filter prefix 99999999999999999999"},
        {"10.0.0.0/255.0.255.0", "Invalid IP range filter mask 255.0.255.0"},
    };
    for (const auto& each : cases) {
        CoIPRangeFilter range;
        std::string error;
        ASSERT_TRUE(range.parse("10.1.2.3", error));
        EXPECT_FALSE(range.parse(each.range, error)) << each.range;
        EXPECT_EQ(each.error, error);
        EXPECT_EQ("10.1.2.3", range.toText());
    }
}

}  // namespace
}  // namespace Vantrel
