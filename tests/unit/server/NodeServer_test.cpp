#include "NodeServer.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include "ContextLoop.h"
#include "ServerAddresses.h"
#include "TemporaryDirectory.h"
#include "rcAttrStream.h"

namespace vantreld {
namespace {

using testing::ElementsAre;
using Vantrel::CoFd;

constexpr int LIMIT_MS = 10000;

/// A login record with an empty password: its checksum is that of "127.0.0.1", a zero time stamp and
/// serial 5.
const std::string LOGIN =
    "sync 0 _login StrUserName 1 uStrPassword 0 StrProcessName 1 pIntProcessId 1 1StrHostName 1 hStrIpAddr 9 "
    "127.0.0.1IntSerial 1 5IntTimestamp 1 0IntCRC 10 CHECKSUM  ULongVersion 3 0x0\n";

/// CRC-32, bit by bit.
int checksum(const std::string& bytes) {
    std::uint32_t crc = 0xFFFFFFFFu;
    for (const char byte : bytes) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return static_cast<int>(~crc);
}

std::string loginLine() {
    using std::string_literals::operator""s;
    const std::string crc = std::to_string(checksum("127.0.0.1" + "\0\0\0\0\5\0\0\0"s));
    std::string line = LOGIN;
    const std::string placeholder = "10 CHECKSUM  ";
    return line.replace(line.find(placeholder), placeholder.size(), std::to_string(crc.size()) + " " + crc);
}

class NodeServerTest : public testing::Test {
  protected:
    NodeServerTest() : store_(directory_.path()), server_(store_, options()) {
        server_.setFramePort(4711);
        loop_.emplace(server_.loop());
    }
    static ServerOptions options() {
        ServerOptions options;
        options.nodePort = 0;
        options.bindAddress = "127.0.0.1";
        options.displayName = "Shown";
        options.database = "Base";
        options.version = {2016, 1, 2, 3};
        return options;
    }
    CoFd connect() {
        CoFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(server_.getPort()));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        return fd;
    }
    /// The result line, without its end; what came of it when the server closes or stays silent.
    static std::string ask(const CoFd& fd, const std::string& bytes) {
        EXPECT_EQ(::send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
        std::string line;
        char byte = 0;
        for (;;) {
            pollfd polled{fd.get(), POLLIN, 0};
            if (::poll(&polled, 1, LIMIT_MS) <= 0) return line + "<silence>";
            if (::recv(fd.get(), &byte, 1, 0) <= 0) return line + "<closed>";
            if (byte == '\n') return line;
            line.push_back(byte);
        }
    }

    Vantrel::TemporaryDirectory directory_;
    NodeStore store_;
    NodeServer server_;
    std::optional<ContextLoop> loop_;
};

TEST_F(NodeServerTest, ACommandNeedsALoginFirst) {
    const CoFd fd = connect();
    EXPECT_EQ(ask(fd, "sync 0 GetRootNode \n"), "error Not logged in.");
    EXPECT_EQ(ask(fd, loginLine()), "ok ");
    EXPECT_EQ(ask(fd, "sync 0 GetRootNode \n"), "ok n1");
    EXPECT_EQ(ask(fd, "sync 0 GetParentNode Node 2 n1\n"), "error The root node has no parent.");
    EXPECT_EQ(ask(fd, "sync 0 DuplicateNode x\n"), "error Unknown method: DuplicateNode");
}

TEST_F(NodeServerTest, RubbishAndAWrongLoginEndThatConnectionOnly) {
    const CoFd good = connect();
    EXPECT_EQ(ask(good, loginLine()), "ok ");
    const CoFd endless = connect();
    const std::string noise(100000, '\xff');
    EXPECT_GT(::send(endless.get(), noise.data(), noise.size(), MSG_NOSIGNAL), 0);
    const CoFd noLines = connect();
    EXPECT_EQ(ask(noLines, "\n\n\r\n \nsync 0  \n"), "error Not logged in.");
    const CoFd wrong = connect();
    EXPECT_EQ(ask(wrong, "sync 0 _login garbage\n"),
              "error Authentication failed for client's login information");
    EXPECT_EQ(ask(wrong, ""), "<closed>");
    EXPECT_EQ(ask(good, "sync 0 GetRootNode \n"), "ok n1");
}

TEST_F(NodeServerTest, TheDaemonInfoTellsWhatTheServerIsAndWhereItWasReached) {
    const CoFd fd = connect();
    EXPECT_EQ(ask(fd, loginLine()), "ok ");
    const std::string reply = ask(fd, "sync 0 GetDaemonInfo \"\"\n");
    const Vantrel::rcAttrStream stream(reply.substr(3));
    const std::pair<const char*, std::string> expected[] = {
        {"IP0", "127.0.0.1"},  {"FrameIP0", "127.0.0.1"}, {"DisplayName", "Shown"},
        {"Database", "Base"},  {"OSType", "Linux"},       {"NodePort", std::to_string(server_.getPort())},
        {"FramePort", "4711"}, {"VersionMajor", "2016"},  {"VersionMinor", "1"},
        {"VersionMaint", "2"}, {"VersionBuild", "3"},     {"StorageId", store_.storageId()},
    };
    for (const auto& [name, value] : expected) {
        std::string told;
        EXPECT_TRUE(stream.getStringValue(name, told)) << name;
        EXPECT_EQ(told, value) << name;
    }
}

TEST(ServerAddresses, AClientIsToldFirstTheAddressThatItUsed) {
    const std::vector<std::string> interfaces = {"127.0.0.1", "::1", "10.0.0.1", "10.1.0.1"};
    EXPECT_THAT(serverAddresses("::ffff:10.1.0.1", "", interfaces), ElementsAre("10.1.0.1", "10.0.0.1"));
    EXPECT_THAT(serverAddresses("127.0.0.1", "", interfaces),
                ElementsAre("127.0.0.1", "::1", "10.0.0.1", "10.1.0.1"));
    EXPECT_THAT(serverAddresses("10.0.0.1", "10.0.0.1", interfaces), ElementsAre("10.0.0.1"));
    EXPECT_THAT(serverAddresses("", "", interfaces), ElementsAre("10.0.0.1", "10.1.0.1"));
    EXPECT_THAT(serverAddresses("", "127.0.0.1", interfaces), ElementsAre("127.0.0.1"));
    EXPECT_THAT(serverAddresses("10.0.0.1", "0.0.0.0", interfaces), ElementsAre("10.0.0.1", "10.1.0.1"));
}

TEST(ServerAddresses, WhatIsAnnouncedCanBeReached) {
    const std::vector<std::string> interfaces = {"127.0.0.1", "::1", "10.0.0.1", "fd00::1", "fe80::1"};
    EXPECT_THAT(announcedAddresses("", interfaces), ElementsAre("127.0.0.1", "::1", "10.0.0.1", "fd00::1"));
    EXPECT_THAT(announcedAddresses("::", interfaces), ElementsAre("127.0.0.1", "::1", "10.0.0.1", "fd00::1"));
    EXPECT_THAT(announcedAddresses("0.0.0.0", interfaces), ElementsAre("127.0.0.1", "10.0.0.1"));
    EXPECT_THAT(announcedAddresses("10.9.0.1", interfaces), ElementsAre("10.9.0.1"));
}

TEST(ServerOptions, AProtocolVersionIsFourNumbers) {
    const auto version = parseProtocolVersion("2012.0.1.5134");
    ASSERT_TRUE(version);
    EXPECT_EQ(version->major, 2012);
    EXPECT_EQ(version->minor, 0);
    EXPECT_EQ(version->patch, 1);
    EXPECT_EQ(version->build, 5134);
    for (const char* text : {"", "2012", "2012.0.0", "2012.0.0.1.", "2012.0.0.1.2", "a.b.c.d", "2012..0.1",
                             "-1.0.0.0", "2012.0.-0.1", "2012.0.0.99999999999", " 1.2.3.4", "1.2.3."})
        EXPECT_FALSE(parseProtocolVersion(text)) << text;
}

}  // namespace
}  // namespace vantreld
