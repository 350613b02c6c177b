// What a server handle says of its server.
#include "ClientFixture.h"

using Vantrel::ScriptedPeer;

namespace {

class ServerHandleTest : public PeerFixture {
  protected:
    VantrelClient client{false};
    const VantrelServerHandle server{id()};
};

TEST_F(ServerHandleTest, GivesWhatTheServerSaysOfItself) {
    describe({"2017.1.0.238"});
    peer.answer("QueryNodePlugInVendor", ScriptedPeer::ok("Quorvane"));
    peer.answer("QueryNodePlugInProduct", ScriptedPeer::ok("Store"));
    peer.answer("QueryNodePlugInVersion", ScriptedPeer::ok("7 1"));
    VantrelStr text;
    int major = 0;
    int minor = 0;
    VantrelServerInfo info;
    EXPECT_STREQ(server.getHostName(), "render01");
    EXPECT_STREQ(server.getHostUUID(), "uuid-1");
    EXPECT_TRUE(server.getStorageId(text) && text == "stor-1");
    EXPECT_TRUE(server.getDisplayName(text) && text == "Render 1");
    EXPECT_TRUE(server.getVendor(text) && text == "Quorvane");
    EXPECT_TRUE(server.getProduct(text) && text == "Store");
    EXPECT_TRUE(server.getVersion(major, minor) && major == 7 && minor == 1);
    EXPECT_TRUE(server.getProtocolVersion(major, minor) && major == 2017 && minor == 1);
    EXPECT_TRUE(server.isDatabase("SXAFS"));
    EXPECT_FALSE(server.isDatabase("SXAF") || server.isDatabase("sxafs") || server.isDatabase(nullptr));
    EXPECT_TRUE(server.getInfo(info) && info.getVersionBuild() == 238 &&
                info.getId().getPort() == peer.port());
    EXPECT_STREQ(server.getIdStr(), peer.address().c_str());

    const int versions[][4] = {{2017, 1, 0, 238}, {2017, 0, 9, 999}, {2016, 9, 9, 999}, {2017, 1, 0, 237},
                               {2017, 1, 0, 239}, {2017, 1, 1, 0},   {2018, 0, 0, 0}};
    for (const auto& version : versions) {
        const bool expected = &version - versions < 4;
        bool atLeast = !expected;
        EXPECT_TRUE(server.compareVersion(atLeast, version[0], version[1], version[2], version[3]));
        EXPECT_EQ(atLeast, expected);
    }
    bool atLeast = false;
    EXPECT_TRUE(server.compareProductVersion(atLeast, 7, 1, 0, 0) && atLeast);
    EXPECT_TRUE(server.compareProductVersion(atLeast, 7, 1, 0, 1) && !atLeast);
}

TEST_F(ServerHandleTest, OfAServerThatCannotBeReachedThereIsNothing) {
    peer.refuse();
    EXPECT_FALSE(server.getHostName() || server.getHostUUID() || server.isDatabase("SXAFS"));
    EXPECT_EQ(server.lastError(), notFound(std::strerror(ECONNREFUSED)));
    const VantrelServerHandle copy(server);
    EXPECT_TRUE(copy.getId() == server.getId() && !*copy.lastError());
    EXPECT_FALSE(copy.ping(0));
    peer.listenAgain();
    EXPECT_STREQ(server.getHostName(), "render01");
    EXPECT_TRUE(copy.ping(0));
}

TEST_F(ServerHandleTest, HandlesAreAssignedAndKeptInVectors) {
    ScriptedPeer other;
    const VantrelServerId otherId(other.address().c_str());
    std::vector<VantrelServerHandle> handles;
    for (const VantrelServerId& each : {id(), otherId, id()}) handles.emplace_back(each);
    EXPECT_TRUE(handles[0].ping(0)) << handles[0].lastError();
    handles.erase(handles.begin());
    EXPECT_TRUE(handles[0].getId() == otherId && handles[1].getId() == id());
    const VantrelServerHandle& same = handles[1];
    handles[1] = same;
    handles[0] = handles[1];
    EXPECT_TRUE(handles[0].getId() == id() && handles[0].ping(0) && handles[1].ping(0));
    handles[0] = std::move(handles[1]);
    EXPECT_TRUE(handles[0].ping(0));
    EXPECT_EQ(other.connections(), 0U);
}

TEST_F(ServerHandleTest, TimeOutsAreSetByHandle) {
    server.setCallTimeout(200);
    server.setConnectRetryTimeout(150);
    VantrelStr vendor;
    peer.neverAnswer("QueryNodePlugInVendor");
    within(std::chrono::seconds(30), [&] { EXPECT_FALSE(server.getVendor(vendor)); });
    EXPECT_EQ(server.lastErrorCode(), VANTREL_ERROR_TIMED_OUT);
    peer.closeOnAccept(true);
    const std::size_t before = peer.connections();
    EXPECT_FALSE(server.getVendor(vendor));
    EXPECT_EQ(peer.connections() - before, 2U) << "tried again after a pause";
}

TEST_F(ServerHandleTest, ARestartedServerOfAnotherVersionIsNoticed) {
    int major = 0;
    int minor = 0;
    EXPECT_TRUE(server.getProtocolVersion(major, minor) && major == 2024);
    describe({"2009.3.0.0"});
    peer.dropConnections();
    EXPECT_TRUE(server.ping(0) && server.getProtocolVersion(major, minor) && major == 2009);
}

}  // namespace
