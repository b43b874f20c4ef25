#include "common/LinuxServer/workthread/SendThread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "support/LinuxContextFixture.h"
#include "support/RefusedNew.h"

namespace {

using linuxframes::Bytes;
using linuxframes::Message;

class SendThreadTest : public LinuxContextFixture {
protected:
    // Whether the thread has come to its end by itself.
    bool ends(FdThread& thread) {
        return waitUntil([&] { return thread.getThreadStatu() == 5; });
    }
};

TEST_F(SendThreadTest, SendsAMessageWithoutPayloadAs76Bytes) {
    const auto sender = startSender();

    EXPECT_TRUE(sender->sendCmdItem(7, 1, 9, -3));

    ASSERT_TRUE(m_channel.waitForWrites(1));
    Bytes expected(76);
    expected[8] = 64;   // the length behind the prefix
    expected[12] = 64;  // head_size
    expected[20] = 7;   // mapid
    expected[24] = 1;   // type
    expected[28] = 9;   // subtype
    expected[32] = -3;  // res
    for (std::size_t i = 33; i < 40; ++i) expected[i] = -1;
    EXPECT_EQ(m_channel.onlyWrite(), expected);
}

TEST_F(SendThreadTest, HasNoMessageWithoutANode) {
    const auto sender = startSender();
    {
        const RefusedNew refused;
        EXPECT_FALSE(sender->sendCmdItem(7, 1, 9, 0));
    }

    EXPECT_TRUE(m_log.has(2, "get cmd node from cache failure."));
    EXPECT_TRUE(allSent().empty());
}

TEST_F(SendThreadTest, SendsAPayloadOf1000BytesAs1076) {
    const auto sender = startSender();
    const Message message = {.mapid = 3,
                             .subtype = 16,
                             .idx = 0x123456789abcdef,
                             .payload = Bytes(1000, 'x'),
                             .res = 1000,
                             .headSize = 99,
                             .reserved = 5,
                             .opaque = "opaque bytes of a server"};

    EXPECT_TRUE(sender->addSendCmdItem(nodeOf(message)));

    ASSERT_TRUE(m_channel.waitForWrites(1));
    const Bytes frame = m_channel.onlyWrite();
    EXPECT_EQ(frame.size(), 1076U);
    EXPECT_EQ(linuxframes::wordAt(frame, 0), 0);
    EXPECT_EQ(linuxframes::wordAt(frame, 4) >> 32, 1064);
    Bytes expected = linuxframes::frameOf(message);
    EXPECT_TRUE(std::equal(frame.begin() + 12, frame.end(), expected.begin() + 12));
}

TEST_F(SendThreadTest, SendsInTheOrderOfTheQueue) {
    const auto sender = startSender();
    for (int i = 0; i < 100; ++i) sender->sendCmdItem(i, 1, 5, 0);

    const std::vector<Message> messages = sent(100);

    for (int i = 0; i < 100; ++i) EXPECT_EQ(messages[static_cast<std::size_t>(i)].mapid, i);
}

TEST_F(SendThreadTest, SaysWhatItDoes) {
    const auto sender = startSender();
    fd_cmd_item* item = nodeOf({.mapid = 2, .subtype = 16, .idx = 12, .payload = {1, 2}, .res = 2});
    sender->addSendCmdItem(item);
    sent(1);
    EXPECT_TRUE(waitUntil([&] { return m_log.has(4, "free item node success. "); }));

    EXPECT_TRUE(sender->waitStop(kStopMs));

    EXPECT_TRUE(m_log.has(3, "SendThread start ..."));
    EXPECT_TRUE(m_log.has(3, "SendThread work ..."));
    EXPECT_TRUE(m_log.has(4,
                          "get send cmd item success. mapid: 2, type: 3, subtype: 16, idx: 12, "
                          "extsize: 2, res: 2"));
    EXPECT_TRUE(m_log.has(3, "SendThread finish ..."));
    EXPECT_EQ(sender->getThreadStatu(), 5);
}

// A stop that comes while the thread is on its way to sleep wakes nobody: then again.
TEST_F(SendThreadTest, WarnsWhenItIsWokenWithoutANode) {
    for (int i = 0; i < 1000 && !m_log.has(2, "get node failure"); ++i) {
        const auto sender = startSender();
        EXPECT_TRUE(sender->waitStop(kStopMs));
    }

    EXPECT_TRUE(m_log.has(2, "get node failure"));
}

TEST_F(SendThreadTest, IsWorkingForTheWholeOfItsLoop) {
    const auto sender = startSender();

    EXPECT_EQ(sender->waitStatu(3, kStopMs), 3);
}

TEST_F(SendThreadTest, StopsWithinOneStepWhileItWaitsForANode) {
    const auto sender = startSender();
    sender->waitStatu(3, kStopMs);

    EXPECT_TRUE(sender->waitStop(kStopMs));

    EXPECT_TRUE(m_log.has(3, "MapCtrlThread wait stop, msecond: 20000  ..."));
    EXPECT_TRUE(m_log.has(3, "wake up all waiter ..."));
    EXPECT_TRUE(m_log.contains(3, "MapCtrlThread wait stop end,  m_exit_flag: 1, msecond: "));
}

TEST_F(SendThreadTest, EndsAfterAShortWriteAndLeavesLaterMessagesQueued) {
    for (const int shortBy : {1, 76, 1000}) {
        m_channel.clear();
        m_log.clear();
        m_context->m_channel_write = [write = m_channel.writer(), shortBy](char* data, int size) {
            write(data, size);
            return size - shortBy;
        };
        const auto sender = startSender();
        sender->sendCmdItem(1, 1, 5, 0);
        EXPECT_TRUE(ends(*sender));

        EXPECT_TRUE(sender->sendCmdItem(2, 1, 5, 0));
        fd_cmd_item* item = nodeOf({.mapid = 3});
        EXPECT_TRUE(sender->addSendCmdItem(item));

        EXPECT_EQ(m_log.count(1, "send fd msg fail."), 1);
        EXPECT_TRUE(sender->waitStop(0));
        EXPECT_EQ(m_channel.writes().size(), 1U);
    }
}

TEST_F(SendThreadTest, TakesAnyResultButTheSizeForAFailure) {
    m_context->m_channel_write = [](char* /*data*/, int size) { return size + 1; };
    const auto sender = startSender();

    sender->sendCmdItem(1, 1, 5, 0);

    EXPECT_TRUE(ends(*sender));
    EXPECT_TRUE(m_log.has(1, "send fd msg fail."));
}

TEST_F(SendThreadTest, ReturnsWhatIsQueuedToTheCacheAtItsEnd) {
    auto sender = std::make_shared<SendThread>(m_context.get());
    fd_cmd_item* item = nodeOf({.mapid = 3});
    sender->addSendCmdItem(item);
    m_log.clear();

    sender.reset();

    const std::vector<LogLine> expected = {{3, "destory SendThread ..."},
                                           {2, "free item. item: " + pointerText(item)},
                                           {3, "cmd size is zero"},
                                           {3, "destory SendThread ok "}};
    EXPECT_EQ(m_log.lines(), expected);
    fd_cmd_item* again = nullptr;
    m_context->m_cmd_cache.get_node(&again);
    EXPECT_EQ(again, item);
    m_context->m_cmd_cache.put_node(again);
}

TEST_F(SendThreadTest, ReturnsANodeThatWentOutToTheCache) {
    const auto sender = startSender();
    fd_cmd_item* item = nodeOf({.mapid = 3, .payload = {1, 2, 3}});
    sender->addSendCmdItem(item);
    EXPECT_TRUE(waitUntil([&] { return m_log.has(4, "free item node success. "); }));

    fd_cmd_item* again = nullptr;
    m_context->m_cmd_cache.get_node(&again);

    EXPECT_EQ(again, item);
    m_context->m_cmd_cache.put_node(again);
}

// The exit flag stays clear then: whoever stops the thread waits in vain.
TEST_F(SendThreadTest, LeavesItsLoopAtOnceWhenACopyFails) {
    m_context->m_cmd_cache.set_node_size(0);
    const auto sender = startSender();
    fd_cmd_item* item = nodeOf({.mapid = 1, .extsize = 10});  // without a payload buffer

    sender->addSendCmdItem(item);

    EXPECT_TRUE(waitUntil([&] { return m_log.has(1, "memcpy_s failed"); }));
    EXPECT_FALSE(sender->waitStop(200));
    EXPECT_EQ(sender->getThreadStatu(), 3);
    EXPECT_FALSE(m_log.has(3, "SendThread finish ..."));
    EXPECT_TRUE(m_log.has(3, "MapCtrlThread wait stop end,  m_exit_flag: 0, msecond: 0"));
    EXPECT_TRUE(m_channel.writes().empty());
    sender->wait();
    m_context->setSendThread(nullptr);
}

TEST_F(SendThreadTest, EndsWhenAFrameCannotBeHad) {
    const auto sender = startSender();
    fd_cmd_item* item = nodeOf({.mapid = 1, .extsize = std::numeric_limits<std::int32_t>::max()});

    sender->addSendCmdItem(item);

    EXPECT_TRUE(ends(*sender));
    EXPECT_TRUE(m_log.has(2, "malloc buffer failed."));
    EXPECT_TRUE(m_log.has(3, "SendThread finish ..."));
    EXPECT_TRUE(m_channel.writes().empty());
}

TEST_F(SendThreadTest, SendsANegativeSizeAsNoPayload) {
    const auto sender = startSender();

    sender->addSendCmdItem(nodeOf({.mapid = 1, .extsize = -7}));

    ASSERT_TRUE(m_channel.waitForWrites(1));
    EXPECT_EQ(m_channel.onlyWrite().size(), 76U);
}

TEST_F(SendThreadTest, AFrameNeverHoldsBytesOfAnEarlierOne) {
    const auto sender = startSender();
    sender->addSendCmdItem(nodeOf({.mapid = 1, .payload = Bytes(500, 'x')}));
    sender->addSendCmdItem(nodeOf({.mapid = 2, .payload = Bytes(3, 'y')}));

    const std::vector<Message> messages = sent(2);

    EXPECT_EQ(messages[1].payload, Bytes(3, 'y'));
}

TEST_F(SendThreadTest, AFrameIsWholeWhateverTheWriterDidWithTheOneBefore) {
    m_context->m_channel_write = [write = m_channel.wholeWriter()](char* data, int size) {
        const int written = write(data, size);
        std::fill_n(data, size, '\x7f');
        return written;
    };
    const auto sender = startSender();
    for (int i = 0; i < 2; ++i) {
        sender->addSendCmdItem(nodeOf({.mapid = 2, .idx = 5, .payload = Bytes(9, 'y')}));
    }

    ASSERT_TRUE(m_channel.waitForWrites(2));
    EXPECT_EQ(m_channel.writes()[1], m_channel.writes()[0]);
}

TEST(SendThreadDeathTest, AnEmptyWriterEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const auto context = std::make_shared<FdContext>();
            const auto sender = std::make_shared<SendThread>(context.get());
            sender->start();
            sender->sendCmdItem(1, 1, 5, 0);
            sender->waitStatu(5, 20000);
        },
        "bad_function_call");
}

}  // namespace
