#include "VantrelDaemonHost.h"

#include <tuple>

#include "DiscoveryFixture.h"

namespace {

using DaemonHost = DiscoveryTest;
using Host = VantrelDaemonHost;

const char* const OTHER_UUID = "0d2f7b0a-95c5-4f7e-8f2d-5a6b1b7e9c11";

VantrelDaemonInfo record(const Strings& metadata, const Strings& data = {}) {
    VantrelDaemonInfo info;
    for (unsigned i = 0; i < metadata.size(); ++i) info.setMetadataIP(i, metadata[i].c_str());
    for (unsigned i = 0; i < data.size(); ++i) info.setDataIP(i, data[i].c_str());
    return info;
}

/// The address of the n-th of many hosts that nobody here has.
std::string farIP(unsigned n) {
    return "198.51.100." + std::to_string(n);
}

VantrelDaemonInfo daemon(const char* storageId, const char* database, const char* uuid,
                         const Strings& metadata, const Strings& data = {}) {
    VantrelDaemonInfo info = record(metadata, data);
    info.setStorageId(storageId);
    info.setDatabase(database);
    info.setHostUUID(uuid);
    info.setNodePort(7549);
    return info;
}

TEST_F(DaemonHost, SameServerAsAnotherRecord) {
    const std::string far = farIP(1);
    const std::string farther = farIP(2);
    const std::tuple<const char*, VantrelDaemonInfo, VantrelDaemonInfo, bool> cases[] = {
        {"storage ids differ", daemon("s1", "d", "u", {far}), daemon("s2", "d", "u", {far}), false},
        {"storage id alone", daemon("s1", "d", "u", {far}), daemon("s1", "e", "v", {farther}), true},
        {"one without a storage id", daemon("s1", "d", "u", {far}), daemon("", "d", "u", {far}), false},
        {"databases differ", daemon("", "d", "u", {far}), daemon("", "e", "u", {far}), false},
        {"host ids", daemon("", "d", "u", {far}), daemon("", "d", "u", {farther}), true},
        {"host ids differ", daemon("", "d", "u", {far}), daemon("", "d", "v", {far}), false},
        {"addresses", daemon("", "d", "", {farIP(3), far}), daemon("", "d", "", {farther, far}), true},
        {"data and metadata address", daemon("", "d", "", {}, {far}), daemon("", "d", "", {far}), true},
        {"no address at all", daemon("", "d", "", {}), daemon("", "d", "", {}), false},
    };
    for (const auto& [what, left, right, same] : cases) {
        EXPECT_EQ(Host::isSameServer(left, right), same) << what;
        EXPECT_EQ(Host::isSameServer(right, left), same) << what << ", the other way";
    }
}

TEST_F(DaemonHost, SameServerAsAnId) {
    const std::string far = farIP(1);
    const VantrelDaemonInfo info = daemon("s1", "db", "", {farIP(2), far}, {farIP(3)});
    const auto id = [](const char* storageId, const char* database, const std::string& address, int port) {
        VantrelServerId made(database, address.c_str(), port);
        made.setStorageId(storageId);
        return made;
    };
    const struct {
        const char* what;
        VantrelServerId id;
        bool same;
    } cases[] = {
        {"storage id alone", id("s1", "other", "192.0.2.1", 1), true},
        {"other storage id", id("s2", "db", far, 7549), false},
        {"address", id("", "", far, 0), true},
        {"address, port and database", id("", "db", far, 7549), true},
        {"other port", id("", "db", far, 7550), false},
        {"other database", id("", "DB", far, 7549), false},
        {"data address", id("", "", farIP(3), 7549), true},
        {"other address", id("", "db", farIP(4), 7549), false},
    };
    for (const auto& c : cases) EXPECT_EQ(Host::isSameServer(info, c.id), c.same) << c.what;
}

TEST_F(DaemonHost, SameHost) {
    VantrelDaemonInfo local = record({farIP(1)});
    local.setHostUUID(LOCAL_UUID);
    VantrelDaemonInfo remote = record({farIP(1), "127.0.0.1"});
    remote.setHostUUID(OTHER_UUID);
    const VantrelDaemonInfo silent = record({farIP(1)});
    const std::tuple<const char*, const VantrelDaemonInfo&, std::string, bool> cases[] = {
        {"own address", silent, farIP(1), true},
        {"nothing", silent, "", false},
        {"this host, record of this host", local, "127.0.0.1", true},
        {"this host by name", local, "localhost", true},
        {"this host, record of another", silent, "127.0.0.1", false},
        {"loopback that the record lists", remote, "127.0.0.1", true}};
    for (const auto& [what, info, address, same] : cases)
        EXPECT_EQ(Host::isSameHost(info, address.c_str()), same) << what;
    EXPECT_FALSE(Host::isSameHost(silent, nullptr));

    VantrelDaemonInfo named;
    named.setHostName("127.0.0.1");
    EXPECT_TRUE(Host::isSameHost(local, named));
    EXPECT_FALSE(Host::isSameHost(silent, named));
    EXPECT_TRUE(Host::isSameHost(silent, record({}, {farIP(9), farIP(1)})));
}

TEST_F(DaemonHost, IsLocal) {
    VantrelDaemonInfo info = record({"127.0.0.1", "::1"});
    EXPECT_FALSE(Host::isLocal(info));  // every host has these addresses
    info.setDataIP(0, VantrelOS::getHostName());
    EXPECT_TRUE(Host::isLocal(info));
    info.setHostUUID(OTHER_UUID);
    EXPECT_FALSE(Host::isLocal(info));
    info.setHostUUID(LOCAL_UUID);
    EXPECT_TRUE(Host::isLocal(info));
}

}  // namespace
