#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "CapturedLog.h"
#include "CoThread.h"
#include "CoThreadMgr.h"
#include "ForkedChild.h"

namespace Vantrel {
namespace {

bool blocksInterrupts() {
    sigset_t blocked;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    return ::sigismember(&blocked, SIGINT) == 1 && ::sigismember(&blocked, SIGTERM) == 1;
}

// A body that runs until it is asked to stop.
struct Worker {
    explicit Worker(const char* theName)
        : thread(
              theName,
              [this] {
                  ::pthread_getname_np(::pthread_self(), name, sizeof name);
                  quiet = blocksInterrupts();
                  stop.get_future().wait();
              },
              [this] {
                  if (!asked.exchange(true)) stop.set_value();
              }) {}

    char name[16] = {};
    bool quiet = false;
    std::promise<void> stop;
    std::atomic<bool> asked{false};
    CoThread thread;
};

TEST(Threads, TheManagerAsksEveryNamedThreadThatExistsAndThatTakesNoSignals) {
    std::make_unique<Worker>("gone").reset();
    Worker first("VT Multicast");
    Worker second("sixteen letters!");
    EXPECT_FALSE(blocksInterrupts()) << "the creator's mask is back";
    CoThreadMgr::getInstance().stopAll();
    for (Worker* worker : {&first, &second}) {
        worker->thread.join();
        EXPECT_TRUE(worker->thread.finished() && worker->quiet);
        worker->thread.join();  // a second time returns at once
    }
    EXPECT_STREQ(first.name, "VT Multicast");
    EXPECT_STREQ(second.name, "sixteen letters");
    CoThreadMgr::getInstance().stopAll();
}

// An application may shut down from a callback.
TEST(Threads, OneThatDestroysItselfRunsToItsEnd) {
    std::promise<void> created;
    const auto ended = std::make_shared<std::promise<void>>();  // the thread's too, which nobody joins
    std::unique_ptr<CoThread> thread;
    thread = std::make_unique<CoThread>(
        "worker",
        [&created, &thread, ended] {
            created.get_future().wait();
            thread.reset();
            ended->set_value();
        },
        [] {});
    created.set_value();
    ended->get_future().wait();
    EXPECT_EQ(thread, nullptr);
}

TEST(Threads, AnExceptionEndsTheThreadAndNotTheProcess) {
    const CapturedLog log;
    CoThread thread(
        "worker", [] { throw std::runtime_error("no memory"); }, [] {});
    thread.join();
    EXPECT_TRUE(thread.finished());
    EXPECT_THAT(log.texts(CoMsg::ERROR), testing::ElementsAre("Thread 'worker' ended early: no memory"));
}

TEST(Threads, AForkWhileTheManagerAsksDoesNotHoldTheChildUp) {
    std::promise<void> asking;
    std::promise<void> forked;
    std::atomic<bool> first{true};
    CoThread thread(
        "worker", [] {},
        [&] {
            if (!first.exchange(false)) return;
            asking.set_value();
            forked.get_future().wait();
        });
    std::thread stopper([] { CoThreadMgr::getInstance().stopAll(); });
    asking.get_future().wait();
    EXPECT_EQ(inForkedChild([] { return CoThreadMgr::getInstance().stopAll(), 0; }), 0);
    forked.set_value();
    stopper.join();
}

}  // namespace
}  // namespace Vantrel
