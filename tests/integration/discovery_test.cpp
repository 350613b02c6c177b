// Discovery as its users see it: several hosts, each a network namespace, with vantreld and the command-line
// client on them.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <vantrel/VantrelClientAPI.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "DiscoveryFixture.h"
#include "Sanitizers.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr bool SLOW = Vantrel::HAS_ADDRESS_SANITIZER || Vantrel::HAS_THREAD_SANITIZER;

/// Display names as the library lists them, on the host where this thread is.
std::vector<std::string> libraryLists(VantrelServerList& list) {
    int count = 0;
    EXPECT_TRUE(list.getNumNodes(count)) << list.lastError();
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) {
        VantrelServerInfo info;
        EXPECT_TRUE(list.getNode(i, info));
        names.emplace_back(info.getDisplayName());
    }
    return names;
}

void use(const std::string& variable) {
    const std::size_t equals = variable.find('=');
    ::setenv(variable.substr(0, equals).c_str(), variable.c_str() + equals + 1, 1);
}

/// Host a and host b on a subnet each, and the client's host c on both.
class TwoSubnets : public DiscoveryFixture {
  protected:
    void arrange() override {
        NetworkHost::connect({a, "eth0", "10.1.0.1/24"}, {c, "eth0", "10.1.0.2/24"});
        NetworkHost::connect({b, "eth0", "10.2.0.1/24"}, {c, "eth1", "10.2.0.2/24"});
    }
    static std::string at(const std::string& ip, const ServerProcess& server) {
        return ip + ":" + std::to_string(server.nodePort());
    }

    NetworkHost& a = host();
    NetworkHost& b = host();
    NetworkHost& c = host();
    const Strings client{config()};
};

TEST_F(TwoSubnets, EveryServerIsListedAndResolved) {
    EXPECT_THAT(listed(c, client), IsEmpty());
    EXPECT_THAT(run(c, client, {"servers"}).err, HasSubstr("No server answered on eth0, eth1. Check that"));
    const Strings onA{config()};
    const ServerProcess& first = serve(a, "first", onA);
    const ServerProcess& second = serve(b, "second", {config()});
    serve(c, "hidden", client, {"--bind", "127.0.0.1"});
    serve(a, "silent", {config()}, {"--no-discovery"});

    EXPECT_TRUE(lists(c, client, {"first", "hidden", "second"}));
    EXPECT_TRUE(lists(a, onA, {"first"})) << "what only c itself reaches";
    const struct {
        const char* filter;
        Strings arguments;
        int status;
        std::string out;
    } cases[] = {
        {"", {"resolve", "second"}, 0, at("10.2.0.1", second) + "\n"},
        {"", {"resolve", "first", "--json"}, 0, "{\n  \"id\": \"" + at("10.1.0.1", first) + "\"\n}\n"},
        {"", {"ping", "10.1.0.1:SXAFS"}, 0, "ok: true\n"},
        {"", {"ping", "10.1.0.1:OTHER"}, 1, ""},
        {"Reject=10.1.0.0/24", {"ping", "10.1.0.1:SXAFS"}, 1, ""},
        {"Reject=10.1.0.0/24", {"ping", "10.2.0.1:SXAFS"}, 0, "ok: true\n"},
        {"Accept=10.0.0.0/8\nReject=10.2.0.1", {"ping", "10.1.0.1:SXAFS"}, 0, "ok: true\n"},
        {"Accept=10.0.0.0/8\nReject=10.2.0.1", {"ping", "10.2.0.1:SXAFS"}, 1, ""},
        {"Accept=10.1.0.0/24", {"ping", "10.2.0.1:SXAFS"}, 1, ""},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.arguments[0] + ' ' + each.arguments[1] + ' ' + each.filter);
        const std::string filter = std::string("[Filtering]\n") + each.filter + "\n";
        const ChildProcess::Result result = runUntil(each.status, c, {config(filter)}, each.arguments);
        EXPECT_EQ(result.status, each.status) << result.err;
        EXPECT_EQ(result.out, each.out);
    }
    EXPECT_EQ(run(c, client, {"resolve", "third"}).err,
              "vantrel: no server with storage id 'third' answered\n");
    EXPECT_THAT(runUntil(0, c, client, {"info", "10.2.0.1:SXAFS"}).out, HasSubstr("displayName: second\n"));
    EXPECT_TRUE(eventually([&] {
        return run(c, client, {"servers"}).out.find("second  " + at("10.2.0.1", second)) != std::string::npos;
    }));
}

