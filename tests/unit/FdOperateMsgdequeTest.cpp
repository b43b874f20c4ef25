// The inbound queue: order, the bounded wait of its reader, and who frees what.
#include "common/Thread/FdOperateMsgdeque.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {
FdOperateMsg* newMsg(int number) {
    return new FdOperateMsg{new char[1]{}, number};
}

class FdOperateMsgdequeTest : public testing::Test {
protected:
    // The next message's number, or -1.
    int popNumber() {
        const FdOperateMsgPtr msg(m_queue.get_front_recv_msg());
        return msg == nullptr ? -1 : msg->dataSize;
    }

    milliseconds timeOfEmptyPop() {
        const auto before = steady_clock::now();
        EXPECT_EQ(popNumber(), -1);
        return std::chrono::duration_cast<milliseconds>(steady_clock::now() - before);
    }

    FdOperateMsgdeque m_queue;
};
}  // namespace

TEST_F(FdOperateMsgdequeTest, AnEmptyQueueGivesNullAfterAbout100Milliseconds) {
    EXPECT_GE(timeOfEmptyPop(), milliseconds(90));
}

TEST_F(FdOperateMsgdequeTest, MessagesComeOutInOrderAcrossWaitsAndPushes) {
    m_queue.push_back_recv_msg(newMsg(1));
    m_queue.push_back_recv_msg(newMsg(2));
    EXPECT_EQ(popNumber(), 1);
    m_queue.push_back_recv_msg(newMsg(3));
    EXPECT_EQ(popNumber(), 2);
    EXPECT_EQ(popNumber(), 3);
    EXPECT_EQ(popNumber(), -1);
    m_queue.push_back_recv_msg(newMsg(4));
    EXPECT_EQ(popNumber(), 4);
}

TEST_F(FdOperateMsgdequeTest, AReaderThatWaitsGetsWhatAnotherThreadPushes) {
    constexpr int kMessages = 2000;
    std::thread pusher([this] {
        for (int i = 0; i < kMessages; ++i) m_queue.push_back_recv_msg(newMsg(i));
    });
    for (int expected = 0; expected < kMessages;) {
        const int number = popNumber();
        if (number == -1) continue;
        ASSERT_EQ(number, expected);
        ++expected;
    }
    pusher.join();
}

TEST_F(FdOperateMsgdequeTest, FreeingAnEmptyQueueMakesOneReadReturnNullAtOnce) {
    milliseconds inAll{0};
    for (int i = 0; i < 100; ++i) {
        m_queue.free_RecvMsg_Deque();
        inAll += timeOfEmptyPop();
    }
    EXPECT_LT(inAll, milliseconds(5000));  // 10 seconds if each had waited

    EXPECT_GE(timeOfEmptyPop(), milliseconds(90));  // and only one
}

TEST_F(FdOperateMsgdequeTest, FreeingTakesAllMessages) {
    m_queue.push_back_recv_msg(newMsg(1));
    m_queue.push_back_recv_msg(nullptr);
    m_queue.push_back_recv_msg(new FdOperateMsg{nullptr, 0});

    m_queue.free_RecvMsg_Deque();

    EXPECT_EQ(popNumber(), -1);
    EXPECT_EQ(popNumber(), -1);
}

TEST_F(FdOperateMsgdequeTest, TheDestructorFreesWhatIsStillQueued) {
    FdOperateMsgdeque queue;  // the leak sanitizer has the last word
    queue.push_back_recv_msg(newMsg(1));
    queue.push_back_recv_msg(newMsg(2));
}
