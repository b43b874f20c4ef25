// The exported object from the host's side: phases, results, the handshake, and inbound messages on
// their way to an answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "ZFdClientMgr.h"
#include "support/FakeChannel.h"
#include "support/LogCapture.h"
#include "support/PolicyMessage.h"
#include "support/WaitUntil.h"
#include "support/WireMessage.h"

using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::SizeIs;

namespace {
class LifeCycleTest : public testing::Test {
protected:
    ~LifeCycleTest() override { end(); }  // also where an assertion left the test

    bool init() { return m_client.Init(m_channel.writer(), m_channel.metric()); }

    bool put(std::vector<char> message) {
        return m_client.PutMsg(message.data(), static_cast<int>(message.size()));
    }

    void start() {
        ASSERT_TRUE(init());
        ASSERT_TRUE(m_client.Start());
    }

    // Whether the request for the number of maps with that tag gets its answer.
    bool answered(int seq) const {
        return m_channel.waitFor([seq](const auto& writes) {
            return std::ranges::any_of(writes, [seq](const FakeChannel::Message& message) {
                return message.size() == 16 && message[0] == 2 && message[1] == 2 &&
                       message[3] == seq;
            });
        });
    }

    // Asks for the number of maps and waits for the answer, so all before it has been handled.
    bool answers(int seq = 1) { return put(wireMessage(kMapCount, 0, seq)) && answered(seq); }

    void offerRoot() {
        EXPECT_TRUE(put(PolicyMessage{.rootDirEnable = 1, .mountPath = ""}.build()));
    }

    void end() {
        EXPECT_TRUE(m_client.Stop());
        m_client.Release();
    }

    FakeChannel m_channel;
    LogCapture m_log;
    ZFdClientMgr m_client;
};
}  // namespace

// Init and Release

TEST_F(LifeCycleTest, InitNeedsBothCallables) {
    EXPECT_TRUE(m_client.Init(m_channel.writer(), m_channel.metric()));
    EXPECT_FALSE(m_client.Init({}, m_channel.metric()));
    EXPECT_FALSE(m_client.Init(m_channel.writer(), {}));
    EXPECT_FALSE(m_client.Init({}, {}));
    m_client.Release();
}

TEST_F(LifeCycleTest, TheQueueExistsAfterAnInitWithAnEmptyCallable) {
    EXPECT_FALSE(m_client.Init({}, {}));
    EXPECT_TRUE(put(wireMessage(kMapCount)));
    m_client.Release();
}

TEST_F(LifeCycleTest, ReleaseTwiceDoesNothingTheSecondTime) {
    m_client.Release();
    init();
    m_client.Release();
    m_client.Release();
    EXPECT_FALSE(put(wireMessage(kMapCount)));
}

TEST_F(LifeCycleTest, InitAfterReleaseWorks) {
    for (int round = 0; round < 3; ++round) {
        start();
        EXPECT_TRUE(answers());
        end();
        m_channel.clear();
    }
}

TEST_F(LifeCycleTest, ReleaseForgetsThePolicy) {
    start();
    offerRoot();
    EXPECT_TRUE(
        waitUntil([this] { return m_log.has(ZLOG_LEVEL_INFO, "mountNode.m_pre_path:   /."); }));
    end();
    m_channel.clear();

    EXPECT_TRUE(m_client.Start());

    EXPECT_FALSE(m_channel.waitFor([](const auto& writes) { return !writes.empty(); }, seconds(1)));
}

TEST_F(LifeCycleTest, ReleaseFreesTheMessagesThatAreStillQueued) {
    init();
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(put(wireMessage(kMapCount)));
    m_client.Release();  // the leak sanitizer has the last word
}

// Start and Stop

TEST_F(LifeCycleTest, StopBeforeStartDoesNothing) {
    EXPECT_TRUE(m_client.Stop());
    init();
    EXPECT_TRUE(m_client.Stop());
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_ERROR, "stop error"));
}