TEST_F(TwoSubnets, InterfacesComeAndServersLeave) {
    c.ip("link set eth1 down");
    serve(a, "first", {config()});
    ServerProcess& second = serve(b, "second", {config()});
    use(client[0]);
    const NetworkHost::Stay stay(c);
    const VantrelClient library;
    VantrelServerList list;
    EXPECT_TRUE(eventually([&] { return libraryLists(list) == Strings{"first"}; }));
    c.ip("link set eth1 up");
    EXPECT_TRUE(eventually([&] { return libraryLists(list) == Strings{"first", "second"}; }));
    second.process().signal(SIGTERM);
    EXPECT_TRUE(eventually([&] { return libraryLists(list) == Strings{"first"}; }));
}

TEST_F(TwoSubnets, AGatewayKnowsServersThatMulticastDoesNotReach) {
    {
        const NetworkHost::Stay stay(c);
        std::ofstream("/proc/sys/net/ipv4/ip_forward") << 1;
    }
    a.ip("route add default via 10.1.0.2");
    b.ip("route add default via 10.2.0.2");
    const ServerProcess& far = serve(a, "far", {config()});
    const ServerProcess& gateway = serve(c, "gateway", {config()});
    EXPECT_TRUE(lists(b, client, {"far", "gateway"}, {"--gateway", at("10.2.0.2", gateway)}));
    EXPECT_TRUE(lists(b, client, {"gateway"}));
    EXPECT_EQ(run(b, client, {"ping", at("10.1.0.1", far)}).status, 0);
    EXPECT_TRUE(lists(b, client, {"gateway"}, {"--gateway", "10.2.0.2:1"}));
}

TEST_F(TwoSubnets, SecondOfTwoAddressesIsUsedWhenTheFirstIsDead) {
    // The dead address is one of the server's host, but what is sent there gets lost. Neither address is on a
    // subnet of the client, so the server's order holds.
    NetworkHost::connect({a, "eth1", "10.9.0.1/24"}, {a, "eth2", "10.9.0.2/24"});
    c.ip("addr flush dev eth0");
    c.ip("addr add 10.1.0.2/32 dev eth0");
    c.ip("route add 10.1.0.1/32 dev eth0");
    c.ip("route add 10.9.0.1/32 dev eth0");
    c.ip("neigh add 10.9.0.1 lladdr 02:00:00:00:00:99 dev eth0 nud permanent");
    serve(a, "first", {config("[Interfaces]\nMetadata=eth1,eth0\nMulticast=eth0\n")});
    use(client[0]);
    use("VANTREL_CONNECTION_TIMEOUT_MS=3000");
    const NetworkHost::Stay stay(c);
    const VantrelClient library;
    VantrelServerList list;
    EXPECT_TRUE(eventually([&] { return libraryLists(list) == Strings{"first"}; }));
    for (const bool deadIsKnown : {false, true}) {
        const VantrelServerHandle server{VantrelServerId("10.9.0.1:SXAFS")};
        const double seconds = secondsOf([&] { EXPECT_TRUE(server.ping(0)) << server.lastError(); });
        EXPECT_EQ(seconds < 2.9, deadIsKnown) << "the dead address is tried once";
        VantrelClientReleaseUnusedConnections(true);
    }
}

// --- One cable or none ---

