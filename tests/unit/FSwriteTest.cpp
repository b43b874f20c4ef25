// ZrsfWrite and ZrsfFlush.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <string>

#include "common/Comm/WireNumbers.h"
#include "linux/comm/Funcdef.h"
#include "support/DeniedCall.h"
#include "support/HandlerFixture.h"
#include "support/InChild.h"

namespace {

constexpr std::size_t kDataLengthAt = 28;

class DataFixture : public HandlerFixture {
protected:
    static void expectReply(const std::vector<char>& reply, int status, std::uint32_t cbBuffer) {
        EXPECT_EQ(reply.size(), 24U);
        EXPECT_EQ(statusOf(reply), status);
        EXPECT_EQ(cbBufferOf(reply), cbBuffer);
    }
};

class FSwriteTest : public DataFixture {};

TEST_F(FSwriteTest, WritesAtTheOffsetAndLeavesThePositionBehind) {
    m_dir.file("data", "0123456789");
    const std::int64_t handle = openFile("data");

    expectReply(call(ZrsfWrite, writeRequest(handle, 3, "abc")), 0, 3);

    EXPECT_EQ(readFile(m_dir.str("data")), "012abc6789");
    EXPECT_EQ(lseek(static_cast<int>(handle), 0, SEEK_CUR), 6);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(FSwriteTest, WritesBehindTheEnd) {
    const std::int64_t handle = openFile("data");

    expectReply(call(ZrsfWrite, writeRequest(handle, 2, "x")), 0, 1);

    EXPECT_EQ(readFile(m_dir.str("data")), std::string("\0\0x", 3));
}

TEST_F(FSwriteTest, AWriteOfNothingSucceeds) {
    const std::int64_t handle = openFile("data");

    expectReply(call(ZrsfWrite, writeRequest(handle, 9, "")), 0, 0);

    EXPECT_EQ(readFile(m_dir.str("data")), "");
    EXPECT_EQ(lseek(static_cast<int>(handle), 0, SEEK_CUR), 9);
}

TEST_F(FSwriteTest, AnUnknownHandleIsAnInvalidParameter) {
    expectReply(call(ZrsfWrite, writeRequest(4711, 5, "abc")), -2, 0);
    EXPECT_EQ(m_log.lines().size(), 1U);
    EXPECT_TRUE(m_log.contains(
        2, "invalid parameter!!!   hFile: 4711, offset: 5, length: 3, pzrsfHandle: "));
}

TEST_F(FSwriteTest, ADirectoryIsAnInvalidParameter) {
    const std::int64_t handle = openFolder();

    expectReply(call(ZrsfWrite, writeRequest(handle, 0, "abc")), -2, 0);

    char expected[160];
    std::snprintf(expected, sizeof expected,
                  "invalid parameter!!!   hFile: %lld, offset: 0, length: 3, pzrsfHandle: %p",
                  static_cast<long long>(handle), static_cast<const void*>(record(handle)));
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{2, expected}}));
}

TEST_F(FSwriteTest, AMapThatIsReadOnlyIsWriteProtected) {
    m_dir.file("data", "old");
    const std::int64_t handle = openFile("data");
    m_map.m_bWritable = 0;

    expectReply(call(ZrsfWrite, writeRequest(handle, 1, "new")), -113, 0);

    EXPECT_EQ(readFile(m_dir.str("data")), "old");
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {2, "write protect!!!   " + where("data", handle) + ", offset: 1, length: 3"}}));
}

TEST_F(FSwriteTest, TheHandleComesBeforeWriteProtection) {
    m_map.m_bWritable = 0;
    expectReply(call(ZrsfWrite, writeRequest(4711, 0, "abc")), -2, 0);
    expectReply(call(ZrsfWrite, writeRequest(openFolder(), 0, "abc")), -2, 0);
}

TEST_F(FSwriteTest, AHandleThatWasOpenedToReadIsAnInvalidHandle) {
    m_dir.file("data", "old");
    const std::int64_t handle = openFile("data", O_RDONLY);

    expectReply(call(ZrsfWrite, writeRequest(handle, 1, "new")), -4, 0);

    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{2, "pwrite error!!!   " + where("data", handle) +
                                            ", offset: 1, length: 3, rc: -4, cbWrite: -1, errno: " +
                                            std::to_string(EBADF)}}));
}

