#include "common/LinuxServer/FdLinuxDesktopClient.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "common/Policy/FdClientPolicy.h"
#include "support/FakeChannel.h"
#include "support/LinuxFrames.h"
#include "support/LogCapture.h"
#include "support/RefusedNew.h"
#include "support/ScarceMemory.h"
#include "support/TempDir.h"
#include "support/WaitUntil.h"

namespace {

using linuxframes::Bytes;
using linuxframes::Message;
using linuxframes::Payload;

// The root of this machine's tree is the one map, so paths are those of the temporary folder.
class FdLinuxDesktopClientTest : public testing::Test {
protected:
    FdLinuxDesktopClientTest() {
        m_policy->setLinuxRootDirEnable(1);
        m_policy->setLinuxMountPath("/no such folder");
        m_policy->setItaPolicy(0x45b);
        m_client.SetChannelWrite(m_channel.wholeWriter());
        m_client.SetClientPolicy(m_policy.get());
        m_log.clear();
    }
    ~FdLinuxDesktopClientTest() override { m_client.StopWork(); }

    // Until the root is offered and the map acknowledged.
    void startWithMap() {
        EXPECT_TRUE(m_client.StartWork());
        ASSERT_TRUE(m_channel.waitForWrites(1));
        EXPECT_TRUE(put({.mapid = 1, .type = 1, .subtype = 6, .payload = Bytes(16)}));
        ASSERT_TRUE(m_channel.waitForWrites(2));
        EXPECT_TRUE(
            waitUntil([&] { return m_log.contains(3, "client handle map cmd success. "); }));
        m_channel.clear();
        m_log.clear();
    }

    bool put(const Message& message) { return putFrame(linuxframes::frameOf(message)); }
    bool putFrame(const Bytes& frame) {
        return m_client.PutMsg(frame.data(), static_cast<int>(frame.size()));
    }

    Message onlyReply() {
        EXPECT_TRUE(m_channel.waitForWrites(1));
        return linuxframes::parse(m_channel.onlyWrite());
    }

