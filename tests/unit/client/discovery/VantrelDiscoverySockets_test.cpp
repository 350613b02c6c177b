#include "VantrelDiscoverySockets.h"

#include "BareHost.h"
#include "DiscoveryFixture.h"

namespace {

using Datagram = VantrelDiscoverySockets::Datagram;
using Vantrel::coFormat;
using Vantrel::CoMulticast;
using Vantrel::rcAttrStream;

constexpr int LIMIT_MS = 20000;

/// Has the process use some interfaces for multicast.
class VantrelDiscoverySocketsTest : public DiscoveryTest {
  protected:
    void use(const std::string& interfaces) const { configure("Multicast=" + interfaces, ""); }
};

/// The public socket's descriptor comes last.
std::vector<int> descriptorsOf(const VantrelDiscoverySockets& sockets) {
    std::vector<pollfd> polled;
    sockets.addTo(polled);
    std::vector<int> descriptors;
    for (const pollfd& each : polled) descriptors.push_back(each.fd);
    return descriptors;
}

Datagram next(const VantrelDiscoverySockets& sockets, int descriptor) {
    Datagram datagram;
    pollfd entry{descriptor, POLLIN, 0};
    EXPECT_EQ(::poll(&entry, 1, LIMIT_MS), 1);
    EXPECT_TRUE(sockets.receive(descriptor, datagram));
    return datagram;
}

rcAttrStream payloadOf(std::size_t size) {
    rcAttrStream payload;
    payload.addStringValue("Name", std::string(size, 'x'));
    return payload;
}

TEST_F(VantrelDiscoverySocketsTest, CarriesSearchesAndAnswersWithinOneHost) {
    use("lo");
    ::setenv("VANTREL_MULTICAST_DEBUG", "2", 1);
    const Vantrel::CapturedLog log;
    const VantrelDiscoverySockets client(group());
    const VantrelDiscoverySockets server(group());
    const std::vector<int> ours = descriptorsOf(client);
    const int heardOn = descriptorsOf(server).back();
    ASSERT_EQ(ours.size(), 2u);
    EXPECT_THAT(log.texts(), Contains(coFormat("Vantrel Multicast: opened private socket '%d' on  'lo' "
                                               "'127.0.0.1:%u/%s/1'.",
                                               ours.front(), group().port, SCOPE)));

    EXPECT_TRUE(client.send(Protocol::FIND_SERVERS, payloadOf(1)));
    EXPECT_EQ(next(client, ours.back()).text, Protocol::create(Protocol::FIND_SERVERS, payloadOf(1)));
    const Datagram search = next(server, heardOn);
    EXPECT_EQ(search.text, Protocol::create(Protocol::FIND_SERVERS, payloadOf(1)));
    EXPECT_EQ(search.ip, "127.0.0.1");
    EXPECT_THAT(log.texts(),
                Contains(coFormat("Vantrel Multicast: received %zu bytes from '127.0.0.1:%u': \"%s\".",
                                  search.text.size(), search.port, search.text.c_str())));

    EXPECT_TRUE(server.send(Protocol::DISCOVER_SERVERS_REPLY, payloadOf(2), search.ip, search.port));
    EXPECT_EQ(next(client, ours.front()).text,
              Protocol::create(Protocol::DISCOVER_SERVERS_REPLY, payloadOf(2)));
    Datagram none;
    EXPECT_FALSE(client.receive(ours.front(), none));
    EXPECT_FALSE(client.receive(heardOn, none)) << "of another";
}

TEST_F(VantrelDiscoverySocketsTest, SearchesFromAPortThatTheHostsFilterLetsIn) {
    CoMulticast free(0, SCOPE, "lo");
    free.bindPrivate({50000, 65535});
    const unsigned lowest = free.getLocalPort() - 100;
    configure("Multicast=lo",
              Vantrel::coFormat("[DynamicPorts]\nLowerBound=%u\nUpperBound=%u", lowest, lowest + 99));
    const VantrelDiscoverySockets client(group());
    EXPECT_TRUE(client.send(Protocol::FIND_SERVERS, payloadOf(1)));
    const Datagram search = next(client, descriptorsOf(client).back());
    EXPECT_TRUE(lowest <= search.port && search.port <= lowest + 99) << search.port;
}

TEST_F(VantrelDiscoverySocketsTest, SendsNothingThatReceiversWouldCut) {
    use("lo");
    const Vantrel::CapturedLog log;
    const VantrelDiscoverySockets sockets(group());
    std::size_t size = 1;
    while (Protocol::create(Protocol::DISCOVER_SERVERS, payloadOf(size)).size() < 1023) ++size;
    EXPECT_TRUE(sockets.send(Protocol::DISCOVER_SERVERS, payloadOf(size)));
    EXPECT_EQ(next(sockets, descriptorsOf(sockets).back()).text.size(), 1023u);
    EXPECT_TRUE(log.texts(Vantrel::CoMsg::ERROR).empty());
    EXPECT_FALSE(sockets.send(Protocol::DISCOVER_SERVERS, payloadOf(size + 1)));
    EXPECT_FALSE(sockets.send(Protocol::DISCOVER_SERVERS, payloadOf(size + 1), "127.0.0.1", 9));
    EXPECT_FALSE(sockets.send(Protocol::DISCOVER_SERVERS, payloadOf(1), "a host", 9));
    EXPECT_EQ(log.texts(Vantrel::CoMsg::ERROR).size(), 3u);
}

TEST_F(VantrelDiscoverySocketsTest, OpensNothingWhereThereIsNothingToUse) {
    const std::tuple<const char*, unsigned, Strings> cases[] = {
        {"lo", 0, {}}, {"none", 1, {"No multicast interface available"}}};
    for (const auto& [interfaces, ttl, warnings] : cases) {
        use(interfaces);
        const Vantrel::CapturedLog log;
        const VantrelDiscoverySockets sockets(group(ttl));
        EXPECT_FALSE(sockets.haveInterface());
        EXPECT_TRUE(descriptorsOf(sockets).empty());
        EXPECT_FALSE(sockets.send(Protocol::FIND_SERVERS, payloadOf(1)));
        EXPECT_FALSE(sockets.send(Protocol::FIND_SERVERS, payloadOf(1), "127.0.0.1", 9));
        EXPECT_EQ(log.texts(Vantrel::CoMsg::WARNING), warnings);
    }
}

/// The interfaces of the private sockets that were opened, in their order, each followed by a blank.
std::string openedOn(const Vantrel::CapturedLog& log) {
    std::string names;
    for (const std::string& text : log.texts(Vantrel::CoMsg::DEBUG)) {
        char name[32] = "";
        if (std::sscanf(text.c_str(), "Vantrel Multicast: opened private socket '%*d' on  '%31[^']", name) ==
            1)
            names += std::string(name) + ' ';
    }
    return names;
}

void useSeveralInterfaces(const VantrelDiscoveryGroup& group) {
    const Vantrel::CapturedLog log;
    VantrelDiscoverySockets sockets(group);
    EXPECT_EQ(openedOn(log), "link2 link1 link1:1 ");
    EXPECT_TRUE(log.texts(Vantrel::CoMsg::ERROR).empty()) << "one membership for each device";

    CoMulticast receiver(0, group.scope, "");
    receiver.bind(CoMulticast::PRIVATE);
    const std::pair<const char*, const char*> cases[] = {
        {"10.0.1.1", "10.0.1.1"},
        {"10.0.2.1", "10.0.2.1"},
        {"10.0.3.1", "10.0.2.1"},  // a second address of link2, which sends from its first
        {"10.0.4.1", "10.0.4.1"},
        {"127.0.0.1", "10.0.2.1"}};
    for (const auto& [to, from] : cases) {
        EXPECT_TRUE(
            sockets.send(Protocol::DISCOVER_SERVERS_REPLY, payloadOf(1), to, receiver.getLocalPort()));
        pollfd entry{receiver.getId(), POLLIN, 0};
        EXPECT_EQ(::poll(&entry, 1, LIMIT_MS), 1);
        char byte = 0;
        std::size_t length = sizeof byte;
        sockaddr_storage sender{};
        EXPECT_TRUE(receiver.receive(&byte, length, sender, false));
        std::string ip;
        unsigned port = 0;
        CoMulticast::addrToIPAndPort(sender, ip, port);
        EXPECT_EQ(ip, from) << to;
    }

    EXPECT_TRUE(Vantrel::runCommand("ip link delete link2"));
    const Vantrel::CapturedLog reopening;
    sockets.reopen();
    EXPECT_EQ(openedOn(reopening), "link1 link1:1 ");
}

TEST_F(VantrelDiscoverySocketsTest, UsesEveryInterfaceOnce) {
    use("link2,link1");
    bool linked = false;
    const bool made = Vantrel::onBareHost([&] {
        linked = Vantrel::runCommand("ip link set lo up") && Vantrel::addCable("link1", 1) &&
                 Vantrel::addCable("link2", 2) && Vantrel::runCommand("ip addr add 10.0.3.1/24 dev link2") &&
                 Vantrel::runCommand("ip addr add 10.0.4.1/24 dev link1 label link1:1");
        if (linked) useSeveralInterfaces(group());
    });
    if (!made || !linked) GTEST_SKIP() << "may not make a network namespace, or iproute2 is missing";
}

}  // namespace
