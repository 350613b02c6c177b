#include "VantrelDaemonInfo.h"

#include <gmock/gmock.h>

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

TEST(DaemonInfo, TheFirstEmptySlotEndsAList) {
    VantrelDaemonInfo info;
    info.setMetadataIP(3, "D");
    EXPECT_THAT(metadataIPs(info), IsEmpty());
    EXPECT_EQ(info.metadataIPs().size(), 0u);
    EXPECT_STREQ(info.getMetadataIP(3), "D");
    EXPECT_EQ(info.toAttrStream().text(), VantrelDaemonInfo().toAttrStream().text());
    EXPECT_NE(info, VantrelDaemonInfo());
    for (const char* ip : {"C", "B", "127.0.0.1"}) info.prependMetadataIP(ip);
    EXPECT_EQ(metadataIPs(info), (IPs{"127.0.0.1", "B", "C", "D"}));
    info.setMetadataIP(1, "");
    EXPECT_EQ(info.metadataIPs().size(), 1u);
    info.setDataIP(1, "::1");
    EXPECT_TRUE(info.hasLoopbackIP());
    info.removeLoopbackIPs();
    EXPECT_FALSE(info.hasLoopbackIP());
    EXPECT_STREQ(info.getDataIP(1), "");
    EXPECT_STREQ(info.getMetadataIP(0), "");
    EXPECT_STREQ(info.getMetadataIP(1), "C");
    for (const unsigned slot : {1u, 2u}) info.setMetadataIP(slot, nullptr);
    EXPECT_EQ(info, VantrelDaemonInfo());
}

}  // namespace
