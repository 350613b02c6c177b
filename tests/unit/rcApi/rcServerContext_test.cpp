#include "rcServerContext.h"

#include <climits>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "FailingAllocations.h"
#include "RcSettings.h"
#include "ServerFixture.h"
#include "rcServerClient.h"

namespace Vantrel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class rcServerContextTest : public ServerFixture {};

using Exchange = std::pair<const char*, const char*>;  // without an answer: null

TEST_F(rcServerContextTest, AnswersEachCommandInOrder) {
    const Exchange exchanges[] = {
        {"sync 0 _ping ", "ok "},
        {"sync 0 Echo a\\nb  c\\\\", "ok a\\nb  c\\\\"},
        {"sync 0 Echo", "ok "},
        {"async 0 Echo unheard", nullptr},
        {"async 0 Nope x", nullptr},
        {"async 5 Echo x", nullptr},
        {"SYNC 0 Echo x", nullptr},
        {"", nullptr},
        {"sync 0 Nope x", "error Unknown method: Nope"},
        {"sync 0 echo x", "error Unknown method: echo"},
        {"sync 5 Nope x", "error Unknown method: Nope"},
        {"sync 5 Echo x", "error Invalid Object: 5"},
        {"sync 4294967296 Echo x", "error Invalid Object: 2147483647"},
        {"sync 7 Id x", "ok 7x"},
        {"sync 0 Id ", "ok 0"},
        {"sync words Id ", "ok 0"},
        {"sync 0 Swap 2 -5", "ok -52"},
        {"sync 8 Id \\t", "error 8\\t"},
        {"sync 0 Throw went wrong", "error went wrong"},
        {"sync 0 Throw ", "error Unknown error"},
        {"sync 0 ThrowNumber ", "error Unknown error"},
        {"async 0 Throw unheard", nullptr},
        {"sync 0 Void x", "ok "},
    };
    addEcho();
    add("Id", [](int objectId, rcParam::Array& parameters, rcParam& result) {
        result.setStringValue(std::to_string(objectId) + parameters[0].stringValue());
        return objectId < 8;
    });
    add("Throw", [](int, rcParam::Array& parameters, rcParam&) -> bool {
        throw std::runtime_error(parameters[0].stringValue());
    });
    add("ThrowNumber", [](int, rcParam::Array&, rcParam&) -> bool { throw 7; });
    rcMethod swap = describe("Swap", [](int, rcParam::Array& parameters, rcParam& result) {
        result.setStringValue(parameters[1].stringValue() + parameters[0].stringValue());
        return true;
    });
    swap.parameters = {{&rcParamString::TYPE}, {&rcParamString::TYPE}};
    ASSERT_TRUE(context.registerMethod(swap));
    rcMethod nothing = describe("Void", [](int, rcParam::Array&, rcParam&) { return true; });
    nothing.resultType = nullptr;
    ASSERT_TRUE(context.registerMethod(nothing));
    for (const int object : {7, 8}) ASSERT_TRUE(context.registerObject(object));
    start();

    std::string lines;
    for (const auto& [line, reply] : exchanges) lines += std::string(line) + '\n';
    for (const std::size_t pieces : {0U, 1U, 2U, 3U, 17U}) {
        RawClient client(port());
        client.send(lines, pieces);
        for (const auto& [line, reply] : exchanges) {
            if (reply) {
                EXPECT_EQ(client.readLine(), reply) << line;
            }
        }
        client.finishSending();
        EXPECT_TRUE(client.isClosedByPeer());
    }
}

TEST_F(rcServerContextTest, RefusesAmbiguousRegistrations) {
    addEcho();
    EXPECT_FALSE(context.registerMethod(describe("Echo", nullptr)));
    EXPECT_FALSE(context.registerObject(0));
    EXPECT_TRUE(context.registerObject(3));
    EXPECT_FALSE(context.registerObject(3));
    EXPECT_TRUE(context.unregisterObject(3));
    EXPECT_FALSE(context.unregisterObject(3));
    EXPECT_THAT(log.texts(CoMsg::ERROR), ElementsAre("Method 'Echo' already registered", "Reserved object Id",
                                                     "Object '3' already registered"));
}

