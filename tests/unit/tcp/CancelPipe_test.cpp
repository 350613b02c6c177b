#include <algorithm>
#include <cerrno>
#include <tuple>

#include "CapturedLog.h"
#include "CoStopRequest.h"
#include "CoTime.h"
#include "ForkedChild.h"
#include "TcpFixtures.h"

namespace Vantrel {
namespace {

using IoError = CoIoDescriptor::IoError;

TEST(Stop, EndsABlockedCallAndTheNextOneWaitsNormally) {
    char bytes[100];
    const std::tuple<bool, std::function<ssize_t(CoIoDescriptor&)>, ssize_t> calls[] = {
        {false,
         [&](CoIoDescriptor& from) {
             int count = 0;
             // Another thread's stop may end a wait early: go on as every caller does.
             while ((count = from.nonBlockingReadWithTimeout(bytes, 1, LONG_MS)) == 0) {
             }
             return count;
         },
         -1},
        {false, [](CoIoDescriptor& to) { return to.nonBlockingWriteWithTimeout("x", 1, LONG_MS); }, -1},
        {true, [&](CoIoDescriptor& from) { return from.blockingRead(bytes, sizeof bytes); }, 3},
        {false, [](CoIoDescriptor& to) { return to.blockingWrite("x", 1); }, 0},
    };
    for (const auto& [sends, call, result] : calls) {
        Pair pair;
        CoIoDescriptor& descriptor = pair.descriptor;
        pair.fillSendBuffer();
        if (sends) pair.send("abc");
        expectStopEnds(descriptor,
                       [&, &call = call, result = result] { EXPECT_EQ(call(descriptor), result); });
        EXPECT_GE(secondsOf([&] { EXPECT_EQ(pair.read(50), 0); }), 0.049);
        EXPECT_FALSE(descriptor.wasStopped());
    }
}

// Without the wake-up each would last as long as a wait in the read may, 90 ms. How long it takes with it is
// up to the machine: a wait in poll says.
TEST(WaitInRead, EndsAtOnceWithAStop) {
    constexpr std::size_t ROUNDS = 31;
    const auto medianOfStopping = [](bool waitInRead) {
        std::vector<double> rounds;
        while (rounds.size() < ROUNDS) {
            Pair pair;
            EXPECT_TRUE(!waitInRead || pair.descriptor.enableWaitInRead());
            rounds.push_back(
                secondsOf([&] { stopWhile(pair.descriptor, [&] { EXPECT_EQ(pair.read(LONG_MS), -1); }); }));
            EXPECT_TRUE(pair.descriptor.wasStopped());
        }
        std::nth_element(rounds.begin(), rounds.begin() + ROUNDS / 2, rounds.end());
        return rounds[ROUNDS / 2];
    };
    EXPECT_LT(medianOfStopping(true), medianOfStopping(false) + 0.06);
    EXPECT_FALSE(cancelPipeHasStops());
}

TEST(Stop, LogsTheThreadAndHasNoEffectOnALaterWait) {
    Pair idle;
    const CapturedLog log;
    idle.descriptor.stop();
    EXPECT_THAT(log.texts(CoMsg::NOTICE), testing::ElementsAre(coFormat("TID %d stopping I/O", ::gettid())));
    EXPECT_FALSE(cancelPipeHasStops());
    EXPECT_GE(secondsOf([&] { EXPECT_EQ(idle.read(200), 0); }), 0.19);
}

TEST(Stop, BetweenTwoWaitsOfAScopeIsNotLostAndHoldsUntilItsEnd) {
    Pair pair;
    pair.send("ab");
    char byte;
    {
        const CoIoDescriptor::StopScope scope(pair.descriptor);
        EXPECT_EQ(pair.descriptor.blockingRead(&byte, 1), 1);
        pair.descriptor.stop();
        EXPECT_EQ(pair.read(LONG_MS), -1);
        EXPECT_TRUE(pair.descriptor.wasStopped());
        EXPECT_FALSE(cancelPipeHasStops()) << "other waiters would be kept awake";
        pair.descriptor.stop();
        EXPECT_EQ(pair.descriptor.blockingRead(&byte, 1), 0);
        EXPECT_TRUE(pair.descriptor.wasStopped());
    }
    EXPECT_EQ(pair.descriptor.blockingRead(&byte, 1), 1);
    EXPECT_EQ(byte, 'b');
    {
        const CoIoDescriptor::StopScope scope(pair.descriptor);
        pair.descriptor.stop();  // nobody looks
    }
    EXPECT_FALSE(cancelPipeHasStops());
}

// A stop that belongs to somebody else ends a wait early, but never a whole transfer.
TEST(Stop, SomebodyElsesLeavesAWaiterUnaffected) {
    Pair pair;
    ASSERT_TRUE(CoSharedCancelPipe::get().put());
    EXPECT_LT(secondsOf([&] { EXPECT_EQ(pair.read(LONG_MS), 0); }), LONG_SEC / 2);
    EXPECT_EQ(pair.descriptor.lastError(), IoError::None);
    EXPECT_TRUE(cancelPipeHasStops()) << "took a stop of somebody else";
    const long sleepsBefore = threadSleeps();
    EXPECT_EQ(pair.descriptor.blockingRead(pair.buffer, 1, 500), -1);
    EXPECT_EQ(pair.descriptor.lastError(), IoError::TimedOut);
    EXPECT_GT(threadSleeps() - sleepsBefore, 10) << "its owner may be busy for long";
    pair.send("x");
    EXPECT_EQ(pair.read(LONG_MS), 1) << "data counts all the same";
    CoSharedCancelPipe::get().take();
    EXPECT_FALSE(cancelPipeHasStops());
}

// Each of several waiters is stopped many times by several threads at once: every wait ends, and only by a
// stop of its own.
TEST(Stop, AStormFromSeveralThreadsLeavesNothingBehind) {
    constexpr int WAITERS = 3;
    constexpr int ROUNDS = 200;
    const CapturedLog log;
    CoMsg::setFilterLevel(CoMsg::ERROR);
    Pair pairs[WAITERS];
    Pair bystander;
    std::atomic<int> waiting{WAITERS};
    std::vector<std::thread> threads;
    for (Pair& pair : pairs) {
        threads.emplace_back([&pair, &waiting] {
            for (int i = 0; i < ROUNDS; ++i) {
                EXPECT_EQ(pair.descriptor.blockingRead(pair.buffer, 1, LONG_MS), 0);
                EXPECT_TRUE(pair.descriptor.wasStopped());
            }
            --waiting;
        });
    }
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (waiting > 0) {
                for (Pair& pair : pairs) pair.descriptor.stop();
            }
        });
    }
    threads.emplace_back(
        [&] { EXPECT_EQ(bystander.descriptor.blockingRead(bystander.buffer, 1, LONG_MS), 1); });
    while (waiting > 0) std::this_thread::yield();
    bystander.send("x");
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(cancelPipeHasStops());
    EXPECT_TRUE(log.texts().empty());
}