TEST_F(LifeCycleTest, StopTwiceDoesNothingTheSecondTime) {
    start();
    EXPECT_TRUE(m_client.Stop());
    m_log.clear();
    EXPECT_TRUE(m_client.Stop());
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(LifeCycleTest, StopEndsTheMaps) {
    start();
    offerRoot();
    EXPECT_TRUE(
        waitUntil([this] { return m_log.has(ZLOG_LEVEL_INFO, "mountNode.m_pre_path:   /."); }));

    EXPECT_TRUE(m_client.Stop());

    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "ClientName:/., mapName:Mac r-rt "), 1);
}

TEST_F(LifeCycleTest, StartAfterStopHandlesWhatWasQueuedMeanwhile) {
    start();
    EXPECT_TRUE(answers());
    m_client.Stop();
    m_channel.clear();

    EXPECT_TRUE(put(wireMessage(kMapCount, 0, 1)));
    EXPECT_TRUE(m_channel.writes().empty());  // nobody reads the queue
    EXPECT_TRUE(m_client.Start());
    EXPECT_TRUE(m_channel.waitForWrites(1));
    end();
}

TEST_F(LifeCycleTest, StartBeforeInitIdles) {
    EXPECT_TRUE(m_client.Start());
    EXPECT_FALSE(put(wireMessage(kMapCount)));
    EXPECT_TRUE(m_client.Stop());
}

TEST_F(LifeCycleTest, ThreadsStopLongBeforeTheirLimit) {
    start();
    EXPECT_TRUE(answers());
    const auto before = steady_clock::now();
    EXPECT_TRUE(m_client.Stop());
    EXPECT_LT(steady_clock::now() - before, seconds(9));
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_ERROR, "stop error"));
}

// The handshake

TEST_F(LifeCycleTest, TheHandshakeIs15Bytes) {
    init();
    EXPECT_TRUE(m_client.SendHandShake());
    EXPECT_EQ(m_channel.onlyWrite(),
              bytesOf("\xEF\xCD\x00\x00\x3D\x00\x00\x00\x03\x00\x00\x00\x77\x67\x71"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "connect to server success[0x500e0000]"));
}

TEST_F(LifeCycleTest, AHandshakeThatCannotBeWrittenCountsAsSent) {
    init();
    m_channel.m_result = -1;
    EXPECT_TRUE(m_client.SendHandShake());
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "connect to server success[0x500e0000]"));
}

TEST_F(LifeCycleTest, AHandshakeWithoutAWriteCallableThrows) {
    EXPECT_THROW(m_client.SendHandShake(), std::bad_function_call);
    m_client.Init({}, m_channel.metric());
    EXPECT_THROW(m_client.SendHandShake(), std::bad_function_call);
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_INFO, "connect to server"));
}

TEST_F(LifeCycleTest, TheHandshakeStillWorksAfterRelease) {
    init();
    m_client.Release();
    EXPECT_TRUE(m_client.SendHandShake());
    EXPECT_THAT(m_channel.onlyWrite(), SizeIs(15));
}

// PutMsg in every phase

TEST_F(LifeCycleTest, PutMsgBeforeInitFails) {
    EXPECT_FALSE(put(wireMessage(kMapCount)));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "m_msgQueue == NULL"));
}

TEST_F(LifeCycleTest, PutMsgWithoutDataOrSizeFailsInEveryPhase) {
    char byte = 0;
    const auto refused = [&] {
        m_log.clear();
        EXPECT_FALSE(m_client.PutMsg(nullptr, 12));
        EXPECT_FALSE(m_client.PutMsg(nullptr, 0));
        EXPECT_FALSE(m_client.PutMsg(&byte, 0));
        EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR, "data == NULL || dataSize == 0"), 3);
    };
    refused();
    init();
    refused();
    m_client.Start();
    refused();
    m_client.Stop();
    refused();
    m_client.Release();
    refused();
}

TEST_F(LifeCycleTest, PutMsgWithANegativeSizeThrows) {
    init();
    char byte = 0;
    EXPECT_THROW(m_client.PutMsg(&byte, -1), std::bad_alloc);
    m_client.Release();
}

TEST_F(LifeCycleTest, PutMsgAfterStopSucceedsUntilRelease) {
    start();
    m_client.Stop();
    EXPECT_TRUE(put(wireMessage(kMapCount)));
    m_client.Release();
    EXPECT_FALSE(put(wireMessage(kMapCount)));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "m_msgQueue == NULL"));
}

