// The processing thread with a real manager behind it, whose handlers look at the work buffer.
#include "common/Thread/FdMsgProcThread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "common/Map/FdCommand.h"
#include "common/Map/MapManager.h"
#include "common/Policy/FdClientPolicy.h"
#include "common/Thread/FdOperateMsgdeque.h"
#include "support/FakeChannel.h"
#include "support/LogCapture.h"
#include "support/OpenMapManager.h"
#include "support/WireMessage.h"

namespace {
class FdMsgProcThreadTest : public testing::Test {
protected:
    FdMsgProcThreadTest() {
        m_manager.initNet(m_channel.writer(), m_channel.metric());
        m_thread->setMapManager(&m_manager);
        m_thread->setFdMsgQueue(&m_queue);
    }
    ~FdMsgProcThreadTest() override {
        m_thread->stopAndWait(100);
        m_thread->wait();
    }

    void push(const std::vector<char>& message) {
        FdOperateMsgPtr msg(new FdOperateMsg{});
        msg->data = new char[message.size()];
        std::ranges::copy(message, msg->data);
        msg->dataSize = static_cast<int>(message.size());
        m_queue.push_back_recv_msg(msg.release());
    }

    // A map whose reads check that the buffer is zero behind the message, and answer `size` bytes.
    void answerReadsOnCleanBuffersWith(int size) {
        m_manager.addMapInfo("/zfd/one", 9, 0x8);
        m_manager.m_fsHandlers[FD_CMD_READ] = [this, size](char*& buffer, int messageSize,
                                                           int* resultSize, MapFolder*) {
            const bool clean = std::all_of(buffer + messageSize, buffer + MAX_CMD_BUFFER,
                                           [](char byte) { return byte == 0; });
            if (!clean) ++m_unclean;
            std::fill_n(buffer, kHeaderSize + size, 'r');
            *resultSize = size;
        };
    }

    LogCapture m_log;
    FakeChannel m_channel;
    FdClientPolicy m_policy;
    OpenMapManager m_manager{&m_policy, ZListener{}};
    FdOperateMsgdeque m_queue;
    std::atomic<int> m_unclean{0};
    std::shared_ptr<FdMsgProcThread> m_thread = std::make_shared<FdMsgProcThread>();
};
}  // namespace

TEST_F(FdMsgProcThreadTest, ANullManagerIsLogged) {
    FdMsgProcThread thread;
    thread.setMapManager(nullptr);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "FdMsgProcThread() m_mapmanager == NULL"));
}

TEST_F(FdMsgProcThreadTest, SettingTheQueueComplainsAboutAMissingManager) {
    FdMsgProcThread thread;
    thread.setFdMsgQueue(&m_queue);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "FdMsgProcThread() m_fd_operate_msg_queue == NULL"));
}

TEST_F(FdMsgProcThreadTest, ANullQueueWithAManagerLogsNothing) {
    FdMsgProcThread thread;
    thread.setMapManager(&m_manager);
    m_log.clear();
    thread.setFdMsgQueue(nullptr);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(FdMsgProcThreadTest, AThreadWithoutManagerOrQueueEndsByItself) {
    for (const bool withManager : {false, true}) {
        const auto thread = std::make_shared<FdMsgProcThread>();
        if (withManager) thread->setMapManager(&m_manager);
        thread->start();
        EXPECT_TRUE(thread->wait());
        EXPECT_TRUE(thread->stopAndWait(0));
    }
}

TEST_F(FdMsgProcThreadTest, TheEndOfTheObjectIsTheEndOfItsThread) {
    {
        FdMsgProcThread thread;
        thread.setMapManager(&m_manager);
        thread.setFdMsgQueue(&m_queue);
        push(wireMessage(FD_CMD_GET_MAP_NUM));
        thread.start();
        ASSERT_TRUE(m_channel.waitForWrites(1));
    }
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "thread func name: FdMsgProcThread"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, " wait Stop. m_exit_flag: 1"));
}

TEST_F(FdMsgProcThreadTest, MessagesAreHandledInTheirOrder) {
    for (int seq = 0; seq < 200; ++seq) push(wireMessage(FD_CMD_GET_MAP_NUM, 0, seq));
    m_thread->start();

    ASSERT_TRUE(m_channel.waitForWrites(200));
    const auto writes = m_channel.writes();
    for (std::size_t i = 0; i < writes.size(); ++i) {
        EXPECT_EQ(writes[i].at(kSeqAt), static_cast<char>(i));
    }
    EXPECT_TRUE(m_thread->stopAndWait(100));
}

