#include <netdb.h>

#include "CoException.h"
#include "CoNameLookup.h"
#include "CoThreadMgr.h"
#include "DiscoveryFixture.h"
#include "ForkedChild.h"
#include "Sanitizers.h"

namespace {

using Client = VantrelMulticastClient;
using Vantrel::CoTime;

/// Well below the time that a search lasts while servers answer on.
constexpr long SOON_MS = VantrelSearches::MAX_WAIT_MS / 2;

class MulticastClient : public DiscoveryTest {
  protected:
    ~MulticastClient() override {
        if (client) client->stopThread();
    }

    Client& start(unsigned ttl = 1) {
        client = std::make_shared<Client>(group(ttl));
        client->start();
        return *client;
    }
    VantrelDaemonInfo knownRecord(const char* storageId) const {
        VantrelDaemonInfo info;
        EXPECT_TRUE(client->known(storage(storageId), info)) << storageId;
        return info;
    }
    Strings storageIds(const char* selector = nullptr, const char* gateway = nullptr) const {
        VantrelKnownServers::Servers servers;
        client->getServers(servers, selector, gateway, 0);
        Strings ids;
        for (const VantrelKnownServer& each : servers) ids.push_back(each.info->getStorageId());
        return ids;
    }

    std::shared_ptr<Client> client;
    RecordingObserver observer;
};

TEST_F(MulticastClient, TellsWhatIsNewChangedAndGone) {
    start();
    FakeServers network(group());
    network.announce(Protocol::DISCOVER_SERVERS, server("s", "10.0.0.1"));
    EXPECT_THAT(observer.happened.wait(1), ElementsAre("1 s"));
    const CoTime::Microseconds added = knownRecord("s").getLastUpdate();
    network.announce(Protocol::DISCOVER_SERVERS, server("s", "10.0.0.1"));
    EXPECT_THAT(observer.happened.wait(2), ElementsAre("1 s", "= s"));
    EXPECT_GT(knownRecord("s").getLastUpdate(), added);
    network.announce(Protocol::DISCOVER_SERVERS_REPLY, server("s", "10.0.0.2"));
    EXPECT_THAT(observer.happened.wait(3), ElementsAre("1 s", "= s", "0 s"));
    EXPECT_STREQ(knownRecord("s").getMetadataIP(0), "10.0.0.2");
    network.announce(Protocol::REMOVE_SERVER, server("s", ""));
    EXPECT_THAT(observer.happened.wait(4), ElementsAre("1 s", "= s", "0 s", "2 s"));
}

TEST_F(MulticastClient, MakesRecordsFitForThisHost) {
    const Vantrel::CapturedLog log;
    start();
    FakeServers network(group());
    VantrelDaemonInfo remote = server("remote", "127.0.0.1");
    remote.setMetadataIP(1, "10.0.0.1");
    remote.setDataIP(0, "::1");
    network.announce(Protocol::DISCOVER_SERVERS_REPLY, remote);
    VantrelDaemonInfo local = server("local", "127.0.0.1");
    local.setHostUUID(LOCAL_UUID);
    local.setDatabase("other");
    local.setNodePort(7000);
    network.announce(Protocol::DISCOVER_SERVERS, local);
    network.announce(Protocol::REMOVE_SERVER, server("", "127.0.0.1"));  // a remote host's, not ours
    network.announce(Protocol::DISCOVER_SERVERS, server("last", "10.0.0.3"));
    EXPECT_THAT(observer.happened.wait(3), ElementsAre("1 remote", "1 local", "1 last"));
    EXPECT_STREQ(knownRecord("remote").getMetadataIP(0), "10.0.0.1");
    EXPECT_STREQ(knownRecord("remote").getMetadataIP(1), "");
    EXPECT_STREQ(knownRecord("remote").getDataIP(0), "");
    EXPECT_STREQ(knownRecord("remote").getDatabase(), "SXAFS");
    EXPECT_EQ(knownRecord("remote").getNodePort(), 7549);
    EXPECT_STREQ(knownRecord("local").getMetadataIP(0), "127.0.0.1");
    EXPECT_STREQ(knownRecord("local").getDatabase(), "other");
    EXPECT_EQ(knownRecord("local").getNodePort(), 7000);

    const auto misses = [&] {
        const Strings texts = log.texts();
        return std::count_if(texts.begin(), texts.end(), [](const std::string& each) {
            return each.find("Unable to find a local Vantrel daemon on ") != std::string::npos;
        });
    };
    storageIds();
    EXPECT_EQ(misses(), 1);
    client->remove(storage("local"));  // it deregistered
    CoTime::advance(VantrelSearches::SEARCH_VALID_MS * CoTime::PER_MILLISECOND);
    storageIds();
    EXPECT_EQ(misses(), 1);
}

TEST_F(MulticastClient, ForgetsServersThatFallSilent) {
    ::setenv("VANTREL_MULTICAST_RESYNC_TIME_SEC", "1", 1);
    const Vantrel::CapturedLog log;
    start();
    client->add(server("silent", "10.0.0.1"));
    client->add(server("connected", "10.0.0.2"));
    CoTime::advance(2 * CoTime::PER_SECOND + CoTime::PER_SECOND / 2);
    client->connectedTo(server("connected", ""));
    client->wakeUp();
    EXPECT_THAT(observer.happened.wait(3), ElementsAre("1 silent", "1 connected", "2 silent"));
    EXPECT_THAT(log.texts(Vantrel::CoMsg::NOTICE), Contains(HasSubstr("discarding 'silent' (")));
}

/// Cannot send at first, as with an address that the system still examines.
class SlowStarter : public Client {
  public:
    using Client::Client;
    Happenings searches;

