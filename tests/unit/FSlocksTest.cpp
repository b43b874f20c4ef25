// ZrsfLocks, RTFileLock and RTFileUnlock.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "common/Comm/WireNumbers.h"
#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/FileOperate.h"
#include "support/HandlerFixture.h"

namespace {

constexpr std::uint64_t kAllBits = ~std::uint64_t{0};

Request lockRequest(std::int64_t handle, std::uint64_t offset, std::uint64_t length,
                    std::uint32_t flags) {
    Request request(40);
    storeLe<std::uint16_t>(request.data(), 15);
    storeLe(request.data() + 12, handle);
    storeLe(request.data() + 20, offset);
    storeLe(request.data() + 28, length);
    storeLe(request.data() + 36, flags);
    return request;
}

std::string hex(unsigned value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", value);
    return text;
}

class FSlocksTest : public HandlerFixture {
protected:
    static void expectSuccess(const std::vector<char>& reply) {
        EXPECT_EQ(reply.size(), 24U);
        EXPECT_EQ(statusOf(reply), 0);
        EXPECT_EQ(cbBufferOf(reply), 0U);
    }

    std::string end(std::int64_t handle, const std::string& range, unsigned flags, int rc) const {
        return "lock end!!!   path: " + m_dir.str("data") + ", hFile: " + std::to_string(handle) +
               range + ", flags: " + hex(flags) + ", rc: " + std::to_string(rc);
    }

    static std::vector<LogLine> modeLines(unsigned flags) {
        return {{3, "locks_flag & SHFL_LOCK_SHARED   :  " + hex(flags & 1)},
                {3, "locks_flag & SHFL_LOCK_EXCLUSIVE:  " + hex(flags & 2)},
                {3, "locks_flag & SHFL_LOCK_WAIT     :  " + hex(flags & 4)},
                {3, "locks_flag & SHFL_LOCK_ENTIRE   :  " + hex(flags & 8)}};
    }
};

std::vector<LogLine> operator+(std::vector<LogLine> lines, const std::vector<LogLine>& more) {
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

TEST_F(FSlocksTest, ALockIsRefusedLocallyAndGrantedToTheServer) {
    const std::int64_t handle = openFile("data");
    for (const unsigned flags : {1U, 2U}) {
        m_log.clear();
        expectSuccess(call(ZrsfLocks, lockRequest(handle, 5, 7, flags)));
        EXPECT_EQ(m_log.lines(),
                  modeLines(flags) + (std::vector<LogLine>{
                                         {1, "lock or unlock is error. rc: -6"},
                                         {3, end(handle, ", offset: 5, length: 7", flags, -6)}}));
    }
}

TEST_F(FSlocksTest, AnUnlockIsRefusedLocallyAndGrantedToTheServer) {
    const std::int64_t handle = openFile("data");

    expectSuccess(call(ZrsfLocks, lockRequest(handle, 5, 7, 0)));

    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{3, "SHFL_LOCK_CANCEL, locks_flag & SHFL_LOCK_MODE_MASK: 0x0"},
                                    {1, "lock or unlock is error. rc: -6"},
                                    {3, end(handle, ", offset: 5, length: 7", 0, -6)}}));
}

TEST_F(FSlocksTest, NoRangeIsEverLockedForOtherPrograms) {
    const std::int64_t handle = openFile("data");
    call(ZrsfLocks, lockRequest(handle, 0, 100, 2));

    struct flock probe = {};
    probe.l_type = F_WRLCK;
    probe.l_whence = SEEK_SET;
    // An open file description of its own sees the locks of this process.
    const int other = open(m_dir.str("data").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(fcntl(other, F_OFD_GETLK, &probe), 0);
    EXPECT_EQ(probe.l_type, F_UNLCK);
    close(other);
}

TEST_F(FSlocksTest, AnUnknownHandleIsToldSuccess) {
    expectSuccess(call(ZrsfLocks, lockRequest(4711, 5, 7, 2)));
    EXPECT_EQ(m_log.lines().size(), 1U);
    EXPECT_TRUE(
        m_log.contains(2,
                       "lock invalid parmeter!!!   hFile: 4711, locks_offset: 5, locks_length: "
                       "7, locks_flag: 0x2, pzrsfHandle: "));
}

TEST_F(FSlocksTest, ADirectoryIsLockedLikeAFile) {
    expectSuccess(call(ZrsfLocks, lockRequest(openFolder(), 0, 1, 2)));
    EXPECT_TRUE(m_log.has(1, "lock or unlock is error. rc: -6"));
}

TEST_F(FSlocksTest, TheWholeFileIsRefusedAndToldSuccess) {
    const std::int64_t handle = openFile("data");

    expectSuccess(call(ZrsfLocks, lockRequest(handle, 0, 0, 0xA)));

    EXPECT_EQ(m_log.lines(),
              modeLines(0xA) + (std::vector<LogLine>{
                                   {2, "file lock error.  SHFL_LOCK_CANCEL is true. flags: 0xa"},
                                   {2, "file & SHFL_LOCK_ENTIRE: 8"},
                                   {1, "lock or unlock is error. rc: -2"},
                                   {3, end(handle, ", offset: 0, length: 0", 0xA, -2)}}));
}

TEST_F(FSlocksTest, TheReleaseOfTheWholeFileIsRefusedAndToldSuccess) {
    const std::int64_t handle = openFile("data");

    expectSuccess(call(ZrsfLocks, lockRequest(handle, 0, 0, 8)));

    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{3, "SHFL_LOCK_CANCEL, locks_flag & SHFL_LOCK_MODE_MASK: 0x0"},
                                    {2, "lock error.   flags: 0x8"},
                                    {2, "SHFL_LOCK_ENTIRE & flags: 0x8"},
                                    {1, "lock or unlock is error. rc: -2"},
                                    {3, end(handle, ", offset: 0, length: 0", 8, -2)}}));
}

