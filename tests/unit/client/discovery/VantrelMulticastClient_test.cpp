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
using Vantrel::DaemonRecord;
using Vantrel::show;

/// Well below the time that a search lasts while servers answer on.
constexpr long SOON_MS = VantrelSearches::MAX_WAIT_MS * 3 / 4;

class MulticastClient : public DiscoveryTest {
  protected:
    ~MulticastClient() override {
        if (client) client->stopThread();
    }

    void start(unsigned ttl = 1) {
        client = std::make_shared<Client>(group(ttl));
        client->start();
    }
    VantrelDaemonInfo known(const char* storageId) const {
        const VantrelKnownServers::Servers found = client->known(storage(storageId));
        EXPECT_EQ(found.size(), 1u) << storageId;
        return found.empty() ? VantrelDaemonInfo() : found[0].record();
    }
    /// The storage ids of the list, each followed by a blank.
    std::string listed(const char* selector = nullptr, const char* gateway = nullptr) const {
        VantrelKnownServers::Servers servers;
        client->getServers(servers, selector, gateway, 0);
        std::string ids;
        for (const VantrelKnownServer& each : servers) ids += std::string(each.info->getStorageId()) + ' ';
        return ids;
    }

    std::shared_ptr<Client> client;
    RecordingObserver observer;
    VantrelDaemonInfo info;
};

TEST_F(MulticastClient, TellsWhatIsNewChangedAndGone) {
    start();
    FakeServers network(group());
    network.announce(Protocol::DISCOVER_SERVERS, server("s", "10.0.0.1"));
    observer.happened.wait(1);
    const CoTime::Microseconds added = known("s").getLastUpdate();
    network.announce(Protocol::DISCOVER_SERVERS, server("s", "10.0.0.1"));
    observer.happened.wait(2);
    EXPECT_GT(known("s").getLastUpdate(), added);
    network.announce(Protocol::DISCOVER_SERVERS_REPLY, server("s", "10.0.0.2"));
    observer.happened.wait(3);
    EXPECT_STREQ(known("s").getMetadataIP(0), "10.0.0.2");
    network.announce(Protocol::REMOVE_SERVER, server("s", ""));
    EXPECT_THAT(observer.happened.wait(4), ElementsAre("1 s", "= s", "0 s", "2 s"));
}

TEST_F(MulticastClient, MakesRecordsFitForThisHost) {
    const Vantrel::CapturedLog log;
    start();
    FakeServers network(group());
    network.announce(Protocol::DISCOVER_SERVERS_REPLY,
                     DaemonRecord{"remote", "", "", "127.0.0.1 10.0.0.1", "::1", "", 0}.info());
    network.announce(Protocol::DISCOVER_SERVERS,
                     DaemonRecord{"local", LOCAL_UUID, "other", "127.0.0.1", "", "", 7000}.info());
    network.announce(Protocol::REMOVE_SERVER, server("", "127.0.0.1"));  // a remote host's, not ours
    network.announce(Protocol::DISCOVER_SERVERS, server("last", "10.0.0.3"));
    EXPECT_THAT(observer.happened.wait(3), ElementsAre("1 remote", "1 local", "1 last"));
    const auto summary = [this](const char* id) {
        const VantrelDaemonInfo found = known(id);
        return show(found.metadataIPs()) + show(found.dataIPs()) + found.getDatabase() + ":" +
               std::to_string(found.getNodePort());
    };
    EXPECT_EQ(summary("remote"), "10.0.0.1 SXAFS:7549");
    EXPECT_EQ(summary("local"), "127.0.0.1 other:7000");

    listed();
    client->remove(storage("local"));  // it deregistered
    CoTime::advance(VantrelSearches::SEARCH_VALID_MS * CoTime::PER_MILLISECOND);
    listed();
    EXPECT_THAT(log.texts(Vantrel::CoMsg::WARNING),
                Contains(HasSubstr("Unable to find a local Vantrel daemon on ")).Times(1));
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
    FakeServers network(group(), {DaemonRecord{"a", "", "d", "10.0.0.1", "", "B"}.info(),
                                  DaemonRecord{"b", "", "e", "10.0.0.2", "", "A"}.info()});
    start();
    std::string ids;
    EXPECT_GE(took([&] { ids = listed(); }), long{VantrelSearches::MIN_WAIT_MS});
    EXPECT_EQ(ids, "b a ");
    network.answerOn();  // a wait would last long
    EXPECT_LT(took([&] { ids = listed("e"); }), SOON_MS);
    network.answerOn(false);
    EXPECT_EQ(ids, "b ");
    EXPECT_THAT(network.searches.wait(2), ElementsAre("", ""));
    CoTime::advance(VantrelSearches::SEARCH_VALID_MS * CoTime::PER_MILLISECOND);
    EXPECT_GE(took([&] { ids = listed(); }), long{VantrelSearches::MIN_WAIT_MS});
}

