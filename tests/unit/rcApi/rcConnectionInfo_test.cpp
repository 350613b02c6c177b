#include "rcConnectionInfo.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "CapturedLog.h"
#include "CoIoTcpServerDescriptor.h"

using namespace Vantrel;

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

namespace {

constexpr const char* FULL_RECORD =
    "StrUserName 4 annaStrGroupName 5 usersIntUmask 2 18StrHostUUID 6 UUID-1StrPassword 2 pw"
    "StrProcessName 4 flixIntProcessId 2 42StrHostName 5 host1StrIpAddr 8 10.0.0.1IntSerial 9 168496141"
    "IntTimestamp 8 16909060IntCRC 9 959598205ULongVersion 17 0x7e8000100020003";

// A connection whose two ends have different addresses: the system connects to any loopback from 127.0.0.1.
struct TcpPair {
    TcpPair() {
        EXPECT_TRUE(listener.listen(0, "127.0.0.2"));
        EXPECT_TRUE(client.connect("127.0.0.2", listener.getPort(), 0, 0, 10));
    }
    CoIoTcpServerDescriptor listener;
    CoIoTcpDescriptor client;
};

// Each case runs in a process of its own, so no test sees a configuration that another one read.
void useConfiguration(const std::string& content) {
    const std::string path = testing::TempDir() + "login_" + std::to_string(::getpid()) + ".cfg";
    ::unlink(path.c_str());
    if (!content.empty()) std::ofstream(path) << content;
    ::setenv("QD_NETWORK_CFG_FILE", path.c_str(), 1);
}

// Written in this order on purpose: reading must not depend on the order of writing.
const std::string REST =
    "IntProcessId 1 1StrProcessName 1 pStrIpAddr 8 10.0.0.1IntTimestamp 1 0IntSerial 1 5";

TEST(LoginRecord, ChecksumIsThatOfTheFieldsInOrder) {
    // Computed by zlib's crc32 over the bytes named. An empty text drops all before it.
    const std::tuple<const char*, std::string, const char*> cases[] = {
        {"10.0.0.1, 8 bytes",
         "StrUserName 4 annaStrGroupName 5 usersIntUmask 2 18StrHostName 5 host1StrPassword 0 ",
         "-125785413"},
        {"the same without a password", "StrUserName 3 bobStrHostName 1 h", "-125785413"},
        {"anna, 4 bytes of umask, host1 pw 10.0.0.1, 8 bytes",
         "StrUserName 4 annaIntUmask 2 18StrHostName 5 host1StrPassword 2 pw", "1372763238"},
        {"4 bytes of umask, host1 pw 10.0.0.1, 8 bytes",
         "StrUserName 4 annaStrGroupName 0 IntUmask 2 18StrHostName 5 host1StrPassword 2 pw", "-1452903887"},
        {"host1 pw 10.0.0.1, 8 bytes",
         "StrUserName 4 annaIntUmask 2 18StrHostUUID 0 StrHostName 5 host1StrPassword 2 pw", "1120966929"},
        {"pw 10.0.0.1, 8 bytes", "StrUserName 4 annaStrHostName 0 StrPassword 2 pw", "-26343213"}};
    for (const auto& [what, record, crc] : cases) {
        const CapturedLog log;
        const std::string text =
            record + REST + "IntCRC " + std::to_string(std::strlen(crc)) + " " + crc + "ULongVersion 3 0x0";
        EXPECT_TRUE(rcConnectionInfo(text.c_str(), nullptr).isValid()) << what;
        EXPECT_THAT(log.texts(CoMsg::ERROR), IsEmpty()) << what;
    }
}

TEST(LoginRecord, ReadsEveryFieldOfAReceivedText) {
    const CapturedLog log;
    const rcConnectionInfo info(FULL_RECORD, nullptr);
    EXPECT_THAT(log.texts(), IsEmpty());
    EXPECT_TRUE(info.isValid() && info.hasGroup() && info.hasUmask() && info.hasHostUUID());
    EXPECT_EQ(info.getHostUUID(), "UUID-1");
    EXPECT_EQ(info.getTimestamp(), 16909060U);
    EXPECT_EQ(info.getConnectionStr(),
              "Connection [168496141] [anna/users/0022] [host1/10.0.0.1] [flix/42] [2024.1.2.3]");
    EXPECT_EQ(info.toAttrStream(), FULL_RECORD);
    info.logConnection();
    EXPECT_THAT(log.texts(CoMsg::NOTICE), ElementsAre(info.getConnectionStr()));
}

TEST(LoginRecord, MarksOptionalFieldsPresentOnlyWhenTheyAreThere) {
    const std::string record =
        "StrUserName 3 bobStrHostName 0 " + REST + "IntCRC 10 -125785413ULongVersion 3 0x0";
    const rcConnectionInfo info(record.c_str(), nullptr);
    EXPECT_FALSE(info.hasGroup() || info.hasUmask() || info.hasHostUUID());
    EXPECT_EQ(info.getGroupName() + info.getHostUUID(), "");
    EXPECT_EQ(info.getConnectionStr(), "Connection [5] [bob//0000] [/10.0.0.1] [p/1] ");
    EXPECT_EQ(
        info.toAttrStream(),
        "StrUserName 3 bobStrPassword 0 StrProcessName 1 pIntProcessId 1 1StrHostName 0 StrIpAddr 8 10.0.0.1"
        "IntSerial 1 5IntTimestamp 1 0IntCRC 10 -125785413ULongVersion 3 0x0");
}

TEST(LoginRecord, IsInvalidWhenAFieldOfTheChecksumWasChanged) {
    const char* changes[][2] = {
        {"4 anna", "4 anne"},       {"5 users", "5 user5"},   {"2 18", "2 19"},
        {"UUID-1", "UUID-2"},       {"host1", "host2"},       {"2 pw", "2 pv"},
        {"10.0.0.1", "10.0.0.2"},   {"16909060", "16909061"}, {"168496141", "168496142"},
        {"959598205", "959598204"}, {"flix", "flux"}};
    for (const auto& [before, after] : changes) {
        std::string record = FULL_RECORD;
        record.replace(record.find(before), std::strlen(before), after);
        const CapturedLog log;
        const rcConnectionInfo info(record.c_str(), nullptr);
        EXPECT_EQ(info.isValid(), std::strcmp(before, "flix") == 0) << "process and version take no part";
        if (info.isValid()) continue;
        const std::string name = "[" + std::to_string(info.getSerial()) + "]";
        EXPECT_THAT(log.texts(CoMsg::ERROR),
                    ElementsAre("Unable to establish connection " + name + ": checksum failed."));
        EXPECT_TRUE(
            log.contains("Connection " + name + " Timestamp: " + std::to_string(info.getTimestamp())));
        EXPECT_TRUE(log.contains(coFormat("Checksum 0x%X", info.getCRC())));
    }
}

TEST(LoginRecord, IsReadAsFarAsItGoes) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""}, {"rubbish", ""}, {"StrUserName 3 bobStrHostName -1 ", "bob"}, {nullptr, ""}};
    for (const auto& [text, user] : cases) {
        const CapturedLog log;
        const rcConnectionInfo info(text, nullptr);
        EXPECT_FALSE(info.isValid());
        EXPECT_EQ(info.getUserName(), user);
        EXPECT_EQ(info.getHostName() + info.getIpAddr() + info.getProcessName(), "");
        EXPECT_EQ(info.getSerial() + info.getTimestamp() + info.getUmask(), 0U);
        EXPECT_TRUE(log.contains(
            "Syntax error while parsing connection information, output values won't be accurate"));
    }
}

