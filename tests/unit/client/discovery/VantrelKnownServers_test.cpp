#include "VantrelKnownServers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "CapturedLog.h"
#include "DaemonRecord.h"

namespace {

using Change = VantrelKnownServers::Change;
using Server = Vantrel::DaemonRecord;
using Vantrel::CoTime;

/// The display names, each followed by a blank.
std::string names(const VantrelKnownServers::Servers& servers) {
    std::string all;
    for (const VantrelKnownServer& each : servers) all += std::string(each.info->getDisplayName()) + ' ';
    return all;
}

VantrelServerId storage(const char* storageId) {
    VantrelServerId id;
    id.setStorageId(storageId);
    return id;
}

TEST(VantrelKnownServers, TellsServersApart) {
    const std::tuple<const char*, Server, Server, Change> cases[] = {
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
    for (const auto& [what, first, second, change] : cases) {
        VantrelKnownServers servers(10);
        ASSERT_EQ(servers.add(first.info()), Change::Added) << what;
        EXPECT_EQ(servers.add(second.info()), change) << what;
        EXPECT_EQ(servers.size(), change == Change::Added ? 2u : 1u) << what;
    }
}

TEST(VantrelKnownServers, FollowsAServerToItsNewAddressesAndName) {
    VantrelKnownServers servers(10);
    servers.add(Server{"", "", "d", "1", "2", "b"}.info());
    servers.add(Server{"", "", "d", "4", "", "c"}.info());
    EXPECT_EQ(servers.add(Server{"", "", "d", "2", "3", "d"}.info()), Change::Changed);
    EXPECT_EQ(names(servers.list()), "c d ");
    EXPECT_EQ(names(servers.find(VantrelServerId("d", "3", 7549))), "d ");
    EXPECT_EQ(names(servers.find(VantrelServerId("d", "1", 7549))), "");
    EXPECT_EQ(servers.add(Server{"", "", "d", "1", "", "a"}.info()), Change::Added) << "the address is free";
    EXPECT_EQ(servers.add(Server{"", "", "d", "4", "", "c", 7600}.info()), Change::Changed);
    EXPECT_EQ(names(servers.find(VantrelServerId("d", "4", 7549))), "");
    EXPECT_EQ(servers.remove(VantrelServerId("d", "4", 7600)).size(), 1u);
    EXPECT_EQ(servers.add(Server{"", "", "d", "4", "", "c"}.info()), Change::Added) << "so is this one";
    EXPECT_EQ(names(servers.list()), "a c d ");
    EXPECT_EQ(servers.add(Server{"", "", "d", "2 4", "", "e"}.info()), Change::Changed);
    EXPECT_EQ(names(servers.list()), "a c e ") << "the first address decides";
}

TEST(VantrelKnownServers, TakesOutWhatAServerIdDenotes) {
    const std::vector<Server> known = {{"s", "u", "d", "1", "", "a", 1},
                                       {"t", "u", "e", "1", "2", "b", 1},
                                       {"", "u", "d", "1", "", "c", 2},
                                       {"", "", "d", "10.0.0.1", "", "d", 1}};
    const std::tuple<const char*, const char*, const char*, int, std::string> cases[] = {
        {"s", "other", "9", 9, "a "},
        {"none", "d", "1", 1, ""},
        {"", "d", "1", 1, "a "},
        {"", "d", "1", 0, "a c "},
        {"", "", "1", 1, "a b "},
        {"", "", "1", 0, "a b c "},
        {"", "", "2", 0, "b "},
        {"", "d", "2", 0, ""},
        {"", "d", "1", 3, ""},
        {"", "", "", 1, ""},
        {"", "d", "::ffff:10.0.0.1", 1, "d "},
    };
    for (const auto& [storageId, database, address, port, expected] : cases) {
        VantrelKnownServers servers(10);
        for (const Server& each : known) servers.add(each.info());
        VantrelServerId id(database, address, port);
        id.setStorageId(storageId);
        EXPECT_EQ(names(servers.find(id)), expected);
        const VantrelKnownServers::Servers removed = servers.remove(id);
        EXPECT_EQ(names(removed), expected) << storageId << database << address << port;
        EXPECT_EQ(servers.size(), known.size() - removed.size());
        EXPECT_EQ(names(servers.find(id)), "");
    }
}

TEST(VantrelKnownServers, OfOneNameAndDatabaseTheLatestInItsPlaceComesLast) {
    VantrelKnownServers servers(10);
    const auto ids = [&servers] {
        std::string all;
        for (const VantrelKnownServer& each : servers.find(VantrelServerId(7549, "1")))
            all += std::string(each.info->getStorageId()) + ' ';
        return all;
    };
    for (const char* id : {"c", "b", "a"}) servers.add(Server{id, "", "d", "1", "", "name"}.info());
    servers.add(Server{"z", "", "d", "1", "", "early"}.info());
    EXPECT_EQ(ids(), "z c b a ");
    servers.add(Server{"b", "", "d", "1", "2", "name"}.info());
    EXPECT_EQ(ids(), "z c b a ");
    for (const char* name : {"other", "name"}) servers.add(Server{"c", "", "d", "1", "", name}.info());
    EXPECT_EQ(ids(), "z b a c ");
}

TEST(VantrelKnownServers, ForgetsTheSilentOnes) {
    VantrelKnownServers servers(10);
    for (const char* id : {"a", "b", "c"}) servers.add(Server{id, "", "", "", "", id}.info());
    CoTime::advance(CoTime::PER_SECOND);
    const CoTime::Microseconds threshold = CoTime::getTime();
    EXPECT_EQ(servers.add(Server{"a", "", "", "", "", "a"}.info()), Change::None);
    EXPECT_TRUE(servers.stamp(Server{"b"}.info()));
    EXPECT_FALSE(servers.stamp(Server{"d"}.info()));
    EXPECT_EQ(names(servers.removeOlder(threshold)), "c ");
    EXPECT_EQ(names(servers.list()), "a b ");
    EXPECT_GE(servers.find(storage("a"))[0].record().getLastUpdate(), threshold);
}

TEST(VantrelKnownServers, RefusesWhatItHasNoRoomFor) {
    const Vantrel::CapturedLog log;
    VantrelKnownServers servers(2);
    for (const char* id : {"a", "b", "c", "d"}) servers.add(Server{id}.info());
    EXPECT_EQ(servers.size(), 2u);
    EXPECT_EQ(servers.add(Server{"a", "", "", "1"}.info()), Change::Changed);
    EXPECT_EQ(log.texts(Vantrel::CoMsg::WARNING).size(), 1u);
    EXPECT_EQ(servers.remove(storage("a")).size(), 1u);
    EXPECT_EQ(servers.add(Server{"c"}.info()), Change::Added);
    EXPECT_EQ(servers.add(Server{"d"}.info()), Change::Refused);
    EXPECT_EQ(log.texts(Vantrel::CoMsg::WARNING).size(), 2u);
}

TEST(VantrelKnownServers, IsReplacedAndCopiedAsAWhole) {
    VantrelKnownServers servers(3);
    servers.add(Server{"old"}.info());
    servers.assign({Server{"s", "", "d", "", "", "b"}.info(), Server{"t", "", "e", "", "", "a"}.info(),
                    Server{"s", "", "d", "", "", "c"}.info(), Server{"", "", "", "", "", "nobody"}.info()});
    EXPECT_EQ(names(servers.list()), "a c ");
    EXPECT_EQ(names(servers.list("")), "a c ");
    EXPECT_EQ(names(servers.list("d")), "c ");
    EXPECT_EQ(names(servers.list("D")), "");
    EXPECT_EQ(servers.find(storage("s"))[0].lastUpdate, 0);
    EXPECT_EQ(names(servers.find(storage("old"))), "");
}

}  // namespace