TEST_F(MulticastClient, ResolvesAsSoonAsTheServerAnswers) {
    FakeServers network(group(), {server("wanted", "10.0.0.1")});
    network.answerOn();
    start();
    EXPECT_LT(took([&] { EXPECT_TRUE(client->resolve(storage("wanted"), info)); }), SOON_MS);
    EXPECT_STREQ(info.getMetadataIP(0), "10.0.0.1");
    EXPECT_TRUE(client->resolve(VantrelServerId("10.0.0.1:7549"), info));
    network.answerOn(false);
    EXPECT_FALSE(client->resolve(VantrelServerId("10.0.0.1:7550"), info));
    EXPECT_FALSE(client->resolve(VantrelServerId(":SXAFS"), info));  // nothing to search for
    EXPECT_THAT(network.searches.wait(0), ElementsAre("wanted", ""));
    EXPECT_STREQ(info.getStorageId(), "wanted");
}

TEST_F(MulticastClient, TakesAnyAddressOfThisHostForItsDaemon) {
    start();
    for (const bool local : {true, false}) {
        client->setServers({DaemonRecord{"s", local ? LOCAL_UUID : "of another host", "", "::1"}.info()});
        EXPECT_EQ(client->resolve(VantrelServerId("127.0.0.1:7549"), info), local);
    }
}

TEST_F(MulticastClient, GivesEveryRecordOfAnAddressInTheOrderOfTheList) {
    const Vantrel::CapturedLog log;
    start();
    for (const char* name : {"c", "a", "b"})
        client->add(DaemonRecord{name, LOCAL_UUID, "", "127.0.0.1 10.0.0.1", "", name}.info());
    std::vector<VantrelDaemonInfo> infos;
    // This host's address stands for all of its addresses.
    for (const char* id : {"10.0.0.1:7549", "127.0.0.1:7549"}) {
        ASSERT_TRUE(client->resolveAll(VantrelServerId(id), infos));
        std::string found;
        for (const VantrelDaemonInfo& each : infos) found += each.getDisplayName();
        EXPECT_EQ(found, "abc");
    }
    ASSERT_TRUE(client->resolve(VantrelServerId("10.0.0.1:7549"), info));
    EXPECT_STREQ(info.getDisplayName(), "a");
    for (const char* name : {"a", "b", "c"})
        EXPECT_THAT(log.texts(), Contains("Candidate on : '" + std::string(name) + "'.").Times(3));
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
    network.announce(Protocol::DISCOVER_SERVERS, server("", "name.of.an.unknown.sender 10.0.0.10"));
    network.announce(Protocol::REMOVE_SERVER, server("", "another.name"));
    network.announce(Protocol::DISCOVER_SERVERS, server("last", "third.name"));
    observer.happened.wait(2);
    EXPECT_EQ(lookups, 0);
    EXPECT_TRUE(client->resolve(VantrelServerId("host:SXAFS"), info));
    EXPECT_STREQ(info.getMetadataIP(0), "name.of.an.unknown.sender");
    EXPECT_EQ(lookups, 1);
}

TEST_F(MulticastClient, WaitsEndWhenTheyAreNoLongerWanted) {
    FakeServers network(group());
    network.answerOn();
    const auto shared = Client::getInstance();
    std::atomic<bool> cancelled{false};
    std::vector<VantrelDaemonInfo> infos;
    std::thread first(
        [&] { EXPECT_FALSE(shared->resolveAll(storage("a"), infos, [&] { return cancelled.load(); })); });
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
    std::string list;
    Protocol::encode({DaemonRecord{"one"}.info(), DaemonRecord{"other", "", "db"}.info()}, list);
    return list;
}

TEST_F(MulticastClient, WithoutMulticastWaitsForNobodyButAsksGateways) {
    const Vantrel::CapturedLog log;
    Client::setListFetcher(&fetchTwo);
    start(0);
    EXPECT_LT(took([&] {
                  EXPECT_FALSE(client->haveAtLeastOneMulticastInterface());
                  for (int i = 0; i < 4; ++i) EXPECT_FALSE(client->resolve(storage("one"), info));
                  EXPECT_EQ(listed(nullptr, "10.0.0.2"), "");
                  EXPECT_EQ(listed("db", "10.0.0.1"), "other ");
                  EXPECT_EQ(listed(nullptr, "10.0.0.1"), "one other ");
                  EXPECT_TRUE(client->resolve(storage("one"), info));
              }),
              SOON_MS);
    EXPECT_THAT(log.texts(Vantrel::CoMsg::ERROR),
                Contains("Vantrel Multicast: GetDaemonList to '10.0.0.2:7549' failed: refused"));
}

TEST_F(MulticastClient, SurvivesRubbishAndMoreServersThanItHolds) {
    ::setenv("VANTREL_MAX_SERVERS", "2", 1);
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
    FakeServers network(group());
    network.announce(Protocol::DISCOVER_SERVERS, server("", ""));  // identifies nobody
    for (const char* id : {"a", "b", "c"}) network.announce(Protocol::DISCOVER_SERVERS, server(id, ""));
    network.announce(Protocol::REMOVE_SERVER, server("a", ""));
    EXPECT_THAT(observer.happened.wait(3), ElementsAre("1 a", "1 b", "2 a"));
    send(good);
    EXPECT_EQ(observer.happened.wait(4).back(), "1 s");
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
                  good = good && own->haveAtLeastOneMulticastInterface() && own->known(storage("s")).empty();
                  Client::stop();
                  return good ? 0 : 1;
              }),
              0);
    FakeServers network(group());
    network.announce(Protocol::REMOVE_SERVER, server("s", ""));
    EXPECT_EQ(observer.happened.wait(2).back(), "2 s") << "the parent's thread has ended";
}

}  // namespace
