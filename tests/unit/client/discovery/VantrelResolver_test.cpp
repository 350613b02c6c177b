#include "VantrelResolver.h"

#include "BareHost.h"
#include "DiscoveryFixture.h"
#include "HeldClock.h"

namespace {

using Client = VantrelMulticastClient;
using Vantrel::CoTime;

class Resolver : public DiscoveryTest {
  protected:
    /// The data addresses are the first one and another.
    static VantrelDaemonInfo record(const std::string& ips, const char* hostUUID = "") {
        const std::string dataIPs = ips.substr(0, ips.find(' ')) + " 10.7.7.7";
        VantrelDaemonInfo info = Vantrel::DaemonRecord{"s", hostUUID, "db", ips, dataIPs, "", 7000}.info();
        info.setHostName("render01.example");
        return info;
    }
    /// The usable addresses, each followed by a blank.
    static std::string addresses(const VantrelDaemonInfo& info, int type = VantrelResolver::Metadata) {
        VantrelResolver resolver(info);
        std::string all;
        unsigned index = 0;
        for (std::string ip; !(ip = resolver.getIP(type, index)).empty(); ++index) all += ip + ' ';
        return all;
    }
    static std::string addresses(const char* ips) { return addresses(record(ips)); }
};

TEST_F(Resolver, GivesWhatTheConfigurationAllowsOfTheListAskedFor) {
    const Vantrel::CapturedLog log;
    const VantrelDaemonInfo info = record("192.168.1.5 10.1.2.3 10.1.2.4");
    EXPECT_EQ(addresses(info), "192.168.1.5 10.1.2.3 10.1.2.4 ");
    EXPECT_EQ(addresses(info, VantrelResolver::Data), "192.168.1.5 10.7.7.7 ");
    configure("", "[Filtering]\nAccept=10.0.0.0/8");
    EXPECT_EQ(addresses(info), "10.1.2.3 10.1.2.4 ");
    EXPECT_THAT(log.texts(Vantrel::CoMsg::ERROR), ElementsAre());
    EXPECT_EQ(addresses(info, 3), "");
    EXPECT_THAT(log.texts(Vantrel::CoMsg::ERROR), Contains(HasSubstr("Unhandled IP type")));
}

TEST_F(Resolver, LeavesOutWhatIsDeadUntilItsTimeIsOver) {
    const VantrelDaemonInfo info = record("10.1.2.3 10.1.2.4 10.1.2.5");
    VantrelResolver resolver(info);
    VantrelResolver::flagInaccessibleIP("::ffff:10.1.2.3");
    EXPECT_EQ(resolver.getIP(VantrelResolver::Metadata, 0), "10.1.2.4");
    std::string tried;
    EXPECT_TRUE(resolver.tryEach(VantrelResolver::Metadata, [&tried](const std::string& ip) {
        tried += ip + ' ';
        return ip == "10.1.2.5";
    }));
    EXPECT_EQ(tried, "10.1.2.4 10.1.2.5 ");
    EXPECT_EQ(addresses(info), "10.1.2.5 ");

    const VantrelServerId id("db", "10.1.2.3", 7000);
    EXPECT_FALSE(VantrelResolver::isUnreachableServer(id));
    EXPECT_FALSE(VantrelResolver::isUnreachableServer(id));
    const Vantrel::HeldClock clock;
    VantrelResolver::flagUnreachableServer(id);
    EXPECT_TRUE(VantrelResolver::isUnreachableServer(id));
    EXPECT_FALSE(VantrelResolver::isUnreachableServer(VantrelServerId("db", "10.1.2.3", 7001)));
    CoTime::advance(599 * CoTime::PER_SECOND);
    EXPECT_TRUE(VantrelResolver::isUnreachableServer(id));
    CoTime::advance(CoTime::PER_SECOND);
    EXPECT_FALSE(VantrelResolver::isUnreachableServer(id));
    EXPECT_EQ(addresses(info), "10.1.2.3 10.1.2.4 10.1.2.5 ");
    EXPECT_EQ(Client::_getInstance(false), nullptr) << "remembering must not start discovery";
}

TEST_F(Resolver, ASignOfLifeEndsWhatDenotesTheServer) {
    const std::pair<VantrelServerId, bool> cases[] = {
        {storage("s"), true},
        {storage("other"), false},
        {VantrelServerId("db", "10.1.2.3", 7000), true},
        {VantrelServerId("db", "10.9.9.9", 7000), false},
        {VantrelServerId("db", "10.1.2.3", 7001), false},
        {VantrelServerId("other", "10.1.2.3", 7000), false},
        {VantrelServerId(7000, "RENDER01"), true},
        {VantrelServerId(7000, "render0"), false},
        {VantrelServerId(7000, "127.0.0.1"), true},
    };
    const VantrelDaemonInfo info = record("10.1.2.3", LOCAL_UUID);
    // Each with whether it says that the addresses may have come to life.
    const std::pair<std::function<void()>, bool> signs[] = {
        {[&] { Client::notifyObservers(Client::Event::Added, info); }, true},
        {[&] { Client::notifyObservers(Client::Event::Changed, info); }, true},
        {[&] { Client::notifyHeard(info); }, false},
        {[&] { VantrelResolver::flagAccessible(info); }, true},
    };
    for (const auto& [sign, isNews] : signs) {
        VantrelResolver::flagInaccessibleIP("10.1.2.3");
        VantrelResolver::flagInaccessibleIP("10.9.9.9");
        for (const auto& each : cases) VantrelResolver::flagUnreachableServer(each.first);
        Client::notifyObservers(Client::Event::Removed, info);
        EXPECT_EQ(addresses(info), "");
        sign();
        EXPECT_EQ(addresses("10.1.2.3 10.9.9.9"), isNews ? "10.1.2.3 " : "");
        for (const auto& [id, denotes] : cases)
            EXPECT_NE(VantrelResolver::isUnreachableServer(id), denotes) << id.getId() << id.getStorageId();
    }
    VantrelResolver::flagReachable(cases[3].first, record("10.9.9.9"), "10.9.9.9");
    EXPECT_EQ(addresses("10.9.9.9"), "10.9.9.9 ");
    EXPECT_FALSE(VantrelResolver::isUnreachableServer(cases[3].first));
    EXPECT_TRUE(VantrelResolver::isUnreachableServer(cases[4].first));
}

TEST_F(Resolver, ADeadFramePortBlocksNothingElseAndEndsWithASuccessOfEitherKind) {
    const VantrelDaemonInfo info = record("10.1.2.3");
    VantrelDaemonInfo otherPort = info;
    otherPort.setFramePort(7700);
    constexpr int DATA = VantrelResolver::Data;
    const auto fail = [](const std::string&) { return false; };
    const std::function<void()> successes[] = {
        [&] { VantrelResolver::flagReachable(storage("s"), info, "10.1.2.3"); },
        [&] {
            VantrelResolver beside(info);
            VantrelResolver::flagReachable(storage("s"), info, "10.1.2.3");
            EXPECT_TRUE(beside.tryEach(DATA, [&](const std::string&) {
                EXPECT_FALSE(VantrelResolver(info).tryEach(DATA, fail));
                return true;
            }));
        },
    };
    for (const auto& success : successes) {
        EXPECT_FALSE(VantrelResolver(info).tryEach(DATA, fail));
        EXPECT_EQ(addresses(info, DATA), "");
        EXPECT_EQ(addresses(otherPort, DATA), "10.1.2.3 10.7.7.7 ");
        EXPECT_EQ(addresses(info), "10.1.2.3 ") << "for metadata";
        success();
        EXPECT_EQ(addresses(info, DATA), "10.1.2.3 ");
    }
    VantrelResolver::flagInaccessibleIP("10.1.2.3");
    EXPECT_EQ(addresses(otherPort, DATA), "10.7.7.7 ") << "the host was not reached at all";
}

TEST_F(Resolver, TheMemoryIsBounded) {
    ::setenv("VANTREL_UNRESOLVABLE_CACHE_SIZE", "16", 1);
    for (int i = 0; i < 17; ++i) VantrelResolver::flagInaccessibleIP(("10.0.0." + std::to_string(i)).c_str());
    EXPECT_EQ(addresses("10.0.0.0 10.0.0.1 10.0.0.2 10.0.0.16"), "10.0.0.0 10.0.0.1 ");
}

TEST_F(Resolver, PutsNearbyAddressesFirstAndForgetsTheDeadOnesOfAnotherNetwork) {
    bool cabled = false;
    const bool made = Vantrel::onBareHost([&] {
        cabled = Vantrel::runCommand("ip link set lo up") && Vantrel::addCable("near", 1);
        if (!cabled) return;
        const char* const ips = "192.168.1.5 127.0.0.1 10.0.1.7 10.0.2.7 fd00:1::7";
        EXPECT_EQ(addresses(ips), "10.0.1.7 fd00:1::7 192.168.1.5 127.0.0.1 10.0.2.7 ");
        VantrelResolver::flagInaccessibleIP("10.0.1.7");
        VantrelResolver::flagUnreachableServer(storage("s"));
        EXPECT_TRUE(VantrelResolver::isUnreachableServer(storage("s")));
        EXPECT_TRUE(Vantrel::addCable("far", 2));
        EXPECT_FALSE(VantrelResolver::isUnreachableServer(storage("s")));
        EXPECT_EQ(addresses(record(ips, LOCAL_UUID)), "127.0.0.1 10.0.1.7 10.0.2.7 fd00:1::7 192.168.1.5 ");
    });
    if (!made || !cabled) GTEST_SKIP() << "this user may not make networks, or there is no iproute2";
}

}  // namespace