TEST_F(FdMsgProcThreadTest, RecordsWithoutDataAreSkipped) {
    m_queue.push_back_recv_msg(new FdOperateMsg{nullptr, 20});
    m_queue.push_back_recv_msg(new FdOperateMsg{new char[1]{16}, 0});
    m_queue.push_back_recv_msg(new FdOperateMsg{new char[1]{16}, -1});
    push(wireMessage(FD_CMD_GET_MAP_NUM, 0, 44));
    m_thread->start();

    ASSERT_TRUE(m_channel.waitForWrites(1));
    EXPECT_EQ(m_channel.onlyWrite().at(kSeqAt), 44);
}

TEST_F(FdMsgProcThreadTest, AMessageOfOneByteReadsZerosBehindIt) {
    push(wireMessage(FD_CMD_GET_MAP_NUM, 0xFF, 0xFF, std::string(100, '\xFF'), 0xFFFFFFFF));
    push({'\x10'});
    m_thread->start();

    ASSERT_TRUE(m_channel.waitForWrites(2));
    EXPECT_EQ(m_channel.writes()[1], bytesOf("\x02\x02\0\0\0\0\0\0\x04\0\0\0\0\0\0\0"));
}

TEST_F(FdMsgProcThreadTest, EachMessageFindsTheBufferZeroBehindIt) {
    answerReadsOnCleanBuffersWith(3000);
    const std::size_t sizes[] = {5000, 0, 100, 4000, 0, 1, 1049588, 0, 3000, 2999};
    for (const std::size_t size : sizes) {
        push(wireMessage(FD_CMD_READ, 0, 0, std::string(size, '\xFF')));
        push(wireMessage(FD_CMD_GET_MAP_FOLDER, 0, 0, leText(std::uint16_t{0xFFFF})));
    }
    m_thread->start();

    ASSERT_TRUE(m_channel.waitForWrites(2 * std::size(sizes)));
    EXPECT_EQ(m_unclean, 0);
}

TEST_F(FdMsgProcThreadTest, WhatALargeReadLeavesIsClearedAlsoBehindASmallOne) {
    m_manager.addMapInfo("/zfd/one", 9, 0x8);
    int size = 5000;
    m_manager.m_fsHandlers[FD_CMD_READ] = [&](char*& buffer, int, int* resultSize, MapFolder*) {
        std::fill_n(buffer, kHeaderSize + size, 'r');
        *resultSize = std::exchange(size, 100);
    };
    bool isClean = false;
    m_manager.m_fsHandlers[FD_CMD_LOCKS] = [&](char*& buffer, int messageSize, int* resultSize,
                                               MapFolder*) {
        isClean = std::all_of(buffer + messageSize, buffer + MAX_CMD_BUFFER,
                              [](char byte) { return byte == 0; });
        *resultSize = 1;
    };
    for (const int code : {FD_CMD_READ, FD_CMD_READ, FD_CMD_LOCKS}) {
        push(wireMessage(code, 0, 0, std::string(20, 'x')));
    }
    m_thread->start();

    ASSERT_TRUE(m_channel.waitForWrites(3));
    EXPECT_TRUE(isClean);
}

TEST_F(FdMsgProcThreadTest, AMessageOf1049600BytesIsHandled) {
    push(wireMessage(FD_CMD_GET_MAP_NUM, 0, 1, std::string(1049588, 'x')));
    m_thread->start();
    ASSERT_TRUE(m_channel.waitForWrites(1));
    EXPECT_TRUE(m_thread->stopAndWait(100));
}

TEST_F(FdMsgProcThreadTest, OneByteMoreEndsTheThreadAndItsExitFlagStaysClear) {
    push(wireMessage(FD_CMD_GET_MAP_NUM, 0, 1, std::string(1049589, 'x')));
    push(wireMessage(FD_CMD_GET_MAP_NUM));
    m_thread->start();
    ASSERT_TRUE(m_thread->wait());

    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 162"));
    EXPECT_FALSE(m_thread->stopAndWait(1));
    EXPECT_TRUE(m_channel.writes().empty());
    EXPECT_NE(FdOperateMsgPtr(m_queue.get_front_recv_msg()), nullptr);  // the second one
}

TEST_F(FdMsgProcThreadTest, ACallThroughAnEmptySlotEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto callEmptySlot = [this] {
        m_manager.addMapInfo("/zfd/one", 9, 0x8);
        push(wireMessage(7));
        m_thread->start();
        m_channel.waitForWrites(1);  // which never comes
    };
    EXPECT_DEATH(callEmptySlot(), "");
}