TEST_F(rcServerContextTest, SaysOnWhichPortItCannotListen) {
    const std::string taken = std::to_string(port());
    EXPECT_TRUE(context.isValid());
    EXPECT_EQ(rcServerContext(port(), "127.0.0.1").getPort(), 0);
    EXPECT_FALSE(rcServerContext(port(), port(), "127.0.0.1").isValid());
    EXPECT_FALSE(rcServerContext(2, 1, "127.0.0.1").isValid());
    EXPECT_FALSE(rcServerContext(65536, INT_MAX, "127.0.0.1").isValid());
    const std::string range = "Unable to find port in range ";
    const std::string inUse = coErrorText(EADDRINUSE);
    const std::string invalid = " accept connections: " + coErrorText(EINVAL);
    EXPECT_THAT(log.texts(CoMsg::ERROR),
                ElementsAre("Unable to set-up port " + taken + " to accept connections: " + inUse,
                            range + taken + " to " + taken + " accept connections: " + inUse,
                            range + "2 to 1" + invalid, range + "65536 to 2147483647" + invalid));
    EXPECT_TRUE(rcServerContext(-1, -1, "127.0.0.1").isValid());
    for (const int low : {-1, 0})
        EXPECT_LE(rcServerContext(low, 1, "127.0.0.1").getPort(), 1)
            << "0 where this user may not listen there";
    EXPECT_GT(rcServerContext(port(), port() + 100, "127.0.0.1").getPort(), port());
}

class rcServerDelayTest : public ServerFixture {
  protected:
    void SetUp() override {
        addEcho();
        rcMethod later = describe("Later", [this](int, rcParam::Array& parameters, rcParam& result) {
            clients.push_back(context.getCurrentClientId());
            EXPECT_EQ(context.findClient(clients.back()), context.getCurrentClient());
            result.setStringValue("not sent");
            if (parameters[0].stringValue() == "throw") throw std::runtime_error("gave up");
            if (parameters[0].stringValue() == "now") {
                EXPECT_TRUE(context.returnFromDelayedCommand(clients.back(), true, "at once"));
            }
            ++calls;
            return true;
        });
        later.delayed = true;
        ASSERT_TRUE(context.registerMethod(later));
        start();
    }
    /// Sends lines with one "Later" among them, and waits until that was called.
    void sendAndWait(RawClient& client, const std::string& lines) {
        const unsigned before = calls;
        client.send(lines);
        for (const CoDeadline limit(30000); calls == before; std::this_thread::yield())
            ASSERT_FALSE(limit.passed());
    }

    std::atomic<unsigned> calls{0};
    std::vector<unsigned> clients;  ///< read only after `calls` has counted a new one
};

TEST_F(rcServerDelayTest, ReturnsFromAnotherThreadBeforeTheNextCommandIsProcessed) {
    RawClient client(port());
    sendAndWait(client, "sync 0 Echo before\nsync 0 Later x\nsync 0 Echo after\n");
    EXPECT_EQ(client.readLine(), "ok before");
    EXPECT_TRUE(context.returnFromDelayedCommand(clients.back(), false, "late\nnews"));
    EXPECT_EQ(client.readLine(), "error late\\nnews");
    EXPECT_EQ(client.readLine(), "ok after");
    EXPECT_EQ(client.ask("sync 0 Later now\nsync 0 Later throw\nsync 0 Echo end\n"), "ok at once");
    EXPECT_EQ(client.readLine(), "error gave up");
    EXPECT_EQ(client.readLine(), "ok end");
}

TEST_F(rcServerDelayTest, IsOnlyForAClientThatWaits) {
    RawClient client(port());
    sendAndWait(client, "async 0 Later x\n");
    const unsigned id = clients.back();
    EXPECT_FALSE(context.returnFromDelayedCommand(id, true, "nobody asked"));
    EXPECT_FALSE(context.returnFromDelayedCommand(id + 1, true, "nobody there"));
    sendAndWait(client, "sync 0 Later x\n");
    EXPECT_TRUE(context.returnFromDelayedCommand(id, true, nullptr));
    EXPECT_FALSE(context.returnFromDelayedCommand(id, true, "twice"));
    EXPECT_EQ(client.readLine(), "ok ");
    EXPECT_EQ(
        log.texts(CoMsg::ERROR),
        std::vector<std::string>(3, "Trying to do a delayed return for a client that isn't waiting for it."));
}

