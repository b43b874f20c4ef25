#include "common/LinuxServer/workthread/OpreatorThread.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "support/LinuxContextFixture.h"

namespace {

using linuxframes::Bytes;
using linuxframes::Message;
using linuxframes::Payload;

class OpreatorThreadTest : public LinuxContextFixture {
protected:
    OpreatorThreadTest() {
        m_dir.file("file", "content");
        startSender();
        m_map = addMap(1);
        m_log.clear();
    }

    int threadsMade() const { return m_log.count(3, "create opreator thread. "); }

    void waitUntilIdle() {
        EXPECT_TRUE(waitUntil([&] { return m_map->waitStop(1); }));
        EXPECT_TRUE(waitUntil(
            [&] { return m_log.count(4, "opreator move to ready list. ") >= threadsMade(); }));
    }

    FdMapInfoPtr m_map;
};

TEST_F(OpreatorThreadTest, FillsItsHandlersAndStartsReady) {
    const auto thread = m_context->getReadyThread();

    EXPECT_EQ(thread->waitStatu(2, kStopMs), 2);

    for (const char* text :
         {"opreator handle fill ok.", "OpreatorThread start ...", "OpreatorThread work ..."}) {
        EXPECT_TRUE(m_log.has(3, text)) << text;
    }
    m_context->addReadyThread(thread.get());
}

TEST_F(OpreatorThreadTest, AnswersARequestWithTheSameNode) {
    const Message request = {.mapid = 1,
                             .subtype = linuxframes::kGetattr,
                             .idx = 0x1122334455667788,
                             .payload = Payload("/file"),
                             .res = 99,
                             .headSize = 123,
                             .reserved = 9,
                             .opaque = "abcdefghijklmnopqrstuvwx"};
    EXPECT_TRUE(m_map->handleOpreatorCmdItem(nodeOf(request)));

    const Message reply = sent(1).front();
    EXPECT_EQ(reply.headSize, 123U);
    EXPECT_EQ(reply.reserved, 9U);
    EXPECT_EQ(reply.mapid, 1);
    EXPECT_EQ(reply.type, 3);
    EXPECT_EQ(reply.subtype, linuxframes::kGetattr);
    EXPECT_EQ(reply.idx, request.idx);
    EXPECT_EQ(reply.opaque, request.opaque);
    EXPECT_EQ(reply.res, 0);
    EXPECT_EQ(reply.payload.size(), 104U);
    EXPECT_TRUE(m_log.has(
        4, "get cmd node. mapid: 1, type: 3, subtype: 1, idx: 1234605616436508552, extsize: 14"));
    EXPECT_TRUE(waitUntil([&] { return m_log.has(4, "opreator move to ready list. "); }));
}

TEST_F(OpreatorThreadTest, EchoesTheRequestNumberOfAnOperationThatFailed) {
    m_map->handleOpreatorCmdItem(nodeOf(
        {.mapid = 1, .subtype = linuxframes::kGetattr, .idx = 31, .payload = Payload("/nothing")}));

    const Message reply = sent(1).front();
    EXPECT_EQ(reply.idx, 31);
    EXPECT_EQ(reply.res, -ENOENT);
    EXPECT_TRUE(reply.payload.empty());
}

TEST_F(OpreatorThreadTest, SendsARequestWithoutAHandlerBackAsItCame) {
    std::size_t count = 0;
    for (const int code : {0, 3, 14, 29, 33, 34, 35, 36, 38, 39, 40, 41, 42, 43}) {
        m_log.clear();
        const Message request = {
            .mapid = 1, .subtype = code, .idx = code + 100, .payload = {1, 2, 3}, .res = 7};
        m_map->handleOpreatorCmdItem(nodeOf(request));

        const Message reply = sent(++count).back();
        EXPECT_EQ(reply.subtype, code);
        EXPECT_EQ(reply.res, 7);
        EXPECT_EQ(reply.payload, request.payload);
        EXPECT_TRUE(m_log.has(2, "opreator is not support")) << code;
        waitUntilIdle();
    }
}

TEST_F(OpreatorThreadTest, SendsARequestWithAnInvalidCodeBackAsItCame) {
    std::size_t count = 0;
    for (const int code : {45, -1, 1000, -0x7fffffff - 1}) {
        const Message request = {
            .mapid = 1, .subtype = code, .idx = 5, .payload = {1, 2, 3}, .res = -3};
        m_map->handleOpreatorCmdItem(nodeOf(request));

        const Message reply = sent(++count).back();
        EXPECT_EQ(reply.subtype, code);
        EXPECT_EQ(reply.res, -3);
        EXPECT_EQ(reply.payload, request.payload);
        EXPECT_TRUE(m_log.has(1, "unknow handle type. " + std::to_string(code)));
    }
}

TEST_F(OpreatorThreadTest, HasAHandlerForEachOfThe31Operations) {
    const std::set<int> operations = {1,  2,  4,  5,  6,  7,  8,  9,  10, 11, 12,
                                      13, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24,
                                      25, 26, 27, 28, 30, 31, 32, 37, 44};
    ASSERT_EQ(operations.size(), 31U);
    m_dir.folder("sub");
    for (const int code : operations) {
        m_map->handleOpreatorCmdItem(nodeOf({.mapid = 1,
                                             .subtype = code,
                                             .idx = code,
                                             .payload = linuxframes::anyPayloadOf(code)}));
    }

    std::set<int> answered;
    for (const Message& reply : sent(31)) {
        EXPECT_EQ(reply.idx, reply.subtype);
        answered.insert(reply.subtype);
    }
    EXPECT_EQ(answered, operations);
    EXPECT_FALSE(m_log.has(2, "opreator is not support"));
}

TEST_F(OpreatorThreadTest, AnswersARequestWhoseMapIsGoneWithTryAgain) {
    const auto thread = m_context->getReadyThread();
    fd_cmd_item* item = nodeOf({.mapid = 77,
                                .subtype = linuxframes::kGetattr,
                                .idx = 12,
                                .payload = Payload("/file"),
                                .res = 5});

    EXPECT_TRUE(thread->addOpreatorCmd(item));

    const Message reply = sent(1).front();
    EXPECT_EQ(reply.idx, 12);
    EXPECT_EQ(reply.res, -11);
    EXPECT_TRUE(reply.payload.empty());
}

// The map is off the list for a moment while the server's answer to its offer is treated.
TEST_F(OpreatorThreadTest, ARequestThatFindsItsMapOffTheListIsNoLongerCountedByIt) {
    const auto parked = std::make_shared<OpreatorThread>(m_context.get());
    m_context->addReadyThread(parked.get());
    m_map->handleOpreatorCmdItem(
        nodeOf({.mapid = 1, .subtype = linuxframes::kGetattr, .payload = Payload("/file")}));
    m_context->getMapInfoById(1);
    EXPECT_FALSE(m_map->waitStop(100));

    parked->start();

    EXPECT_EQ(sent(1).front().res, -11);
    EXPECT_TRUE(waitUntil([&] { return m_map->waitStop(100); }));
    EXPECT_TRUE(parked->waitStop(kStopMs));
}

TEST_F(OpreatorThreadTest, OneThreadServesRequestAfterRequest) {
    for (int i = 1; i <= 20; ++i) {
        m_map->handleOpreatorCmdItem(
            nodeOf({.mapid = 1, .subtype = linuxframes::kGetattr, .payload = Payload("/file")}));
        sent(static_cast<std::size_t>(i));
        EXPECT_TRUE(
            waitUntil([&] { return m_log.count(4, "opreator move to ready list. ") == i; }));
    }

    EXPECT_EQ(threadsMade(), 1);
}

TEST_F(OpreatorThreadTest, ASecondRequestWhileTheOnlyThreadIsBusyMakesASecondThread) {
    const std::string fifo = m_dir.str("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    m_map->handleOpreatorCmdItem(nodeOf(
        {.mapid = 1, .subtype = linuxframes::kOpen, .payload = linuxframes::infoOf("/fifo")}));

