// The counters of messages and the table that they print.
#include "common/Statistics/FdStatistics.h"

#include <gtest/gtest.h>

#include <climits>
#include <thread>
#include <type_traits>

#include "support/LogCapture.h"

namespace {

static_assert(std::has_virtual_destructor_v<FdStatistics>);

class Counters : public FdStatistics {
public:
    std::vector<long long> totals() const {
        return {m_recvCount, m_recvSize, m_recvCompressSize,
                m_sendCount, m_sendSize, m_sendCompressSize};
    }
    std::size_t rows() const { return m_table.size(); }
    const char* nameOf(int cmdType) const { return m_table.at(cmdType).name; }
};

constexpr char kHeader[] =
    "Type     Name            R-Count    R-Size     R-ComSize  S-Count    S-Size     S-ComSize ";

class FdStatisticsTest : public testing::Test {
protected:
    // What the table prints behind its header.
    std::vector<std::string> printed() {
        m_log.clear();
        EXPECT_TRUE(m_counters.printStatistics());
        std::vector<std::string> rows;
        for (const LogLine& line : m_log.lines()) {
            EXPECT_EQ(line.level, ZLOG_LEVEL_INFO);
            rows.push_back(line.message);
        }
        EXPECT_FALSE(rows.empty());
        if (rows.empty()) return rows;
        EXPECT_EQ(rows.front(), kHeader);
        rows.erase(rows.begin());
        return rows;
    }

    LogCapture m_log;
    Counters m_counters;
};

using Rows = std::vector<std::string>;

}  // namespace

TEST_F(FdStatisticsTest, AnEmptyTablePrintsItsHeaderOnly) {
    EXPECT_EQ(printed(), Rows{});
}

TEST_F(FdStatisticsTest, PrintsARowInTheOrderOfTheTitles) {
    m_counters.setCmdName(3, "read");
    m_counters.addReceiveCmdCount(3, 24, 4);
    m_counters.addReceiveCmdCount(3, 24, 4);
    m_counters.addSendCmdCount(3, 1000, 100);
    EXPECT_EQ(printed(), (Rows{"3        read            2          48         8          1       "
                               "   1000       100       "}));
}

TEST_F(FdStatisticsTest, ACommandWithoutARowIsNotCountedNotEvenInTheTotals) {
    EXPECT_TRUE(m_counters.addSendCmdCount(0x203, 20, 10));
    EXPECT_TRUE(m_counters.addReceiveCmdCount(-1, 30, -5));

    EXPECT_EQ(
        m_log.lines(),
        (std::vector<LogLine>{
            {ZLOG_LEVEL_INFO, "not find cmd!!!  cmdType: 0x203, cmdSize: 20, cmdComrpessSize: 10"},
            {ZLOG_LEVEL_INFO,
             "not find cmd!!!  cmdType: 0xffffffff, cmdSize: 30, cmdComrpessSize: -5"}}));
    EXPECT_EQ(m_counters.totals(), (std::vector<long long>(6, 0)));
    EXPECT_EQ(m_counters.rows(), 0U);
    m_counters.setCmdName(0x203, "late");
    EXPECT_EQ(printed(), (Rows{"515      late            0          0          0          0       "
                               "   0          0         "}));
}

TEST_F(FdStatisticsTest, TheTotalsAreThoseOfAllCommands) {
    m_counters.setCmdName(1, "create");
    m_counters.setCmdName(2, "close");
    m_counters.addReceiveCmdCount(1, 10, 1);
    m_counters.addReceiveCmdCount(2, 20, 2);
    m_counters.addSendCmdCount(1, 300, 30);
    m_counters.addSendCmdCount(2, 400, 40);
    m_counters.addSendCmdCount(2, 400, 40);
    EXPECT_EQ(m_counters.totals(), (std::vector<long long>{2, 30, 3, 3, 1100, 110}));
}

TEST_F(FdStatisticsTest, NegativeSizesCountDown) {
    m_counters.setCmdName(1, "create");
    m_counters.addSendCmdCount(1, -7, INT_MIN);
    m_counters.addSendCmdCount(1, 2, INT_MIN);
    EXPECT_EQ(m_counters.totals(), (std::vector<long long>{0, 0, 0, 2, -5, 2LL * INT_MIN}));
}

TEST_F(FdStatisticsTest, SizesBeyond32BitsAddUp) {
    m_counters.setCmdName(4, "write");
    for (int i = 0; i < 3; ++i) m_counters.addReceiveCmdCount(4, INT_MAX, INT_MAX);
    EXPECT_EQ(m_counters.totals(),
              (std::vector<long long>{3, 3LL * INT_MAX, 3LL * INT_MAX, 0, 0, 0}));
}

TEST_F(FdStatisticsTest, ANewNameKeepsTheCounters) {
    EXPECT_TRUE(m_counters.setCmdName(0x10, "old"));
    m_counters.addSendCmdCount(0x10, 5, 6);
    EXPECT_TRUE(m_counters.setCmdName(0x10, "new"));

    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {ZLOG_LEVEL_INFO, "add new cmd statistics.  cmdType: 0x10, name: old"},
                  {ZLOG_LEVEL_INFO,
                   "rename cmd statistics.  cmdType: 0x10, oldName: old, newName: new"}}));
    EXPECT_EQ(printed(), (Rows{"16       new             0          0          0          1       "
                               "   5          6         "}));
}

TEST_F(FdStatisticsTest, RowsPrintInAscendingOrderOfTheSignedType) {
    for (const int cmdType : {515, 0, -2, INT_MAX, 1, INT_MIN}) m_counters.setCmdName(cmdType, "x");
    std::vector<int> types;
    for (const std::string& row : printed()) types.push_back(std::stoi(row));
    EXPECT_EQ(types, (std::vector<int>{INT_MIN, -2, 0, 1, 515, INT_MAX}));
}

TEST_F(FdStatisticsTest, TheNameStaysTheCallers) {
    const char name[] = "shared";
    m_counters.setCmdName(1, name);
    EXPECT_EQ(m_counters.nameOf(1), name);
}

TEST_F(FdStatisticsTest, ARowMayHaveNoName) {
    m_counters.setCmdName(1, nullptr);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "add new cmd statistics.  cmdType: 0x1, name: (null)"));
    EXPECT_EQ(printed(), (Rows{"1        (null)          0          0          0          0       "
                               "   0          0         "}));
}

TEST_F(FdStatisticsTest, OneTableServesTheProcess) {
    FdStatistics* other = nullptr;
    std::thread([&other] { other = FdStatistics::getInstance(); }).join();
    EXPECT_NE(other, nullptr);
    EXPECT_EQ(FdStatistics::getInstance(), other);
}
