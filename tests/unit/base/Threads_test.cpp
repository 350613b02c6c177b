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

// A body that runs until it is asked to stop.
struct Worker {
    explicit Worker(const char* name)
        : thread(
              name,
              [this] {
                  started.set_value(describe());
                  stop.get_future().wait();
              },
              [this] {
                  if (!asked.exchange(true)) stop.set_value();
              }) {}

    static std::string describe() {
        char name[16] = {};
        ::pthread_getname_np(::pthread_self(), name, sizeof name);
        sigset_t blocked;
        ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        const bool quiet = ::sigismember(&blocked, SIGINT) == 1 && ::sigismember(&blocked, SIGTERM) == 1;
        return std::string(name) + (quiet ? "" : " takes signals");
    }

    std::promise<std::string> started;
    std::promise<void> stop;
    std::atomic<bool> asked{false};
    CoThread thread;
};

TEST(Threads, HaveTheirNameAndTakeNoSignals) {
    const std::pair<const char*, const char*> cases[] = {{"VT Multicast", "VT Multicast"},
                                                         {"sixteen letters!", "sixteen letters"}};
    sigset_t before;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &before);
    for (const auto& [name, seen] : cases) {
        Worker worker(name);
        EXPECT_EQ(worker.started.get_future().get(), seen);
    }
    sigset_t after;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &after);
    EXPECT_EQ(::sigismember(&after, SIGINT), ::sigismember(&before, SIGINT)) << "the creator's mask is back";
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

TEST(Threads, TheManagerAsksEveryThreadThatExists) {
    auto gone = std::make_unique<Worker>("gone");
    gone.reset();
    Worker first("first");
    Worker second("second");
    CoThreadMgr::getInstance().stopAll();
    for (Worker* worker : {&first, &second}) {
        worker->thread.join();
        EXPECT_TRUE(worker->thread.finished());
        worker->thread.join();  // a second time returns at once
    }
    CoThreadMgr::getInstance().stopAll();
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
    EXPECT_EQ(inForkedChild([] {
                  CoThreadMgr::getInstance().stopAll();
                  return 0;
              }),
              0);
    forked.set_value();
    stopper.join();
}

}  // namespace
}  // namespace Vantrel
