#include "common/LinuxServer/workthread/FdThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "common/LinuxServer/workthread/FdContext.h"
#include "support/LogCapture.h"
#include "support/WaitUntil.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// A worker that works until it is told to stop, and ends when it is allowed to.
class FdWorker : public FdThread {
public:
    explicit FdWorker(FdContext* context) : FdThread(context, "test worker") {}

    bool runFlag() const { return m_run_flag; }
    void begin() { beginRun(); }
    void ask() { askToStop(); }
    std::atomic<bool> m_mayEnd{true};
    std::atomic<bool> m_mayBegin{true};

protected:
    void run() override {
        waitUntil([this] { return m_mayBegin.load(); });
        beginRun();
        m_statu = kStatuWorking;
        waitUntil([this] { return !m_run_flag && m_mayEnd; });
        endRun();
    }
};

class FdThreadTest : public testing::Test {
protected:
    LogCapture m_log;
    std::shared_ptr<FdContext> m_context = std::make_shared<FdContext>();
    std::shared_ptr<FdWorker> m_worker = std::make_shared<FdWorker>(m_context.get());
};

TEST_F(FdThreadTest, IsCreatedThenWorkingThenFinished) {
    EXPECT_EQ(m_worker->getThreadStatu(), 0);
    EXPECT_FALSE(m_worker->runFlag());

    m_worker->start();
    EXPECT_EQ(m_worker->waitStatu(3, 20000), 3);
    EXPECT_TRUE(m_worker->runFlag());

    EXPECT_TRUE(m_worker->waitStop(20000));
    EXPECT_EQ(m_worker->getThreadStatu(), 5);
    EXPECT_FALSE(m_worker->runFlag());
}

TEST_F(FdThreadTest, IsReadyOnceItsFlagsAreSet) {
    m_worker->begin();

    EXPECT_EQ(m_worker->getThreadStatu(), 2);
    EXPECT_TRUE(m_worker->runFlag());
}

TEST_F(FdThreadTest, WaitStopOfZeroLooksOnceWithoutASleep) {
    m_worker->start();
    m_worker->m_mayEnd = false;
    m_worker->waitStatu(3, 20000);
    m_log.clear();
    const auto start = steady_clock::now();

    EXPECT_FALSE(m_worker->waitStop(0));
    EXPECT_FALSE(m_worker->waitStop(-5));

    EXPECT_LT(steady_clock::now() - start, milliseconds(90));
    EXPECT_TRUE(m_log.has(3, "wait stop, msecond: 0  ..."));
    EXPECT_TRUE(m_log.has(3, "wait stop end,  m_exit_flag: 0, msecond: 0"));
    EXPECT_TRUE(m_log.has(3, "wait stop end,  m_exit_flag: 0, msecond: -5"));
    m_worker->m_mayEnd = true;
    EXPECT_TRUE(m_worker->waitStop(20000));
    EXPECT_TRUE(m_worker->waitStop(0));
}

TEST_F(FdThreadTest, WaitStopPollsInStepsOf100AndStopsAfterThePassThatBeganWithThatOrLess) {
    m_worker->start();
    m_worker->m_mayEnd = false;
    m_worker->waitStatu(3, 20000);
    m_log.clear();
    const auto start = steady_clock::now();

    EXPECT_FALSE(m_worker->waitStop(250));

    EXPECT_GE(steady_clock::now() - start, milliseconds(280));
    EXPECT_TRUE(m_log.has(3, "wait stop, msecond: 250  ..."));
    EXPECT_TRUE(m_log.has(3, "wait stop end,  m_exit_flag: 0, msecond: -50"));
    m_worker->m_mayEnd = true;
    EXPECT_TRUE(m_worker->waitStop(20000));
    EXPECT_TRUE(m_log.contains(3, "wait stop end,  m_exit_flag: 1, msecond: "));
}

TEST_F(FdThreadTest, WaitStatuPollsUntilTheStatusIsReached) {
    const auto start = steady_clock::now();

    EXPECT_EQ(m_worker->waitStatu(2, 150), 0);

    EXPECT_GE(steady_clock::now() - start, milliseconds(180));
    EXPECT_TRUE(m_log.has(3, "wait thread statu. statu: 2  ..."));
    EXPECT_TRUE(m_log.has(3, "wait thread statu,  statu: 0, msecond: -50"));
    m_worker->begin();
    EXPECT_EQ(m_worker->waitStatu(2, 1000), 2);
    EXPECT_EQ(m_worker->waitStatu(1, 1000), 2);
    EXPECT_EQ(m_log.count(3, "wait thread statu,  statu: 2, msecond: 1000"), 2);
}

TEST_F(FdThreadTest, AStopThatComesBeforeTheThreadBeginsIsNotLost) {
    m_worker->m_mayBegin = false;
    m_worker->start();
    EXPECT_FALSE(m_worker->waitStop(0));

    m_worker->m_mayBegin = true;

    EXPECT_TRUE(m_worker->waitStop(20000));
}

TEST_F(FdThreadTest, AStopAtAnyMomentOfTheBeginningIsNotLost) {
    for (int i = 0; i < 200; ++i) {
        const auto worker = std::make_shared<FdWorker>(m_context.get());
        std::thread beginner([&] { worker->begin(); });
        worker->ask();
        beginner.join();
        EXPECT_FALSE(worker->runFlag());
    }
}

TEST_F(FdThreadTest, InitResAndFreeResOnlySayThatAllIsWell) {
    EXPECT_TRUE(m_worker->initRes());
    EXPECT_TRUE(m_worker->freeRes());
    EXPECT_EQ(m_worker->getThreadStatu(), 0);
}

TEST_F(FdThreadTest, KeepsItsContext) {
    const std::weak_ptr<FdContext> context = m_context;
    m_context.reset();

    EXPECT_FALSE(context.expired());
    m_worker.reset();
    EXPECT_TRUE(context.expired());
}

}  // namespace
