// The server's part in discovery, on loopback, at a port of the test's own.
#include "Announcer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <tuple>

#include "CapturedLog.h"
#include "CoMulticast.h"
#include "FreePort.h"
#include "HeldClock.h"
#include "TemporaryDirectory.h"

namespace vantreld {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Vantrel::CoMulticast;
using Vantrel::CoTime;
using Protocol = VantrelMulticastProtocol;

constexpr const char* SCOPE = "224.0.0.1";
constexpr unsigned LIMIT_MS = 30000;

VantrelDaemonInfo record(const char* storageId, const char* database = "SXAFS") {
    VantrelDaemonInfo info;
    info.setMetadataIP(0, "127.0.0.1");
    info.setDisplayName(storageId);
    info.setDatabase(database);
    info.setStorageId(storageId);
    return info;
}

class AnnouncerTest : public testing::Test {
  protected:
    AnnouncerTest() : port_(Vantrel::freeUdpPort()), group_(port_, SCOPE, "lo"), party_(port_, SCOPE, "lo") {
        const std::string content =
            "[Local]\nUUID=00000000-0000-4000-8000-000000000000\n[Interfaces]\nMulticast=lo\n";
        ::setenv("QD_NETWORK_CFG_FILE", directory_.write("network.cfg", content).c_str(), 1);
        group_.bind(CoMulticast::PUBLIC);
        group_.join();
        party_.bind(CoMulticast::PRIVATE);
        server_.emplace(loop_, VantrelDiscoveryGroup{port_, SCOPE, 1}, [] { return record("own"); });
    }

    void send(const std::string& datagram) { party_.send(datagram.data(), datagram.size(), nullptr, 0); }
    void send(Protocol::RequestType type, const VantrelDaemonInfo& info) {
        send(Protocol::create(type, info.toAttrStream()));
    }
    void pass(unsigned waitMs = 0) {
        const unsigned due = server_->work();
        loop_.callIOHandlers(std::min(due, waitMs));
    }
    /// The next datagrams of `socket` while the server works, as "<type> <storage id>".
    std::vector<std::string> received(const CoMulticast& socket, std::size_t count) {
        std::vector<std::string> all;
        const Vantrel::CoDeadline deadline(LIMIT_MS);
        while (all.size() < count && !deadline.passed()) {
            if (server_) pass(1);
            for (std::string one = take(socket); !one.empty(); one = take(socket)) all.push_back(one);
        }
        return all;
    }
    static std::string take(const CoMulticast& socket) {
        std::string text(2048, '\0');
        std::size_t length = text.size();
        sockaddr_storage from{};
        if (!socket.receive(text.data(), length, from, false)) return {};
        text.resize(length);
        const auto request = Protocol::parse(text);
        if (!request) return "no request";
        return std::to_string(request->type) + ' ' + VantrelDaemonInfo(request->payload).getStorageId();
    }
    std::vector<std::string> others() const {
        std::vector<std::string> names;
        for (const VantrelDaemonInfo& each : server_->others()) names.push_back(each.getStorageId());
        return names;
    }
    /// Lets the server take in what was sent before: it answers in order.
    void settle() {
        send(Protocol::FIND_SERVERS, {});
        EXPECT_THAT(received(party_, 1), ElementsAre("72 own"));
    }

    Vantrel::TemporaryDirectory directory_;
    const unsigned port_;
    CoMulticast group_;
    CoMulticast party_;
    Vantrel::rcAppContext loop_;
    std::optional<Announcer> server_;
};

TEST_F(AnnouncerTest, AnnouncesSearchesAndWithdraws) {
    EXPECT_THAT(received(group_, 2), ElementsAre("74 ", "71 own"));
    CoTime::advance(60 * CoTime::PER_SECOND);
    EXPECT_THAT(received(group_, 1), ElementsAre("71 own"));
    server_.reset();
    EXPECT_THAT(received(group_, 1), ElementsAre("73 own"));
}

TEST_F(AnnouncerTest, AnswersTheSearchesThatItMatches) {
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"", "", true},         {"own", "", true},       {"", "SXAFS", true},
        {"own", "SXAFS", true}, {"own", "other", false}, {"ow", "", false},
        {"Own", "", false},     {"", "sxafs", false},    {"other", "SXAFS", false}};
    for (const auto& [storageId, database, answered] : cases) {
        SCOPED_TRACE(std::string(storageId) + '/' + database);
        send(Protocol::FIND_SERVERS, record(storageId, database));
        if (answered) {
            EXPECT_THAT(received(party_, 1), ElementsAre("72 own"));
        }
        settle();
    }
}