    m_map->handleOpreatorCmdItem(
        nodeOf({.mapid = 1, .subtype = linuxframes::kGetattr, .payload = Payload("/file")}));

    EXPECT_EQ(sent(1).front().subtype, linuxframes::kGetattr);  // the other one still waits
    EXPECT_EQ(threadsMade(), 2);
    EXPECT_FALSE(m_map->waitStop(20000));
    std::ofstream writer(fifo);  // lets the open go on
    EXPECT_EQ(sent(2)[1].subtype, linuxframes::kOpen);
    waitUntilIdle();
}

TEST_F(OpreatorThreadTest, DropsTheReplyWithoutASendThread) {
    m_context->sendThread()->waitStop(kStopMs);
    m_context->setSendThread(nullptr);
    fd_cmd_item* item =
        nodeOf({.mapid = 1, .subtype = linuxframes::kGetattr, .payload = Payload("/file")});

    m_map->handleOpreatorCmdItem(item);

    waitUntilIdle();
    EXPECT_TRUE(m_channel.writes().empty());
    EXPECT_EQ(nodeOf({}), item);  // it went back to the cache
    m_context->m_cmd_cache.put_node(item);
}

TEST_F(OpreatorThreadTest, StopsWhileItWaitsForANode) {
    const auto thread = m_context->getReadyThread();
    thread->waitStatu(2, kStopMs);

    EXPECT_TRUE(thread->waitStop(kStopMs));

    EXPECT_EQ(thread->getThreadStatu(), 5);
    EXPECT_TRUE(m_log.has(3, "MapCtrlThread wait stop, msecond: 20000  ..."));
    EXPECT_TRUE(m_log.contains(3, "MapCtrlThread wait stop end,  m_exit_flag: 1, msecond: "));
    EXPECT_TRUE(m_log.has(3, "OpreatorThread finish ..."));
}

