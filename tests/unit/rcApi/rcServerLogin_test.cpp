#include <algorithm>
#include <cstdlib>
#include <list>
#include <string>
#include <vector>

#include "CoTime.h"
#include "ServerFixture.h"

namespace Vantrel {
namespace {

using testing::ElementsAre;
using testing::EndsWith;

constexpr const char* INVALID = "error Authentication failed for client's login information";

/// A login record of `user`. Its password is empty, so that the checksum is that of the address, the time
/// stamp 0 and the serial 5 alone.
std::string record(const std::string& user, const std::string& crc = "-125785413") {
    return "StrUserName " + std::to_string(user.size()) + " " + user +
           "StrPassword 0 StrProcessName 4 testIntProcessId 2 77StrHostName 2 wsStrIpAddr 8 "
           "10.0.0.1IntSerial 1 "
           "5IntTimestamp 1 0IntCRC " +
           std::to_string(crc.size()) + " " + crc + "ULongVersion 3 0x0";
}

std::string login(const std::string& recordText) {
    return "sync 0 _login " + recordText + "\n";
}

class rcServerLoginTest : public ServerFixture {
  protected:
    void SetUp() override {
        ::unsetenv(rcSysCalls::CONNECTION_INFO_VARIABLE);
        addEcho();
        add("Me", [this](int, rcParam::Array&, rcParam& result) {
            const rcConnectionInfo& info = context.getCurrentConnectionInfo();
            result.setStringValue(info.getUserName() + "@" + info.getIpAddr());
            return true;
        });
    }
};

TEST_F(rcServerLoginTest, TakesTheRecordWithTheAddressThatItSees) {
    start();
    RawClient client(port());
    EXPECT_EQ(client.ask(login(record("jane"))), "ok ");
    EXPECT_EQ(client.ask("sync 0 Me \n"), "ok jane@127.0.0.1");
    EXPECT_THAT(log.texts(CoMsg::NOTICE), ElementsAre(EndsWith("] [jane//0000] [ws/127.0.0.1] [test/77]")));
}

TEST_F(rcServerLoginTest, AnswersAnInvalidRecordAndDropsTheClient) {
    start();
    for (const std::string& text : {record("jane", "-125785412"), std::string(), std::string("rubbish")}) {
        RawClient client(port());
        EXPECT_EQ(client.ask(login(text)), INVALID) << text;
        EXPECT_TRUE(client.isClosedByPeer()) << text;
        RawClient silent(port());
        silent.send("a" + login(text));
        EXPECT_TRUE(silent.isClosedByPeer()) << text;
    }
    const std::vector<std::string> errors = log.texts(CoMsg::ERROR);
    EXPECT_EQ(std::count(errors.begin(), errors.end(), "Invalid client info, breaking connection"), 6);
}

TEST_F(rcServerLoginTest, IsNeededBeforeAnyOtherMethodWhenRequired) {
    context.requireLogin(true);
    start();
    RawClient client(port());
    EXPECT_EQ(client.ask("async 0 Echo unheard\nsync 0 Echo x\n"), "error Not logged in.");
    for (const char* line : {"sync 0 Nope x\n", "sync 9 Echo x\n"})
        EXPECT_EQ(client.ask(line), "error Not logged in.");
    EXPECT_EQ(client.ask("sync 0 _ping \n"), "ok ");
    EXPECT_EQ(client.ask(login(record("jane"))), "ok ");
    EXPECT_EQ(client.ask("sync 0 Echo x\n"), "ok x");
    EXPECT_EQ(client.ask("sync 0 Nope x\n"), "error Unknown method: Nope");

    // The first login's record is inherited from now on. It opens no door.
    RawClient second(port());
    EXPECT_EQ(second.ask("sync 0 Echo x\n"), "error Not logged in.");

    context.acceptLogins = false;
    for (RawClient* each : {&second, &client}) {
        EXPECT_EQ(each->ask(login(record("joe"))), "error Authentication failed");
        EXPECT_EQ(each->ask("sync 0 Echo x\n"), "error Not logged in.");
    }
}

TEST_F(rcServerLoginTest, IsNeededBeforeALongCommandWhenRequired) {
    const std::string longest = "sync 0 Echo " + std::string(65536 - 12, 'x');
    for (const bool required : {false, true}) {
        context.requireLogin(required);
        start();
        RawClient client(port());
        EXPECT_EQ(client.ask(longest + "\n"), required ? "error Not logged in." : "ok " + longest.substr(12));
        RawClient friendly(port());
        EXPECT_EQ(friendly.ask(login(record("jane"))), "ok ");
        EXPECT_EQ(friendly.ask(longest + "x\n"), "ok " + longest.substr(12) + "x");
        client.send(longest + "x");
        EXPECT_EQ(client.ask("\n"), required ? "" : "ok " + longest.substr(12) + "x");
        EXPECT_EQ(log.contains("exceeds 65536 bytes before a login, breaking connection"), required);
        stop();
    }
}

TEST_F(rcServerLoginTest, IsNeededInTimeWhenRequired) {
    context.requireLogin(true);
    start();
    RawClient guest(port());
    RawClient silent(port());
    RawClient talking(port());
    EXPECT_EQ(guest.ask(login(record("jane"))), "ok ");
    CoTime::advance((rcServerContext::LOGIN_TIME_MS / 2) * CoTime::PER_MILLISECOND);
    RawClient late(port());
    for (RawClient* each : {&silent, &talking, &late}) EXPECT_EQ(each->ask("sync 0 _ping \n"), "ok ");
    CoTime::advance((rcServerContext::LOGIN_TIME_MS / 2 + 1) * CoTime::PER_MILLISECOND);
    context.cancel();  // a clock that is moved wakes nobody
    EXPECT_TRUE(silent.isClosedByPeer());
    EXPECT_TRUE(talking.isClosedByPeer());
    EXPECT_EQ(late.ask(login(record("joe"))), "ok ");
    CoTime::advance(rcServerContext::LOGIN_TIME_MS * CoTime::PER_MILLISECOND);
    EXPECT_EQ(late.ask("sync 0 Echo x\n"), "ok x");
    EXPECT_EQ(guest.ask("sync 0 Echo x\n"), "ok x");
}

TEST_F(rcServerLoginTest, IsReadBeforeItsTimeIsJudged) {
    context.requireLogin(true);
    RawClient* waiting = nullptr;
    std::string line;
    add("Block", [&](int, rcParam::Array&, rcParam&) {
        waiting->send(line);
        CoTime::advance((rcServerContext::LOGIN_TIME_MS + 1) * CoTime::PER_MILLISECOND);
        return true;
    });
    start();
    RawClient guest(port());
    EXPECT_EQ(guest.ask(login(record("jane"))), "ok ");
    for (const bool logsIn : {true, false}) {
        RawClient client(port());
        EXPECT_EQ(client.ask("sync 0 _ping \n"), "ok ");
        waiting = &client;
        line = logsIn ? login(record("joe")) : "sync 0 _ping \n";
        EXPECT_EQ(guest.ask("sync 0 Block x\n"), "ok ");
        EXPECT_EQ(client.readLine(), "ok ");
        EXPECT_EQ(client.ask("sync 0 Echo x\n"), logsIn ? "ok x" : "");
    }
}

TEST_F(rcServerLoginTest, IsWaitedForFromFewAtATime) {
    context.requireLogin(true);
    context.limitClients(rcServerContext::MAX_UNAUTHENTICATED + 2);
    start();
    std::list<RawClient> guests;
    std::list<RawClient> unauthenticated;
    const auto connectOne = [this](std::list<RawClient>& to, const std::string& line) {
        to.emplace_back(port());
        return to.back().ask(line);
    };
    EXPECT_EQ(connectOne(guests, login(record("jane"))), "ok ");
    for (unsigned i = 0; i < 2 * rcServerContext::MAX_UNAUTHENTICATED; ++i) {
        ASSERT_EQ(connectOne(unauthenticated, "sync 0 _ping \n"), "ok ");
        if (i < rcServerContext::MAX_UNAUTHENTICATED) continue;
        EXPECT_TRUE(unauthenticated.front().isClosedByPeer());
        unauthenticated.pop_front();
    }
    EXPECT_EQ(unauthenticated.front().ask(login(record("joe"))), "ok ");
    EXPECT_EQ(connectOne(unauthenticated, "sync 0 _ping \n"), "ok ");  // in joe's place
    EXPECT_EQ(connectOne(unauthenticated, "sync 0 _ping \n"), "");     // too many in all
    EXPECT_EQ(guests.front().ask("sync 0 Echo x\n"), "ok x");
    EXPECT_EQ(log.texts(CoMsg::WARNING).size(), 2U);
}

TEST_F(rcServerLoginTest, LeavesTheFirstRecordToLaterProcesses) {
    context.useLoginEnvironment(false);
    start();
    RawClient client(port());
    EXPECT_EQ(client.ask(login(record("james"))), "ok ");
    stop();
    EXPECT_EQ(::getenv(rcSysCalls::CONNECTION_INFO_VARIABLE), nullptr);
    context.useLoginEnvironment(true);
    start();
    for (const char* user : {"jane", "joe"}) EXPECT_EQ(client.ask(login(record(user))), "ok ");
    stop();
    std::string left;
    ASSERT_TRUE(rcSysCalls::getInheritedConnectionInfo(left));
    const rcConnectionInfo info(left.c_str(), nullptr);
    EXPECT_TRUE(info.isValid());
    EXPECT_EQ(info.getUserName(), "jane");
    EXPECT_NE(info.getTimestamp(), 0U);
}

TEST_F(rcServerLoginTest, StartsFromAnInheritedRecordWhenItIsValid) {
    ::setenv(rcSysCalls::CONNECTION_INFO_VARIABLE, record("jane").c_str(), 1);
    start();
    RawClient heir(port());
    EXPECT_EQ(heir.ask("sync 0 Me \n"), "ok jane@10.0.0.1");
    EXPECT_FALSE(log.contains("Invalid client login information"));
    stop();

    ::setenv(rcSysCalls::CONNECTION_INFO_VARIABLE, record("jane", "1").c_str(), 1);
    RawClient client(port());
    client.send("sync 0 Me \n");
    while (!log.contains("Invalid client login information")) ASSERT_GT(context.callIOHandlers(10000U), 0);
    context.callIOHandlers(10000U);
    EXPECT_EQ(client.readLine(), "ok undefined@0.0.0.0");
}

}  // namespace
}  // namespace Vantrel
