#include "rcAPI.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "CapturedLog.h"
#include "ScriptedPeer.h"

namespace Vantrel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr unsigned TIMEOUT_MS = 20000;
constexpr const char* HOST = "127.0.0.1";

class rcAPITest : public testing::Test {
  protected:
    void connect() { ASSERT_TRUE(api.connect(HOST, peer.port(), TIMEOUT_MS)) << api.lastError(); }
    bool call(const char* method, const char* argument = "", unsigned timeoutMs = TIMEOUT_MS) {
        return api.call(0, method, argument, true, result, timeoutMs);
    }
    /// Calls in another thread and returns once the peer has got the command.
    std::future<bool> callInBackground(const char* method) {
        const std::size_t before = peer.commands().size();
        auto outcome = std::async(std::launch::async, [this, method] { return call(method); });
        EXPECT_TRUE(peer.waitForCommands(before + 1));
        return outcome;
    }

    ScriptedPeer peer;
    rcAPI api;
    std::string result;
};

TEST_F(rcAPITest, sendsOneLineForACall) {
    connect();
    peer.answer("Ping", "ok ");
    peer.answer("Set", "ok ");
    EXPECT_TRUE(call("Ping"));
    EXPECT_TRUE(api.call(12, "Set", "a\nb\tc\\d", true, result, TIMEOUT_MS));
    result = "earlier";
    EXPECT_TRUE(api.call(-1, "Tell", "x", false, result, TIMEOUT_MS));
    EXPECT_EQ(result, "");
    EXPECT_TRUE(call("Ping", nullptr));
    EXPECT_THAT(peer.commands(),
                ElementsAre("sync 0 Ping ", "sync 12 Set a\\nb\\tc\\\\d", "async -1 Tell x", "sync 0 Ping "));
}

TEST_F(rcAPITest, takesRepliesInPiecesOfAnySize) {
    struct Case {
        const char* line;
        bool success;
        const char* text;
    };
    const Case cases[] = {
        {"ok ", true, ""},
        {"ok", true, ""},
        {"ok a\\nb\\tc\\\\d\\e", true, "a\nb\tc\\de"},
        {"ok  x ", true, " x "},
        {"error No such node", false, "No such node"},
        {"OK x", false, "x"},
        {"", false, ""},
        {"rubbish", false, ""},
        {"ok first\nok stray", true, "first"},
    };
    connect();
    for (const std::size_t pieces : {0U, 1U, 2U, 3U}) {
        peer.replyInPieces(pieces);
        for (const Case& test : cases) {
            // A stray line that comes by itself would be the next call's; one in the same read is dropped.
            if (pieces != 0 && std::string(test.line).find('\n') != std::string::npos) continue;
            SCOPED_TRACE(std::string(test.line) + " in pieces of " + std::to_string(pieces));
            peer.answer("Get", test.line);
            EXPECT_EQ(call("Get"), test.success);
            EXPECT_EQ(result, test.text);
            EXPECT_TRUE(test.success || api.lastError() == test.text);
            EXPECT_TRUE(api.isConnected(true));
            EXPECT_FALSE(api.timedOut());
        }
    }
}

TEST_F(rcAPITest, aLongReplyAndALongArgumentArriveWhole) {
    connect();
    std::string text;
    for (int i = 0; text.size() < 500000; ++i) text += "line " + std::to_string(i) + "\n";
    peer.answer("Get", ScriptedPeer::ok(text));
    EXPECT_TRUE(call("Get", text.c_str()));
    EXPECT_TRUE(result == text);
    ASSERT_EQ(peer.arguments("Get").size(), 1U);
    EXPECT_TRUE(peer.arguments("Get").front() == text);
}

TEST_F(rcAPITest, oneByteSystemCallsChangeNothing) {
    CoIoDescriptor::faults().maxReadBytes = 1;
    CoIoDescriptor::faults().maxWriteBytes = 1;
    connect();
    peer.answer("Get", "ok left\\nright");
    EXPECT_TRUE(call("Get", "a\\b"));
    CoIoDescriptor::faults().maxReadBytes = 0;
    CoIoDescriptor::faults().maxWriteBytes = 0;
    EXPECT_EQ(result, "left\nright");
    EXPECT_THAT(peer.commands(), ElementsAre("sync 0 Get a\\\\b"));
}

