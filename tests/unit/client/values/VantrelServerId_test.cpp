#include <vantrel/VantrelServerId.h>

#include <gmock/gmock.h>

#include <string>
#include <tuple>

#include "CapturedLog.h"

namespace {

TEST(VantrelServerId, ReadsItsTextForm) {
    const std::tuple<std::string, const char*, const char*, int> cases[] = {
        {"host:7549", "host", "", 7549},    {"host:stor1", "host", "stor1", 0},
        {"host:", "host", "", 0},           {"a:b:c", "a:b", "c", 0},
        {"host:-5", "host", "", -5},        {"host:0x50", "host", "0x50", 0},
        {"host: 7549", "host", " 7549", 0}, {"host:7549 ", "host", "7549 ", 0},
        {"host:0", "host", "0", 0},         {"host:99999999999", "host", "99999999999", 0},
        {"host", "host", "SXAFS", 0},       {"", "", "SXAFS", 0}};
    for (const auto& [text, address, storage, port] : cases) {
        VantrelServerId id("old", "other", 1);
        id.setId(text.c_str());
        EXPECT_STREQ(id.getIPAddr(), address) << text;
        EXPECT_STREQ(id.getDB(), storage) << text;
        EXPECT_EQ(id.getPort(), port) << text;
        EXPECT_EQ(id.getId(), text.find(':') != std::string::npos ? text : text + ":SXAFS");
        id.setId(id.getId());
        EXPECT_STREQ(id.getIPAddr(), address) << "its own text read again";
    }
}

TEST(VantrelServerId, WritesItsTextForm) {
    const std::tuple<VantrelServerId, const char*, bool> cases[] = {
        {VantrelServerId(), ":0", false},
        {VantrelServerId(nullptr), ":0", false},
        {VantrelServerId("stor1", "host", 7549), "host:stor1", true},
        {VantrelServerId(nullptr, "host", 7549), "host:7549", true},
        {VantrelServerId(0, "host"), "host", true},
        {VantrelServerId(7549, nullptr), ":7549", true},
    };
    for (const auto& [id, expected, valid] : cases) {
        EXPECT_EQ(id.isValid(), valid) << expected;
        EXPECT_STREQ(id.getId(), expected);
        EXPECT_EQ(id.isValid(), valid) << "asking for the text must not make an id of it";
    }
}

TEST(VantrelServerId, SettersRenewTheTextAndTheFieldsAreCompared) {
    const std::pair<void (*)(VantrelServerId&), const char*> cases[] = {
        {[](VantrelServerId& id) { id.setIPAddr("10.0.0.1"); }, "10.0.0.1:7549"},
        {[](VantrelServerId& id) { id.setDB("stor1"); }, "host:stor1"},
        {[](VantrelServerId& id) { id.setPort(1); }, "host:1"},
        {[](VantrelServerId& id) { id.setStorageId("S1"); }, "host:7549"},
    };
    const VantrelServerId before(7549, "host");
    for (const auto& [change, expected] : cases) {
        VantrelServerId id("host:7549");
        EXPECT_TRUE(id == before) << "though only one knows its text";
        change(id);
        EXPECT_STREQ(id.getId(), expected);
        EXPECT_TRUE(id != before) << expected;
    }
    VantrelServerId named;
    named.setStorageId("S1");
    EXPECT_TRUE(named.isValid());
}

TEST(VantrelServerId, TextOfMoreThan1023BytesIsAnAssertion) {
    for (const unsigned length : {1023U, 1024U}) {
        const Vantrel::CapturedLog log;
        const std::string address(length - 2, 'h');
        EXPECT_EQ(VantrelServerId("s", address.c_str(), 0).getId(), (address + ":s").substr(0, 1023));
        EXPECT_EQ(log.contains("Assertion"), length > 1023);
    }
}

}  // namespace
