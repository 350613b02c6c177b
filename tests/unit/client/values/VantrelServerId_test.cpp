#include <vantrel/VantrelServerId.h>

#include <gmock/gmock.h>

#include <string>
#include <tuple>

#include "CapturedLog.h"

namespace {

TEST(VantrelServerId, ReadsItsTextForm) {
    struct Case {
        const char* text;
        const char* address;
        const char* storage;
        int port;
        const char* id;
    };
    const Case cases[] = {{"host", "host", "SXAFS", 0, "host:SXAFS"},
                          {"host:7549", "host", "", 7549, "host:7549"},
                          {"host:stor1", "host", "stor1", 0, "host:stor1"},
                          {"host:", "host", "", 0, "host:"},
                          {"a:b:c", "a:b", "c", 0, "a:b:c"},
                          {"host:99999999999", "host", "99999999999", 0, "host:99999999999"},
                          {"", "", "SXAFS", 0, ":SXAFS"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        VantrelServerId id("old", "other", 1);
        id.setId(c.text);
        EXPECT_STREQ(id.getIPAddr(), c.address);
        EXPECT_STREQ(id.getDB(), c.storage);
        EXPECT_EQ(id.getPort(), c.port);
        EXPECT_STREQ(id.getId(), c.id);
        EXPECT_TRUE(id.isValid());
        id.setId(id.getId());
        EXPECT_STREQ(id.getId(), c.id) << "its own text read again";
    }
}

TEST(VantrelServerId, WritesItsTextForm) {
    const std::tuple<const char*, VantrelServerId, const char*, bool> cases[] = {
        {"nothing", VantrelServerId(), ":0", false},
        {"null", VantrelServerId(nullptr), ":0", false},
        {"storage and port", VantrelServerId("stor1", "host", 7549), "host:stor1", true},
        {"port", VantrelServerId(nullptr, "host", 7549), "host:7549", true},
        {"port 0", VantrelServerId(0, "host"), "host", true},
        {"port alone", VantrelServerId(7549, nullptr), ":7549", true},
    };
    for (const auto& [name, id, expected, valid] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(id.isValid(), valid);
        EXPECT_STREQ(id.getId(), expected);
        EXPECT_EQ(id.isValid(), valid) << "asking for the text must not make an id of it";
    }
}

TEST(VantrelServerId, SettersRenewTheTextAndTheFieldsAreCompared) {
    const std::tuple<const char*, void (*)(VantrelServerId&), const char*> cases[] = {
        {"address", [](VantrelServerId& id) { id.setIPAddr("10.0.0.1"); }, "10.0.0.1:7549"},
        {"storage", [](VantrelServerId& id) { id.setDB("stor1"); }, "host:stor1"},
        {"port", [](VantrelServerId& id) { id.setPort(1); }, "host:1"},
        {"storage id", [](VantrelServerId& id) { id.setStorageId("S1"); }, "host:7549"},
    };
    const VantrelServerId before(7549, "host");
    for (const auto& [name, change, expected] : cases) {
        SCOPED_TRACE(name);
        VantrelServerId id("host:7549");
        EXPECT_TRUE(id == before) << "though only one knows its text";
        change(id);
        EXPECT_STREQ(id.getId(), expected);
        EXPECT_TRUE(id != before);
    }
    VantrelServerId named;
    named.setStorageId("S1");
    EXPECT_TRUE(named.isValid());
}

TEST(VantrelServerId, TextOfMoreThan1023BytesIsAnAssertion) {
    for (const unsigned length : {1023U, 1024U}) {
        SCOPED_TRACE(length);
        const Vantrel::CapturedLog log;
        const std::string address(length - 2, 'h');
        const VantrelServerId id("s", address.c_str(), 0);
        EXPECT_EQ(std::string(id.getId()), (address + ":s").substr(0, 1023));
        EXPECT_EQ(log.contains("Assertion"), length > 1023);
    }
}

}  // namespace