TEST_F(rcAPITest, announcesItsVersionAndAddressAtLogin) {
    struct Case {
        std::vector<unsigned short> numbers;
        const char* announced;
    };
    const Case cases[] = {
        {{}, "ULongVersion 3 0x0"},
        {{2, 1}, "ULongVersion 15 0x2000100000000"},
        {{2024, 0, 0, 65535}, "ULongVersion 17 0x7e800000000ffff"},
        {{1, 2, 3, 4, 5}, "ULongVersion 15 0x1000200030004"},
    };
    for (const Case& test : cases) {
        rcAPI versioned(test.numbers.data(), static_cast<unsigned>(test.numbers.size()));
        versioned.setReportedAddress("10.1.2.3");
        ASSERT_TRUE(versioned.connect(HOST, peer.port(), TIMEOUT_MS));
        EXPECT_THAT(peer.arguments("_login").back(), HasSubstr(test.announced));
        EXPECT_THAT(peer.arguments("_login").back(), HasSubstr("StrIpAddr 8 10.1.2.3"));
    }
}

TEST_F(rcAPITest, acceptsAServerThatHasNoLogin) {
    for (const bool quoted : {false, true}) {
        peer.loginUnknown(quoted);
        EXPECT_TRUE(api.connect(HOST, peer.port(), TIMEOUT_MS)) << api.lastError();
        EXPECT_TRUE(api.isConnected(true));
    }
}

TEST_F(rcAPITest, isDisconnectedWhenLoginFails) {
    for (const char* text : {"Authentication failed", "Unknown method: _logins", ""}) {
        peer.answer("_login", ScriptedPeer::error(text));
        EXPECT_FALSE(api.connect(HOST, peer.port(), TIMEOUT_MS));
        EXPECT_EQ(api.lastError(), text);
        EXPECT_FALSE(api.isConnected(false));
    }
    peer.neverAnswer("_login");
    EXPECT_FALSE(api.connect(HOST, peer.port(), 1000));
    EXPECT_TRUE(api.timedOut());
    EXPECT_EQ(api.lastError(), coErrorText(ETIMEDOUT));
    EXPECT_FALSE(api.isConnected(false));
    EXPECT_TRUE(peer.waitForNoClients());
}

TEST_F(rcAPITest, reportsWhyItCannotConnect) {
    peer.refuse();
    EXPECT_FALSE(api.connect(HOST, peer.port(), TIMEOUT_MS));
    EXPECT_EQ(api.lastError(), coErrorText(ECONNREFUSED));
    EXPECT_FALSE(api.wasStopped());
    EXPECT_FALSE(call("Ping"));
    EXPECT_EQ(result, "Connection not established.");
    EXPECT_EQ(api.lastError(), result);
    api.disconnect();
    peer.listenAgain();
    connect();
}

TEST_F(rcAPITest, aCallOutOfTimeLeavesTheConnectionOpen) {
    connect();
    peer.neverAnswer("Wait");
    for (const unsigned timeoutMs : {0U, 20U}) {
        EXPECT_FALSE(call("Wait", "", timeoutMs));
        EXPECT_TRUE(api.timedOut());
        EXPECT_EQ(result, coErrorText(ETIMEDOUT));
        EXPECT_EQ(api.lastError(), result);
        EXPECT_TRUE(api.isConnected(true));
    }
    peer.answer("Ping", "ok ");
    EXPECT_TRUE(call("Ping"));
    EXPECT_FALSE(api.timedOut());
}

TEST_F(rcAPITest, aPeerThatClosesEndsTheConnectionButNotTheEndpoint) {
    peer.answer("Get", "ok something");
    for (const std::size_t bytes : {0U, 1U, 3U, 11U}) {
        SCOPED_TRACE(bytes);
        connect();
        peer.closeAfter(bytes);
        EXPECT_FALSE(call("Get"));
        EXPECT_EQ(result, coErrorText(ECONNRESET));
        EXPECT_EQ(api.lastError(), result);
        EXPECT_FALSE(api.timedOut());
        EXPECT_FALSE(api.isConnected(false));
        peer.closeAfter(std::nullopt);
    }
    connect();
    EXPECT_TRUE(call("Get"));
    peer.dropConnections();
    EXPECT_TRUE(api.isConnected(false));
    EXPECT_FALSE(api.isConnected(true));
    EXPECT_FALSE(call("Get"));
    EXPECT_EQ(result, "Connection not established.");
}

TEST_F(rcAPITest, stopEndsACallWithItsReason) {
    struct Case {
        const char* reason;
        std::string text;
    };
    const Case cases[] = {{"Shutting down", "Shutting down"}, {nullptr, coErrorText(EINTR)}};
    peer.neverAnswer("Wait");
    peer.answer("Ping", "ok ");
    for (const Case& test : cases) {
        connect();
        auto outcome = callInBackground("Wait");
        api.stop(test.reason);
        EXPECT_FALSE(outcome.get());
        EXPECT_EQ(result, test.text);
        EXPECT_EQ(api.lastError(), test.text);
        EXPECT_TRUE(api.wasStopped());
        EXPECT_FALSE(api.timedOut());
        EXPECT_FALSE(api.isConnected(false));
    }
    connect();
    EXPECT_FALSE(api.wasStopped());
    api.stop("nobody waits");
    EXPECT_TRUE(call("Ping"));
    EXPECT_FALSE(api.wasStopped());
}