TEST_F(FSlocksTest, AWaitingLockDoesNotWait) {
    const std::int64_t handle = openFile("data");

    expectSuccess(call(ZrsfLocks, lockRequest(handle, 1, 2, 6)));

    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{2,
                                     "SHFL_LOCK_WAIT is set. Clear this flag, locks_flag & "
                                     "SHFL_LOCK_WAIT: 0x4"}}) +
                  modeLines(2) +
                  (std::vector<LogLine>{{1, "lock or unlock is error. rc: -6"},
                                        {3, end(handle, ", offset: 1, length: 2", 2, -6)}}));
}

TEST_F(FSlocksTest, WaitingAloneIsARelease) {
    const std::int64_t handle = openFile("data");

    expectSuccess(call(ZrsfLocks, lockRequest(handle, 1, 2, 4)));

    EXPECT_TRUE(m_log.has(3, "SHFL_LOCK_CANCEL, locks_flag & SHFL_LOCK_MODE_MASK: 0x0"));
    EXPECT_TRUE(m_log.has(3, end(handle, ", offset: 1, length: 2", 0, -6)));
}

TEST_F(FSlocksTest, APrinterPortOnAReadOnlyMapIsNoSpecialCase) {
    const std::int64_t handle = openFile("data");
    m_map.m_mapType = 0x1000;
    m_map.m_bWritable = 0;
    expectSuccess(call(ZrsfLocks, lockRequest(handle, 1, 2, 2)));
    EXPECT_TRUE(m_log.has(3, end(handle, ", offset: 1, length: 2", 2, -6)));
}

TEST_F(FSlocksTest, SharedAndExclusiveAtOnceIsAParameterError) {
    const std::int64_t handle = openFile("data");

    expectSuccess(call(ZrsfLocks, lockRequest(handle, 1, 2, 3)));

    EXPECT_EQ(
        m_log.lines(),
        modeLines(3) + (std::vector<LogLine>{{2, "parameter error.  flags: 0x3"},
                                             {1, "lock or unlock is error. rc: -2"},
                                             {3, end(handle, ", offset: 1, length: 2", 3, -2)}}));
}

TEST_F(FSlocksTest, ALengthOfAllBitsBecomesOneByte) {
    const std::int64_t handle = openFile("data");
    const std::string range = ", offset: 0, length: 18446744073709551615";

    expectSuccess(call(ZrsfLocks, lockRequest(handle, 0, kAllBits, 1)));
    EXPECT_TRUE(m_log.has(2, "file lock. length == -1. so set length to 1"));
    EXPECT_TRUE(m_log.has(3, end(handle, range, 1, -6)));

    expectSuccess(call(ZrsfLocks, lockRequest(handle, 0, kAllBits, 0)));
    EXPECT_TRUE(m_log.has(2, "file unlock.  length == -1, set it to length == 1"));
    EXPECT_TRUE(m_log.has(3, end(handle, range, 0, -6)));
}

TEST_F(FSlocksTest, TheLengthIsLookedAtBeforeTheMode) {
    EXPECT_EQ(RTFileLock(3, 0, kAllBits, 3), -2);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{2, "file lock. length == -1. so set length to 1"},
                                    {2, "parameter error.  flags: 0x3"}}));
}

TEST_F(FSlocksTest, ALengthOfZeroIsNoSpecialCase) {
    EXPECT_EQ(RTFileLock(3, 0, 0, 1), -6);
    EXPECT_EQ(RTFileUnlock(3, 0, 0, 0), -6);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(FSlocksTest, ANilHandleIsAnInvalidHandleForTheLocalSteps) {
    EXPECT_EQ(RTFileLock(kAllBits, 0, 1, 1), -4);
    EXPECT_EQ(RTFileUnlock(kAllBits, 0, 1, 0), -4);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{2, "file lock error.  Handle == SHFL_HANDLE_NIL"},
                                    {2,
                                     "unlock handle error. Handle == SHFL_HANDLE_NIL. Handle: "
                                     "0xffffffffffffffff"}}));
}

TEST_F(FSlocksTest, ALockWithoutAModeAndAnUnlockWithOneAreRefused) {
    EXPECT_EQ(RTFileLock(3, 0, 1, 0), -2);
    EXPECT_EQ(RTFileUnlock(3, 0, 1, 1), -2);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{2, "file lock error.  SHFL_LOCK_CANCEL is true. flags: 0x0"},
                                    {2, "file & SHFL_LOCK_ENTIRE: 0"},
                                    {2, "lock error.   flags: 0x1"},
                                    {2, "SHFL_LOCK_ENTIRE & flags: 0x0"}}));
}

TEST_F(FSlocksTest, ARequestThatIsCutShortIsReadAsIfZerosFollowed) {
    const Request whole = lockRequest(openFile("data"), 0x0101010101010101, kAllBits, ~0U);
    for (std::size_t size = 12; size < whole.size(); ++size) {
        expectSuccess(
            call(ZrsfLocks, Request(whole.begin(), whole.begin() + static_cast<long>(size))));
    }
}

}  // namespace