    LogCapture m_log;
    TempDir m_dir;
    FakeChannel m_channel;
    std::shared_ptr<FdClientPolicy> m_policy = std::make_shared<FdClientPolicy>();
    FdLinuxDesktopClient m_client{ZListener{}};
};

TEST_F(FdLinuxDesktopClientTest, SaysHowItStarts) {
    EXPECT_TRUE(m_client.StartWork());

    std::vector<std::string> texts = {"init opreator thread.  count: 10",
                                      "handle connect work ...",
                                      "sizeof(fd_msg_item)   :  64",
                                      "sizeof(fd_stat)       :  104",
                                      "sizeof(fd_statvfs)    :  88",
                                      "sizeof(fd_statfs)     :  120",
                                      "sizeof(fd_file_info)  :  48",
                                      "read user configure. ",
                                      "load user policy",
                                      "m_max_map_thread_num: 30",
                                      "m_def_map_thread_num: 1",
                                      "handle connect work ok"};
    std::vector<std::string> seen;
    for (const LogLine& line : m_log.lines()) {
        if (std::ranges::find(texts, line.message) != texts.end()) {
            EXPECT_EQ(line.level, 3);
            seen.push_back(line.message);
        }
    }
    EXPECT_EQ(seen, texts);
}

TEST_F(FdLinuxDesktopClientTest, SaysHowItStops) {
    m_client.StartWork();

    EXPECT_TRUE(m_client.StopWork());

    EXPECT_TRUE(m_log.hasInOrder({{3, "MapCtrlThread wait stop, msecond: 20000  ..."},
                                  {3, "wake up all waiter ..."},
                                  {3, "wake up all waiter ok "},
                                  {3, "mapctrl thread handle disconnect"},
                                  {3, "free all opreator thread."},
                                  {3, "all map in server unplugin ok. "},
                                  {3, "map ctrl thread stop success"},
                                  {3, "destory MapCtrlThread ..."},
                                  {3, "destory MapCtrlThread ok "},
                                  {3, "MapCtrlThread wait stop, msecond: 20000  ..."},
                                  {3, "wake up all waiter ..."},
                                  {3, "wake up all waiter ok "},
                                  {3, "send thread stop success"},
                                  {3, "destory SendThread ..."},
                                  {3, "destory SendThread ok "},
                                  {3, "destory FdContext!"}}));
}

TEST_F(FdLinuxDesktopClientTest, StopWorkWithoutAStartFailsWithAWarning) {
    EXPECT_FALSE(m_client.StopWork());

    EXPECT_TRUE(m_log.has(2, "disconnect, but client never connect."));
}

TEST_F(FdLinuxDesktopClientTest, WaitStopDoesNothing) {
    EXPECT_TRUE(m_client.WaitStop());
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(FdLinuxDesktopClientTest, DropsMessagesBeforeTheStartAndAfterTheStop) {
    EXPECT_FALSE(put({.mapid = 1, .subtype = 1}));
    m_client.StartWork();
    EXPECT_TRUE(put({.mapid = 1, .subtype = 1}));
    m_client.StopWork();
    EXPECT_FALSE(put({.mapid = 1, .subtype = 1}));
}

TEST_F(FdLinuxDesktopClientTest, RefusesAFrameOf75BytesOrFewer) {
    m_client.StartWork();
    const Bytes frame(80);
    for (int size : {-1, 0, 1, 12, 64, 75}) {
        m_log.clear();
        EXPECT_FALSE(m_client.PutMsg(frame.data(), size)) << size;
        EXPECT_TRUE(m_log.has(1, "buffer size is not match.")) << size;
    }
    EXPECT_TRUE(m_client.PutMsg(frame.data(), 76));
}

TEST_F(FdLinuxDesktopClientTest, AFrameOf76BytesIsARequestWithoutAPayload) {
    startWithMap();

    EXPECT_TRUE(put({.mapid = 1, .subtype = linuxframes::kGetattr, .idx = 9}));

    // The empty path of a zeroed buffer is the map's own path.
    const Message reply = onlyReply();
    EXPECT_EQ(reply.idx, 9);
    EXPECT_EQ(reply.res, 0);
    EXPECT_EQ(reply.payload.size(), 104U);
}

TEST_F(FdLinuxDesktopClientTest, SaysWhatItReceives) {
    startWithMap();

    put({.mapid = 1,
         .subtype = linuxframes::kAccess,
         .idx = 9,
         .payload = linuxframes::numberOf("/", 4)});

    EXPECT_EQ(onlyReply().res, 0);
    EXPECT_TRUE(m_log.has(
        4, "recv cmd item head success. mapid: 1, type: 3, subtype: 32, extsize: 18, idx: 9"));
    EXPECT_TRUE(m_log.contains(4, "recv msg data success. item: 0x"));
    EXPECT_TRUE(m_log.has(4, "put item node to opreator thread success"));
}

TEST_F(FdLinuxDesktopClientTest, SaysThatItHasPassedAControlMessageOn) {
    m_client.StartWork();

    EXPECT_TRUE(put({.mapid = 1, .type = 1, .subtype = 1}));

    EXPECT_TRUE(m_log.has(4, "recv a map ctrl cmd ok"));
}

TEST_F(FdLinuxDesktopClientTest, DropsAMessageOfAnUnknownType) {
    startWithMap();
    for (const int type : {0, 2, 4, -1, 0x7fffffff}) {
        m_log.clear();
        EXPECT_TRUE(put({.mapid = 1, .type = type, .subtype = 1}));
        EXPECT_TRUE(m_log.has(4, "unknow cmd type"));
        EXPECT_TRUE(m_log.has(2, "free a item"));
    }
    EXPECT_TRUE(m_channel.writes().empty());
}

TEST_F(FdLinuxDesktopClientTest, ARequestForAnUnknownMapGetsNoReply) {
    startWithMap();

    EXPECT_TRUE(put({.mapid = 2, .subtype = linuxframes::kGetattr, .payload = Payload("/")}));

    EXPECT_TRUE(m_log.has(1, "put item node to opreator thread failure. mapid: 2"));
    EXPECT_TRUE(m_log.has(2, "free a item"));
    put({.mapid = 1, .subtype = linuxframes::kStatfs, .payload = Payload("/")});
    EXPECT_EQ(onlyReply().subtype, linuxframes::kStatfs);
}

TEST_F(FdLinuxDesktopClientTest, APayloadOf64KiBUsesTheNodesBufferAndOneByteMoreReplacesIt) {
    startWithMap();
    Bytes payload = Payload("/");

    payload.resize(65536);
    put({.mapid = 1, .subtype = linuxframes::kGetattr, .payload = payload});
    EXPECT_TRUE(m_channel.waitForWrites(1));
    EXPECT_FALSE(m_log.contains(3, "malloc pdata."));

    payload.resize(65537);
    put({.mapid = 1, .subtype = linuxframes::kGetattr, .payload = payload});
    EXPECT_TRUE(m_channel.waitForWrites(2));
    EXPECT_TRUE(m_log.has(3, "malloc pdata.   pdatasize: 0x10001, extsize: 65537"));
}

TEST_F(FdLinuxDesktopClientTest, WithoutANodeAMessageIsLostAfterASecond) {
    m_policy->setLinuxRootDirEnable(0);  // nothing is offered, so the pool stays empty
    m_client.StartWork();
    const auto start = std::chrono::steady_clock::now();
    {
        const RefusedNew refused;
        EXPECT_FALSE(put({.mapid = 1, .type = 1, .subtype = 1}));
    }

    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(980));
    EXPECT_TRUE(m_log.has(2, "malloc item node failure. "));
    EXPECT_TRUE(put({.mapid = 1, .type = 1, .subtype = 1}));
}

TEST_F(FdLinuxDesktopClientTest, APayloadThatNoMemoryHoldsIsTriedTenTimes) {
    startWithMap();
    const auto start = std::chrono::steady_clock::now();
    bool isTaken = true;
    {
        const ScarceMemory limit;
        isTaken = put({.mapid = 1, .subtype = 3, .payload = {1}, .extsize = 1 << 30});
    }
    if (isTaken) GTEST_SKIP() << "this system does not bound a program's memory";

    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(480));
    EXPECT_EQ(m_log.count(2, "RecvThread malloc pdata failure.  size: 1073741824"), 11);
    EXPECT_FALSE(m_log.has(2, "free a item"));
    EXPECT_TRUE(put({.mapid = 1, .subtype = linuxframes::kStatfs, .payload = Payload("/")}));
    EXPECT_EQ(onlyReply().subtype, linuxframes::kStatfs);
}

