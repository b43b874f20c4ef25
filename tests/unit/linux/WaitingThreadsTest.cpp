// Waking threads that wait: the system tells when a thread sleeps, so that a wake-up which comes
// only by accident is told from a real one.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/Comm/WireNumbers.h"
#include "common/Comm/ZThread.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapManager.h"
#include "common/Policy/FdClientPolicy.h"
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

// Runs `body` on a thread, and is made when that thread has gone to sleep or has ended, or when
// `enough` holds.
class Sleeper {
public:
    explicit Sleeper(const std::function<void()>& body, const std::function<bool()>& enough = {})
        : m_thread([this, body] {
              m_id = gettid();
              body();
              m_hasEnded = true;
          }) {
        while (!m_hasEnded && !isAsleep() && !(enough && enough())) std::this_thread::yield();
    }
    void join() { m_thread.join(); }

private:
    bool isAsleep() const { return m_id != 0 && stateOfThread(m_id) == 'S'; }

    std::atomic<pid_t> m_id{0};
    std::atomic<bool> m_hasEnded{false};
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

TEST(SendLockTest, AFinishedMessageWaitsForTheEndOfAResult) {
    FdClientPolicy policy;
    MapManager manager(&policy, ZListener{});
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    std::string message = "finished";
    std::unique_ptr<Sleeper> control;
    const auto write = [&](char*, int size) {
        if (++inside > 1) overlapped = true;
        if (size == 16) {
            control = std::make_unique<Sleeper>([&] { manager.sendData(message.data(), 8); },
                                                [&] { return overlapped.load(); });
        }
        --inside;
        return size;
    };
    manager.initNet(write, [](int, char*, unsigned) { return 0; });

    std::vector<char> buffer(MAX_CMD_BUFFER);
    storeLe<std::uint16_t>(buffer.data(), FD_CMD_GET_MAP_NUM);
    manager.HandleCmd(buffer.data(), kHeaderSize);
    control->join();

    EXPECT_FALSE(overlapped);
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