TEST_F(AnnouncerTest, KeepsTheListOfTheOthers) {
    send(Protocol::DISCOVER_SERVERS, record("second"));
    send(Protocol::DISCOVER_SERVERS_REPLY, record("first"));
    send(Protocol::DISCOVER_SERVERS, record("own"));
    settle();
    EXPECT_THAT(others(), ElementsAre("first", "second"));
    send(Protocol::REMOVE_SERVER, record("second"));
    settle();
    EXPECT_THAT(others(), ElementsAre("first"));
    for (const int seconds : {300, 301}) {  // what was heard 600 s ago goes at the next look
        CoTime::advance(seconds * CoTime::PER_SECOND);
        send(Protocol::DISCOVER_SERVERS, record("loud"));
        settle();
        pass();
    }
    EXPECT_THAT(others(), ElementsAre("loud"));
}

TEST_F(AnnouncerTest, RubbishIsLoggedABitAndChangesNothing) {
    settle();
    const Vantrel::CapturedLog log;
    const std::string good = Protocol::create(Protocol::DISCOVER_SERVERS, record("x").toAttrStream());
    for (int i = 0; i < 500; ++i) {
        for (const std::string& each : {std::string("x"), std::string(1023, 'V'), std::string(60000, '\0'),
                                        good.substr(0, good.find("Data"))})
            send(each);
        if (i % 4 == 0) pass();
    }
    CoTime::advance(CoTime::PER_SECOND);  // its share of this second may be used up
    settle();
    EXPECT_THAT(others(), IsEmpty());
    EXPECT_TRUE(log.contains("Invalid discovery datagram of 1 bytes from '127.0.0.1:"));
    EXPECT_LT(log.texts(Vantrel::CoMsg::WARNING).size(), 20u);
}

TEST_F(AnnouncerTest, NeitherAnswersNorListensWithoutMeasure) {
    settle();
    std::optional<Vantrel::HeldClock> clock(std::in_place);  // however long a slow machine takes
    for (int i = 0; i < 20000; ++i) {
        send(Protocol::FIND_SERVERS, {});
        if (i % 16 == 0) pass();
    }
    std::size_t answers = 0;
    while (!take(party_).empty()) ++answers;
    EXPECT_GT(answers, 10u);
    EXPECT_LE(answers, 200u);

    // An announcement is for all who were left without an answer.
    while (!take(group_).empty()) {
    }
    clock.reset();
    CoTime::advance(CoTime::PER_SECOND);
    EXPECT_THAT(received(group_, 1), ElementsAre("71 own"));
}

TEST(RateLimit, AllowsABurstAndThenAnEvenRate) {
    const Vantrel::HeldClock clock;
    RateLimit limit(10);
    for (const auto& [passedMs, burst] : {std::pair(0, 10), {200, 2}, {3600000, 10}}) {
        CoTime::advance(passedMs * CoTime::PER_MILLISECOND);
        int count = 0;
        while (limit.take()) ++count;
        EXPECT_EQ(count, burst);
        EXPECT_GT(limit.waitMs(), 0u);
    }
}

TEST(FitIntoDatagram, LeavesOutTheLastAddresses) {
    VantrelDaemonInfo info = record("some");
    bool cut = true;
    EXPECT_EQ(fitIntoDatagram(info, cut), info);
    EXPECT_FALSE(cut);
    for (unsigned i = 0; i < VantrelDaemonInfo::MAX_IPS; ++i) {
        info.setMetadataIP(i, ("10.0.0." + std::to_string(i)).c_str());
        if (i < 40) info.setDataIP(i, ("10.0.1." + std::to_string(i)).c_str());
    }
    const VantrelDaemonInfo fit = fitIntoDatagram(info, cut);
    EXPECT_TRUE(cut);
    const std::size_t size = Protocol::create(Protocol::DISCOVER_SERVERS, fit.toAttrStream()).size();
    EXPECT_LE(size, Protocol::MAX_DATAGRAM_BYTES);
    EXPECT_GT(size, Protocol::MAX_DATAGRAM_BYTES - 60);
    EXPECT_STREQ(fit.getMetadataIP(9), "10.0.0.9");
    EXPECT_STREQ(fit.getDataIP(9), "10.0.1.9");
    EXPECT_STREQ(fit.getMetadataIP(63), "");
}

}  // namespace
}  // namespace vantreld