TEST_F(FdLinuxDesktopClientTest, WhatTheHeadPromisesBeyondTheFrameIsZero) {
    startWithMap();

    for (const std::int32_t extsize : {100, 70000, 10000000}) {
        m_channel.clear();
        EXPECT_TRUE(put({.mapid = 1, .subtype = 3, .payload = {1, 2, 3}, .extsize = extsize}));

        Bytes expected = {1, 2, 3};
        expected.resize(static_cast<std::size_t>(extsize));
        EXPECT_TRUE(onlyReply().payload == expected) << extsize;
    }
}

TEST_F(FdLinuxDesktopClientTest, ANegativeSizeIsNoPayload) {
    startWithMap();
    for (const std::int32_t extsize : {-2, std::numeric_limits<std::int32_t>::min()}) {
        m_channel.clear();
        EXPECT_TRUE(
            put({.mapid = 1, .subtype = 3, .idx = 4, .payload = {1, 2}, .extsize = extsize}));

        EXPECT_TRUE(m_channel.waitForWrites(1));
        EXPECT_EQ(m_channel.onlyWrite().size(), 76U);
    }
}

TEST_F(FdLinuxDesktopClientTest, BytesBehindTheAnnouncedPayloadAreNotTaken) {
    startWithMap();

    put({.mapid = 1, .subtype = 3, .payload = {1, 2, 3, 4}, .extsize = 2});

    EXPECT_EQ(onlyReply().payload, (Bytes{1, 2}));
}