TEST_F(FSwriteTest, APrinterPortIsWrittenAsAFile) {
    const std::int64_t handle = openFile("data");
    m_map.m_mapType = 0x1000;
    expectReply(call(ZrsfWrite, writeRequest(handle, 0, "page")), 0, 4);
    EXPECT_EQ(readFile(m_dir.str("data")), "page");
}

TEST_F(FSwriteTest, AFullDiskAnswersDiskFull) {
    const std::int64_t handle = insert(open("/dev/full", O_WRONLY | O_CLOEXEC), "/dev/full");
    expectReply(call(ZrsfWrite, writeRequest(handle, 0, "abc")), -152, 0);
    EXPECT_TRUE(m_log.contains(2, "errno: " + std::to_string(ENOSPC)));
}

TEST_F(FSwriteTest, APipeCannotBeWrittenAtAnOffset) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    insert(ends[0], "pipe");
    expectReply(call(ZrsfWrite, writeRequest(insert(ends[1], "pipe"), 0, "abc")), -109, 0);
}

TEST_F(FSwriteTest, ANegativeOffsetIsRefusedByTheSystem) {
    expectReply(call(ZrsfWrite, writeRequest(openFile("data"), -1, "abc")), -2, 0);
}

TEST_F(FSwriteTest, TheLargestOffsetIsRefusedByTheSystem) {
    const auto reply = call(ZrsfWrite, writeRequest(openFile("data"), LLONG_MAX, "abc"));
    EXPECT_LT(statusOf(reply), 0);
    EXPECT_EQ(cbBufferOf(reply), 0U);
}

// A limit on the size of files lets the first bytes through and refuses the next.
TEST_F(FSwriteTest, APartialWriteIsReportedAsItHappened) {
    const std::int64_t handle = openFile("data");
    inChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {10, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &limit);
        expectReply(call(ZrsfWrite, writeRequest(handle, 6, "abcdef")), 0, 4);
        EXPECT_EQ(lseek(static_cast<int>(handle), 0, SEEK_CUR), 10);  // behind what was written
        expectReply(call(ZrsfWrite, writeRequest(handle, 10, "g")), -128, 0);
    });
    EXPECT_EQ(readFile(m_dir.str("data")), std::string(6, '\0') + "abcd");
}

TEST_F(FSwriteTest, AFailedSeekIsOnlyLogged) {
    const std::int64_t handle = openFile("data");
    const std::string line =
        "lseek error!!!   " + where("data", handle) +
        ", offset: 1, length: 3, rc: 0, cbWrite: 3, errno: " + std::to_string(ESPIPE);
    inChild([&] {
        denyCalls({SYS_lseek}, ESPIPE);
        expectReply(call(ZrsfWrite, writeRequest(handle, 1, "abc")), 0, 3);
        EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{2, line}}));
    });
}

TEST_F(FSwriteTest, ALengthBeyondTheWorkBufferIsCutToWhatItHolds) {
    constexpr std::uint32_t kMost = 1049600 - 32;
    const std::int64_t handle = openFile("data");
    const std::string data(kMost, 'd');

    for (const std::uint32_t length : {kMost - 1, kMost, kMost + 1, 0x7FFFFFFFU, ~0U}) {
        ASSERT_EQ(ftruncate(static_cast<int>(handle), 0), 0);
        Request request = writeRequest(handle, 0, data);
        storeLe(request.data() + kDataLengthAt, length);
        const std::uint32_t expected = std::min(length, kMost);
        expectReply(call(ZrsfWrite, request), 0, expected);
        EXPECT_EQ(readFile(m_dir.str("data")), data.substr(0, expected));
    }
}

TEST_F(FSwriteTest, ALengthBeyondTheRequestWritesZeros) {
    const std::int64_t handle = openFile("data");
    Request request = writeRequest(handle, 0, "abc");
    storeLe(request.data() + kDataLengthAt, std::uint32_t{5});

    expectReply(call(ZrsfWrite, request), 0, 5);

    EXPECT_EQ(readFile(m_dir.str("data")), std::string("abc\0\0", 5));
}

TEST_F(FSwriteTest, ALengthBelowTheDataWritesOnlySoMuch) {
    const std::int64_t handle = openFile("data");
    Request request = writeRequest(handle, 0, "abc");
    storeLe(request.data() + kDataLengthAt, std::uint32_t{1});

    expectReply(call(ZrsfWrite, request), 0, 1);

    EXPECT_EQ(readFile(m_dir.str("data")), "a");
}

