#include "common/Comm/ZThread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "support/InChild.h"
#include "support/LogCapture.h"
#include "support/Sanitizers.h"

namespace {
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using testing::MatchesRegex;

milliseconds elapsedSince(Clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

// Runs until it is told to stop and, if `obedient`, says that it has ended.
class Worker : public ZThread {
public:
    explicit Worker(const char* name, bool obedient = true) : ZThread(name), m_obedient(obedient) {}
    ~Worker() override {
        if (m_destroyed != nullptr) m_destroyed->set_value();
    }

    std::promise<void> m_entered;
    std::shared_future<void> m_leave;  // run() goes on until it is ready
    std::promise<void>* m_destroyed = nullptr;

protected:
    void run() override {
        m_entered.set_value();
        if (m_leave.valid()) m_leave.wait();
        while (m_obedient && m_running != 0) msleep(1);
        if (m_obedient) m_exit_flag = 1;
    }

private:
    bool m_obedient;
};

// Waits for itself, which cannot be.
class SelfWaiter : public ZThread {
public:
    SelfWaiter() : ZThread("self") {}

    std::promise<void> m_started;  // start() has returned
    std::promise<bool> m_waited;   // what wait() said
    std::promise<void> m_leave;
    std::atomic<bool> m_left{false};

protected:
    void run() override {
        m_started.get_future().wait();
        m_waited.set_value(wait());
        m_leave.get_future().wait();
        m_left = true;
        m_exit_flag = 1;
    }
};

TEST(ZThreadTest, StopOfAThreadThatNeverStartedReturnsTrueWithoutADelay) {
    Worker worker("idle");
    const LogCapture log;

    EXPECT_TRUE(worker.stopAndWait(100));
    EXPECT_TRUE(log.lines().empty());
}

TEST(ZThreadTest, StopEndsARunningThreadAndASecondStopCostsNothing) {
    Worker worker("worker");
    const LogCapture log;
    worker.start();

    EXPECT_TRUE(worker.stopAndWait(100));
    EXPECT_TRUE(worker.wait());
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, " wait Stop. m_exit_flag: 1"));
    const auto lines = log.lines().size();
    EXPECT_TRUE(worker.stopAndWait(100));
    EXPECT_EQ(log.lines().size(), lines);
}

TEST(ZThreadTest, LogsItsNameAsItStarts) {
    const LogCapture log;
    Worker named("worker");
    named.start();
    named.stopAndWait(100);
    named.wait();
    Worker unnamed(nullptr);
    unnamed.start();
    unnamed.stopAndWait(100);
    unnamed.wait();

    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, "thread func name: worker"));
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, "thread func name: unknown"));
}

TEST(ZThreadTest, StopWithZeroStepsDoesNotSleepAndFailsWhileTheThreadRuns) {
    std::promise<void> leave;
    Worker worker("busy");
    worker.m_leave = leave.get_future().share();
    const LogCapture log;
    worker.start();

    EXPECT_FALSE(worker.stopAndWait(0));
    EXPECT_EQ(log.count(ZLOG_LEVEL_INFO, " wait Stop. waitStepTime: 1"), 1);
    EXPECT_FALSE(log.has(ZLOG_LEVEL_INFO, " wait Stop. waitStepTime: 2"));
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, " wait Stop. m_exit_flag: 0"));
    leave.set_value();
    EXPECT_TRUE(worker.wait());
}

TEST(ZThreadTest, StopOfAThreadThatDoesNotReactGivesUpAfterItsSteps) {
    std::promise<void> leave;
    Worker worker("deaf");
    worker.m_leave = leave.get_future().share();
    const LogCapture log;
    worker.start();
    const auto start = Clock::now();

    EXPECT_FALSE(worker.stopAndWait(3));
    EXPECT_GE(elapsedSince(start), milliseconds(290));
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, " wait Stop. waitStepTime: 4"));
    EXPECT_FALSE(log.has(ZLOG_LEVEL_INFO, " wait Stop. waitStepTime: 5"));
    leave.set_value();
    EXPECT_TRUE(worker.wait());
}

