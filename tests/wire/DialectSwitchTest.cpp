// The switch to the Linux dialect, as the host sees it: what PutMsg answers from then on, and what
// a later start is back to.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "ZFdClientMgr.h"
#include "ZLogger.h"
#include "support/FakeChannel.h"
#include "support/LogCapture.h"
#include "support/PolicyMessage.h"
#include "support/WaitUntil.h"
#include "support/WireMessage.h"

namespace {
class DialectSwitchTest : public testing::Test {
protected:
    DialectSwitchTest() { m_client.Init(m_channel.writer(), m_channel.metric()); }
    ~DialectSwitchTest() override {
        m_client.Stop();
        m_client.Release();
    }

    bool put(std::vector<char> message) {
        return m_client.PutMsg(message.data(), static_cast<int>(message.size()));
    }
    bool putPolicy(std::uint32_t policy) { return put(PolicyMessage{.policy = policy}.build()); }

    // In the Windows dialect an empty message is refused.
    bool isSwitched() {
        char byte = 0;
        return m_client.PutMsg(&byte, 0);
    }

    FakeChannel m_channel;
    LogCapture m_log;
    ZFdClientMgr m_client;
};
}  // namespace

TEST_F(DialectSwitchTest, AfterTheSwitchPutMsgReturnsTrueWhateverItIsGiven) {
    m_client.Start();
    EXPECT_TRUE(putPolicy(PolicyMessage::kLinuxDesktop));
    ASSERT_TRUE(waitUntil([&] { return isSwitched(); }));

    char byte = 0;
    EXPECT_TRUE(m_client.PutMsg(nullptr, 0));
    EXPECT_TRUE(m_client.PutMsg(nullptr, 12));
    EXPECT_TRUE(m_client.PutMsg(&byte, 1));
    EXPECT_TRUE(m_client.PutMsg(&byte, -1));
}

TEST_F(DialectSwitchTest, TwoPoliciesWithTheLinuxBitStartOneLinuxClient) {
    putPolicy(PolicyMessage::kLinuxDesktop);
    putPolicy(PolicyMessage::kLinuxDesktop);  // queued before the switch, so handled after it
    put(wireMessage(kMapCount));
    m_client.Start();
    EXPECT_TRUE(m_channel.waitForWrites(1));

    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "Is Linux Desktop"), 2);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "handle connect work ok"), 1);
}

TEST_F(DialectSwitchTest, WithoutTheLinuxBitNothingIsSwitched) {
    putPolicy(0);
    put(wireMessage(kMapCount));
    m_client.Start();
    EXPECT_TRUE(m_channel.waitForWrites(1));

    EXPECT_FALSE(isSwitched());
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_INFO, "handle connect work"));
}

TEST_F(DialectSwitchTest, AClientThatStartsBehindAStopIsEndedAtOnce) {
    // The log holds the switch up in the middle of its start, until Stop has given up on it.
    std::atomic<bool> isHeld{false};
    std::atomic<bool> isFree{false};
    std::atomic<bool> isEnded{false};
    ZLogger::GetInstance()->SetSink([&](const ZLogRecord& record) {
        if (record.message == "handle connect work ...") {
            isHeld = true;
            isFree.wait(false);
        }
        if (record.message == "send thread stop success") isEnded = true;
    });
    m_client.Start();
    putPolicy(PolicyMessage::kLinuxDesktop);
    EXPECT_TRUE(waitUntil([&] { return isHeld.load(); }));

    EXPECT_TRUE(m_client.Stop());
    EXPECT_FALSE(isSwitched());
    EXPECT_FALSE(isEnded);
    isFree = true;
    isFree.notify_all();

    EXPECT_TRUE(waitUntil([&] { return isEnded.load(); }));
    ZLogger::GetInstance()->SetSink([](const ZLogRecord&) {});
}

TEST_F(DialectSwitchTest, AfterAStopTheServiceStartsInTheWindowsDialectAgain) {
    m_client.Start();
    putPolicy(PolicyMessage::kLinuxDesktop);
    ASSERT_TRUE(waitUntil([&] { return isSwitched(); }));
    EXPECT_TRUE(m_client.Stop());
    EXPECT_FALSE(isSwitched());

    m_client.Start();
    EXPECT_TRUE(put(wireMessage(kMapCount)));
    EXPECT_TRUE(m_channel.waitForWrites(1));
}