TEST_F(FdLinuxDesktopClientTest, ANodeCarriesNothingOverToTheNextMessage) {
    startWithMap();
    put({.mapid = 1, .subtype = 3, .payload = Bytes(5000, 'x')});
    EXPECT_TRUE(m_channel.waitForWrites(1));

    for (std::size_t i = 2; i < 6; ++i) {
        put({.mapid = 1, .subtype = 3, .extsize = 6000});
        EXPECT_TRUE(m_channel.waitForWrites(i));
        EXPECT_TRUE(linuxframes::parse(m_channel.writes().back()).payload == Bytes(6000));
    }
}

TEST_F(FdLinuxDesktopClientTest, KeepsItsWriterUntilItsWorkersHaveEnded) {
    auto kept = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = kept;
    m_client.SetChannelWrite([kept](char* /*data*/, int size) { return size; });
    kept.reset();
    m_client.StartWork();
    m_client.SetChannelWrite({});

    EXPECT_FALSE(watched.expired());
    m_client.StopWork();
    EXPECT_TRUE(waitUntil([&] { return watched.expired(); }));
}

TEST_F(FdLinuxDesktopClientTest, AWriterThatFailsLosesTheRestAndStopsInTime) {
    m_client.SetChannelWrite([](char* /*data*/, int /*size*/) { return -1; });
    m_client.StartWork();
    EXPECT_TRUE(waitUntil([&] { return m_log.has(1, "send fd msg fail."); }));

    EXPECT_TRUE(put({.mapid = 1, .subtype = linuxframes::kGetattr, .payload = Payload("/")}));
    EXPECT_TRUE(m_client.StopWork());

    EXPECT_TRUE(m_log.has(3, "send thread stop success"));
}

TEST_F(FdLinuxDesktopClientTest, AMapControlThreadThatDoesNotStopFailsNothingElse) {
    std::atomic<bool> mayGoOn{false};
    std::atomic<bool> isHeld{false};
    m_log.onLine([&](const LogLine& line) {
        if (line.message != "MapCtrlThread work ...") return;
        isHeld = true;
        waitUntil([&] { return mayGoOn.load(); }, std::chrono::seconds(90));
    });
    m_client.StartWork();
    EXPECT_TRUE(waitUntil([&] { return isHeld.load(); }));

    EXPECT_TRUE(m_client.StopWork());

    EXPECT_TRUE(m_log.hasInOrder({{3, "MapCtrlThread wait stop end,  m_exit_flag: 0, msecond: 0"},
                                  {2, "map ctrl thread stop failure"},
                                  {3, "send thread stop success"},
                                  {3, "destory FdContext!"}}));
    EXPECT_FALSE(m_log.has(3, "destory MapCtrlThread ..."));
    mayGoOn = true;
    EXPECT_TRUE(waitUntil([&] { return m_log.contains(3, "FdContext is gone."); }));
    EXPECT_TRUE(m_log.has(3, "destory MapCtrlThread ok "));
}

// A worker that does not stop keeps the connection's memory, and nothing else.
TEST_F(FdLinuxDesktopClientTest, AWriterThatBlocksFailsTheStopButNotTheDisconnect) {
    std::atomic<bool> mayGoOn{false};
    std::atomic<bool> isBlocked{false};
    m_client.SetChannelWrite([&](char* /*data*/, int size) {
        isBlocked = true;
        waitUntil([&] { return mayGoOn.load(); }, std::chrono::seconds(90));
        return size;
    });
    m_client.StartWork();
    EXPECT_TRUE(waitUntil([&] { return isBlocked.load(); }));
    const auto start = std::chrono::steady_clock::now();

    EXPECT_TRUE(m_client.StopWork());

    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(19));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
    EXPECT_TRUE(m_log.has(3, "map ctrl thread stop success"));
    EXPECT_TRUE(m_log.has(2, "send thread stop failure"));
    EXPECT_TRUE(m_log.has(3, "destory FdContext!"));
    m_log.clear();
    mayGoOn = true;
    EXPECT_TRUE(waitUntil([&] { return m_log.contains(3, "FdContext is gone."); }));
}

}  // namespace
