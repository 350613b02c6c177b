#include "VantrelKnownServers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CapturedLog.h"

namespace {

using Change = VantrelKnownServers::Change;
using Strings = std::vector<std::string>;
using Vantrel::CoTime;

struct Server {
    const char* storageId = "";
    const char* hostUUID = "";
    const char* database = "";
    const char* metadataIP = "";
    const char* dataIP = "";
    const char* name = "";
    int port = 7549;
};

VantrelDaemonInfo makeInfo(const Server& server) {
    VantrelDaemonInfo info;
    info.setStorageId(server.storageId);
    info.setHostUUID(server.hostUUID);
    info.setDatabase(server.database);
    info.setMetadataIP(0, server.metadataIP);
    info.setDataIP(0, server.dataIP);
    info.setDisplayName(server.name);
    info.setNodePort(server.port);
    return info;
}

Strings names(const VantrelKnownServers::Servers& servers) {
    Strings all;
    for (const VantrelKnownServer& each : servers) all.push_back(each.info->getDisplayName());
    return all;
}

VantrelServerId storage(const char* storageId) {
    VantrelServerId id;
    id.setStorageId(storageId);
    return id;
}

TEST(VantrelKnownServers, TellsServersApart) {
    const struct {
        const char* what;
        Server first;
        Server second;
        Change change;
    } cases[] = {
        {"the same again", {"s", "u", "d", "1", "2", "n"}, {"s", "u", "d", "1", "2", "n"}, Change::None},
        {"a storage elsewhere", {"s", "u", "d", "1"}, {"s", "v", "e", "2"}, Change::Changed},
        {"another storage there", {"s", "u", "d", "1"}, {"t", "u", "d", "1"}, Change::Added},
        {"no storage any more", {"s", "u", "d", "1"}, {"", "u", "d", "1"}, Change::Added},
        {"a storage now", {"", "u", "d", "1"}, {"s", "u", "d", "1"}, Change::Added},
        {"a host elsewhere", {"", "u", "d", "1"}, {"", "u", "d", "2"}, Change::Changed},
        {"another database there", {"", "u", "d", "1"}, {"", "u", "e", "1"}, Change::Added},
        {"another host there", {"", "u", "d", "1"}, {"", "v", "d", "1"}, Change::Added},
        {"no host any more", {"", "u", "d", "1"}, {"", "", "d", "1"}, Change::Added},
        {"an address shared", {"", "", "d", "1", "2"}, {"", "", "d", "3", "1"}, Change::Changed},
        {"in another form", {"", "", "d", "10.0.0.1"}, {"", "", "d", "::ffff:10.0.0.1"}, Change::Changed},
        {"of another database", {"", "", "d", "1"}, {"", "", "e", "1"}, Change::Added},
        {"other addresses", {"", "", "d", "1", "2"}, {"", "", "d", "3", "4"}, Change::Added},
        {"a text as another kind", {"x", "", "d"}, {"", "x", "d", "1"}, Change::Added},
        {"nothing that identifies it", {"s"}, {"", "", "d", "", "", "n"}, Change::Refused},
    };
    for (const auto& c : cases) {
        VantrelKnownServers servers(10);
        ASSERT_EQ(servers.add(makeInfo(c.first)), Change::Added) << c.what;
        EXPECT_EQ(servers.add(makeInfo(c.second)), c.change) << c.what;
        EXPECT_EQ(servers.size(), c.change == Change::Added ? 2u : 1u) << c.what;
    }
}

TEST(VantrelKnownServers, FollowsAServerToItsNewAddressesAndName) {
    VantrelKnownServers servers(10);
    servers.add(makeInfo({"", "", "d", "1", "2", "b"}));
    servers.add(makeInfo({"", "", "d", "4", "", "c"}));
    EXPECT_EQ(servers.add(makeInfo({"", "", "d", "2", "3", "d"})), Change::Changed);
    EXPECT_EQ(names(servers.list()), (Strings{"c", "d"}));
    EXPECT_STREQ(servers.find(VantrelServerId("d", "3", 7549))->info->getDisplayName(), "d");
    EXPECT_EQ(servers.find(VantrelServerId("d", "1", 7549)), nullptr);
    EXPECT_EQ(servers.add(makeInfo({"", "", "d", "1", "", "a"})), Change::Added) << "the address is free";
    EXPECT_EQ(servers.add(makeInfo({"", "", "d", "4", "", "c", 7600})), Change::Changed);
    EXPECT_EQ(servers.find(VantrelServerId("d", "4", 7549)), nullptr);
    EXPECT_EQ(servers.remove(VantrelServerId("d", "4", 7600)).size(), 1u);
    EXPECT_EQ(servers.add(makeInfo({"", "", "d", "4", "", "c"})), Change::Added) << "so is this one";
    EXPECT_EQ(names(servers.list()), (Strings{"a", "c", "d"}));
}

TEST(VantrelKnownServers, TakesOutWhatAServerIdDenotes) {
    const std::vector<Server> known = {{"s", "u", "d", "1", "", "a", 1},
                                       {"t", "u", "e", "1", "2", "b", 1},
                                       {"", "u", "d", "1", "", "c", 2},
                                       {"", "", "d", "10.0.0.1", "", "d", 1}};
    const struct {
        const char* storageId;
        const char* database;
        const char* address;
        int port;
        Strings removed;
    } cases[] = {
        {"s", "other", "9", 9, {"a"}},
        {"none", "d", "1", 1, {}},
        {"", "d", "1", 1, {"a"}},
        {"", "d", "1", 0, {"a", "c"}},
        {"", "", "1", 1, {"a", "b"}},
        {"", "", "1", 0, {"a", "b", "c"}},
        {"", "", "2", 0, {"b"}},
        {"", "d", "2", 0, {}},
        {"", "d", "1", 3, {}},
        {"", "", "", 1, {}},
        {"", "d", "::ffff:10.0.0.1", 1, {"d"}},
    };
    for (const auto& c : cases) {
        VantrelKnownServers servers(10);
        for (const Server& each : known) servers.add(makeInfo(each));
        VantrelServerId id(c.database, c.address, c.port);
        id.setStorageId(c.storageId);
        const VantrelKnownServer* const found = servers.find(id);
        EXPECT_EQ(found ? found->info->getDisplayName() : std::string(),
                  c.removed.empty() ? "" : c.removed[0]);
        const VantrelKnownServers::Servers removed = servers.remove(id);
        EXPECT_EQ(names(removed), c.removed) << c.storageId << c.database << c.address << c.port;
        EXPECT_EQ(servers.size(), known.size() - removed.size());
        EXPECT_EQ(servers.find(id), nullptr);
    }
}

TEST(VantrelKnownServers, ForgetsTheSilentOnes) {
    VantrelKnownServers servers(10);
    for (const char* id : {"a", "b", "c"}) servers.add(makeInfo({id, "", "", "", "", id}));
    CoTime::advance(CoTime::PER_SECOND);
    const CoTime::Microseconds threshold = CoTime::getTime();
    EXPECT_EQ(servers.add(makeInfo({"a", "", "", "", "", "a"})), Change::None);
    EXPECT_TRUE(servers.stamp(makeInfo({"b"})));
    EXPECT_FALSE(servers.stamp(makeInfo({"d"})));
    EXPECT_EQ(names(servers.removeOlder(threshold)), Strings{"c"});
    EXPECT_EQ(names(servers.list()), (Strings{"a", "b"}));
    EXPECT_GE(servers.find(storage("a"))->record().getLastUpdate(), threshold);
}

TEST(VantrelKnownServers, RefusesWhatItHasNoRoomFor) {
    const Vantrel::CapturedLog log;
    VantrelKnownServers servers(2);
    for (const char* id : {"a", "b", "c", "d"}) servers.add(makeInfo({id}));
    EXPECT_EQ(servers.size(), 2u);
    EXPECT_EQ(servers.add(makeInfo({"a", "", "", "1"})), Change::Changed);
    EXPECT_EQ(log.texts(Vantrel::CoMsg::WARNING).size(), 1u);
    EXPECT_EQ(servers.remove(storage("a")).size(), 1u);
    EXPECT_EQ(servers.add(makeInfo({"c"})), Change::Added);
    EXPECT_EQ(servers.add(makeInfo({"d"})), Change::Refused);
    EXPECT_EQ(log.texts(Vantrel::CoMsg::WARNING).size(), 2u);
}

TEST(VantrelKnownServers, IsReplacedAndCopiedAsAWhole) {
    VantrelKnownServers servers(3);
    servers.add(makeInfo({"old"}));
    servers.assign({makeInfo({"s", "", "d", "", "", "b"}), makeInfo({"t", "", "e", "", "", "a"}),
                    makeInfo({"s", "", "d", "", "", "c"}), makeInfo({"", "", "", "", "", "nobody"})});
    EXPECT_EQ(names(servers.list()), (Strings{"a", "c"}));
    EXPECT_EQ(names(servers.list("")), (Strings{"a", "c"}));
    EXPECT_EQ(names(servers.list("d")), Strings{"c"});
    EXPECT_EQ(names(servers.list("D")), Strings{});
    EXPECT_EQ(servers.find(storage("s"))->lastUpdate, 0);
    EXPECT_EQ(servers.find(storage("old")), nullptr);
}

}  // namespace