TEST_F(FSwriteTest, WithoutAMessageThereIsNoReply) {
    char* none = nullptr;
    int resultSize = 0;

    ZrsfWrite(none, 0, &resultSize, &m_map);

    EXPECT_EQ(resultSize, 0);
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{2, "memcpy_s failed"}}));
}

TEST_F(FSwriteTest, ARequestThatIsCutShortWritesAsIfZerosFollowed) {
    const std::int64_t handle = openFile("data");
    const Request whole = writeRequest(handle, 0x0102, "abcd");
    for (std::size_t size = 12; size < whole.size(); ++size) {
        const Request cut(whole.begin(), whole.begin() + static_cast<long>(size));
        Request padded = cut;
        padded.resize(whole.size());

        EXPECT_EQ(call(ZrsfWrite, cut), call(ZrsfWrite, padded)) << size;
    }
}

class FlushTest : public DataFixture {};

TEST_F(FlushTest, FlushesAFile) {
    const std::int64_t handle = openFile("data");

    expectReply(call(ZrsfFlush, flushRequest(handle)), 0, 0);

    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{3, "flush end!!!   " + where("data", handle) + ", rc: 0"}}));
}

TEST_F(FlushTest, FlushesADirectory) {
    m_dir.folder("folder");
    const std::int64_t handle = openFolder("folder");

    expectReply(call(ZrsfFlush, flushRequest(handle)), 0, 0);

    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{3, "flush end!!!   " + where("folder", handle) + ", rc: 0"}}));
}

TEST_F(FlushTest, ADirectoryThatCannotBeFlushedAnswersItsStatus) {
    const std::int64_t handle = openFolder();
    inChild([&] {
        denyCalls({SYS_fsync}, EIO);
        expectReply(call(ZrsfFlush, flushRequest(handle)), -250, 0);
    });
}

TEST_F(FlushTest, ServesAMapThatIsReadOnly) {
    const std::int64_t handle = openFile("data");
    m_map.m_bWritable = 0;
    expectReply(call(ZrsfFlush, flushRequest(handle)), 0, 0);
}

TEST_F(FlushTest, APrinterPortHasNothingToFlush) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    insert(ends[0], "/dev/lp0");
    const std::int64_t handle = insert(ends[1], "/dev/lp0");
    m_map.m_mapType = 0x1000;

    expectReply(call(ZrsfFlush, flushRequest(handle)), 0, 0);

    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {2, "FlushFileBuffers is not need for lpt port.  path: /dev/lp0, hFile: " +
                          std::to_string(handle) + ", rc: 0"}}));
}

TEST_F(FlushTest, AFailureAnswersItsStatus) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    insert(ends[0], "pipe");
    const std::int64_t handle = insert(ends[1], "pipe");

    expectReply(call(ZrsfFlush, flushRequest(handle)), -2, 0);

    EXPECT_EQ(
        m_log.lines(),
        (std::vector<LogLine>{
            {2, "fsync error. errno: " + std::to_string(EINVAL) + ", rc: -2"},
            {3, "flush end!!!   path: pipe, hFile: " + std::to_string(handle) + ", rc: -2"}}));
}

TEST_F(FlushTest, AClosedDescriptorIsAnInvalidHandle) {
    const std::int64_t handle = openFile("data");
    record(handle)->dir.Handle = 1'000'000;  // which nobody has open

    expectReply(call(ZrsfFlush, flushRequest(handle)), -4, 0);

    record(handle)->dir.Handle = handle;
}

TEST_F(FlushTest, AnUnknownHandleIsAnInvalidParameter) {
    expectReply(call(ZrsfFlush, flushRequest(4711)), -2, 0);
    EXPECT_EQ(m_log.lines().size(), 1U);
    EXPECT_TRUE(m_log.contains(2, "flush invalid parameter!!!   hFile: 4711, pzrsfHandle: "));
}

TEST_F(FlushTest, ARequestThatIsCutShortIsReadAsIfZerosFollowed) {
    const Request whole = flushRequest(0x0101010101010101);
    for (std::size_t size = 12; size < whole.size(); ++size) {
        const Request cut(whole.begin(), whole.begin() + static_cast<long>(size));
        expectReply(call(ZrsfFlush, cut), -2, 0);
    }
}

}  // namespace
