#include "rcAPI.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <future>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "CapturedLog.h"
#include "ScriptedPeer.h"
#include "SilentListener.h"

namespace Vantrel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr unsigned TIMEOUT_MS = 20000;
constexpr const char* HOST = "127.0.0.1";

class rcAPITest : public testing::Test {
  protected:
    void connect() {
        ASSERT_EQ(api.connect(HOST, peer.port(), TIMEOUT_MS, result), rcOutcome::Answered) << result;
    }
    rcOutcome call(const char* method, const char* argument = "", unsigned timeoutMs = TIMEOUT_MS) {
        return api.call(0, method, argument, true, result, timeoutMs);
    }

    ScriptedPeer peer;
    rcAPI api;
    std::string result;
};

TEST_F(rcAPITest, SendsOneLineForACall) {
    connect();
    for (const char* method : {"Ping", "Set"}) peer.answer(method, "ok ");
    EXPECT_EQ(call("Ping"), rcOutcome::Answered);
    EXPECT_EQ(api.call(12, "Set", "a\nb\tc\\d", true, result, TIMEOUT_MS), rcOutcome::Answered);
    result = "earlier";
    EXPECT_EQ(api.call(-1, "Tell", "x", false, result, TIMEOUT_MS), rcOutcome::Answered);
    EXPECT_EQ(result, "");
    EXPECT_EQ(call("Ping", nullptr), rcOutcome::Answered);
    EXPECT_THAT(peer.commands(),
                ElementsAre("sync 0 Ping ", "sync 12 Set a\\nb\\tc\\\\d", "async -1 Tell x", "sync 0 Ping "));
}

TEST_F(rcAPITest, TakesRepliesInPiecesOfAnySize) {
    const std::tuple<const char*, rcOutcome, const char*> cases[] = {
        {"ok a\\nb\\tc\\\\d\\e", rcOutcome::Answered, "a\nb\tc\\de"},
        {"error No such node", rcOutcome::Refused, "No such node"},
        {"OK x", rcOutcome::Refused, "x"},
        {"", rcOutcome::Refused, ""}};
    connect();
    for (const std::size_t pieces : {1U, 2U, 3U, 0U}) {
        peer.replyInPieces(pieces);
        for (const auto& [line, outcome, text] : cases) {
            peer.answer("Get", line);
            EXPECT_EQ(call("Get"), outcome) << line << " in pieces of " << pieces;
            EXPECT_EQ(result, text);
        }
    }
    peer.answer("Get", "ok first\nok stray");  // what comes in the same read is dropped
    for (int i = 0; i < 2; ++i) EXPECT_EQ(call("Get"), rcOutcome::Answered);
    EXPECT_EQ(result, "first");
}

TEST_F(rcAPITest, AnnouncesItsVersionAndAddressAtLogin) {
    const std::pair<std::vector<unsigned short>, const char*> cases[] = {
        {{}, "ULongVersion 3 0x0"},
        {{2, 1}, "ULongVersion 15 0x2000100000000"},
        {{2024, 0, 0, 65535}, "ULongVersion 17 0x7e800000000ffff"},
        {{1, 2, 3, 4, 5}, "ULongVersion 15 0x1000200030004"}};
    for (const auto& [numbers, announced] : cases) {
        rcAPI versioned(numbers.data(), static_cast<unsigned>(numbers.size()));
        versioned.setReportedAddress("10.1.2.3");
        ASSERT_EQ(versioned.connect(HOST, peer.port(), TIMEOUT_MS, result), rcOutcome::Answered);
        EXPECT_THAT(peer.arguments("_login").back(), HasSubstr(announced));
        EXPECT_THAT(peer.arguments("_login").back(), HasSubstr("StrIpAddr 8 10.1.2.3"));
    }
}