class OneSubnet : public DiscoveryFixture {
  protected:
    void arrange() override { NetworkHost::connect({a, "eth0", "10.1.0.1/24"}, {c, "eth0", "10.1.0.2/24"}); }

    NetworkHost& a = host();
    NetworkHost& c = host();
    const Strings client{config()};
};

TEST_F(OneSubnet, IPv6) {
    a.ip("addr flush dev eth0");
    c.ip("addr flush dev eth0");
    a.ip("addr add fd00:1::1/64 dev eth0 nodad");
    c.ip("addr add fd00:1::2/64 dev eth0 nodad");
    const std::string ipv6 = "QD_TCP_IPV6=1";
    const ServerProcess& server = serve(a, "six", {config(), ipv6});
    const Strings variables{client[0], ipv6};
    EXPECT_TRUE(lists(c, variables, {"six"}));
    const std::string id = "fd00:1::1:" + std::to_string(server.nodePort());
    EXPECT_EQ(runUntil(0, c, variables, {"resolve", "six"}).out, id + "\n");
    EXPECT_EQ(run(c, variables, {"ping", id}).status, 0);
}

TEST_F(OneSubnet, ThreeServersOfOneMachineAreListedAtOnce) {
    for (const char* name : {"one", "two", "three"}) serve(c, name, client);
    // A machine that has other things to do may need more than one try.
    EXPECT_TRUE(eventually([&] {
        bool all = false;
        const double seconds = secondsOf([&] { all = listed(c, client) == Strings{"one", "three", "two"}; });
        return all && seconds < (SLOW ? 10 : 0.5);
    }));
}

TEST_F(OneSubnet, WithoutAnInterfaceTheListFails) {
    for (const char* off : {"[Interfaces]\nMulticast=eth7\n", "[SelfDiscovery]\nTTL=0\n"}) {
        const ChildProcess::Result result = run(c, {config(off)}, {"servers"});
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, HasSubstr("Check the Multicast= line"));
        EXPECT_THAT(result.err, HasSubstr("vantrel: No multicast interface found.\n"));
    }
}

/// Sends datagrams of every wrong kind to the group, without end.
void flood(const NetworkHost& from, const std::atomic<bool>& stop) {
    const NetworkHost::Stay stay(from);
    const int id = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in group{AF_INET, htons(7555), {htonl(INADDR_ALLHOSTS_GROUP)}, {}};
    const in_addr interface { inet_addr("10.1.0.2") };
    EXPECT_EQ(::setsockopt(id, IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface), 0);
    const std::string kinds[] = {"",
                                 std::string(65507, '\0'),
                                 "Version 1 1Type 2 71Data 999999999 IP0 1 x",
                                 "Version 1 1Type 2 74Data 0 ",
                                 "Version 1 1Type 2 71Data 15 StorageId 2 \xff\x01",
                                 "Version 1 1Type 2 73Data 15 StorageId 3 who"};
    for (std::size_t i = 0; !stop; ++i) {
        const std::string& each = kinds[i % std::size(kinds)];
        ::sendto(id, each.data(), each.size(), 0, reinterpret_cast<const sockaddr*>(&group), sizeof group);
    }
    ::close(id);
}

TEST_F(OneSubnet, AFloodOfRubbishHidesNoServer) {
    ServerProcess& server = serve(a, "first", {config()});
    std::atomic<bool> stop{false};
    std::thread flooding([&] { flood(c, stop); });
    EXPECT_TRUE(eventually([&] {
        const Strings names = listed(c, client);
        return std::find(names.begin(), names.end(), "first") != names.end();
    }));
    EXPECT_EQ(run(c, client, {"ping", "10.1.0.1:" + std::to_string(server.nodePort())}).status, 0);
    stop = true;
    flooding.join();
    server.process().signal(SIGTERM);
    const ChildProcess::Result ended = server.process().wait(LIMIT);
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_LT(ended.err.size(), 100'000u) << "what comes from outside does not fill the log";
}

}  // namespace
