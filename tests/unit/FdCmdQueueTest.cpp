#include "common/LinuxServer/comm/fd_cmd_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "support/LogCapture.h"
#include "support/WaitUntil.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

class FdCmdQueueTest : public testing::Test {
protected:
    fd_cmd_item* get(int msecond = 1) {
        fd_cmd_item* item = nullptr;
        return m_queue.get_node(&item, msecond) ? item : nullptr;
    }

    LogCapture m_log;
    FdCmdQueue m_queue;
    fd_cmd_item m_nodes[3] = {};
};

TEST_F(FdCmdQueueTest, GivesNodesInTheirOrder) {
    for (fd_cmd_item& node : m_nodes) EXPECT_TRUE(m_queue.put_node(&node));
    EXPECT_EQ(m_queue.get_queue_size(), 3);

    for (fd_cmd_item& node : m_nodes) EXPECT_EQ(get(), &node);

    EXPECT_EQ(m_queue.get_queue_size(), 0);
}

TEST_F(FdCmdQueueTest, GivesUpOnAnEmptyQueueAfterTheTimeAllowed) {
    const auto start = steady_clock::now();

    EXPECT_EQ(get(500), nullptr);

    EXPECT_GE(steady_clock::now() - start, milliseconds(450));
    EXPECT_LT(steady_clock::now() - start, milliseconds(10000));
}

TEST_F(FdCmdQueueTest, WaitsWithoutLimitForANode) {
    std::atomic<fd_cmd_item*> got{nullptr};
    std::thread reader([&] { got = get(0); });

    m_queue.put_node(&m_nodes[0]);

    reader.join();
    EXPECT_EQ(got, &m_nodes[0]);
}

// Without a wake-up the reader would find each node after its 20 seconds.
TEST_F(FdCmdQueueTest, ANodeWakesTheReaderThatWaitsForIt) {
    constexpr int kRounds = 4;
    std::atomic<int> taken{0};
    std::thread reader([&] {
        while (taken < kRounds) taken += get(20000) == nullptr ? 0 : 1;
    });
    const auto start = steady_clock::now();

    for (int i = 0; i < kRounds; ++i) {
        m_queue.put_node(&m_nodes[0]);
        EXPECT_TRUE(waitUntil([&] { return taken > i; }, std::chrono::seconds(30)));
    }

    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(15));
    reader.join();
}

TEST_F(FdCmdQueueTest, GivesNothingToAReaderThatIsWokenWithoutANode) {
    std::atomic<bool> done{false};
    std::thread reader([&] {
        EXPECT_EQ(get(0), nullptr);
        done = true;
    });

    EXPECT_TRUE(waitUntil([&] {
        m_queue.wake_all();  // the first one may come before the reader waits
        return done.load();
    }));

    reader.join();
    EXPECT_TRUE(m_log.has(3, "wake up all waiter ..."));
    EXPECT_TRUE(m_log.has(3, "wake up all waiter ok "));
}

TEST_F(FdCmdQueueTest, AReaderThatIsAwakeTakesTwoNodesPutInARow) {
    std::vector<fd_cmd_item*> got;
    std::thread reader([&] {
        got.push_back(get(0));
        got.push_back(get(0));
    });

    m_queue.put_node(&m_nodes[0]);
    m_queue.put_node(&m_nodes[1]);

    reader.join();
    EXPECT_EQ(got, (std::vector<fd_cmd_item*>{&m_nodes[0], &m_nodes[1]}));
}

TEST_F(FdCmdQueueTest, HandsOverAllNodesAndReplacesWhatTheDestinationHeld) {
    for (fd_cmd_item& node : m_nodes) m_queue.put_node(&node);
    fd_cmd_item other{};
    std::deque<fd_cmd_item*> nodes = {&other};

    EXPECT_TRUE(m_queue.get_all_node(&nodes));

    EXPECT_EQ(nodes, (std::deque<fd_cmd_item*>{&m_nodes[0], &m_nodes[1], &m_nodes[2]}));
    EXPECT_EQ(m_queue.get_queue_size(), 0);
    EXPECT_TRUE(m_queue.get_all_node(&nodes));
    EXPECT_TRUE(nodes.empty());
}

TEST_F(FdCmdQueueTest, NoReaderWaitsAfterTheEndOfWaits) {
    std::thread reader([&] { EXPECT_EQ(get(0), nullptr); });
    m_queue.endWaits();
    reader.join();

    EXPECT_EQ(get(0), nullptr);
    m_queue.put_node(&m_nodes[0]);
    EXPECT_EQ(get(0), &m_nodes[0]);  // what is there is still given
}

TEST_F(FdCmdQueueTest, LosesNothingBetweenManyWritersAndOneReader) {
    constexpr std::size_t kWriters = 4;
    constexpr std::size_t kEach = 500;
    std::vector<fd_cmd_item> nodes(kWriters * kEach);
    std::vector<std::thread> writers;
    for (std::size_t writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([&, writer] {
            for (std::size_t i = 0; i < kEach; ++i) {
                fd_cmd_item& node = nodes[writer * kEach + i];
                node.head.mapid = static_cast<std::int32_t>(writer);
                node.head.idx = static_cast<std::int64_t>(i);
                m_queue.put_node(&node);
            }
        });
    }

    std::vector<std::int64_t> next(kWriters);
    for (std::size_t i = 0; i < kWriters * kEach; ++i) {
        const fd_cmd_item* node = get(0);
        ASSERT_NE(node, nullptr);
        EXPECT_EQ(std::int64_t{node->head.idx}, next[static_cast<std::size_t>(node->head.mapid)]++);
    }

    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(m_queue.get_queue_size(), 0);
}

}  // namespace
