// ZrsfRead.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <string>

#include "common/Comm/WireNumbers.h"
#include "linux/comm/Funcdef.h"
#include "support/DeniedCall.h"
#include "support/HandlerFixture.h"
#include "support/InChild.h"

namespace {

std::string pattern(std::size_t size) {
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('A' + i % 23);
    return text;
}

class FSreadTest : public HandlerFixture {
protected:
    std::int64_t fileOf(std::size_t size) {
        m_dir.file("data", pattern(size));
        return openFile("data");
    }
    static off_t position(std::int64_t handle) {
        return lseek(static_cast<int>(handle), 0, SEEK_CUR);
    }
    static std::string dataOf(const std::vector<char>& reply) {
        return {reply.data() + kDataAt, cbBufferOf(reply)};
    }
};

TEST_F(FSreadTest, ReadsWhatWasAskedFor) {
    const std::int64_t handle = fileOf(5000);

    const auto reply = call(ZrsfRead, readRequest(handle, 100, 600));

    EXPECT_EQ(reply.size(), 12U + 600 + 11);
    EXPECT_EQ(statusOf(reply), 0);
    EXPECT_EQ(cbBufferOf(reply), 600U);
    EXPECT_EQ(dataOf(reply), pattern(5000).substr(100, 600));
    EXPECT_EQ(position(handle), 700);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(FSreadTest, BehindTheDataGoesNothingOfAnEarlierMessage) {
    const std::int64_t handle = fileOf(600);
    const Request request = readRequest(handle, 0, 600);
    std::memset(m_buffer.data(), 'x', m_buffer.size());  // what a large reply left
    std::ranges::copy(request, m_buffer.begin());
    char* buffer = m_buffer.data();
    int resultSize = 0;

    ZrsfRead(buffer, static_cast<int>(request.size()), &resultSize, &m_map);

    ASSERT_EQ(resultSize, 611);
    EXPECT_EQ(std::string(buffer + kDataAt, 603), pattern(600) + std::string(3, '\0'));
}

TEST_F(FSreadTest, ASmallReadIsMadeOneOf512) {
    const std::int64_t handle = fileOf(1000);

    const auto reply = call(ZrsfRead, readRequest(handle, 0, 100));

    EXPECT_EQ(statusOf(reply), 0);
    EXPECT_EQ(cbBufferOf(reply), 512U);
    EXPECT_EQ(dataOf(reply), pattern(1000).substr(0, 512));
    EXPECT_EQ(position(handle), 512);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{2, "readcount < 512, set it to 512, length: 100"}}));
}

TEST_F(FSreadTest, AReadOfNothingIsOneOf512) {
    const auto reply = call(ZrsfRead, readRequest(fileOf(1000), 0, 0));

    EXPECT_EQ(cbBufferOf(reply), 512U);
    EXPECT_TRUE(m_log.has(2, "readcount < 512, set it to 512, length: 0"));
}

TEST_F(FSreadTest, TheSmallestReadThatStays) {
    const std::int64_t handle = fileOf(1000);

    EXPECT_EQ(cbBufferOf(call(ZrsfRead, readRequest(handle, 0, 511))), 512U);
    EXPECT_TRUE(m_log.has(2, "readcount < 512, set it to 512, length: 511"));
    m_log.clear();
    EXPECT_EQ(cbBufferOf(call(ZrsfRead, readRequest(handle, 0, 512))), 512U);
    EXPECT_EQ(cbBufferOf(call(ZrsfRead, readRequest(handle, 0, 513))), 513U);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(FSreadTest, AShortReadLeavesThePositionBeyondTheEnd) {
    const std::int64_t handle = fileOf(1500);

    const auto reply = call(ZrsfRead, readRequest(handle, 1000, 4096));

    EXPECT_EQ(statusOf(reply), 0);
    EXPECT_EQ(cbBufferOf(reply), 500U);
    EXPECT_EQ(dataOf(reply), pattern(1500).substr(1000));
    EXPECT_EQ(position(handle), 5096);
}

TEST_F(FSreadTest, AReadAtOrBehindTheEndIsEmpty) {
    const std::int64_t handle = fileOf(1500);

    for (const std::int64_t offset : {1500, 1501, 1'000'000}) {
        const auto reply = call(ZrsfRead, readRequest(handle, offset, 512));
        EXPECT_EQ(reply.size(), 12U + 11);
        EXPECT_EQ(statusOf(reply), 0);
        EXPECT_EQ(cbBufferOf(reply), 0U);
    }
}

TEST_F(FSreadTest, AReplyNeverOutgrowsTheWorkBuffer) {
    constexpr std::uint32_t kMost = 1049600 - 12 - 11;
    const std::int64_t handle = fileOf(1'100'000);

    for (const std::uint32_t length : {kMost - 1, kMost, kMost + 1, 1049600U, 0x7FFFFFFFU, ~0U}) {
        const auto reply = call(ZrsfRead, readRequest(handle, 0, length));
        const std::uint32_t expected = std::min(length, kMost);
        EXPECT_EQ(statusOf(reply), 0);
        EXPECT_EQ(cbBufferOf(reply), expected) << length;
        EXPECT_EQ(reply.size(), 12U + expected + 11);
        EXPECT_EQ(dataOf(reply), pattern(expected));
        EXPECT_EQ(position(handle), expected);
    }
}

TEST_F(FSreadTest, AnUnknownHandleIsAnInvalidParameter) {
    const auto reply = call(ZrsfRead, readRequest(4711, 5, 600));

    EXPECT_EQ(reply.size(), 12U + 11);
    EXPECT_EQ(statusOf(reply), -2);
    EXPECT_EQ(cbBufferOf(reply), 0U);
    EXPECT_EQ(m_log.lines().size(), 1U);
    EXPECT_TRUE(m_log.contains(
        2, "invalid parameter!!!   handle: 4711, offset: 5, length: 600, pzrsfHandle: "));
}

TEST_F(FSreadTest, ADirectoryIsAnInvalidParameter) {
    const std::int64_t handle = openFolder();

    const auto reply = call(ZrsfRead, readRequest(handle, 0, 512));

    EXPECT_EQ(statusOf(reply), -2);
    EXPECT_EQ(cbBufferOf(reply), 0U);
    char expected[160];
    std::snprintf(expected, sizeof expected,
                  "invalid parameter!!!   handle: %lld, offset: 0, length: 512, pzrsfHandle: %p",
                  static_cast<long long>(handle), static_cast<const void*>(record(handle)));
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{2, expected}}));
}

