// Waking threads that wait: the system tells when a thread sleeps, so that a wake-up which comes
// only by accident is told from a real one.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "common/Comm/ZThread.h"
#include "common/Thread/FdOperateMsgdeque.h"
#include "support/LogCapture.h"

namespace {
// The state letter of a thread of this process, such as 'S' for one that waits.
char stateOfThread(pid_t thread) {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(stat, text);
    const auto end = text.rfind(')');
    return end == std::string::npos ? '?' : text.at(end + 2);
}

// Runs `body` on a thread, and is made when that thread has gone to sleep.
class Sleeper {
public:
    explicit Sleeper(const std::function<void()>& body)
        : m_thread([this, body] {
              m_id = gettid();
              body();
          }) {
        while (m_id == 0 || stateOfThread(m_id) != 'S') std::this_thread::yield();
    }
    void join() { m_thread.join(); }

private:
    std::atomic<pid_t> m_id{0};
    std::thread m_thread;
};

TEST(SemaphoreWakeUpTest, TheDestructorLetsAWaiterLeave) {
    const LogCapture log;
    auto semaphore = std::make_unique<ZSemaphore>(0);
    Sleeper waiter([raw = semaphore.get()] { raw->acquire(1000); });

    semaphore.reset();
    waiter.join();

    EXPECT_TRUE(log.contains(ZLOG_LEVEL_INFO, "CLS:~ZSem:i=0,stopflag=1,waitflag=1 waiting"));
}

TEST(SemaphoreWakeUpTest, AReleaseReachesTheWaiterThatItIsEnoughFor) {
    ZSemaphore semaphore(0);
    Sleeper greedy([&] { semaphore.acquire(2); });  // the first in the line
    Sleeper modest([&] { semaphore.acquire(1); });

    semaphore.release(1);
    modest.join();
    EXPECT_EQ(semaphore.available(), 0);

    semaphore.release(2);
    greedy.join();
    EXPECT_EQ(semaphore.available(), 0);
}

class QueueWakeUpTest : public testing::Test {
protected:
    // What a reader got that slept when `wake` was called.
    FdOperateMsgPtr readAsleep(const std::function<void()>& wake) {
        FdOperateMsgPtr msg;
        Sleeper reader([&] { msg.reset(m_queue.get_front_recv_msg()); });
        wake();
        reader.join();
        return msg;
    }

    // A reader's patience ends after 100 ms, so on a busy machine a wake-up may come too late.
    static bool holdsInOneOf20Tries(const std::function<bool()>& attempt) {
        for (int i = 0; i < 20; ++i) {
            if (attempt()) return true;
        }
        return false;
    }

    FdOperateMsgdeque m_queue;
};

TEST_F(QueueWakeUpTest, APushWakesAReaderThatSleeps) {
    EXPECT_TRUE(holdsInOneOf20Tries([this] {
        const auto push = [this] { m_queue.push_back_recv_msg(new FdOperateMsg{nullptr, 1}); };
        const bool wasWoken = readAsleep(push) != nullptr;
        m_queue.free_RecvMsg_Deque();
        m_queue.get_front_recv_msg();  // takes the flag that the line above has set
        return wasWoken;
    }));
}

TEST_F(QueueWakeUpTest, FreeingWakesAReaderThatSleeps) {
    EXPECT_TRUE(holdsInOneOf20Tries([this] {
        readAsleep([this] { m_queue.free_RecvMsg_Deque(); });
        // A reader that was woken has taken the flag, so the next one sleeps; one that ran out of
        // patience has left it.
        const auto before = std::chrono::steady_clock::now();
        m_queue.get_front_recv_msg();
        return std::chrono::steady_clock::now() - before >= std::chrono::milliseconds(90);
    }));
}
}  // namespace
