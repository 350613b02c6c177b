#include "VantrelDaemonInfo.h"

#include <gmock/gmock.h>

#include <string>
#include <tuple>

#include "CapturedLog.h"
#include "CoMsg.h"
#include "DaemonRecord.h"
#include "rcAttrStream.h"

using testing::ElementsAre;
using testing::IsEmpty;
using Vantrel::CapturedLog;
using Vantrel::CoMsg;
using Vantrel::rcAttrStream;
using Vantrel::show;

namespace {

VantrelDaemonInfo withIPs(const std::string& metadata) {
    return Vantrel::DaemonRecord{"", "", "", metadata, ""}.info();
}

VantrelDaemonInfo fromText(const std::string& text) {
    return VantrelDaemonInfo(rcAttrStream(text));
}

/// The addresses of many hosts, in order.
std::string manyIPs(unsigned first, unsigned last) {
    std::string all;
    for (unsigned n = first; n <= last; ++n) all += "198.51.100." + std::to_string(n) + ' ';
    return all;
}

const std::string FULL_TEXT =
    "IP0 8 10.1.1.1IP1 8 10.1.1.2FrameIP0 8 10.2.1.1Hostname 8 10.1.1.1HostName 5 alphaDisplayName 9 Alpha "
    "oneOSType 5 LinuxDatabase 5 SXAFSNodePort 4 7549FramePort 4 7550VersionMajor 4 2024VersionMinor 1 "
    "1VersionMaint 1 2VersionBuild 1 3Product 4 ProdVendor 4 VendProductVersionMajor 1 4ProductVersionMinor "
    "1 5ProductVersionMaint 1 6ProductVersionStr 5 4.5.6ProductBuild 1 7StorageId 4 st-1HostUUID 4 uuidFlags "
    "3 0x3";

TEST(DaemonInfoText, EachFieldIsReadWrittenInOrderAndCompared) {
    const VantrelDaemonInfo info = fromText(FULL_TEXT);
    EXPECT_EQ(info.toAttrStream().text(), FULL_TEXT);
    const rcAttrStream stream(FULL_TEXT);
    rcAttrStream::ConstIterator entries(stream);
    for (std::string_view name, value; entries.next(name, value);) {
        if (name == "Hostname") continue;  // counts where there are no addresses
        std::string changed = FULL_TEXT;
        ++changed[static_cast<std::size_t>(value.data() - stream.text().data()) + value.size() - 1];
        EXPECT_TRUE(fromText(changed) != info) << name;
    }
    VantrelDaemonInfo copy = info;
    copy.setMaxNodePort(1);
    copy.setMaxFramePort(2);
    EXPECT_TRUE(copy == info) << "the bounds of the ports do not count";
    copy.stampWithCurrentTime();
    EXPECT_TRUE(copy != info);
}

TEST(DaemonInfoText, AddressesAndHostName) {
    const std::tuple<const char*, std::string, std::string, const char*> cases[] = {
        {"Hostname 8 10.1.1.1", "10.1.1.1 ", "", "10.1.1.1"},
        {"Hostname 8 10.1.1.1HostName 5 alpha", "10.1.1.1 ", "", "alpha"},
        {"IP0 8 10.1.1.2Hostname 8 10.1.1.1", "10.1.1.2 ", "", "10.1.1.1"},
        {"IP0 1 aIP2 1 cFrameIP0 1 xFrameIP2 1 z", "a ", "x ", ""},
        // Rubbish leaves fields unset.
        {"IP0 -1 x", "", "", ""},
        {"IP0 99999999999999999999 x", "", "", ""},
        {"IP0 5", "", "", ""},
        {"HostName 5000 al", "", "", "al"},
        {"NodePort 4 portFlags 2 zz", "", "", ""},
    };
    for (const auto& [text, metadata, data, hostName] : cases) {
        const VantrelDaemonInfo info = fromText(text);
        EXPECT_EQ(show(info.metadataIPs()), metadata) << text;
        EXPECT_EQ(show(info.dataIPs()), data) << text;
        EXPECT_STREQ(info.getHostName(), hostName) << text;
        EXPECT_EQ(info.getNodePort(), 0) << text;
    }
}

TEST(DaemonInfoText, EmptyAddressesAreNone) {
    EXPECT_EQ(fromText("IP0 1 AIP1 0 FrameIP0 0 "), fromText("IP0 1 A"));
}

TEST(DaemonInfoText, HoldsNoMoreThan64Addresses) {
    std::string text;
    for (unsigned i = 0; i < 70; ++i)
        text += "IP" + std::to_string(i) + " 1 mFrameIP" + std::to_string(i) + " 1 d";
    CapturedLog log;
    const VantrelDaemonInfo info = fromText(text);
    EXPECT_EQ(info.metadataIPs().size(), 64u);
    EXPECT_EQ(info.dataIPs().size(), 64u);
    EXPECT_THAT(log.texts(), IsEmpty());

    VantrelDaemonInfo full;
    full.setMetadataIP(64, "10.0.0.64");
    full.setDataIP(64, "10.0.1.64");
    EXPECT_THAT(log.texts(CoMsg::WARNING),
                ElementsAre("Exceeding maximum number of IPs allowed, ignoring 10.0.0.64.",
                            "Exceeding maximum number of IPs allowed, ignoring 10.0.1.64."));
    EXPECT_STREQ(full.getMetadataIP(64), "");
}

TEST(DaemonInfo, PrependMovesToTheFront) {
    const std::tuple<std::string, const char*, std::string> cases[] = {
        {"", "A", "A "}, {"A B C ", "B", "B A C "}, {"A B ", "A", "A B "}, {"A ", "", "A "}};
    for (const auto& [before, ip, after] : cases) {
        VantrelDaemonInfo info = withIPs(before);
        info.prependMetadataIP(ip);
        EXPECT_EQ(show(info.metadataIPs()), after) << ip;
    }
    VantrelDaemonInfo info = withIPs("A B C");
    info.prependMetadataIP(info.getMetadataIP(2));
    EXPECT_EQ(show(info.metadataIPs()), "C A B ");
}

TEST(DaemonInfo, PrependToAFullListDropsTheLast) {
    VantrelDaemonInfo info = withIPs(manyIPs(0, 63));
    CapturedLog log;
    info.prependMetadataIP("198.51.100.63");
    EXPECT_THAT(log.texts(), IsEmpty());
    EXPECT_EQ(show(info.metadataIPs()), manyIPs(63, 63) + manyIPs(0, 62));
    info.prependMetadataIP("10.0.0.1");
    EXPECT_THAT(log.texts(CoMsg::WARNING),
                ElementsAre("Exceeding maximum number of IPs allowed, dropping 198.51.100.62."));
    EXPECT_EQ(show(info.metadataIPs()), "10.0.0.1 " + manyIPs(63, 63) + manyIPs(0, 61));
    info.resetIPs();
    EXPECT_EQ(info.metadataIPs().size(), 0u);
}

TEST(DaemonInfo, SortsByDisplayNameThenDatabase) {
    const std::pair<const char*, const char*> ordered[] = {{"", "z"},  {"A", "b"}, {"A", "c"},
                                                           {"B", "a"}, {"a", "a"}, {"\xc3\xa9", ""}};
    const auto record = [&ordered](std::size_t i) {
        return Vantrel::DaemonRecord{"", "", ordered[i].second, "", "", ordered[i].first}.info();
    };
    for (std::size_t i = 1; i < std::size(ordered); ++i)
        EXPECT_TRUE(record(i - 1) < record(i) && !(record(i) < record(i - 1)) && !(record(i) < record(i)))
            << i;
}

TEST(DaemonInfo, TheFirstEmptySlotEndsAList) {
    VantrelDaemonInfo info;
    info.setMetadataIP(3, "D");
    EXPECT_EQ(info.metadataIPs().size(), 0u);
    EXPECT_STREQ(info.getMetadataIP(3), "D");
    EXPECT_EQ(info.toAttrStream().text(), VantrelDaemonInfo().toAttrStream().text());
    EXPECT_NE(info, VantrelDaemonInfo());
    for (const char* ip : {"C", "B", "127.0.0.1"}) info.prependMetadataIP(ip);
    EXPECT_EQ(show(info.metadataIPs()), "127.0.0.1 B C D ");
    info.setMetadataIP(1, "");
    EXPECT_EQ(show(info.metadataIPs()), "127.0.0.1 ");
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
