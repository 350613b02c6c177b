#include <vantrel/VantrelClientAPI.h>

#include "DiscoveryFixture.h"

namespace {

class ServerList : public DiscoveryTest {
  protected:
    VantrelClient library{false};
    VantrelServerList list{"", "", 0};
    VantrelServerInfo info;
    int count = -1;
};

TEST_F(ServerList, GivesTheServersByName) {
    FakeServers network(group(), {server("b", "10.0.0.2", "B"), server("a", "10.0.0.1", "A")});
    ASSERT_TRUE(list.getNumNodes(count)) << list.lastError();
    ASSERT_EQ(count, 2);
    const VantrelServerList copy(list);
    for (const int index : {0, 1}) {
        ASSERT_TRUE(copy.getNode(index, info));
        EXPECT_STREQ(info.getDisplayName(), index == 0 ? "A" : "B");
    }
    for (const int index : {-1, 2}) {
        EXPECT_FALSE(list.getNode(index, info));
        EXPECT_EQ(list.lastError(), "Index " + std::to_string(index) + " is out of the bounds 0,2.");
    }
    EXPECT_STREQ(info.getDisplayName(), "B");
    EXPECT_TRUE(list.refresh());
    EXPECT_THAT(network.searches.wait(2), ElementsAre("", ""));

    VantrelClientUninit();
    EXPECT_FALSE(list.getNumNodes(count));
    VantrelClientInit();  // the fixture's object takes it back
    EXPECT_FALSE(list.getNode(0, info)) << "of a list that is no more";
}

TEST(VantrelServerInfo, MovesWithoutThrowingAndLeavesOneThatIsAsNew) {
    static_assert(std::is_nothrow_move_constructible_v<VantrelServerInfo>, "as vectors want it");
    VantrelServerInfo first;
    first.setVendor("Vend");
    VantrelServerInfo second(std::move(first));
    EXPECT_TRUE(first == VantrelServerInfo() && first != second);
    first = std::move(second);
    EXPECT_STREQ(first.getVendor(), "Vend");
    EXPECT_STREQ(second.getId().getId(), ":0");
    second = first;
    second.setVendor("Other");
    EXPECT_STREQ(first.getVendor(), "Vend");
}

TEST_F(ServerList, ResolvesAStorage) {
    VantrelDaemonInfo announced = server("wanted", "10.0.0.1");
    announced.setDatabase("db");
    announced.setNodePort(7000);
    FakeServers network(group(), {announced});
    VantrelServerId id("as it was");
    EXPECT_FALSE(list.resolveStorageId("unknown", id));
    EXPECT_STREQ(list.lastError(), "Server not found: :0");
    EXPECT_STREQ(id.getId(), "as it was:SXAFS");
    EXPECT_FALSE(list.resolve(VantrelServerId("10.0.0.9:7549"), info));
    EXPECT_STREQ(list.lastError(), "Server not found: 10.0.0.9:7549");
    ASSERT_TRUE(list.resolveStorageId("wanted", id)) << list.lastError();
    EXPECT_STREQ(id.getStorageId(), "wanted");
    EXPECT_STREQ(id.getDB(), "db");
    EXPECT_STREQ(id.getIPAddr(), "10.0.0.1");
    EXPECT_EQ(id.getPort(), 7000);
}

TEST_F(ServerList, SaysWhyItCannotSearch) {
    configure("Multicast=lo", "TTL=0");
    for (const char* reason : {"No multicast interface found.", "API not initialized"}) {
        VantrelServerId id;
        EXPECT_FALSE(list.getNumNodes(count));
        EXPECT_STREQ(list.lastError(), reason);
        EXPECT_FALSE(list.refresh() || list.resolve(storage("s"), info) || list.resolveStorageId("s", id));
        EXPECT_EQ(count, 0);
        VantrelClientUninit();
    }
    VantrelClientInit();
    VantrelClientInit();  // the fixture's object takes it back
}

}  // namespace
