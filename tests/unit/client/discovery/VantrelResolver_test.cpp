#include "VantrelResolver.h"

#include "BareHost.h"
#include "DiscoveryFixture.h"

namespace {

using Client = VantrelMulticastClient;
using Vantrel::CoTime;

class Resolver : public DiscoveryTest {
  protected:
    static VantrelDaemonInfo record(const Strings& ips, const char* storageId = "s") {
        VantrelDaemonInfo info = server(storageId, "");
        info.setHostName("render01.example");
        info.setDatabase("db");
        info.setNodePort(7000);
        for (unsigned i = 0; i < ips.size(); ++i) {
            info.setMetadataIP(i, ips[i].c_str());
            info.setDataIP(i, ips[ips.size() - 1 - i].c_str());
        }
        return info;
    }
    static Strings addresses(const VantrelDaemonInfo& info, int type = VantrelResolver::Metadata) {
        VantrelResolver resolver(info);
        Strings all;
        for (std::string ip; !(ip = resolver.getIP(type, static_cast<unsigned>(all.size()))).empty();) {
            all.push_back(ip);
        }
        return all;
    }
};

TEST_F(Resolver, GivesWhatTheConfigurationAllowsOfTheListAskedFor) {
    const Vantrel::CapturedLog log;
    const VantrelDaemonInfo info = record({"192.168.1.5", "10.1.2.3", "10.1.2.4"});
    EXPECT_THAT(addresses(info), ElementsAre("192.168.1.5", "10.1.2.3", "10.1.2.4"));
    EXPECT_THAT(addresses(info, VantrelResolver::Data), ElementsAre("10.1.2.4", "10.1.2.3", "192.168.1.5"));
    configure("", "[Filtering]\nAccept=10.0.0.0/8");
    EXPECT_THAT(addresses(info), ElementsAre("10.1.2.3", "10.1.2.4"));
    EXPECT_THAT(log.texts(Vantrel::CoMsg::ERROR), ElementsAre());
    EXPECT_THAT(addresses(info, 3), ElementsAre());
    EXPECT_THAT(log.texts(Vantrel::CoMsg::ERROR), Contains(HasSubstr("Unhandled IP type")));
}

TEST_F(Resolver, LeavesOutWhatIsDeadUntilItsTimeIsOver) {
    const VantrelDaemonInfo info = record({"10.1.2.3", "10.1.2.4", "10.1.2.5"});
    VantrelResolver resolver(info);
    VantrelResolver::flagInaccessibleIP("::ffff:10.1.2.3");
    EXPECT_EQ(resolver.getIP(VantrelResolver::Metadata, 0), "10.1.2.4");
    Strings tried;
    EXPECT_TRUE(resolver.tryEach(VantrelResolver::Metadata, [&](const std::string& ip) {
        tried.push_back(ip);
        return ip == "10.1.2.5";
    }));
    EXPECT_THAT(tried, ElementsAre("10.1.2.4", "10.1.2.5"));
    EXPECT_THAT(addresses(info), ElementsAre("10.1.2.5"));

    const VantrelServerId id("db", "10.1.2.3", 7000);
    EXPECT_FALSE(VantrelResolver::isUnreachableServer(id));
    EXPECT_FALSE(VantrelResolver::isUnreachableServer(id));
    VantrelResolver::flagUnreachableServer(id);
    EXPECT_TRUE(VantrelResolver::isUnreachableServer(id));
    EXPECT_FALSE(VantrelResolver::isUnreachableServer(VantrelServerId("db", "10.1.2.3", 7001)));
    CoTime::advance(599 * CoTime::PER_SECOND);
    EXPECT_TRUE(VantrelResolver::isUnreachableServer(id));
    CoTime::advance(CoTime::PER_SECOND);
    EXPECT_FALSE(VantrelResolver::isUnreachableServer(id));
    EXPECT_THAT(addresses(info), ElementsAre("10.1.2.3", "10.1.2.4", "10.1.2.5"));
    EXPECT_EQ(Client::_getInstance(false), nullptr) << "remembering must not start discovery";
}

TEST_F(Resolver, ASignOfLifeEndsWhatDenotesTheServer) {
    const struct {
        VantrelServerId id;
        bool denotes;
    } cases[] = {
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
    VantrelDaemonInfo info = record({"10.1.2.3"});
    info.setHostUUID(LOCAL_UUID);
    const std::function<void()> signs[] = {
        [&] { Client::notifyObservers(Client::Event::Added, info); },
        [&] { Client::notifyObservers(Client::Event::Changed, info); },
        [&] { Client::notifyHeard(info); },
        [&] { VantrelResolver::flagAccessible(info); },
    };
    for (const auto& sign : signs) {
        VantrelResolver::flagInaccessibleIP("10.1.2.3");
        VantrelResolver::flagInaccessibleIP("10.9.9.9");
        for (const auto& each : cases) VantrelResolver::flagUnreachableServer(each.id);
        Client::notifyObservers(Client::Event::Removed, info);
        EXPECT_THAT(addresses(info), ElementsAre());
        sign();
        EXPECT_THAT(addresses(record({"10.1.2.3", "10.9.9.9"})), ElementsAre("10.1.2.3"));
        for (const auto& each : cases) {
            EXPECT_NE(VantrelResolver::isUnreachableServer(each.id), each.denotes)
                << each.id.getId() << each.id.getStorageId();
        }
    }
    VantrelResolver::flagReachable(cases[3].id, "10.9.9.9");
    EXPECT_THAT(addresses(record({"10.9.9.9"})), ElementsAre("10.9.9.9"));
    EXPECT_FALSE(VantrelResolver::isUnreachableServer(cases[3].id));
    EXPECT_TRUE(VantrelResolver::isUnreachableServer(cases[4].id));
}

TEST_F(Resolver, TheMemoryIsBounded) {
    ::setenv("VANTREL_UNRESOLVABLE_CACHE_SIZE", "16", 1);
    const auto ip = [](unsigned i) { return "10.0.0." + std::to_string(i); };
    for (unsigned i = 0; i < 17; ++i) VantrelResolver::flagInaccessibleIP(ip(i).c_str());
    EXPECT_THAT(addresses(record({ip(0), ip(1), ip(2), ip(16)})), ElementsAre(ip(0), ip(1)));
}

TEST_F(Resolver, PutsNearbyAddressesFirstAndForgetsTheDeadOnesOfAnotherNetwork) {
    bool cabled = false;
    const bool made = Vantrel::onBareHost([&] {
        cabled = Vantrel::runCommand("ip link set lo up") && Vantrel::addCable("near", 1);
        if (!cabled) return;
        VantrelDaemonInfo info = record({"192.168.1.5", "127.0.0.1", "10.0.1.7", "10.0.2.7", "fd00:1::7"});
        EXPECT_THAT(addresses(info),
                    ElementsAre("10.0.1.7", "fd00:1::7", "192.168.1.5", "127.0.0.1", "10.0.2.7"));
        VantrelResolver::flagInaccessibleIP("10.0.1.7");
        VantrelResolver::flagUnreachableServer(storage("s"));
        EXPECT_TRUE(VantrelResolver::isUnreachableServer(storage("s")));
        EXPECT_TRUE(Vantrel::addCable("far", 2));
        EXPECT_FALSE(VantrelResolver::isUnreachableServer(storage("s")));
        info.setHostUUID(LOCAL_UUID);
        EXPECT_THAT(addresses(info),
                    ElementsAre("127.0.0.1", "10.0.1.7", "10.0.2.7", "fd00:1::7", "192.168.1.5"));
    });
    if (!made || !cabled) GTEST_SKIP() << "this user may not make networks, or there is no iproute2";
}

}  // namespace