TEST_F(FSreadTest, AMapThatIsReadOnlyIsRead) {
    m_map.m_bWritable = 0;
    EXPECT_EQ(cbBufferOf(call(ZrsfRead, readRequest(fileOf(600), 0, 600))), 600U);
}

TEST_F(FSreadTest, APrinterPortIsReadAsAFile) {
    m_map.m_mapType = 0x1000;
    EXPECT_EQ(cbBufferOf(call(ZrsfRead, readRequest(fileOf(600), 0, 600))), 600U);
}

TEST_F(FSreadTest, AFailedReadAnswersItsStatus) {
    m_dir.file("data", pattern(600));
    const std::int64_t handle = openFile("data", O_WRONLY);

    const auto reply = call(ZrsfRead, readRequest(handle, 3, 600));

    EXPECT_EQ(reply.size(), 12U + 11);
    EXPECT_EQ(statusOf(reply), -4);
    EXPECT_EQ(cbBufferOf(reply), 0U);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{2, "pread error!!!   path: " + m_dir.str("data") +
                                            ", hFile: " + std::to_string(handle) +
                                            ", offset: 3, length: 600, rc: -4, haveRead: -1, "
                                            "errno: " +
                                            std::to_string(EBADF)}}));
}

TEST_F(FSreadTest, ANegativeOffsetIsRefusedByTheSystem) {
    const auto reply = call(ZrsfRead, readRequest(fileOf(600), -1, 512));
    EXPECT_EQ(statusOf(reply), -2);
    EXPECT_EQ(cbBufferOf(reply), 0U);
}

TEST_F(FSreadTest, TheLargestOffsetIsNoTrouble) {
    const auto reply = call(ZrsfRead, readRequest(fileOf(600), LLONG_MAX, ~0U));
    EXPECT_EQ(reply.size(), 12U + 11);
}

TEST_F(FSreadTest, APipeCannotBeReadAtAnOffset) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    insert(ends[1], "pipe");

    const auto reply = call(ZrsfRead, readRequest(insert(ends[0], "pipe"), 0, 512));

    EXPECT_EQ(statusOf(reply), -109);
    EXPECT_EQ(cbBufferOf(reply), 0U);
}

// Devices are known that read at any offset and seek nowhere.
TEST_F(FSreadTest, AFailedSeekIsOnlyLogged) {
    const std::int64_t handle = fileOf(1000);
    const std::string line =
        "lseek error!!!   path: " + m_dir.str("data") + ", hFile: " + std::to_string(handle) +
        ", offset: 10, length: 600, rc: 0, haveRead: 600, errno: " + std::to_string(ESPIPE);
    inChild([&] {
        denyCalls({SYS_lseek}, ESPIPE);
        const auto reply = call(ZrsfRead, readRequest(handle, 10, 600));
        EXPECT_EQ(statusOf(reply), 0);
        EXPECT_EQ(cbBufferOf(reply), 600U);
        EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{2, line}}));
    });
}

TEST_F(FSreadTest, TheBytesBehindTheDataAreThoseOfTheRequest) {
    const auto reply = call(ZrsfRead, readRequest(fileOf(2), 0x11223344, 512));

    EXPECT_EQ(std::string(reply.data() + kDataAt, 3), "\x44\x33\x22");
}

TEST_F(FSreadTest, ARequestThatIsCutShortReadsAsIfZerosFollowed) {
    const Request whole = readRequest(fileOf(2000), 0x0102, 0x0300);
    for (std::size_t size = 12; size < whole.size(); ++size) {
        Request cut(whole.begin(), whole.begin() + static_cast<long>(size));
        Request padded = cut;
        padded.resize(whole.size());
        EXPECT_EQ(call(ZrsfRead, cut), call(ZrsfRead, padded)) << size;
    }
}

}  // namespace