TEST(ZThreadTest, ARunThatLeavesTheExitFlagMakesTheStopFail) {
    Worker worker("silent", /*obedient=*/false);
    worker.start();
    ASSERT_TRUE(worker.wait());

    EXPECT_FALSE(worker.stopAndWait(1));
}

TEST(ZThreadTest, WaitAndDetachWithoutAThreadReturnTrue) {
    Worker worker("idle");

    EXPECT_TRUE(worker.wait());
    EXPECT_TRUE(worker.detach());
}

TEST(ZThreadTest, AThreadThatWaitsForItselfIsToldSoAndCanStillBeWaitedFor) {
    inChild([] {
        auto* waiter = new SelfWaiter;  // stays until the child ends
        const LogCapture log;
        waiter->start();
        waiter->m_started.set_value();

        EXPECT_FALSE(waiter->m_waited.get_future().get());
        EXPECT_EQ(log.count(ZLOG_LEVEL_ERROR,
                            "pthread_join failed(status=" + std::to_string(EDEADLK) + ")"),
                  1);
        waiter->m_leave.set_value();
        if (kThreadSanitizer) return;  // it forgets a thread also when it could not be joined
        EXPECT_TRUE(waiter->wait());
        EXPECT_TRUE(waiter->m_left);  // the wait was a real one
    });
}

TEST(ZThreadTest, CanBeStartedAgainAfterAStop) {
    Worker worker("twice");
    worker.start();
    ASSERT_TRUE(worker.stopAndWait(100));
    ASSERT_TRUE(worker.wait());
    worker.m_entered = {};

    worker.start();
    worker.m_entered.get_future().wait();
    EXPECT_TRUE(worker.stopAndWait(100));
    EXPECT_TRUE(worker.wait());
}

TEST(ZThreadTest, ASharedThreadAndWhatItUsesOutliveAnOwnerThatCouldNotStopIt) {
    std::promise<void> leave;
    std::promise<void> destroyed;
    auto used = std::make_shared<int>(7);
    const std::weak_ptr<int> watch = used;
    auto worker = std::make_shared<Worker>("late");
    worker->m_leave = leave.get_future().share();
    worker->m_destroyed = &destroyed;
    worker->keepAlive(std::move(used));
    worker->start();
    worker->m_entered.get_future().wait();

    EXPECT_FALSE(worker->stopAndWait(1));
    worker.reset();
    EXPECT_FALSE(watch.expired());

    leave.set_value();
    EXPECT_EQ(destroyed.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    const auto start = Clock::now();
    while (!watch.expired() && elapsedSince(start) < std::chrono::seconds(20)) ZThread::msleep(1);
    EXPECT_TRUE(watch.expired());
}

#ifdef __GLIBC__
// Tells, when it is asked to, whether it is detached.
class Detached : public ZThread {
public:
    Detached() : ZThread("detached") {}

    std::promise<void> m_asked;
    std::promise<bool> m_isDetached;

protected:
    void run() override {
        m_asked.get_future().wait();
        pthread_attr_t attributes;
        int state = -1;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getdetachstate(&attributes, &state);
        pthread_attr_destroy(&attributes);
        m_exit_flag = 1;
        m_isDetached.set_value(state == PTHREAD_CREATE_DETACHED);
    }
};

TEST(ZThreadTest, DetachLetsGoOfARunningThread) {
    auto thread = std::make_shared<Detached>();  // it outlives the promise that it sets last
    thread->start();

    EXPECT_TRUE(thread->detach());
    thread->m_asked.set_value();

    EXPECT_TRUE(thread->m_isDetached.get_future().get());
    EXPECT_TRUE(thread->wait());  // for nothing: there is no handle any more
}

TEST(ZThreadTest, AFailedStartLogsTheStatusAndLeavesTheThreadIdle) {
    pthread_attr_t usual;
    pthread_attr_t impossible;
    ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
    ASSERT_EQ(pthread_getattr_default_np(&impossible), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&impossible, std::size_t{1} << 50), 0);
    ASSERT_EQ(pthread_setattr_default_np(&impossible), 0);
    Worker worker("unborn");
    const LogCapture log;

    worker.start();
    pthread_setattr_default_np(&usual);

    EXPECT_TRUE(
        log.has(ZLOG_LEVEL_ERROR, "pthread_create failed(status=" + std::to_string(EAGAIN) + ")"));
    EXPECT_TRUE(worker.stopAndWait(100));
    EXPECT_TRUE(worker.wait());
    pthread_attr_destroy(&usual);
    pthread_attr_destroy(&impossible);
}
#endif

