// The pacing calculator, with the clock in the test's hands.
#include "common/FlowControl/FdFlowControl.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <type_traits>

#include "linux/comm/Opreator/FdCommon_linux.h"
#include "support/LogCapture.h"

namespace {

constexpr unsigned kSpeed = 1048576;  // the byte rate of the start
constexpr unsigned kUnsignedMax = std::numeric_limits<unsigned>::max();
constexpr double kNow = 1.0e12;

static_assert(std::has_virtual_destructor_v<FdFlowControl>);

class Calculator : public FdFlowControl {
public:
    using FdFlowControl::m_bufferSize;
    using FdFlowControl::m_haveSend;
    using FdFlowControl::m_speed;
    using FdFlowControl::m_timePoint;
    using FdFlowControl::waitTimeAt;
};

class FdFlowControlTest : public testing::Test {
protected:
    // One second of quiet before `now`, and a slice of which `left` bytes are left.
    void inASlice(unsigned left) {
        m_flow.m_timePoint = kNow - 1000;
        m_flow.m_bufferSize = left;
    }

    LogCapture m_log;
    Calculator m_flow;
};

}  // namespace

TEST_F(FdFlowControlTest, LogsItsRateWhenItIsMade) {
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{ZLOG_LEVEL_INFO, "speed:  1048576 Byte/s"},
                                                   {ZLOG_LEVEL_INFO, "split:  1 split/s"}}));
    EXPECT_EQ(m_flow.m_haveSend, 0U);
    EXPECT_EQ(m_flow.m_bufferSize, 0U);
    EXPECT_EQ(m_flow.m_timePoint, 0.0);
}

TEST_F(FdFlowControlTest, NoBytesNeedNoWaitAndChangeNothing) {
    m_flow.m_timePoint = kNow + 500;
    m_flow.m_bufferSize = 7;

    EXPECT_EQ(m_flow.waitTimeAt(kNow, 0), 0);

    EXPECT_EQ(m_flow.m_timePoint, kNow + 500);
    EXPECT_EQ(m_flow.m_bufferSize, 7U);
}

TEST_F(FdFlowControlTest, ARateOfZeroSwitchesThePacingOff) {
    m_flow.m_timePoint = kNow + 500;
    EXPECT_TRUE(m_flow.setSecSize(0));

    for (const unsigned size : {0U, 1U, kSpeed, kUnsignedMax}) {
        EXPECT_EQ(m_flow.waitTimeAt(kNow, size), 0);
        EXPECT_EQ(m_flow.getWaitTime(size), 0);
    }
    EXPECT_EQ(m_flow.m_timePoint, kNow + 500);
}

TEST_F(FdFlowControlTest, TheFirstBlockFindsTheChannelIdle) {
    EXPECT_EQ(m_flow.waitTimeAt(kNow, kSpeed), 0);
    EXPECT_EQ(m_flow.m_timePoint, kNow + 1000);
    EXPECT_EQ(m_flow.m_bufferSize, kSpeed);
}

TEST_F(FdFlowControlTest, TheNextBlockWaitsForTheRestAndExtendsTheSchedule) {
    m_flow.waitTimeAt(kNow, kSpeed);

    EXPECT_EQ(m_flow.waitTimeAt(kNow + 300, kSpeed), 700);
    EXPECT_EQ(m_flow.m_timePoint, kNow + 2000);
    EXPECT_EQ(m_flow.waitTimeAt(kNow + 300, kSpeed / 2), 1700);
    EXPECT_EQ(m_flow.m_timePoint, kNow + 2500);
    EXPECT_EQ(m_flow.m_bufferSize, kSpeed);
}

TEST_F(FdFlowControlTest, ABlockAtTheVeryMomentOfFreedomWaitsNot) {
    m_flow.m_timePoint = kNow;
    EXPECT_EQ(m_flow.waitTimeAt(kNow, kSpeed), 0);
    EXPECT_EQ(m_flow.m_timePoint, kNow + 1000);
    EXPECT_EQ(m_flow.m_bufferSize, kSpeed);
}

TEST_F(FdFlowControlTest, AFractionOfAMillisecondIsCutOff) {
    m_flow.m_timePoint = kNow + 1.75;
    EXPECT_EQ(m_flow.waitTimeAt(kNow, 1), 1);
}

TEST_F(FdFlowControlTest, SmallBlocksAreFreeUntilTheyHaveUsedUpTheSlice) {
    inASlice(250);
    for (const unsigned left : {150U, 50U}) {
        EXPECT_EQ(m_flow.waitTimeAt(kNow, 100), 0);
        EXPECT_EQ(m_flow.m_bufferSize, left);
        EXPECT_EQ(m_flow.m_timePoint, kNow - 1000);
    }

    m_flow.setSecSize(1000);
    EXPECT_EQ(m_flow.waitTimeAt(kNow, 100), 50);  // 50 bytes too many at 1000 a second
    EXPECT_EQ(m_flow.m_bufferSize, 1000U);
    EXPECT_EQ(m_flow.m_timePoint, kNow + 50 + 1000);
}