TEST_F(LifeCycleTest, MessagesShorterThanAHeaderReadZerosBehindThem) {
    start();
    EXPECT_TRUE(put({'\x10'}));
    EXPECT_TRUE(put(bytesOf("\x10\0\x07\x08\1\1\1\1\1\1\1")));    // 11 bytes
    EXPECT_TRUE(put(bytesOf("\x10\0\x07\x09\1\1\1\1\1\1\1\1")));  // 12 bytes
    ASSERT_TRUE(m_channel.waitForWrites(3));
    EXPECT_THAT(m_channel.writes(),
                ElementsAre(bytesOf("\x02\x02\0\0\0\0\0\0\x04\0\0\0\0\0\0\0"),
                            bytesOf("\x02\x02\x07\x08\0\0\0\0\x04\0\0\0\0\0\0\0"),
                            bytesOf("\x02\x02\x07\x09\0\0\0\0\x04\0\0\0\0\0\0\0")));
    end();
}

TEST_F(LifeCycleTest, PutMsgTakesACopy) {
    start();
    auto message = wireMessage(kMapCount, 0, 1);
    EXPECT_TRUE(m_client.PutMsg(message.data(), static_cast<int>(message.size())));
    std::ranges::fill(message, '\xFF');
    EXPECT_TRUE(answers(2));
    EXPECT_EQ(m_channel.writes().front().at(3), 1);
    end();
}

TEST_F(LifeCycleTest, MessagesOfManyThreadsAreAllAnswered) {
    start();
    std::vector<std::thread> hosts;
    for (int host = 0; host < 4; ++host) {
        hosts.emplace_back([this, host] {
            for (int i = 0; i < 250; ++i) EXPECT_TRUE(put(wireMessage(kMapCount, 0, host)));
        });
    }
    for (std::thread& host : hosts) host.join();
    EXPECT_TRUE(m_channel.waitForWrites(1000));
    end();
}

// Inbound messages

TEST_F(LifeCycleTest, AFileRequestWithoutAnyMapIsRefused) {
    start();
    put(wireMessage(3, 0, 5, std::string("\1\1\1\1\2\2\2\2\3\4\5\6", 12), 99));
    ASSERT_TRUE(m_channel.waitForWrites(1));
    EXPECT_EQ(m_channel.onlyWrite(),
              bytesOf("\x02\x02\0\x05\0\0\0\0\x0B\0\0\0\xFE\xFF\xFF\xFF\0\0\0\0\3\4\5"));
    end();
}

TEST_F(LifeCycleTest, CodesThatNobodyKnowsAreDropped) {
    start();
    for (const int code : {20, 519, 520, 1000, 0xCDEF}) EXPECT_TRUE(put(wireMessage(code)));
    EXPECT_TRUE(answers());
    EXPECT_THAT(m_channel.writes(), SizeIs(1));
    end();
}

TEST_F(LifeCycleTest, AFailedWriteLosesOneResultAndNothingElse) {
    start();
    m_channel.m_result = -3;
    put(wireMessage(kMapCount, 0, 7));
    EXPECT_TRUE(
        waitUntil([&] { return m_log.has(ZLOG_LEVEL_ERROR, "write info error.   ret: -3"); }));
    EXPECT_THAT(m_channel.onlyWrite(), SizeIs(16));

    m_channel.m_result = 0;
    EXPECT_TRUE(answers());
    end();
}

TEST_F(LifeCycleTest, AMessageOf1049600BytesIsHandled) {
    start();
    put(wireMessage(kMapCount, 0, 7, std::string(1049588, 'x')));
    EXPECT_TRUE(m_channel.waitForWrites(1));
    end();
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_ERROR, "stop error"));
}