TEST(ZThreadTest, SleepsTakeAtLeastTheirTime) {
    auto start = Clock::now();
    ZThread::msleep(1030);
    EXPECT_GE(elapsedSince(start), milliseconds(1029));
    start = Clock::now();
    ZThread::usleep(1030000);
    EXPECT_GE(elapsedSince(start), milliseconds(1029));
    start = Clock::now();
    ZThread::sleep(1);
    EXPECT_GE(elapsedSince(start), milliseconds(999));
}

TEST(ZThreadTest, CurrentThreadIdIsAlwaysMinusOne) {
    EXPECT_EQ(ZThread::currentThreadId(), -1);
}

TEST(ZSleepsTest, GoesOnSleepingAfterASignal) {
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
    itimerval timer{};
    timer.it_value.tv_usec = 20000;
    const LogCapture log;
    const auto start = Clock::now();
    ASSERT_EQ(setitimer(ITIMER_REAL, &timer, nullptr), 0);

    ZSleeps(100);

    EXPECT_GE(elapsedSince(start), milliseconds(99));
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, ZLOG_LEVEL_ERROR);
    EXPECT_THAT(lines[0].message,
                MatchesRegex("Sleeping is interupted, remain time is: 0 s \\+ [0-9]+ ns\n"));
    sigaction(SIGALRM, &before, nullptr);
}

TEST(ZMutexTest, ARecursiveMutexCanBeRelockedOnItsThreadAndAPlainOneCannot) {
    ZMutex recursive(true);
    ZMutex plain(false);

    EXPECT_EQ(pthread_mutex_trylock(recursive.get()), 0);
    EXPECT_EQ(pthread_mutex_trylock(recursive.get()), 0);
    EXPECT_EQ(pthread_mutex_trylock(plain.get()), 0);
    EXPECT_EQ(pthread_mutex_trylock(plain.get()), EBUSY);
    pthread_mutex_unlock(recursive.get());
    pthread_mutex_unlock(recursive.get());
    pthread_mutex_unlock(plain.get());
}

TEST(ZWaitConditionTest, AWaitWithoutASignalReturnsFalseAfterItsTime) {
    ZMutex mutex(false);
    ZWaitCondition condition;
    const auto start = Clock::now();

    mutex.lock();
    EXPECT_FALSE(condition.wait(mutex, 100));
    mutex.unlock();
    EXPECT_GE(elapsedSince(start), milliseconds(99));
}

TEST(ZWaitConditionTest, ASignalWakesAWaiter) {
    ZMutex mutex(false);
    ZWaitCondition condition;
    bool ready = false;
    std::thread waker([&] {
        const ZMutexLocker lock(mutex);
        ready = true;
        condition.wakeOne();
    });

    mutex.lock();
    while (!ready && condition.wait(mutex, 20000)) {
    }
    EXPECT_TRUE(ready);
    mutex.unlock();
    waker.join();
}

TEST(ZSemaphoreTest, TryAcquireSubtractsOnlyWhatIsThere) {
    ZSemaphore semaphore(2);

    EXPECT_TRUE(semaphore.tryAcquire(2));
    EXPECT_FALSE(semaphore.tryAcquire(1));
    EXPECT_TRUE(semaphore.tryAcquire(0));
    EXPECT_EQ(semaphore.available(), 0);
}

TEST(ZSemaphoreTest, AcquireWaitsForARelease) {
    ZSemaphore semaphore(0);
    std::thread releaser([&] { semaphore.release(3); });

    semaphore.acquire(2);

    releaser.join();
    EXPECT_EQ(semaphore.available(), 1);
}
}  // namespace
