#include "CoMulticast.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <sys/resource.h>
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
const std::string JOIN_FAILS = "Unable to join multicast group ";
const std::string LEAVE_FAILS = "Unable to leave multicast group ";

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
    EXPECT_TRUE(isReadable(socket.getId(), LONG_MS));
    datagram.text.resize(size);
    datagram.came = socket.receive(&datagram.text[0], size, datagram.from, false);
    datagram.text.resize(size);
    CoMulticast::addrToIPAndPort(datagram.from, datagram.ip, datagram.port);
    return datagram;
}

int optionOf(const CoMulticast& socket, int level, int option) {
    int value = -1;
    socklen_t size = sizeof value;
    ::getsockopt(socket.getId(), level, option, &value, &size);
    return value;
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
    int tries = 0;
    do {
        client.send("who?", 4, nullptr, 0);
    } while (!isReadable(first.getId(), 100) && ++tries < 100);
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
    while (isReadable(socket.getId())) {
        const Datagram datagram = receiveFrom(socket);
        if (datagram.came) heard.push_back(datagram.text);
    }
    return heard;
}

TEST(Multicast, ExchangesDatagramsOverIPv4) {
    exchange(GROUP, "lo", "127.0.0.1");
    exchange("224.0.0.1", "lo", "127.0.0.1");
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
        linked = runCommand("ip link set lo up") && addCable("link1", 1) && addCable("link2", 2) &&
                 addCable("link3", 3) && runCommand("ip addr add 10.0.4.1/24 dev link3 label link3:1");
        if (!linked) return;
        exchange(GROUP_IPV6, "link1", "fd00:1::1");
        for (const auto& [scope, joined, senders, heard] : cases) {
            EXPECT_EQ(heardFrom(scope, joined, senders), heard) << scope;
        }
        CoMulticast socket(0, GROUP, "link3");
        socket.join();
        EXPECT_EQ(failureOf([&] { socket.join("link3:1"); }), JOIN_FAILS + GROUP + ". " + reason(EADDRINUSE));
        socket.join("link1");
        socket.drop("link3:1");
        EXPECT_EQ(failureOf([&] { socket.drop(); }), LEAVE_FAILS + GROUP + ": " + reason(EADDRNOTAVAIL));
        socket.drop("link1");
    });
    if (!made || !linked) GTEST_SKIP() << "may not make a network namespace, or iproute2 is missing";
}

TEST(Multicast, OnAHostWithoutNetworkTellsWhatToCheck) {
    const std::string hint = ".  Check the default/multicast/gateway route entry: " + reason(ENODEV);
    const bool made = onBareHost([&hint] {
        for (const char* scope : {GROUP, GROUP_IPV6}) {
            EXPECT_EQ(failureOf([&] { CoMulticast(0, scope, "").join(); }), JOIN_FAILS + scope + hint);
        }
        EXPECT_EQ(failureOf([] { CoMulticast(0, GROUP, "lo").bind(CoMulticast::PRIVATE); }),
                  "Invalid interface lo: " + reason(EADDRNOTAVAIL));
    });
    if (!made) GTEST_SKIP() << "may not make a network namespace";
}

TEST(Multicast, SettingSelectsIPv6) {
    ::setenv("QD_TCP_IPV6", "", 1);
    CoMulticast socket(0, "224.0.0.1", "lo");
    EXPECT_EQ(optionOf(socket, SOL_SOCKET, SO_DOMAIN), AF_INET6);
    EXPECT_EQ(optionOf(socket, IPPROTO_IPV6, IPV6_V6ONLY), 1) << "it would take IPv4's port too";
    socket.bind(CoMulticast::PUBLIC);
    socket.join();
    EXPECT_EQ(failureOf([] { CoMulticast(0, GROUP, ""); }),
              "Cannot initialize socket address. '239.255.71.55' is no IPv6 address.");
}

