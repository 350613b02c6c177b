#include "CoMulticast.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <tuple>
#include <utility>

#include "BareHost.h"
#include "CoException.h"
#include "CoMsg.h"
#include "TcpFixtures.h"

namespace Vantrel {

namespace {

using Strings = std::vector<std::string>;

constexpr const char* GROUP = "239.255.71.55";
constexpr const char* GROUP_IPV6 = "ff02::7155";

std::string reason(int error) {
    return coErrorText(error) + ".";
}

/// The text that `action` throws; empty when it does not.
template <typename Action>
std::string failureOf(Action action) {
    try {
        action();
    } catch (const CoException& error) {
        return error.what();
    }
    return "";
}

struct Datagram {
    bool came = false;
    std::string text;
    std::string ip;
    unsigned port = 0;
    sockaddr_storage from{};
};

/// Waits for the next datagram and takes up to `size` bytes of it.
Datagram receiveFrom(const CoMulticast& socket, std::size_t size = 100) {
    Datagram datagram;
    pollfd entry{socket.getId(), POLLIN, 0};
    EXPECT_EQ(::poll(&entry, 1, LONG_MS), 1);
    datagram.text.resize(size);
    datagram.came = socket.receive(&datagram.text[0], size, datagram.from, false);
    datagram.text.resize(size);
    CoMulticast::addrToIPAndPort(datagram.from, datagram.ip, datagram.port);
    return datagram;
}

int optionOf(const CoMulticast& socket, int option) {
    int value = -1;
    socklen_t size = sizeof value;
    ::getsockopt(socket.getId(), SOL_SOCKET, option, &value, &size);
    return value;
}

/// Tries to take a UDP port of IPv4; 0 or the system's error.
int takePort(CoIoDescriptor& holder, const char* ip, unsigned port, bool reuse) {
    holder.setId(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const int on = reuse ? 1 : 0;
    ::setsockopt(holder.getId(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    ::inet_pton(AF_INET, ip, &address.sin_addr);
    return ::bind(holder.getId(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0
                                                                                                    : errno;
}

/// While it lives, the process can open no further descriptor. To be left before the test looks at anything:
/// sanitizers need descriptors for their checks.
class NoDescriptors {
  public:
    NoDescriptors() {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit none{0, before_.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }

  private:
    rlimit before_{};
};

/// A search and its answers, as clients and servers exchange them on one host.
void exchange(const char* scope, const char* interface, const char* hostIP) {
    CoMulticast first(0, scope, interface);
    first.bind(CoMulticast::PUBLIC);
    first.join();
    ASSERT_NE(first.getPort(), 0u);
    CoMulticast second(first.getPort(), scope, interface);
    second.bind(CoMulticast::PUBLIC);
    second.join();
    CoMulticast client(first.getPort(), scope, interface);
    client.bind(CoMulticast::PRIVATE);
    EXPECT_NE(client.getLocalPort(), client.getPort());

    // An interface that has just come up may lose what is sent at once.
    pollfd heard{first.getId(), POLLIN, 0};
    for (int tries = 0; tries < 100; ++tries) {
        client.send("who?", 4, nullptr, 0);
        if (::poll(&heard, 1, 100) == 1) break;
    }
    for (const CoMulticast* each : {&first, &second}) {
        const Datagram search = receiveFrom(*each);
        EXPECT_EQ(search.text, "who?");
        EXPECT_EQ(search.ip, hostIP);
        EXPECT_EQ(search.port, client.getLocalPort());
        each->send("socket", 6, search.from);
        EXPECT_EQ(receiveFrom(client).text, "socket");
        each->send("text", 4, search.ip.c_str(), search.port);
        EXPECT_EQ(receiveFrom(client).port, each->getLocalPort());
    }
}

TEST(MulticastConstruction, FailsForWhatIsNoGroup) {
    const std::tuple<unsigned, const char*, const char*> cases[] = {
        {7555, "", "Empty scope"},
        {7555, "everyone", "Cannot initialize socket address. 'everyone' is no IPv4 address."},
        {7555, "224.0.0.256", "Cannot initialize socket address. '224.0.0.256' is no IPv4 address."},
        {7555, "ff02::1::2", "Cannot initialize socket address. 'ff02::1::2' is no IPv6 address."},
        {65536, GROUP, "Cannot initialize socket address. 65536 is no port."},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(failureOf([&] { CoMulticast(std::get<0>(c), std::get<1>(c), ""); }), std::get<2>(c));
    }
}

TEST(MulticastConstruction, FailsWithoutDescriptors) {
    const auto failureFor = [](const char* scope) {
        return failureOf([scope] {
            const NoDescriptors limit;
            CoMulticast(0, scope, "");
        });
    };
    EXPECT_EQ(failureFor(GROUP), "Unable to create a datagram socket for IPv4: " + reason(EMFILE));
    EXPECT_EQ(failureFor(GROUP_IPV6), "Unable to create a datagram socket for IPv6: " + reason(EMFILE));
}

TEST(Multicast, ExchangesDatagramsOverIPv4) {
    exchange(GROUP, "lo", "127.0.0.1");
    exchange("224.0.0.1", "lo", "127.0.0.1");
}

TEST(Multicast, ExchangesDatagramsOverIPv6) {
    bool linked = false;
    const bool made = onBareHost([&linked] {
        linked = runCommand("ip link set lo up") && addCable("link0", 9);
        if (linked) exchange(GROUP_IPV6, "link0", "fd00:9::1");
    });
    if (!made || !linked) GTEST_SKIP() << "may not make a network namespace, or iproute2 is missing";
}

/// What a public socket that has joined on `joined` hears when the group is sent to by each of `senders`,
/// while another socket has joined on all of these.
Strings heardFrom(const char* scope, const Strings& joined, const Strings& senders) {
    CoMulticast socket(0, scope, "");
    socket.bind(CoMulticast::PUBLIC);
    for (const std::string& name : joined) socket.join(name);
    CoMulticast other(socket.getPort(), scope, "");
    other.bind(CoMulticast::PUBLIC);
    for (const std::string& name : senders) {
        other.join(name);
        CoMulticast sender(socket.getPort(), scope, name);
        sender.bind(CoMulticast::PRIVATE);
        sender.send(name.data(), name.size(), nullptr, 0);
    }
    // What goes to the host itself is there when it has been sent.
    Strings heard;
    pollfd entry{socket.getId(), POLLIN, 0};
    while (::poll(&entry, 1, 0) == 1) {
        const Datagram datagram = receiveFrom(socket);
        if (datagram.came) heard.push_back(datagram.text);
    }
    return heard;
}

TEST(Multicast, HearsTheGroupWhereItHasJoinedAndNowhereElse) {
    const std::tuple<const char*, Strings, Strings, Strings> cases[] = {
        {GROUP, {"link1", "link2"}, {"link3", "link1", "link2"}, {"link1", "link2"}},
        {"224.0.0.1", {"link1", "link2"}, {"link3", "link1", "link2"}, {"link1", "link2"}},
        {GROUP_IPV6, {"link1", "link2"}, {"link3", "link1", "link2"}, {"link1", "link2"}},
        {"ff02::1", {"link1", "link2"}, {"link3", "link1", "link2"}, {"link1", "link2"}},
        {GROUP, {"link3:1"}, {"link1", "link3"}, {"link3"}},
        {GROUP, {"link3"}, {"link3:1", "link1"}, {"link3:1"}},
        {GROUP, {}, {"link1"}, {}},
    };
    bool linked = false;
    const bool made = onBareHost([&] {
        linked = addCable("link1", 1) && addCable("link2", 2) && addCable("link3", 3) &&
                 runCommand("ip addr add 10.0.4.1/24 dev link3 label link3:1");
        if (!linked) return;
        for (const auto& [scope, joined, senders, heard] : cases) {
            EXPECT_EQ(heardFrom(scope, joined, senders), heard) << scope;
        }
        CoMulticast socket(0, GROUP, "link3");
        socket.join();
        EXPECT_EQ(failureOf([&] { socket.join("link3:1"); }),
                  std::string("Unable to join multicast group ") + GROUP + ". " + reason(EADDRINUSE));
        socket.join("link1");
        socket.drop("link3:1");
        EXPECT_EQ(failureOf([&] { socket.drop(); }),
                  std::string("Unable to leave multicast group ") + GROUP + ": " + reason(EADDRNOTAVAIL));
        socket.drop("link1");
    });
    if (!made || !linked) GTEST_SKIP() << "may not make a network namespace, or iproute2 is missing";
}

TEST(Multicast, SettingSelectsIPv6) {
    ::setenv("QD_TCP_IPV6", "", 1);
    CoMulticast socket(0, "224.0.0.1", "lo");
    EXPECT_EQ(optionOf(socket, SO_DOMAIN), AF_INET6);
    socket.bind(CoMulticast::PUBLIC);
    socket.join();
    EXPECT_EQ(failureOf([] { CoMulticast(0, GROUP, ""); }),
              "Cannot initialize socket address. '239.255.71.55' is no IPv6 address.");
    CoIoDescriptor holder;
    EXPECT_EQ(takePort(holder, "0.0.0.0", socket.getPort(), false), 0) << "it took IPv4's port too";
}

TEST(Multicast, ReceivesWithoutWaiting) {
    CoMulticast socket(0, GROUP, "lo");
    socket.bind(CoMulticast::PRIVATE);
    char buffer[8];
    std::size_t length = sizeof buffer;
    sockaddr_storage from{};
    from.ss_family = AF_UNIX;
    EXPECT_FALSE(socket.receive(buffer, length, from, false));
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(from.ss_family, AF_UNIX);

    const std::pair<const char*, const char*> cases[] = {
        {"", ""}, {"1234567", "1234567"}, {"12345678", "12345678"}, {"123456789", "12345678"}};
    for (const auto& [sent, received] : cases) {
        socket.send(sent, std::strlen(sent), "127.0.0.1", socket.getLocalPort());
        const Datagram datagram = receiveFrom(socket, sizeof buffer);
        EXPECT_TRUE(datagram.came) << sent;
        EXPECT_EQ(datagram.text, received);
    }
}

TEST(Multicast, WaitsWhenAskedTo) {
    CoMulticast socket(0, GROUP, "lo");
    socket.bind(CoMulticast::PRIVATE);
    const timeval limit{0, 50000};
    ::setsockopt(socket.getId(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    char buffer[8];
    std::size_t length = sizeof buffer;
    sockaddr_storage from{};
    EXPECT_GE(secondsOf([&] { EXPECT_FALSE(socket.receive(buffer, length, from, true)); }), 0.04);
    EXPECT_EQ(length, 0u);
}

TEST(Multicast, ReportsWhatCannotBeSent) {
    CoMulticast socket(0, GROUP, "lo");
    socket.bind(CoMulticast::PRIVATE);
    const auto failureOfSending = [&socket](const char* address, unsigned port, std::size_t bytes) {
        const std::string data(bytes, 'x');
        return failureOf([&] { socket.send(data.data(), bytes, address, port); });
    };
    const std::string invalid = reason(EINVAL);
    EXPECT_EQ(failureOfSending("nobody", 1, 4), "Unable to send 4 bytes to nobody:1: " + invalid);
    EXPECT_EQ(failureOfSending("", 1, 4), "Unable to send 4 bytes to :1: " + invalid);
    EXPECT_EQ(failureOfSending("::1", 1, 4), "Unable to send 4 bytes to ::1:1: " + invalid);
    EXPECT_EQ(failureOfSending("127.0.0.1", 65536, 4),
              "Unable to send 4 bytes to 127.0.0.1:65536: " + invalid);
    EXPECT_EQ(failureOfSending("127.0.0.1", 9, 65508),
              "Unable to send 65508 bytes to 127.0.0.1:9: " + reason(EMSGSIZE));
}

TEST(Multicast, KeepsItsPortsApart) {
    CoIoDescriptor holder;
    CoMulticast searcher(0, GROUP, "lo");
    searcher.bind(CoMulticast::PRIVATE);
    EXPECT_EQ(takePort(holder, "127.0.0.1", searcher.getLocalPort(), true), EADDRINUSE)
        << "replies could be taken";
    const unsigned one = searcher.getLocalPort();
    CoMulticast other(0, GROUP, "lo");
    EXPECT_EQ(failureOf([&] {
                  other.bindPrivate({one, one});
              }),
              coFormat("Unable to bind to 127.0.0.1:%u: ", one) + reason(EADDRINUSE));
    const unsigned more = std::min(one + 100, 65535u);
    other.bindPrivate({one, more});
    EXPECT_TRUE(one < other.getLocalPort() && other.getLocalPort() <= more) << other.getLocalPort();

    ASSERT_EQ(takePort(holder, "0.0.0.0", 0, false), 0);
    sockaddr_storage taken{};
    socklen_t size = sizeof taken;
    ::getsockname(holder.getId(), reinterpret_cast<sockaddr*>(&taken), &size);
    std::string ip;
    unsigned port = 0;
    CoMulticast::addrToIPAndPort(taken, ip, port);
    CoMulticast second(port, GROUP, "lo");
    EXPECT_EQ(failureOf([&] { second.bind(CoMulticast::PUBLIC); }),
              coFormat("Unable to bind to 0.0.0.0:%u: ", port) + reason(EADDRINUSE));
}

TEST(Multicast, JoinsOnceAndDropsOnce) {
    CoMulticast socket(0, GROUP, "lo");
    CoMulticast socketIPv6(0, GROUP_IPV6, "lo");
    for (CoMulticast* each : {&socket, &socketIPv6}) {
        const std::string& group = each->getScope();
        EXPECT_EQ(failureOf([&] { each->drop(); }),
                  "Unable to leave multicast group " + group + ": " + reason(EADDRNOTAVAIL));
        each->join();
        EXPECT_EQ(failureOf([&] { each->join(); }),
                  "Unable to join multicast group " + group + ". " + reason(EADDRINUSE));
        each->drop();
        each->join();
    }
}

TEST(Multicast, ReportsInterfacesThatAreNone) {
    const std::pair<const char*, std::string> cases[] = {
        {"vantrel-none", "Invalid interface vantrel-none: " + reason(ENODEV)},
        {"l", "Invalid interface l: " + reason(ENODEV)},
        {"lo eth0", "Invalid interface specified: " + reason(EINVAL)},
        {"longer-than-names-are", "Invalid interface specified: " + reason(EINVAL)},
    };
    for (const auto& [interface, message] : cases) {
        for (const char* scope : {GROUP, GROUP_IPV6}) {
            CoMulticast socket(0, scope, interface);
            EXPECT_EQ(failureOf([&] { socket.bind(CoMulticast::PRIVATE); }), message);
            EXPECT_EQ(failureOf([&] { socket.join(); }), message);
            EXPECT_EQ(failureOf([&] { socket.drop(); }), message);
        }
    }
    CoMulticast socket(0, GROUP, "lo");
    EXPECT_EQ(failureOf([&] {
                  const NoDescriptors limit;
                  socket.join();
              }),
              "Unable to acquire network interface list: " + reason(EMFILE));
}

TEST(Multicast, OnAHostWithoutNetworkTellsWhatToCheck) {
    const bool made = onBareHost([] {
        for (const char* scope : {GROUP, GROUP_IPV6}) {
            EXPECT_EQ(
                failureOf([&] { CoMulticast(0, scope, "").join(); }),
                coFormat("Unable to join multicast group %s.  Check the default/multicast/gateway route "
                         "entry: ",
                         scope) +
                    reason(ENODEV));
        }
        EXPECT_EQ(failureOf([] { CoMulticast(0, GROUP, "lo").bind(CoMulticast::PRIVATE); }),
                  "Invalid interface lo: " + reason(EADDRNOTAVAIL));
    });
    if (!made) GTEST_SKIP() << "may not make a network namespace";
}

TEST(Multicast, KeepsTimeToLiveAndLoopback) {
    for (const char* scope : {GROUP, GROUP_IPV6}) {
        CoMulticast socket(0, scope, "");
        for (unsigned ttl : {0u, 255u, 1u}) {
            socket.setTTL(ttl);
            EXPECT_EQ(socket.getTTL(), ttl);
        }
        EXPECT_EQ(failureOf([&] { socket.setTTL(256); }),
                  "Unable to set the time-to-live to 256: " + reason(EINVAL));
        EXPECT_EQ(failureOf([&] { socket.setTTL(0xffffffffu); }),
                  "Unable to set the time-to-live to 4294967295: " + reason(EINVAL));
        EXPECT_EQ(socket.getTTL(), 1u);
        for (bool on : {false, true}) {
            socket.setLoopback(on);
            EXPECT_EQ(socket.willLoopback(), on);
        }
    }
}

TEST(Multicast, MovedFromFailsSafely) {
    CoMulticast socket(7555, GROUP, "");
    EXPECT_EQ(::fcntl(socket.getId(), F_GETFD), FD_CLOEXEC);
    const CoMulticast target(std::move(socket));
    char byte = 0;
    std::size_t length = 1;
    sockaddr_storage from{};
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"Unable to set SO_REUSEADDR option", [&] { socket.bind(CoMulticast::PUBLIC); }},
        {"Unable to get the time-to-live", [&] { static_cast<void>(socket.getTTL()); }},
        {"Unable to set the time-to-live to 1", [&] { socket.setTTL(1); }},
        {"Unable to get the loopback", [&] { static_cast<void>(socket.willLoopback()); }},
        {"Unable to set loopback to 1", [&] { socket.setLoopback(true); }},
        {"Unable to set loopback to 0", [&] { socket.setLoopback(false); }},
        {"Unable to send 1 bytes to 239.255.71.55:7555", [&] { socket.send(&byte, 1, nullptr, 0); }},
        {"Unable to receive 1 bytes", [&] { socket.receive(&byte, length, from, true); }},
    };
    for (const auto& [attempted, action] : cases) {
        EXPECT_EQ(failureOf(action), std::string(attempted) + ": " + reason(EBADF));
    }
    EXPECT_EQ(socket.getLocalPort(), 0u);
}

TEST(Multicast, TellsAddressesAsText) {
    const std::tuple<sa_family_t, const char*, const char*, unsigned> cases[] = {
        {AF_INET, "192.0.2.7", "192.0.2.7", 7555},
        {AF_INET6, "2001:db8::7", "2001:db8::7", 7555},
        {AF_INET6, "::ffff:192.0.2.7", "192.0.2.7", 7555},
        {AF_UNIX, "", "", 0},
        {AF_UNSPEC, "", "", 0},
    };
    for (const auto& [family, text, expectedIP, expectedPort] : cases) {
        sockaddr_storage address{};
        address.ss_family = family;
        auto& v4 = reinterpret_cast<sockaddr_in&>(address);
        v4.sin_port = htons(7555);
        if (family == AF_INET) ::inet_pton(AF_INET, text, &v4.sin_addr);
        if (family == AF_INET6) {
            ::inet_pton(AF_INET6, text, &reinterpret_cast<sockaddr_in6&>(address).sin6_addr);
        }
        std::string ip = "before";
        unsigned port = 1;
        CoMulticast::addrToIPAndPort(address, ip, port);
        EXPECT_EQ(ip, expectedIP) << text;
        EXPECT_EQ(port, expectedPort) << text;
    }
}

}  // namespace

}  // namespace Vantrel
