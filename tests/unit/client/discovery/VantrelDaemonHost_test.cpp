#include "VantrelDaemonHost.h"

#include <tuple>

#include "DiscoveryFixture.h"

namespace {

using DaemonHost = DiscoveryTest;
using Host = VantrelDaemonHost;
using Vantrel::DaemonRecord;

const char* const OTHER_UUID = "0d2f7b0a-95c5-4f7e-8f2d-5a6b1b7e9c11";

// Addresses of a network that nobody here has.
const std::string A = "198.51.100.1";
const std::string B = "198.51.100.2";
const std::string C = "198.51.100.3";

TEST_F(DaemonHost, SameServerAsAnotherRecord) {
    const std::tuple<const char*, DaemonRecord, DaemonRecord, bool> cases[] = {
        {"storage ids differ", {"s1", "u", "d", A}, {"s2", "u", "d", A}, false},
        {"storage id alone", {"s1", "u", "d", A}, {"s1", "v", "e", B}, true},
        {"one without a storage id", {"s1", "u", "d", A}, {"", "u", "d", A}, false},
        {"databases differ", {"", "u", "d", A}, {"", "u", "e", A}, false},
        {"host ids", {"", "u", "d", A}, {"", "u", "d", B}, true},
        {"host ids differ", {"", "u", "d", A}, {"", "v", "d", A}, false},
        {"addresses", {"", "", "d", C + " " + A}, {"", "", "d", B + " " + A}, true},
        {"data and metadata address", {"", "", "d", "", A}, {"", "", "d", A}, true},
        {"no address at all", {"", "", "d"}, {"", "", "d"}, false},
    };
    for (const auto& [what, left, right, same] : cases) {
        EXPECT_EQ(Host::isSameServer(left.info(), right.info()), same) << what;
        EXPECT_EQ(Host::isSameServer(right.info(), left.info()), same) << what << ", the other way";
    }
}

TEST_F(DaemonHost, SameServerAsAnId) {
    const VantrelDaemonInfo info = DaemonRecord{"s1", "", "db", B + " " + A, C}.info();
    const std::tuple<const char*, const char*, std::string, int, bool> cases[] = {
        {"s1", "other", "192.0.2.1", 1, true},
        {"s2", "db", A, 7549, false},
        {"", "", A, 0, true},
        {"", "db", A, 7549, true},
        {"", "db", A, 7550, false},
        {"", "DB", A, 7549, false},
        {"", "", C, 7549, true},
        {"", "db", "198.51.100.4", 7549, false},
    };
    for (const auto& [storageId, database, address, port, same] : cases) {
        VantrelServerId id(database, address.c_str(), port);
        id.setStorageId(storageId);
        EXPECT_EQ(Host::isSameServer(info, id), same) << storageId << " of " << id.getId() << " " << port;
    }
}

TEST_F(DaemonHost, SameHost) {
    const VantrelDaemonInfo local = DaemonRecord{"", LOCAL_UUID, "", A}.info();
    const VantrelDaemonInfo remote = DaemonRecord{"", OTHER_UUID, "", A + " 127.0.0.1"}.info();
    const VantrelDaemonInfo silent = DaemonRecord{"", "", "", A}.info();
    const std::tuple<const char*, const VantrelDaemonInfo&, const char*, bool> cases[] = {
        {"own address", silent, A.c_str(), true},
        {"nothing", silent, "", false},
        {"null", silent, nullptr, false},
        {"this host, record of this host", local, "127.0.0.1", true},
        {"this host by name", local, "localhost", true},
        {"this host, record of another", silent, "127.0.0.1", false},
        {"loopback that the record lists", remote, "127.0.0.1", true}};
    for (const auto& [what, info, address, same] : cases)
        EXPECT_EQ(Host::isSameHost(info, address), same) << what;

    VantrelDaemonInfo named;
    named.setHostName("127.0.0.1");
    EXPECT_TRUE(Host::isSameHost(local, named));
    EXPECT_FALSE(Host::isSameHost(silent, named));
    EXPECT_TRUE(Host::isSameHost(silent, DaemonRecord{"", "", "", "", B + " " + A}.info()));
}

TEST_F(DaemonHost, IsLocal) {
    VantrelDaemonInfo info = DaemonRecord{"", "", "", "127.0.0.1 ::1"}.info();
    EXPECT_FALSE(Host::isLocal(info));  // every host has these addresses
    info.setDataIP(0, VantrelOS::getHostName());
    EXPECT_TRUE(Host::isLocal(info));
    info.setHostUUID(OTHER_UUID);
    EXPECT_FALSE(Host::isLocal(info));
    info.setHostUUID(LOCAL_UUID);
    EXPECT_TRUE(Host::isLocal(info));
}

}  // namespace