TEST_F(rcServerDelayTest, MayFindItsClientGone) {
    RawClient client(port());
    sendAndWait(client, "sync 0 Later x\n");
    const unsigned id = clients.back();
    EXPECT_TRUE(id != 0 && context.isIdValid(id));
    EXPECT_EQ(context.gone, 0U);
    client.close();
    RawClient other(port());  // answered after the loop has seen the first one leave
    EXPECT_EQ(other.ask("sync 0 Echo x\n"), "ok x");
    EXPECT_EQ(context.gone, 1U);
    EXPECT_FALSE(context.isIdValid(id));
    EXPECT_FALSE(context.returnFromDelayedCommand(id, true, "late"));
}

TEST_F(rcServerContextTest, AClientThatDoesNotReadHoldsUpNobodyAndLosesNothing) {
    constexpr int COMMANDS = 200;
    constexpr std::size_t SIZE = 1 << 18;
    std::atomic<int> processed{0};
    addEcho();
    add("Much", [&](int, rcParam::Array& parameters, rcParam& result) {
        ++processed;
        result.setStringValue(parameters[0].stringValue() + std::string(SIZE, 'x'));
        return true;
    });
    start();
    RawClient slow(port(), 32768);
    std::string commands;
    for (int i = 0; i < COMMANDS; ++i) commands += "sync 0 Much " + std::to_string(i) + ".\n";
    slow.send(commands);
    slow.finishSending();

    RawClient other(port());
    for (int i = 0; i < COMMANDS; ++i) ASSERT_EQ(other.ask("sync 0 Echo still here\n"), "ok still here");
    // Sockets hold some results, the context one more: it has not read on.
    EXPECT_LT(processed, COMMANDS / 2);
    for (int i = 0; i < COMMANDS; ++i) {
        ASSERT_TRUE(slow.readLine() == "ok " + std::to_string(i) + "." + std::string(SIZE, 'x')) << i;
    }
    EXPECT_TRUE(slow.isClosedByPeer());
}

TEST_F(rcServerContextTest, ServesTheOthersWhenThereIsNoMemoryForAClient) {
    addEcho();
    start();
    RawClient bystander(port());
    RawClient greedy(port());
    const std::string much = "sync 0 Echo " + std::string(4U << 20, 'x');
    tooMuch = 1U << 20;
    greedy.send(much);
    EXPECT_TRUE(greedy.isClosedByPeer());
    EXPECT_EQ(bystander.ask("sync 0 Echo fine\n"), "ok fine");
    tooMuch = sizeof(rcServerContext::Client);
    EXPECT_TRUE(RawClient(port()).isClosedByPeer());
    EXPECT_EQ(bystander.ask("sync 0 Echo fine\n"), "ok fine");
    tooMuch = SIZE_MAX;
    EXPECT_EQ(context.gone, 1U);
    EXPECT_EQ(RawClient(port()).ask("sync 0 Echo again\n"), "ok again");
}

TEST_F(rcServerContextTest, DropsAClientWhoseCommandIsTooLong) {
    ::setenv("VANTREL_MAX_COMMAND_BYTES", "20000", 1);
    addEcho();
    start();
    const std::string argument(20000 - 12, 'x');  // with "sync 0 Echo "
    RawClient bystander(port());
    RawClient client(port());
    EXPECT_EQ(client.ask("sync 0 Echo " + argument + "\n"), "ok " + argument);
    client.send("sync 0 Echo " + argument + "x");  // no newline yet
    EXPECT_TRUE(client.isClosedByPeer());
    EXPECT_TRUE(log.contains("exceeds 20000 bytes (VANTREL_MAX_COMMAND_BYTES), breaking connection"));
    EXPECT_EQ(bystander.ask("sync 0 Echo fine\n"), "ok fine");
}

}  // namespace
}  // namespace Vantrel
