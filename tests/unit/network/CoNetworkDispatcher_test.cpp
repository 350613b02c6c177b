#include "CoNetworkDispatcher.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <tuple>

#include "BareHost.h"
#include "CapturedLog.h"
#include "CoException.h"
#include "CoNetworkConfig.h"
#include "ForkedChild.h"
#include "TemporaryDirectory.h"

namespace Vantrel {
namespace {

using Role = CoNetworkDispatcher::Role;
using Strings = std::vector<std::string>;

CoNetworkInterface makeInterface(const char* name, bool up = true, bool multicast = true) {
    CoNetworkInterface result;
    result.name = name;
    result.up = up;
    result.loopback = result.name == "lo";
    result.multicast = multicast;
    return result;
}

const std::vector<CoNetworkInterface> ALL = {
    makeInterface("eth0"),        makeInterface("lo", true, false),   makeInterface("eth1"),
    makeInterface("eth2", false), makeInterface("tun0", true, false), makeInterface("eth1:1"),
};

Strings names(const std::vector<CoNetworkInterface>& interfaces) {
    Strings result;
    for (const auto& each : interfaces) result.push_back(each.name);
    return result;
}

/// Makes QD_NETWORK_CFG_FILE name a file whose multicast interfaces are `names`, and has it read.
void configure(const TemporaryDirectory& directory, const std::string& names) {
    const std::string file =
        directory.write("network.cfg", "[Local]\nUUID=x\n[Interfaces]\nMulticast=" + names + '\n');
    ::setenv("QD_NETWORK_CFG_FILE", file.c_str(), 1);
    bool changed = false;
    CoNetworkConfig::getInstance().parse(changed, true);
}

TEST(CoNetworkDispatcher, SelectsInTheOrderOfPreference) {
    const std::vector<CoNetworkInterface> alone = {makeInterface("lo", true, false),
                                                   makeInterface("eth0", false)};
    EXPECT_EQ(Strings{"lo"}, names(CoNetworkDispatcher::select(Role::Multicast, {}, alone)));
    EXPECT_EQ(Strings{}, names(CoNetworkDispatcher::select(Role::Multicast, {"eth0"}, alone)));

    const std::tuple<const char*, Role, Strings, Strings> cases[] = {
        {"all active ones", Role::Metadata, {}, {"lo", "eth0", "eth1", "tun0", "eth1:1"}},
        {"named ones", Role::Data, {"eth1", "eth0"}, {"lo", "eth1", "eth1:1", "eth0"}},
        {"an alias alone", Role::Data, {"eth1:1"}, {"lo", "eth1:1"}},
        {"any other last", Role::Metadata, {"tun0", "*"}, {"lo", "tun0", "eth0", "eth1", "eth1:1"}},
        {"any other first", Role::Metadata, {"*", "eth0"}, {"lo", "eth1", "tun0", "eth1:1", "eth0"}},
        {"named, but not up", Role::Metadata, {"eth2"}, {"lo"}},
        {"unknown", Role::Metadata, {"eth", "eth9"}, {"lo"}},
        {"named twice", Role::Metadata, {"eth0", "eth0", "lo"}, {"lo", "eth0"}},
        {"multicast: all that are capable", Role::Multicast, {}, {"eth0", "eth1", "eth1:1"}},
        {"multicast: any other that is capable", Role::Multicast, {"eth1", "*"}, {"eth1", "eth1:1", "eth0"}},
        {"multicast: named ones, capable or not", Role::Multicast, {"tun0", "lo"}, {"tun0", "lo"}},
        {"multicast: named ones only", Role::Multicast, {"eth2"}, {}},
    };
    for (const auto& [what, role, configured, selected] : cases) {
        EXPECT_EQ(selected, names(CoNetworkDispatcher::select(role, configured, ALL))) << what;
    }
}

TEST(CoNetworkDispatcher, ListsTheInterfacesOfThisMachine) {
    for (const CoNetworkInterface& each : CoNetworkDispatcher::getAllInterfaces(true)) {
        SCOPED_TRACE(each.name + ' ' + each.ip);
        unsigned char bytes[16];
        EXPECT_EQ(1, ::inet_pton(each.family, each.ip.c_str(), bytes));
        EXPECT_GT(each.index, 0U);
        EXPECT_GE(each.speed, 0);
        EXPECT_LE(each.prefixLength, each.family == AF_INET ? 32U : 128U);
        if (each.ip == "127.0.0.1") {
            EXPECT_TRUE(each.loopback && each.up);
            EXPECT_EQ(8U, each.prefixLength);
        }
        EXPECT_NE(each.loopback, each.ip != "127.0.0.1" && each.ip != "::1");
    }
}

TEST(CoNetworkDispatcher, TakesTheNamesOfTheRoleFromTheConfiguration) {
    const auto all = CoNetworkDispatcher::getAllInterfaces();
    const TemporaryDirectory directory;
    configure(directory, "lo\nData=none\nMetadata=*");
    const std::pair<Role, const char*> cases[] = {
        {Role::Multicast, "lo"}, {Role::Data, "none"}, {Role::Metadata, "*"}};
    for (const auto& [role, name] : cases) {
        EXPECT_EQ(names(CoNetworkDispatcher::select(role, {name}, all)),
                  names(CoNetworkDispatcher::getInterfaces(role)));
    }
}

// --- Changes ---

struct Watcher : CoNetworkDispatcher::Observer {
    void interfacesChanged(Role role) override { notified.insert(role); }
    std::set<Role> notified;
};

/// Takes reports in until `done` or none has come for a while.
void follow(const std::function<bool()>& done) {
    pollfd entry{CoNetworkDispatcher::changeDescriptor(), POLLIN, 0};
    CoNetworkDispatcher::checkForChanges();
    while (!done() && ::poll(&entry, 1, 5000) == 1) CoNetworkDispatcher::checkForChanges();
}

void followChangesOfTheHost(const TemporaryDirectory& directory) {
    using Roles = std::set<Role>;
    const Roles both{Role::Metadata, Role::Multicast};
    const struct {
        const char* what;
        std::function<bool()> change;
        Roles notified;
    } cases[] = {
        {"nothing", [] { return true; }, {}},
        {"an interface", [] { return runCommand("ip link set lo up"); }, both},
        {"noise", [] { return runCommand("ip link set lo mtu 1400"); }, {}},
        {"an address", [] { return addCable("link1", 1); }, both},
        {"another answer for one role", [&] { return configure(directory, "lo"), true; }, {Role::Multicast}},
        {"an interface gone", [] { return runCommand("ip link delete link1"); }, {Role::Metadata}},
    };
    ASSERT_TRUE(runCommand("ip link show lo > /dev/null")) << "iproute2 is missing";
    ASSERT_TRUE(CoNetworkDispatcher::init());
    Watcher watcher;
    for (const Role role : both) CoNetworkDispatcher::addObserver(role, &watcher);
    for (const auto& c : cases) {
        watcher.notified.clear();
        ASSERT_TRUE(c.change()) << c.what;
        // Several steps of the system make up one change; the observers may hear of each.
        follow([&] { return watcher.notified.size() >= c.notified.size(); });
        EXPECT_EQ(watcher.notified, c.notified) << c.what;
    }
    for (const Role role : both) CoNetworkDispatcher::removeObserver(role, &watcher);
    const int descriptor = CoNetworkDispatcher::changeDescriptor();
    CoNetworkDispatcher::uninit();
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1) << "the last uninit closes it";
}

TEST(CoNetworkDispatcher, TellsWhatChangesForARoleAndNoMore) {
    const TemporaryDirectory directory;
    configure(directory, "");
    if (!onBareHost([&] { followChangesOfTheHost(directory); })) {
        GTEST_SKIP() << "may not make a network namespace";
    }
}

TEST(CoNetworkDispatcher, AChildHasAWatchOfItsOwn) {
    const int parents = CoNetworkDispatcher::changeDescriptor();
    ASSERT_GE(parents, 0);
    EXPECT_EQ(inForkedChild([parents] {
                  const int own = CoNetworkDispatcher::changeDescriptor();
                  return own >= 0 && own != parents ? 0 : 1;
              }),
              0);
}

}  // namespace
}  // namespace Vantrel
