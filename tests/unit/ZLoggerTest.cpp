#include "ZLogger.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "common/Comm/FdLog.h"
#include "support/LogCapture.h"

namespace {
class ZLoggerTest : public testing::Test {
protected:
    ~ZLoggerTest() override {
        ZLogger::GetInstance()->SetSink({});
        ZLogger::GetInstance()->SetLevel(ZLOG_LEVEL_WARNING);
    }
};

TEST_F(ZLoggerTest, ARecordCarriesTheCallersPlaceTagAndLevel) {
    ZLogRecord seen{};
    std::string file;
    std::string message;
    ZLogger::GetInstance()->SetSink([&](const ZLogRecord& record) {
        seen = record;
        file = record.file;
        message = record.message;
    });

    FD_LOG_WARN("%s of %d", "one", 2);

    EXPECT_NE(file.find("ZLoggerTest.cpp"), std::string::npos);
    EXPECT_STREQ(seen.function, "TestBody");
    EXPECT_STREQ(seen.tag, " [ZFdClientMgr] ");
    EXPECT_STREQ(seen.text, "");
    EXPECT_EQ(seen.level, ZLOG_LEVEL_WARNING);
    EXPECT_EQ(message, "one of 2");
}

TEST_F(ZLoggerTest, WarningIsTheDefaultLevel) {
    int records = 0;
    ZLogger::GetInstance()->SetSink([&](const ZLogRecord&) { ++records; });

    FD_LOG_ERROR("shown");
    FD_LOG_WARN("shown");
    FD_LOG_INFO("dropped");
    FD_LOG_DEBUG("dropped");

    EXPECT_EQ(records, 2);
}

TEST_F(ZLoggerTest, ALongTextArrivesWhole) {
    const std::string text(5000, 'x');
    const LogCapture log;
    FD_LOG_INFO("%s", text.c_str());
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, text));
}

TEST_F(ZLoggerTest, TheDefaultSinkWritesOneLineARecord) {
    testing::internal::CaptureStderr();
    FD_LOG_WARN("two\nlines\n");
    const std::string output = testing::internal::GetCapturedStderr();

    EXPECT_EQ(output.find("WARNING [ZFdClientMgr] two lines ("), 0U);
    EXPECT_EQ(output.find('\n'), output.size() - 1);
}

TEST_F(ZLoggerTest, ASinkThatWasReplacedIsNeverCalledAfterwards) {
    std::atomic<bool> alive{true};
    std::atomic<bool> calledTooLate{false};
    std::atomic<bool> stop{false};
    std::atomic<int> calls{0};
    ZLogger::GetInstance()->SetSink([&](const ZLogRecord&) {
        ++calls;
        if (!alive) calledTooLate = true;
    });
    std::vector<std::thread> writers;
    for (int i = 0; i < 4; ++i) {
        writers.emplace_back([&] {
            while (!stop) FD_LOG_ERROR("busy");
        });
    }
    while (calls < 100) std::this_thread::yield();

    ZLogger::GetInstance()->SetSink([](const ZLogRecord&) {});
    alive = false;
    for (int i = 0; i < 1000; ++i) std::this_thread::yield();
    stop = true;
    for (auto& writer : writers) writer.join();

    EXPECT_FALSE(calledTooLate);
}

TEST_F(ZLoggerTest, ASinkMayLogAndReplaceItself) {
    int outer = 0;
    int inner = 0;
    ZLogger::GetInstance()->SetSink([&](const ZLogRecord&) {
        ++outer;
        ZLogger::GetInstance()->SetSink([&](const ZLogRecord&) { ++inner; });
        FD_LOG_ERROR("nested");
    });

    FD_LOG_ERROR("first");
    FD_LOG_ERROR("second");

    EXPECT_EQ(outer, 1);
    EXPECT_EQ(inner, 2);
}
}  // namespace