TEST_F(LifeCycleTest, OneByteMoreEndsTheProcessingThreadAndStopWaits10SecondsForIt) {
    start();
    EXPECT_TRUE(answers());
    m_channel.clear();
    EXPECT_TRUE(put(wireMessage(kMapCount, 0, 7, std::string(1049589, 'x'))));
    EXPECT_TRUE(put(wireMessage(kMapCount)));  // taken, and never looked at
    EXPECT_TRUE(
        waitUntil([&] { return m_log.has(ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 162"); }));

    const auto before = steady_clock::now();
    EXPECT_TRUE(m_client.Stop());
    EXPECT_GE(steady_clock::now() - before, seconds(9));
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR, "FdMsgProcThread stop error"), 1);
    EXPECT_FALSE(m_log.has(ZLOG_LEVEL_ERROR, "ControlThread stop error"));
    EXPECT_TRUE(m_channel.writes().empty());

    EXPECT_TRUE(m_client.Start());  // a new thread goes on with the queue
    EXPECT_TRUE(m_channel.waitForWrites(1));
    end();
}

TEST_F(LifeCycleTest, StopEndsTheDriveMonitorBeforeTheProcessingThread) {
    // The metric callable holds the monitor up until a request was answered that came after the
    // beginning of Stop.
    std::atomic<bool> held{false};
    m_client.Init(m_channel.writer(), [&](int, char*, unsigned) {
        held = true;
        return answered(9) ? 0 : -1;
    });
    m_client.Start();
    offerRoot();
    EXPECT_TRUE(waitUntil([&] { return held.load(); }));

    std::thread stopper([this] { EXPECT_TRUE(m_client.Stop()); });
    EXPECT_TRUE(waitUntil([this] {  // by then a thread that is not held up would have ended
        return m_log.has(ZLOG_LEVEL_INFO, " wait Stop. waitStepTime: 4");
    }));
    EXPECT_TRUE(answers(9));
    stopper.join();

    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_ERROR, "stop error"));
}

TEST_F(LifeCycleTest, AMonitorThatIsHeldUpIsGivenUpAfter10Seconds) {
    const auto open = std::make_shared<std::atomic<bool>>(false);
    std::atomic<bool> held{false};
    m_client.Init(m_channel.writer(), [&held, open](int, char*, unsigned) {
        held = true;
        open->wait(false);
        return 0;
    });
    m_client.Start();
    offerRoot();
    EXPECT_TRUE(waitUntil([&] { return held.load(); }));

    const auto before = steady_clock::now();
    EXPECT_TRUE(m_client.Stop());

    EXPECT_GE(steady_clock::now() - before, seconds(9));
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR, "ControlThread stop error"), 1);
    EXPECT_FALSE(m_log.has(ZLOG_LEVEL_ERROR, "FdMsgProcThread stop error"));
    *open = true;
    open->notify_all();
    EXPECT_TRUE(waitUntil([&] { return open.use_count() == 2; }));  // this one and the client's
}

TEST_F(LifeCycleTest, AThreadThatIsLateMayStillWriteWhenTheClientIsGone) {
    // The write callable blocks the processing thread for longer than Stop waits. All that the
    // thread touches afterwards is still there, which the sanitizers prove.
    struct Gate {
        std::atomic<bool> entered{false};
        std::atomic<bool> open{false};
    };
    const auto gate = std::make_shared<Gate>();
    auto client = std::make_unique<ZFdClientMgr>();
    client->Init(
        [gate](char*, int) {
            gate->entered = true;
            gate->entered.notify_all();
            gate->open.wait(false);
            return -9;
        },
        m_channel.metric());
    client->Start();
    for (int i = 0; i < 3; ++i) {
        auto message = wireMessage(kMapCount);
        client->PutMsg(message.data(), 12);
    }
    gate->entered.wait(false);

    EXPECT_TRUE(client->Stop());
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "FdMsgProcThread stop error"));
    client->Release();
    client.reset();
    const std::weak_ptr<Gate> copies = gate;
    EXPECT_GT(copies.use_count(), 1);  // the thread's

    gate->open = true;
    gate->open.notify_all();
    EXPECT_TRUE(waitUntil([&] { return copies.use_count() == 1; }));  // it left, all is given back
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "write info error.   ret: -9"));
}

// The listener

TEST_F(LifeCycleTest, AListenerMayBeSetAtAnyTime) {
    m_client.SetListener({nullptr, [](ZUiEvent) { return 0; }});
    start();
    std::thread other([this] {
        for (int i = 0; i < 100; ++i) m_client.SetListener({});
    });
    EXPECT_TRUE(answers());
    other.join();
    end();
}
