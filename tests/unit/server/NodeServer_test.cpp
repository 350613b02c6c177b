#include "NodeServer.h"

#include <gmock/gmock.h>

#include <tuple>

#include "NodePortFixture.h"
#include "RawClient.h"
#include "ServerAddresses.h"

namespace vantreld {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class NodeServerTest : public NodePortFixture {};

TEST_F(NodeServerTest, AClientWithoutALoginGetsNothingAndHarmsNobody) {
    Vantrel::RawClient client(server_.getPort());
    EXPECT_EQ(client.ask("\n\r\n \nsync 0 GetRootNode \n"), "error Not logged in.");
    EXPECT_EQ(ask("GetRootNode", ""), "n1");
    EXPECT_EQ(ask("GetParentNode", "Node 2 n1"), "error The root node has no parent.");
    EXPECT_EQ(ask("DuplicateNode", "x"), "error Unknown method: DuplicateNode");
}

TEST_F(NodeServerTest, TheDaemonInfoTellsWhatTheServerIsAndWhereItWasReached) {
    const std::string info = ask("GetDaemonInfo", "\"\"");
    for (const std::string& expected :
         {attribute("IP0", "127.0.0.1"), attribute("FrameIP0", "127.0.0.1"),
          attribute("DisplayName", "Shown"), attribute("Database", "Base"), attribute("OSType", "Linux"),
          attribute("FramePort", "4711"), attribute("NodePort", std::to_string(server_.getPort())),
          attribute("VersionMajor", "2016"), attribute("VersionMinor", "1"), attribute("VersionMaint", "2"),
          attribute("VersionBuild", "3"), attribute("StorageId", store().storageId())})
        EXPECT_THAT(info, HasSubstr(expected));
}

TEST(ServerAddresses, AClientIsToldFirstTheAddressThatItUsed) {
    using Addresses = std::vector<std::string>;
    const Addresses interfaces = {"127.0.0.1", "::1", "10.0.0.1", "10.1.0.1"};
    const std::tuple<const char*, const char*, Addresses> cases[] = {
        {"::ffff:10.1.0.1", "", {"10.1.0.1", "10.0.0.1"}},
        {"127.0.0.1", "", interfaces},
        {"10.0.0.1", "10.0.0.1", {"10.0.0.1"}},
        {"", "", {"10.0.0.1", "10.1.0.1"}},
        {"", "127.0.0.1", {"127.0.0.1"}},
        {"10.0.0.1", "0.0.0.0", {"10.0.0.1", "10.1.0.1"}}};
    for (const auto& [used, bound, addresses] : cases)
        EXPECT_EQ(serverAddresses(used, bound, interfaces), addresses);
}

TEST(ServerAddresses, WhatIsAnnouncedCanBeReached) {
    const std::vector<std::string> interfaces = {"127.0.0.1", "::1", "10.0.0.1", "fd00::1", "fe80::1"};
    for (const char* everywhere : {"", "::"})
        EXPECT_THAT(announcedAddresses(everywhere, interfaces),
                    ElementsAre("127.0.0.1", "::1", "10.0.0.1", "fd00::1"));
    EXPECT_THAT(announcedAddresses("0.0.0.0", interfaces), ElementsAre("127.0.0.1", "10.0.0.1"));
    EXPECT_THAT(announcedAddresses("10.9.0.1", interfaces), ElementsAre("10.9.0.1"));
}

TEST(ServerOptions, AProtocolVersionIsFourNumbers) {
    const auto version = parseProtocolVersion("2012.0.1.5134");
    ASSERT_TRUE(version);
    EXPECT_EQ(std::tie(version->major, version->minor, version->patch, version->build),
              std::tuple(2012, 0, 1, 5134));
    for (const char* text : {"", "2012", "2012.0.0", "2012.0.0.1.", "2012.0.0.1.2", "a.b.c.d", "2012..0.1",
                             "-1.0.0.0", "2012.0.-0.1", "2012.0.0.99999999999", " 1.2.3.4", "1.2.3."})
        EXPECT_FALSE(parseProtocolVersion(text)) << text;
}

}  // namespace
}  // namespace vantreld