TEST(LoginRecord, StartsWithDefaultsAndTheNextSerial) {
    const rcConnectionInfo first;
    const rcConnectionInfo copy(first);
    const rcConnectionInfo received(FULL_RECORD, nullptr);
    const rcConnectionInfo second(0x0001000200030004UL);
    EXPECT_EQ(copy.getSerial(), 0U);
    EXPECT_EQ(second.getSerial(), 1U);
    EXPECT_TRUE(first.isValid());
    EXPECT_EQ(first.toAttrStream(),
              "StrUserName 9 undefinedStrPassword 0 StrProcessName 9 undefinedIntProcessId 1 0"
              "StrHostName 9 undefinedStrIpAddr 7 0.0.0.0IntSerial 1 0IntTimestamp 1 0IntCRC 1 0ULongVersion "
              "3 0x0");
    EXPECT_EQ(second.getConnectionStr(),
              "Connection [1] [undefined/undefined/0000] [undefined/0.0.0.0] [undefined/0] [1.2.3.4]");
    EXPECT_EQ(first.generateCRC(), 0xBC3DD20AU);  // 0.0.0.0 and eight bytes 0
}

TEST(LoginRecord, HandsTheClientOnButKeepsItsOwnSerialAndTime) {
    const TcpPair pair;
    const rcConnectionInfo received(FULL_RECORD, nullptr);
    rcConnectionInfo info;
    info.setSerial(3);
    info.setTimestamp(1700000000);
    info.setClientInfo(received, &pair.client);
    EXPECT_EQ(info.getConnectionStr(),
              "Connection [3] [anna/users/0022] [host1/127.0.0.2] [flix/42] [2024.1.2.3]");
    EXPECT_EQ(info.getTimestamp(), 1700000000U);
    EXPECT_EQ(info.getHostUUID(), "UUID-1");
    EXPECT_TRUE(rcConnectionInfo(info.toAttrStream().c_str(), nullptr).isValid());
    info.setClientInfo(received, nullptr);
    EXPECT_EQ(info.getIpAddr(), "10.0.0.1");

    const CapturedLog log;
    info.setClientInfo(rcConnectionInfo("rubbish", nullptr), nullptr);
    EXPECT_FALSE(info.isValid());
    EXPECT_FALSE(info.hasGroup() || info.hasUmask() || info.hasHostUUID());
}