TEST(Multicast, ReceivesWithoutWaitingUnlessAskedTo) {
    CoMulticast socket(0, GROUP, "lo");
    socket.bind(CoMulticast::PRIVATE);
    const timeval limit{0, 50000};
    ::setsockopt(socket.getId(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    char buffer[8];
    sockaddr_storage from{};
    from.ss_family = AF_UNIX;
    for (const bool wait : {false, true}) {
        std::size_t length = sizeof buffer;
        const double seconds = secondsOf([&] { EXPECT_FALSE(socket.receive(buffer, length, from, wait)); });
        EXPECT_EQ(seconds >= 0.04, wait);
        EXPECT_EQ(length, 0u);
        EXPECT_EQ(from.ss_family, AF_UNIX);
    }
    const std::pair<const char*, const char*> cases[] = {
        {"", ""}, {"1234567", "1234567"}, {"12345678", "12345678"}, {"123456789", "12345678"}};
    for (const auto& [sent, received] : cases) {
        socket.send(sent, std::strlen(sent), "127.0.0.1", socket.getLocalPort());
        const Datagram datagram = receiveFrom(socket, sizeof buffer);
        EXPECT_TRUE(datagram.came) << sent;
        EXPECT_EQ(datagram.text, received);
    }
}

TEST(Multicast, KeepsTheRepliesToASearchFromOtherSockets) {
    CoMulticast searcher(0, GROUP, "lo");
    searcher.bind(CoMulticast::PRIVATE);
    const unsigned one = searcher.getLocalPort();
    CoMulticast other(0, GROUP, "lo");
    EXPECT_EQ(failureOf([&] {
                  other.bindPrivate({one, one});
              }),
              coFormat("Unable to bind to 127.0.0.1:%u: ", one) + reason(EADDRINUSE));
    const unsigned more = std::min(one + 100, 65535u);
    other.bindPrivate({one, more});
    EXPECT_TRUE(one < other.getLocalPort() && other.getLocalPort() <= more) << other.getLocalPort();

    CoMulticast second(one, GROUP, "lo");
    EXPECT_EQ(failureOf([&] { second.bind(CoMulticast::PUBLIC); }),
              coFormat("Unable to bind to 0.0.0.0:%u: ", second.getPort()) + reason(EADDRINUSE));
}

TEST(Multicast, JoinsOnceAndDropsOnceAndKeepsItsOptions) {
    for (const std::string scope : {GROUP, GROUP_IPV6}) {
        CoMulticast socket(0, scope, "lo");
        const std::string cannotLeave = LEAVE_FAILS + scope + ": " + reason(EADDRNOTAVAIL);
        EXPECT_EQ(failureOf([&] { socket.drop(); }), cannotLeave);
        socket.join();
        EXPECT_EQ(failureOf([&] { socket.join(); }), JOIN_FAILS + scope + ". " + reason(EADDRINUSE));
        socket.drop();
        socket.join();

        for (unsigned ttl : {0u, 255u, 1u}) {
            socket.setTTL(ttl);
            EXPECT_EQ(socket.getTTL(), ttl);
        }
        for (unsigned ttl : {256u, 0xffffffffu}) {
            EXPECT_EQ(failureOf([&] { socket.setTTL(ttl); }),
                      coFormat("Unable to set the time-to-live to %u: ", ttl) + reason(EINVAL));
        }
        EXPECT_EQ(socket.getTTL(), 1u);
        for (bool on : {false, true}) {
            socket.setLoopback(on);
            EXPECT_EQ(socket.willLoopback(), on);
        }
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
}

TEST(Multicast, TellsWhatWasAttemptedAndWhyItFailed) {
    CoMulticast socket(0, GROUP, "lo");
    CoMulticast moved(7555, GROUP, "");
    EXPECT_EQ(::fcntl(moved.getId(), F_GETFD), FD_CLOEXEC);
    const CoMulticast target(std::move(moved));
    EXPECT_EQ(moved.getLocalPort(), 0u);
    const std::string large(65508, 'x');
    char byte = 0;
    std::size_t length = 1;
    sockaddr_storage from{};
    const struct {
        const char* attempted;
        int error;  // whose text ends the message
        std::function<void()> action;
    } cases[] = {
        {"Empty scope", 0, [] { CoMulticast(7555, "", ""); }},
        {"Cannot initialize socket address. 'everyone' is no IPv4 address.", 0,
         [] { CoMulticast(7555, "everyone", ""); }},
        {"Cannot initialize socket address. 'ff02::1::2' is no IPv6 address.", 0,
         [] { CoMulticast(7555, "ff02::1::2", ""); }},
        {"Cannot initialize socket address. 65536 is no port.", 0, [] { CoMulticast(65536, GROUP, ""); }},
        {"Unable to create a datagram socket for IPv4", EMFILE,
         [] { NoDescriptors(), CoMulticast(0, GROUP, ""); }},
        {"Unable to create a datagram socket for IPv6", EMFILE,
         [] { NoDescriptors(), CoMulticast(0, GROUP_IPV6, ""); }},
        {"Unable to acquire network interface list", EMFILE, [&] { NoDescriptors(), socket.join(); }},
        {"Unable to send 4 bytes to nobody:1", EINVAL, [&] { socket.send("text", 4, "nobody", 1); }},
        {"Unable to send 4 bytes to :1", EINVAL, [&] { socket.send("text", 4, "", 1); }},
        {"Unable to send 4 bytes to ::1:1", EINVAL, [&] { socket.send("text", 4, "::1", 1); }},
        {"Unable to send 4 bytes to 127.0.0.1:65536", EINVAL,
         [&] { socket.send("text", 4, "127.0.0.1", 65536); }},
        {"Unable to send 65508 bytes to 127.0.0.1:9", EMSGSIZE,
         [&] { socket.send(large.data(), large.size(), "127.0.0.1", 9); }},
        {"Unable to set SO_REUSEADDR option", EBADF, [&] { moved.bind(CoMulticast::PUBLIC); }},
        {"Unable to get the time-to-live", EBADF, [&] { static_cast<void>(moved.getTTL()); }},
        {"Unable to set the time-to-live to 1", EBADF, [&] { moved.setTTL(1); }},
        {"Unable to get the loopback", EBADF, [&] { static_cast<void>(moved.willLoopback()); }},
        {"Unable to set loopback to 1", EBADF, [&] { moved.setLoopback(true); }},
        {"Unable to set loopback to 0", EBADF, [&] { moved.setLoopback(false); }},
        {"Unable to send 1 bytes to 239.255.71.55:7555", EBADF, [&] { moved.send(&byte, 1, nullptr, 0); }},
        {"Unable to receive 1 bytes", EBADF, [&] { moved.receive(&byte, length, from, true); }},
    };
    for (const auto& [attempted, error, action] : cases) {
        EXPECT_EQ(failureOf(action), error == 0 ? attempted : attempted + (": " + reason(error)));
    }
}

TEST(Multicast, TellsAddressesAsText) {
    for (const int family : {AF_INET6, AF_UNIX, AF_UNSPEC}) {
        sockaddr_storage address{};
        auto& v6 = reinterpret_cast<sockaddr_in6&>(address);
        v6.sin6_port = htons(7555);
        ::inet_pton(AF_INET6, "::ffff:192.0.2.7", &v6.sin6_addr);
        address.ss_family = static_cast<sa_family_t>(family);
        std::string ip = "before";
        unsigned port = 1;
        CoMulticast::addrToIPAndPort(address, ip, port);
        EXPECT_EQ(ip, family == AF_INET6 ? "192.0.2.7" : "");
        EXPECT_EQ(port, family == AF_INET6 ? 7555u : 0u);
    }
}

}  // namespace

}  // namespace Vantrel