  protected:
    bool send(Protocol::RequestType type, const Vantrel::rcAttrStream& payload, const char* address,
              unsigned port) override {
        searches.add("");
        return searches.wait(0).size() > 2 && Client::send(type, payload, address, port);
    }
};

TEST_F(MulticastClient, SearchesOnANewInterfaceAsSoonAsItCanSend) {
    FakeServers network(group());
    configure("Multicast=none", "");
    const auto starter = std::make_shared<SlowStarter>(group());
    client = starter;
    client->start();
    configure("Multicast=lo", "");
    Vantrel::CoNetworkDispatcher::checkForChanges();
    for (const std::size_t tries : {1u, 2u}) {
        EXPECT_EQ(starter->searches.wait(tries).size(), tries);
        CoTime::advance(CoTime::PER_SECOND);
        client->wakeUp();
    }
    EXPECT_THAT(network.searches.wait(1), ElementsAre(""));
    EXPECT_EQ(starter->searches.wait(0).size(), 3u);
}

TEST_F(MulticastClient, WaitsForAnswersOnceAndThenTrustsTheList) {
    VantrelDaemonInfo second = server("b", "10.0.0.2", "A");
    second.setDatabase("other");
    FakeServers network(group(), {server("a", "10.0.0.1", "B"), second});
    start();
    Strings ids;
    EXPECT_GE(took([&] { ids = storageIds(); }), long{VantrelSearches::MIN_WAIT_MS});
    EXPECT_THAT(ids, ElementsAre("b", "a"));
    network.answerOn();  // a wait would last long
    EXPECT_LT(took([&] { ids = storageIds("other"); }), SOON_MS);
    network.answerOn(false);
    EXPECT_THAT(ids, ElementsAre("b"));
    EXPECT_THAT(network.searches.wait(2), ElementsAre("", ""));
    CoTime::advance(VantrelSearches::SEARCH_VALID_MS * CoTime::PER_MILLISECOND);
    EXPECT_GE(took([&] { ids = storageIds(); }), long{VantrelSearches::MIN_WAIT_MS});
}

TEST_F(MulticastClient, ResolvesAsSoonAsTheServerAnswers) {
    FakeServers network(group(), {server("wanted", "10.0.0.1")});
    network.answerOn();
    start();
    VantrelDaemonInfo info;
    EXPECT_LT(took([&] { EXPECT_TRUE(client->resolve(storage("wanted"), info)); }), SOON_MS);
    EXPECT_STREQ(info.getMetadataIP(0), "10.0.0.1");
    EXPECT_TRUE(client->resolve(VantrelServerId("10.0.0.1:7549"), info));
    network.answerOn(false);
    EXPECT_FALSE(client->resolve(VantrelServerId("10.0.0.1:7550"), info));
    EXPECT_THAT(network.searches.wait(0), ElementsAre("wanted", ""));
    EXPECT_FALSE(client->resolve(VantrelServerId(":SXAFS"), info));  // nothing to search for
    EXPECT_EQ(network.searches.wait(0).size(), 2u);
    EXPECT_STREQ(info.getStorageId(), "wanted");
}

TEST_F(MulticastClient, TakesAnyAddressOfThisHostForItsDaemon) {
    start();
    VantrelDaemonInfo local = server("local", "::1");
    local.setHostUUID(LOCAL_UUID);
    local.setNodePort(7549);
    client->add(local);
    VantrelDaemonInfo info;
    EXPECT_TRUE(client->resolve(VantrelServerId("127.0.0.1:7549"), info));
    local.setHostUUID("of another host");
    client->setServers({local});
    EXPECT_FALSE(client->resolve(VantrelServerId("127.0.0.1:7549"), info));
}

std::atomic<int> lookups{0};

int resolveToTen(const char*, const char* service, const addrinfo* hints, addrinfo** result) {
    ++lookups;
    return ::getaddrinfo("10.0.0.10", service, hints, result);
}

TEST_F(MulticastClient, LooksUpTheNameThatItIsGivenAndNoneThatItHears) {
    Vantrel::CoNameLookup::resolver() = &resolveToTen;
    start();
    FakeServers network(group());
    VantrelDaemonInfo named = server("", "name.of.an.unknown.sender");
    named.setMetadataIP(1, "10.0.0.10");
    network.announce(Protocol::DISCOVER_SERVERS, named);
    network.announce(Protocol::REMOVE_SERVER, server("", "another.name"));
    network.announce(Protocol::DISCOVER_SERVERS, server("last", "third.name"));
    observer.happened.wait(2);
    EXPECT_EQ(lookups, 0);
    VantrelDaemonInfo info;
    EXPECT_TRUE(client->resolve(VantrelServerId("host:SXAFS"), info));
    EXPECT_STREQ(info.getMetadataIP(0), "name.of.an.unknown.sender");
    EXPECT_EQ(lookups, 1);
}

TEST_F(MulticastClient, WaitsEndWhenTheyAreNoLongerWanted) {
    FakeServers network(group());
    network.answerOn();
    const auto shared = Client::getInstance();
    std::atomic<bool> cancelled{false};
    VantrelDaemonInfo info;
    std::thread first(
        [&] { EXPECT_FALSE(shared->resolve(storage("a"), info, [&] { return cancelled.load(); })); });
    network.searches.wait(1);
    EXPECT_LT(took([&] {
                  cancelled = true;
                  Client::recheckWaits();
                  first.join();
              }),
              SOON_MS);
    std::thread second([&] { EXPECT_FALSE(shared->resolve(storage("b"), info)); });
    network.searches.wait(2);
    EXPECT_LT(took([&] {
                  Client::stop();
                  second.join();
              }),
              SOON_MS);
    EXPECT_FALSE(shared->haveAtLeastOneMulticastInterface());
    EXPECT_NE(Client::getInstance(), shared);
}

std::string fetchTwo(const VantrelServerId& serverId, unsigned) {
    if (std::string(serverId.getId()) != "10.0.0.1:7549") throw Vantrel::CoException("refused");
    VantrelDaemonInfo one;
    one.setStorageId("one");
    VantrelDaemonInfo other;
    other.setStorageId("other");
    other.setDatabase("db");
    std::string list;
    Protocol::encode({one, other}, list);
    return list;
}

TEST_F(MulticastClient, WithoutMulticastWaitsForNobodyButAsksGateways) {
    const Vantrel::CapturedLog log;
    Client::setListFetcher(&fetchTwo);
    start(0);
    VantrelDaemonInfo info;
    EXPECT_LT(took([&] {
                  EXPECT_FALSE(client->haveAtLeastOneMulticastInterface());
                  for (int i = 0; i < 4; ++i) EXPECT_FALSE(client->resolve(storage("one"), info));
                  EXPECT_THAT(storageIds(nullptr, "10.0.0.2"), ElementsAre());
                  EXPECT_THAT(storageIds("db", "10.0.0.1"), ElementsAre("other"));
                  EXPECT_THAT(storageIds(nullptr, "10.0.0.1"), ElementsAre("one", "other"));
                  EXPECT_TRUE(client->resolve(storage("one"), info));
              }),
              SOON_MS);
    EXPECT_THAT(log.texts(Vantrel::CoMsg::ERROR),
                Contains("Vantrel Multicast: GetDaemonList to '10.0.0.2:7549' failed: refused"));
}

TEST_F(MulticastClient, SurvivesRubbish) {
    ::setenv("VANTREL_MAX_SERVERS", "100", 1);
    const Vantrel::CapturedLog log;
    start();
    Vantrel::CoMulticast sender(group().port, SCOPE, "lo");
    sender.bind(Vantrel::CoMulticast::PRIVATE);
    const auto send = [&sender](const std::string& text) {
        sender.send(text.data(), text.size(), nullptr, 0);
    };
    const std::string good =
        Protocol::create(Protocol::DISCOVER_SERVERS, server("s", "10.0.0.1").toAttrStream());
    for (std::size_t cut = 0; cut < good.size(); cut += 7) send(good.substr(0, cut));
    send("line\nbreak");
    send(std::string(65507, 'x'));
    send(Protocol::create(Protocol::DISCOVER_SERVERS, Vantrel::rcAttrStream()));  // identifies nobody
    for (int i = 0; i < 200; ++i) {
        send(Protocol::create(Protocol::DISCOVER_SERVERS_REPLY,
                              server(std::to_string(i).c_str(), "10.0.0.1").toAttrStream()));
        observer.happened.wait(static_cast<std::size_t>(std::min(i + 1, 100)));
    }
    send(Protocol::create(Protocol::REMOVE_SERVER, server("7", "").toAttrStream()));
    send(good);
    EXPECT_EQ(observer.happened.wait(102).back(), "1 s");
    EXPECT_THAT(log.texts(Vantrel::CoMsg::WARNING), Contains(HasSubstr(": line\\x0abreak.")));
}

struct StoppingObserver : RecordingObserver {
    void serverEvent(Client::Event, const VantrelDaemonInfo&) override {
        Client::stop();
        happened.add("stopped");
    }
};

TEST_F(MulticastClient, MayBeStoppedFromItsOwnThread) {
    StoppingObserver stopper;
    const auto stopped = Client::getInstance();
    FakeServers network(group());
    network.announce(Protocol::DISCOVER_SERVERS, server("s", "10.0.0.1"));
    EXPECT_THAT(stopper.happened.wait(1), ElementsAre("stopped"));
    VantrelDaemonInfo info;
    EXPECT_FALSE(stopped->resolve(storage("other"), info));
    EXPECT_NE(Client::getInstance(), stopped);
}

TEST_F(MulticastClient, AForkedChildStartsAfresh) {
    if (Vantrel::HAS_THREAD_SANITIZER) GTEST_SKIP() << "the sanitizer's runtime does not survive the fork";
    const auto parents = Client::getInstance();
    parents->add(server("s", "10.0.0.1"));
    EXPECT_EQ(inForkedChild([] {
                  bool good = Client::_getInstance(false) == nullptr;
                  Vantrel::CoThreadMgr::getInstance().stopAll();
                  const auto own = Client::getInstance();
                  VantrelDaemonInfo info;
                  good = good && own->haveAtLeastOneMulticastInterface() && !own->known(storage("s"), info);
                  Client::stop();
                  return good ? 0 : 1;
              }),
              0);
    FakeServers network(group());
    network.announce(Protocol::REMOVE_SERVER, server("s", ""));
    EXPECT_EQ(observer.happened.wait(2).back(), "2 s") << "the parent's thread has ended";
}

}  // namespace