// Until then the reader may be done with the socket, and another have its number.
TEST(StopRequest, AsksForTheSocketWhileItsReaderCannotLeave) {
    Pair pair;
    CoStopRequest request;
    request.begin();
    ASSERT_TRUE(request.beginRead());
    std::atomic<bool> left{false};
    std::thread reader;
    request.request([&] {
        reader = std::thread([&] {
            EXPECT_FALSE(request.endRead());
            left = true;
        });
        for (const CoDeadline over(20); !over.passed();) std::this_thread::yield();
        EXPECT_FALSE(left);
        return pair.descriptor.getId();
    });
    reader.join();
    request.end();
    request.request([] {
        ADD_FAILURE() << "nobody reads";
        return CoFd::NONE;
    });
    EXPECT_EQ(pair.read(LONG_MS), -1) << "it was shut down for reading";
}

TEST(CancelPipe, DoesNotBlockAndAForkedChildHasOneOfItsOwn) {
    const CoSharedCancelPipe& ours = CoSharedCancelPipe::get();
    EXPECT_NE(::fcntl(ours.getOut(), F_GETFD) & FD_CLOEXEC, 0);
    ours.take();  // nothing: returns at once
    EXPECT_EQ(inForkedChild([&ours] {
                  return CoSharedCancelPipe::get().put() && &CoSharedCancelPipe::get() != &ours ? 0 : 1;
              }),
              0);
    EXPECT_FALSE(cancelPipeHasStops());
    EXPECT_EQ(&CoSharedCancelPipe::get(), &ours);
}

}  // namespace
}  // namespace Vantrel
