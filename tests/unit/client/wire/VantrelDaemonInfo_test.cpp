#include "VantrelDaemonInfo.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "CapturedLog.h"
#include "CoMsg.h"
#include "rcAttrStream.h"

using testing::ElementsAre;
using testing::IsEmpty;
using Vantrel::CapturedLog;
using Vantrel::CoMsg;
using Vantrel::rcAttrStream;

namespace {

const char* const LOCAL_UUID = "6f1c9bd0-3c0a-4c43-9d5c-0a4bb0e2f8b1";
const char* const OTHER_UUID = "0d2f7b0a-95c5-4f7e-8f2d-5a6b1b7e9c11";

/// A folder with the host's configuration, in place before anything is read.
class Host : public testing::Environment {
  public:
    void SetUp() override {
        char path[] = "/tmp/vantrel-daemon-info-XXXXXX";
        ASSERT_NE(::mkdtemp(path), nullptr);
        folder() = path;
        std::ofstream(folder() + "/network.cfg") << "[Local]\nUUID=" << LOCAL_UUID << "\n";
        ::setenv("QD_NETWORK_CFG_FILE", (folder() + "/network.cfg").c_str(), 1);
    }
    void TearDown() override {
        ::unlink((folder() + "/network.cfg").c_str());
        ::rmdir(folder().c_str());
    }
    static std::string& folder() {
        static std::string folder;
        return folder;
    }
};

const testing::Environment* const host = testing::AddGlobalTestEnvironment(new Host);

using IPs = std::vector<std::string>;

IPs metadataIPs(const VantrelDaemonInfo& info) {
    IPs ips;
    for (unsigned i = 0; *info.getMetadataIP(i); ++i) ips.emplace_back(info.getMetadataIP(i));
    return ips;
}

IPs dataIPs(const VantrelDaemonInfo& info) {
    IPs ips;
    for (unsigned i = 0; *info.getDataIP(i); ++i) ips.emplace_back(info.getDataIP(i));
    return ips;
}

VantrelDaemonInfo withIPs(const IPs& metadata, const IPs& data = {}) {
    VantrelDaemonInfo info;
    for (unsigned i = 0; i < metadata.size(); ++i) info.setMetadataIP(i, metadata[i].c_str());
    for (unsigned i = 0; i < data.size(); ++i) info.setDataIP(i, data[i].c_str());
    return info;
}

VantrelDaemonInfo fromText(const std::string& text) {
    return VantrelDaemonInfo(rcAttrStream(text));
}

/// The address of the n-th of many hosts that nobody here has.
std::string farIP(unsigned n) {
    return "198.51.100." + std::to_string(n);
}

const char* const FULL_TEXT =
    "IP0 8 10.1.1.1IP1 8 10.1.1.2FrameIP0 8 10.2.1.1Hostname 8 10.1.1.1HostName 5 alphaDisplayName 9 Alpha "
    "oneOSType 5 LinuxDatabase 5 SXAFSNodePort 4 7549FramePort 4 7550VersionMajor 4 2024VersionMinor 1 "
    "1VersionMaint 1 2VersionBuild 1 3Product 4 ProdVendor 4 VendProductVersionMajor 1 4ProductVersionMinor "
    "1 "
    "5ProductVersionMaint 1 6ProductVersionStr 5 4.5.6ProductBuild 1 7StorageId 4 st-1HostUUID 4 uuidFlags 3 "
    "0x3";

TEST(DaemonInfoText, HoldsEveryFieldInOrder) {
    VantrelDaemonInfo info = withIPs({"10.1.1.1", "10.1.1.2"}, {"10.2.1.1"});
    info.setHostName("alpha");
    info.setDisplayName("Alpha one");
    info.setOsType(VantrelOS::Linux);
    info.setDatabase("SXAFS");
    info.setNodePort(7549);
    info.setFramePort(7550);
    info.setMaxNodePort(1);
    info.setMaxFramePort(2);
    info.setVersionMajor(2024);
    info.setVersionMinor(1);
    info.setVersionMaint(2);
    info.setVersionBuild(3);
    info.setProduct("Prod");
    info.setVendor("Vend");
    info.setProductVersionMajorNumber(4);
    info.setProductVersionMinorNumber(5);
    info.setProductVersionMaintNumber(6);
    info.setProductVersionString("4.5.6");
    info.setProductBuildNumber(7);
    info.setStorageId("st-1");
    info.setHostUUID("uuid");
    info.setFlags(3);
    EXPECT_EQ(info.toAttrStream().text(), FULL_TEXT);
    EXPECT_TRUE(fromText(FULL_TEXT) == info) << "the bounds of the ports do not count";
    info.stampWithCurrentTime();
    EXPECT_TRUE(fromText(FULL_TEXT) != info);
}

TEST(DaemonInfoText, EachFieldIsReadAndCompared) {
    const std::string text = FULL_TEXT;
    const rcAttrStream stream(text);
    rcAttrStream::ConstIterator entries(stream);
    for (std::string_view name, value; entries.next(name, value);) {
        if (name == "Hostname") continue;  // counts where there are no addresses
        std::string changed = text;
        ++changed[static_cast<std::size_t>(value.data() - stream.text().data()) + value.size() - 1];
        EXPECT_TRUE(fromText(changed) != fromText(text)) << name;
    }
}

TEST(DaemonInfoText, AddressesAndHostName) {
    const struct {
        const char* what;
        std::string text;
        IPs metadata;
        IPs data;
        const char* hostName;
    } cases[] = {
        {"address under the name's key only", "Hostname 8 10.1.1.1", {"10.1.1.1"}, {}, "10.1.1.1"},
        {"with a name", "Hostname 8 10.1.1.1HostName 5 alpha", {"10.1.1.1"}, {}, "alpha"},
        {"addresses win over it", "IP0 8 10.1.1.2Hostname 8 10.1.1.1", {"10.1.1.2"}, {}, "10.1.1.1"},
        {"list ends at a gap", "IP0 1 aIP2 1 cFrameIP0 1 xFrameIP2 1 z", {"a"}, {"x"}, ""},
    };
    for (const auto& c : cases) {
        const VantrelDaemonInfo info = fromText(c.text);
        EXPECT_EQ(metadataIPs(info), c.metadata) << c.what;
        EXPECT_EQ(dataIPs(info), c.data) << c.what;
        EXPECT_STREQ(info.getHostName(), c.hostName) << c.what;
    }
}

TEST(DaemonInfoText, HoldsNoMoreThan64Addresses) {
    std::string text;
    for (unsigned i = 0; i < 70; ++i) {
        text += "IP" + std::to_string(i) + " 1 mFrameIP" + std::to_string(i) + " 1 d";
    }
    CapturedLog log;
    const VantrelDaemonInfo info = fromText(text);
    EXPECT_EQ(metadataIPs(info).size(), 64u);
    EXPECT_EQ(dataIPs(info).size(), 64u);
    EXPECT_THAT(log.texts(), IsEmpty());
    EXPECT_EQ(fromText(info.toAttrStream().text()), info);

    VantrelDaemonInfo full;
    full.setMetadataIP(64, "10.0.0.64");
    full.setDataIP(64, "10.0.1.64");
    EXPECT_THAT(log.texts(CoMsg::WARNING),
                ElementsAre("Exceeding maximum number of IPs allowed, ignoring 10.0.0.64.",
                            "Exceeding maximum number of IPs allowed, ignoring 10.0.1.64."));
    EXPECT_STREQ(full.getMetadataIP(64), "");
}

TEST(DaemonInfoText, RubbishLeavesFieldsUnset) {
    for (const char* text :
         {"IP0 -1 x", "IP0 99999999999999999999 x", "IP0", "IP0 5", " ", "HostName 5000 al"}) {
        const VantrelDaemonInfo info = fromText(text);
        EXPECT_THAT(metadataIPs(info), IsEmpty()) << text;
        EXPECT_EQ(info.getNodePort(), 0) << text;
    }
    EXPECT_STREQ(fromText("HostName 5000 al").getHostName(), "al");
    EXPECT_EQ(fromText("NodePort 4 portFlags 2 zz").getNodePort(), 0);
}

TEST(DaemonInfo, PrependMovesToTheFront) {
    const std::tuple<IPs, const char*, IPs> cases[] = {{{}, "A", {"A"}},
                                                       {{"A", "B", "C"}, "B", {"B", "A", "C"}},
                                                       {{"A", "B"}, "A", {"A", "B"}},
                                                       {{"A"}, "", {"A"}}};
    for (const auto& [before, ip, after] : cases) {
        VantrelDaemonInfo info = withIPs(before);
        info.prependMetadataIP(ip);
        EXPECT_EQ(metadataIPs(info), after) << ip;
    }
    VantrelDaemonInfo info = withIPs({"A", "B", "C"});
    info.prependMetadataIP(info.getMetadataIP(2));
    EXPECT_EQ(metadataIPs(info), (IPs{"C", "A", "B"}));
}

TEST(DaemonInfo, PrependToAFullListDropsTheLast) {
    IPs ips;
    for (unsigned i = 0; i < 64; ++i) ips.push_back(farIP(i));
    VantrelDaemonInfo info = withIPs(ips);
    CapturedLog log;
    info.prependMetadataIP(farIP(63).c_str());
    EXPECT_THAT(log.texts(), IsEmpty());
    EXPECT_EQ(metadataIPs(info).size(), 64u);
    EXPECT_EQ(metadataIPs(info)[1], farIP(0));

    info.prependMetadataIP("10.0.0.1");
    EXPECT_THAT(log.texts(CoMsg::WARNING),
                ElementsAre("Exceeding maximum number of IPs allowed, dropping 198.51.100.62."));
    EXPECT_EQ(metadataIPs(info).size(), 64u);
    EXPECT_STREQ(info.getMetadataIP(0), "10.0.0.1");
    EXPECT_STREQ(info.getMetadataIP(63), farIP(61).c_str());
    info.resetIPs();
    EXPECT_THAT(metadataIPs(info), IsEmpty());
}

TEST(DaemonInfo, SortsByDisplayNameThenDatabase) {
    const auto record = [](const char* name, const char* database) {
        VantrelDaemonInfo info;
        info.setDisplayName(name);
        info.setDatabase(database);
        return info;
    };
    const VantrelDaemonInfo ordered[] = {record("", "z"),  record("A", "b"), record("A", "c"),
                                         record("B", "a"), record("a", "a"), record("\xc3\xa9", "")};
    for (std::size_t i = 0; i < std::size(ordered); ++i) {
        for (std::size_t k = 0; k < std::size(ordered); ++k) {
            EXPECT_EQ(ordered[i] < ordered[k], i < k) << i << " and " << k;
        }
    }
}

VantrelDaemonInfo server(const char* storageId, const char* database, const char* uuid, const IPs& metadata,
                         const IPs& data = {}) {
    VantrelDaemonInfo info = withIPs(metadata, data);
    info.setStorageId(storageId);
    info.setDatabase(database);
    info.setHostUUID(uuid);
    info.setNodePort(7549);
    return info;
}

TEST(DaemonInfo, SameServerAsAnotherRecord) {
    const std::string far = farIP(1);
    const std::string farther = farIP(2);
    const std::tuple<const char*, VantrelDaemonInfo, VantrelDaemonInfo, bool> cases[] = {
        {"storage ids differ", server("s1", "d", "u", {far}), server("s2", "d", "u", {far}), false},
        {"storage id alone", server("s1", "d", "u", {far}), server("s1", "e", "v", {farther}), true},
        {"one without a storage id", server("s1", "d", "u", {far}), server("", "d", "u", {far}), false},
        {"databases differ", server("", "d", "u", {far}), server("", "e", "u", {far}), false},
        {"host ids", server("", "d", "u", {far}), server("", "d", "u", {farther}), true},
        {"host ids differ", server("", "d", "u", {far}), server("", "d", "v", {far}), false},
        {"addresses", server("", "d", "", {farIP(3), far}), server("", "d", "", {farther, far}), true},
        {"data and metadata address", server("", "d", "", {}, {far}), server("", "d", "", {far}), true},
        {"no address at all", server("", "d", "", {}), server("", "d", "", {}), false},
    };
    for (const auto& [what, left, right, same] : cases) {
        EXPECT_EQ(left.isSameServer(right), same) << what;
        EXPECT_EQ(right.isSameServer(left), same) << what << ", the other way";
    }
}

TEST(DaemonInfo, SameServerAsAnId) {
    const std::string far = farIP(1);
    const VantrelDaemonInfo info = server("s1", "db", "", {farIP(2), far}, {farIP(3)});
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
    for (const auto& c : cases) EXPECT_EQ(info.isSameServer(c.id), c.same) << c.what;
}

TEST(DaemonInfo, SameHost) {
    VantrelDaemonInfo local = withIPs({farIP(1)});
    local.setHostUUID(LOCAL_UUID);
    VantrelDaemonInfo remote = withIPs({farIP(1), "127.0.0.1"});
    remote.setHostUUID(OTHER_UUID);
    const VantrelDaemonInfo silent = withIPs({farIP(1)});
    const std::tuple<const char*, const VantrelDaemonInfo&, std::string, bool> cases[] = {
        {"own address", silent, farIP(1), true},
        {"nothing", silent, "", false},
        {"this host, record of this host", local, "127.0.0.1", true},
        {"this host by name", local, "localhost", true},
        {"this host, record of another", silent, "127.0.0.1", false},
        {"loopback that the record lists", remote, "127.0.0.1", true}};
    for (const auto& [what, info, address, same] : cases)
        EXPECT_EQ(info.isSameHost(address.c_str()), same) << what;
    EXPECT_FALSE(silent.isSameHost(nullptr));

    VantrelDaemonInfo named;
    named.setHostName("127.0.0.1");
    EXPECT_TRUE(local.isSameHost(named));
    EXPECT_FALSE(silent.isSameHost(named));
    EXPECT_TRUE(silent.isSameHost(withIPs({}, {farIP(9), farIP(1)})));
}

TEST(DaemonInfo, IsLocalByTheHostsIdentity) {
    VantrelDaemonInfo info = withIPs({"127.0.0.1", "::1"});
    EXPECT_FALSE(info.isLocal());  // every host has these addresses
    info.setHostUUID(OTHER_UUID);
    EXPECT_FALSE(info.isLocal());
    info.setHostUUID(LOCAL_UUID);
    EXPECT_TRUE(info.isLocal());
}

}  // namespace