TEST_F(FdFlowControlTest, ABlockOfExactlyWhatIsLeftStartsANewSlice) {
    inASlice(100);
    EXPECT_EQ(m_flow.waitTimeAt(kNow, 100), 0);
    EXPECT_EQ(m_flow.m_bufferSize, kSpeed);
    EXPECT_EQ(m_flow.m_timePoint, kNow + 1000);
}

TEST_F(FdFlowControlTest, OneByteLessThanWhatIsLeftStaysInTheSlice) {
    inASlice(100);
    EXPECT_EQ(m_flow.waitTimeAt(kNow, 99), 0);
    EXPECT_EQ(m_flow.m_bufferSize, 1U);
    EXPECT_EQ(m_flow.m_timePoint, kNow - 1000);
}

TEST_F(FdFlowControlTest, MoreThanASliceOfIdleTimeIsNotSavedUp) {
    m_flow.m_timePoint = kNow - 1000.5;
    m_flow.m_bufferSize = 100;
    EXPECT_EQ(m_flow.waitTimeAt(kNow, kSpeed), 0);
    EXPECT_EQ(m_flow.m_bufferSize, kSpeed);
    EXPECT_EQ(m_flow.m_timePoint, kNow + 1000);
}

TEST_F(FdFlowControlTest, UsesTheTickClock) {
    const double before = GetCurrentTick_high();
    EXPECT_EQ(m_flow.getWaitTime(kSpeed), 0);
    const double after = GetCurrentTick_high();

    EXPECT_GE(m_flow.m_timePoint, before + 1000);
    EXPECT_LE(m_flow.m_timePoint, after + 1000);
}

TEST_F(FdFlowControlTest, AScheduleOfAgesStaysAWholeNumber) {
    m_flow.m_timePoint = 1.0e300;
    EXPECT_EQ(m_flow.waitTimeAt(kNow, 1), 9'000'000'000'000'000'000);
}

TEST_F(FdFlowControlTest, SettingTheRateIsLogged) {
    EXPECT_TRUE(m_flow.setSecSize(kUnsignedMax));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "set speed: 4294967295 Byte/s"));
    EXPECT_EQ(m_flow.m_speed, kUnsignedMax);
}

TEST_F(FdFlowControlTest, WaitSendDataComputesAndDoesNotSleep) {
    m_flow.setSecSize(1);
    m_flow.m_timePoint = GetCurrentTick_high() + 1.0e9;  // eleven days from now
    m_log.clear();

    m_flow.waitSendData(1);

    const std::vector<LogLine> lines = m_log.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].level, ZLOG_LEVEL_INFO);
    const std::string text = "waitCount: ";
    ASSERT_TRUE(lines[0].message.starts_with(text)) << lines[0].message;
    EXPECT_GT(std::stoi(lines[0].message.substr(text.size())), 900'000'000);
    EXPECT_EQ(lines[1], (LogLine{ZLOG_LEVEL_INFO, "todo"}));
}

TEST_F(FdFlowControlTest, ResetUndoesTheRateAndLogsTheState) {
    m_flow.m_haveSend = 5;
    m_flow.m_timePoint = kNow;
    m_log.clear();

    EXPECT_TRUE(m_flow.reset());

    EXPECT_EQ(m_flow.m_speed, kSpeed);
    EXPECT_EQ(m_flow.m_timePoint, 0.0);
    EXPECT_EQ(m_flow.m_haveSend, 5U);
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{
                                 {ZLOG_LEVEL_INFO, "haven send: 5"},
                                 {ZLOG_LEVEL_INFO, "speed:  1048576 Byte/s"},
                                 {ZLOG_LEVEL_INFO, "split:  1 split/s"},
                                 {ZLOG_LEVEL_INFO, "time point : 0.000000"},
                                 {ZLOG_LEVEL_INFO, "buffer size: 1048576000"},
                             }));
}

TEST_F(FdFlowControlTest, ResetTakesTheRateThatWasSetForTheSliceAndWraps) {
    m_flow.setSecSize(4294967);
    m_flow.reset();
    EXPECT_EQ(m_flow.m_bufferSize, 4294967000U);

    m_flow.setSecSize(4294968);
    m_flow.reset();
    EXPECT_EQ(m_flow.m_bufferSize, 704U);
}

TEST_F(FdFlowControlTest, TheBlockBehindAResetFindsTheChannelIdle) {
    m_flow.waitTimeAt(kNow, kSpeed);
    m_flow.reset();
    EXPECT_EQ(m_flow.waitTimeAt(kNow, kSpeed), 0);
    EXPECT_EQ(m_flow.m_bufferSize, kSpeed);
}

TEST_F(FdFlowControlTest, OneObjectServesTheProcess) {
    FdFlowControl* other = nullptr;
    std::thread([&other] { other = FdFlowControl::getInstance(); }).join();
    EXPECT_NE(other, nullptr);
    EXPECT_EQ(FdFlowControl::getInstance(), other);
}