// A stop that comes before the first look at the queue wakes nobody: then again.
TEST_F(OpreatorThreadTest, WarnsWhenItIsWokenWithoutANode) {
    for (int i = 0; i < 1000 && !m_log.has(2, "OpreatorThread get node failure"); ++i) {
        const auto thread = std::make_shared<OpreatorThread>(m_context.get());
        thread->start();
        thread->waitStatu(2, kStopMs);
        EXPECT_TRUE(thread->waitStop(kStopMs));
    }

    EXPECT_TRUE(m_log.has(2, "OpreatorThread get node failure"));
}

TEST_F(OpreatorThreadTest, IsWorkingWhileItTreatsARequestAndReadyAfterIt) {
    const std::string fifo = m_dir.str("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const auto thread = m_context->getReadyThread();
    EXPECT_EQ(thread->waitStatu(2, kStopMs), 2);
    m_context->addReadyThread(thread.get());

    m_map->handleOpreatorCmdItem(nodeOf(
        {.mapid = 1, .subtype = linuxframes::kOpen, .payload = linuxframes::infoOf("/fifo")}));

    EXPECT_EQ(thread->waitStatu(3, kStopMs), 3);
    std::ofstream writer(fifo);  // lets the open go on
    waitUntilIdle();
    EXPECT_EQ(thread->getThreadStatu(), 2);
}

TEST_F(OpreatorThreadTest, GoesQuietlyIfItHasServedNothing) {
    auto thread = std::make_shared<OpreatorThread>(m_context.get());
    m_log.clear();

    thread.reset();

    const std::vector<LogLine> expected = {{3, "destory OpreatorThread ..."},
                                           {3, "cmd size is zero"},
                                           {3, "destory OpreatorThread ok "}};
    EXPECT_EQ(m_log.lines(), expected);
}

TEST_F(OpreatorThreadTest, SaysAtItsEndThatItHasServedAMap) {
    auto thread = std::make_shared<OpreatorThread>(m_context.get());
    EXPECT_TRUE(thread->setMapInfo(m_map.get()));
    fd_cmd_item* item = nodeOf({});
    thread->addOpreatorCmd(item);
    m_log.clear();

    thread.reset();

    const std::vector<LogLine> expected = {{3, "destory OpreatorThread ..."},
                                           {1, "m_map_info != NULL"},
                                           {2, "free item. item: " + pointerText(item)},
                                           {3, "cmd size is zero"},
                                           {3, "destory OpreatorThread ok "}};
    EXPECT_EQ(m_log.lines(), expected);
}

TEST_F(OpreatorThreadTest, EveryThreadThatHasServedSaysSoAtTheDisconnect) {
    m_map->handleOpreatorCmdItem(
        nodeOf({.mapid = 1, .subtype = linuxframes::kGetattr, .payload = Payload("/file")}));
    waitUntilIdle();

    EXPECT_TRUE(m_context->freeAllOpreatorThread());

    EXPECT_EQ(m_log.count(1, "m_map_info != NULL"), 1);
}

}  // namespace