TEST(FilledLoginRecord, DescribesThisProcess) {
    useConfiguration("[Local]\nUUID=6f1c1f0e-95a4-4d7c-a1a8-0d5f2b9f8f11\n");
    const TcpPair pair;
    const passwd* user = ::getpwuid(::geteuid());
    const group* primary = ::getgrgid(::getegid());
    ASSERT_TRUE(user && primary);
    char host[256] = {};
    ASSERT_EQ(::gethostname(host, sizeof host - 1), 0);
    for (const unsigned mask : {027U, 002U}) {  // the mask of the moment, not one read before
        const mode_t earlier = ::umask(mask);
        rcConnectionInfo info;
        info.fillInfo(&pair.client);
        ::umask(earlier);
        EXPECT_EQ(info.getHostUUID(), "6f1c1f0e-95a4-4d7c-a1a8-0d5f2b9f8f11");
        EXPECT_THAT(info.getConnectionStr(),
                    MatchesRegex(
                        coFormat("Connection .[01]. .%s/%s/%04o. .%s/127.0.0.1. .*rcConnectionInfo_test/%d. ",
                                 user->pw_name, primary->gr_name, mask, host, ::getpid())));
        EXPECT_EQ(info.getTimestamp(), 0U);
        EXPECT_TRUE(info.hasGroup() && info.hasUmask() && info.hasHostUUID());
        EXPECT_TRUE(rcConnectionInfo(info.toAttrStream().c_str(), nullptr).isValid());
    }
}

TEST(FilledLoginRecord, WithoutConfigurationHasNoUuidAndStaysQuiet) {
    useConfiguration("");
    const CapturedLog log;
    rcConnectionInfo info;
    info.fillInfo(nullptr);
    EXPECT_FALSE(info.hasHostUUID());
    EXPECT_EQ(info.getHostUUID(), "undefined");
    EXPECT_EQ(info.getIpAddr(), "0.0.0.0");
    EXPECT_THAT(info.toAttrStream(), Not(HasSubstr("StrHostUUID")));
    EXPECT_THAT(log.texts(CoMsg::DEBUG),
                Contains("User process information couldn't be adequately retrieved"));
    EXPECT_EQ(log.texts().size(), log.texts(CoMsg::DEBUG).size());
}

}  // namespace