TEST_F(rcAPITest, stopEndsALogin) {
    peer.neverAnswer("_login");
    auto outcome =
        std::async(std::launch::async, [this] { return api.connect(HOST, peer.port(), TIMEOUT_MS); });
    ASSERT_TRUE(peer.waitForConnections(1));
    api.stop("Never mind");
    EXPECT_FALSE(outcome.get());
    EXPECT_EQ(api.lastError(), "Never mind");
    EXPECT_TRUE(api.wasStopped());
    EXPECT_FALSE(api.isConnected(false));
}

TEST_F(rcAPITest, aReplyBeyondTheLimitClosesTheConnection) {
    ::setenv("VANTREL_MAX_REPLY_BYTES", "40000", 1);
    connect();
    const std::string atLimit(40000 - 3, 'x');  // with "ok "
    peer.answer("Get", "ok " + atLimit);
    EXPECT_TRUE(call("Get"));
    EXPECT_TRUE(result == atLimit);
    peer.answer("Get", "ok " + atLimit + "x");
    EXPECT_FALSE(call("Get"));
    EXPECT_EQ(result, "Reply exceeds 40000 bytes (VANTREL_MAX_REPLY_BYTES).");
    EXPECT_FALSE(api.isConnected(false));
}

TEST_F(rcAPITest, aCommandThatThePeerDoesNotTakeInTimeClosesTheConnection) {
    connect();
    std::promise<void> released;
    // Serving this command keeps the peer from reading the next.
    peer.answerWith([&](const std::string&, const std::string&) {
        released.get_future().wait();
        return std::optional<std::string>();
    });
    EXPECT_TRUE(api.call(0, "Block", "", false, result, TIMEOUT_MS));
    const std::string much(64U << 20, 'x');
    EXPECT_FALSE(call("Set", much.c_str(), 50));
    EXPECT_EQ(result, coErrorText(ETIMEDOUT));
    EXPECT_EQ(api.lastError(), result);
    EXPECT_FALSE(api.isConnected(false));
    peer.answerWith(nullptr);
    released.set_value();
}

TEST_F(rcAPITest, aMethodNameThatWouldBreakTheLineIsNotSent) {
    const CapturedLog log;
    connect();
    for (const char* name : {"two words", "two\nlines", "", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(call(name));
        EXPECT_EQ(result, "Invalid method name.");
    }
    EXPECT_TRUE(log.contains("Assertion"));
    EXPECT_THAT(peer.commands(), ElementsAre());
    EXPECT_TRUE(api.isConnected(true));
}

TEST_F(rcAPITest, aChildProcessLeavesTheConnectionToItsParent) {
    connect();
    peer.answer("Ping", "ok ");
    const pid_t child = ::fork();
    if (child == 0) {
        const bool refused =
            !api.isConnected(false) && !call("Ping") && result == "Connection belongs to the parent process.";
        ::_exit(refused ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(call("Ping"));
    EXPECT_THAT(peer.commands(), ElementsAre("sync 0 Ping "));
}

TEST_F(rcAPITest, aChangeOfIdentityEndsTheConnection) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can change its identity";
    constexpr uid_t OTHER = 65534;
    connect();
    ASSERT_EQ(::seteuid(OTHER), 0);
    const bool called = call("Ping");
    ASSERT_EQ(::seteuid(0), 0);
    EXPECT_FALSE(called);
    EXPECT_EQ(result, "Credentials 65534:" + std::to_string(::getegid()) +
                          " do not match connection's 0:" + std::to_string(::getegid()));
    EXPECT_EQ(api.lastError(), result);
    EXPECT_FALSE(api.isConnected(false));
    EXPECT_THAT(peer.commands(), ElementsAre());
}

TEST_F(rcAPITest, tellsWhereItConnected) {
    const CapturedLog log;
    connect();
    bool found = false;
    for (const std::string& text : log.texts(CoMsg::NOTICE)) {
        unsigned descriptor = 0;
        unsigned port = 0;
        unsigned user = ~0U;
        unsigned group = ~0U;
        if (std::sscanf(text.c_str(), "Connected fd:%u to 127.0.0.1:%u as %u:%u", &descriptor, &port, &user,
                        &group) != 4) {
            continue;
        }
        found = true;
        EXPECT_EQ(port, static_cast<unsigned>(peer.port()));
        EXPECT_EQ(user, ::geteuid());
        EXPECT_EQ(group, ::getegid());
    }
    EXPECT_TRUE(found);
}

}  // namespace
}  // namespace Vantrel