TEST_F(rcAPITest, IsDisconnectedWhenLoginFails) {
    for (const char* text : {"Authentication failed", "Unknown method: _logins", ""}) {
        peer.answer("_login", ScriptedPeer::error(text));
        EXPECT_EQ(api.connect(HOST, peer.port(), TIMEOUT_MS, result), rcOutcome::Refused);
        EXPECT_EQ(result, text);
        EXPECT_FALSE(api.isConnected(false));
    }
    peer.neverAnswer("_login");
    const SilentListener silent;
    const CoDeadline early(60000);
    EXPECT_EQ(api.connect(HOST, peer.port(), 1000, result), rcOutcome::TimedOut);
    for (const auto& [port, outcome] :
         {std::pair(peer.port(), rcOutcome::TimedOut), {silent.port(), rcOutcome::Lost}}) {
        EXPECT_EQ(api.connect(HOST, port, 60000, result, 100), outcome);
        EXPECT_EQ(result, coErrorText(ETIMEDOUT));
        EXPECT_FALSE(api.isConnected(false));
    }
    EXPECT_FALSE(early.passed());
    EXPECT_TRUE(peer.waitForNoClients());
}

TEST_F(rcAPITest, ACallOutOfTimeLeavesTheConnectionOpen) {
    connect();
    peer.neverAnswer("Wait");
    for (const unsigned timeoutMs : {0U, 20U}) EXPECT_EQ(call("Wait", "", timeoutMs), rcOutcome::TimedOut);
    EXPECT_EQ(result, coErrorText(ETIMEDOUT));
    peer.answer("Ping", "ok ");
    EXPECT_EQ(call("Ping"), rcOutcome::Answered);
}

TEST_F(rcAPITest, APeerThatClosesEndsTheConnectionButNotTheEndpoint) {
    peer.answer("Get", "ok something");
    for (const std::size_t bytes : {0U, 3U}) {
        SCOPED_TRACE(bytes);
        connect();
        peer.closeAfter(bytes);
        EXPECT_EQ(call("Get"), rcOutcome::Lost);
        EXPECT_EQ(result, coErrorText(ECONNRESET));
        EXPECT_FALSE(api.isConnected(false));
        peer.closeAfter(std::nullopt);
    }
    connect();
    EXPECT_EQ(call("Get"), rcOutcome::Answered);
    peer.dropConnections();
    EXPECT_TRUE(api.isConnected(false));
    EXPECT_FALSE(api.isConnected(true));
    EXPECT_EQ(call("Get"), rcOutcome::Lost);
    EXPECT_EQ(result, "Connection not established.");
}

TEST_F(rcAPITest, ACommandThatThePeerDoesNotTakeInTimeClosesTheConnection) {
    connect();
    std::promise<void> released;
    // Serving this command keeps the peer from reading the next.
    peer.answerWith([&](const std::string&, const std::string&) {
        released.get_future().wait();
        return std::optional<std::string>();
    });
    EXPECT_EQ(api.call(0, "Block", "", false, result, TIMEOUT_MS), rcOutcome::Answered);
    const std::string much(64U << 20, 'x');
    EXPECT_EQ(call("Set", much.c_str(), 50), rcOutcome::Lost);
    EXPECT_EQ(result, coErrorText(ETIMEDOUT));
    EXPECT_FALSE(api.isConnected(false));
    peer.answerWith(nullptr);
    released.set_value();
}

TEST_F(rcAPITest, AMethodNameThatWouldBreakTheLineIsNotSent) {
    const CapturedLog log;
    connect();
    for (const char* name : {"two words", "two\nlines", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(call(name), rcOutcome::Refused);
        EXPECT_EQ(result, "Invalid method name.");
    }
    EXPECT_TRUE(log.contains("Assertion"));
    EXPECT_THAT(peer.commands(), ElementsAre());
    EXPECT_TRUE(api.isConnected(true));
}

TEST_F(rcAPITest, AChangeOfIdentityEndsTheConnection) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can change its identity";
    const std::string group = std::to_string(::getegid());
    for (const bool user : {true, false}) {
        connect();
        ASSERT_EQ(user ? ::seteuid(65534) : ::setegid(65534), 0);
        EXPECT_EQ(call("Ping"), rcOutcome::Lost);
        ASSERT_EQ(user ? ::seteuid(0) : ::setegid(static_cast<gid_t>(std::stoul(group))), 0);
        EXPECT_EQ(result, "Credentials " + (user ? "65534:" + group : "0:65534") +
                              " do not match connection's 0:" + group);
        EXPECT_FALSE(api.isConnected(false));
    }
    EXPECT_THAT(peer.commands(), ElementsAre());
}

}  // namespace
}  // namespace Vantrel
