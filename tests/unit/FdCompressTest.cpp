// The compression stage: what it takes for large enough, and the rules of its work space.
#include "common/Compress/FdCompress.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <string>

#include "support/LogCapture.h"
#include "support/ScarceMemory.h"

namespace {
constexpr int kIntMax = std::numeric_limits<int>::max();

class FdCompressTest : public testing::Test {
protected:
    // Compresses and proves that the outputs kept what the caller had set.
    bool compress(char* data, int size) {
        char mark = 0;
        char* out = &mark;
        int outSize = 7;
        const bool result = m_compress.compressData(data, size, 5, out, outSize);
        EXPECT_EQ(out, &mark);
        EXPECT_EQ(outSize, 7);
        return result;
    }

    LogCapture m_log;
    FdCompress m_compress;
    char m_data[16] = {};
};
}  // namespace

TEST_F(FdCompressTest, LogsItsWorkSpace) {
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "comrpess space  memory!!!   pdata: " +
                                               pointerText(m_compress.getSpace()) +
                                               ",  size: 65536"));
}

TEST_F(FdCompressTest, RefusesNullDataWhateverTheSize) {
    EXPECT_FALSE(compress(nullptr, 0));
    EXPECT_FALSE(compress(nullptr, 100000));
    EXPECT_EQ(
        m_log.count(ZLOG_LEVEL_WARNING, "can't compress data!!!   data: " + pointerText(nullptr)),
        2);
}

TEST_F(FdCompressTest, TakesTheMinimumSizeAndNotOneByteLess) {
    EXPECT_TRUE(compress(m_data, 512));
    EXPECT_FALSE(compress(m_data, 511));
}

TEST_F(FdCompressTest, AMinimumOfZeroTakesEveryInput) {
    EXPECT_TRUE(m_compress.setMinCompressSize(0));
    EXPECT_TRUE(compress(m_data, 0));
}

TEST_F(FdCompressTest, ANegativeMinimumIsRefusedAndTheOldOneKept) {
    EXPECT_TRUE(m_compress.setMinCompressSize(10));
    EXPECT_FALSE(m_compress.setMinCompressSize(-1));

    EXPECT_TRUE(compress(m_data, 10));
    EXPECT_FALSE(compress(m_data, 9));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "set min compress size error!!!   minSize: -1"));
}

TEST_F(FdCompressTest, TheThresholdIsAtMost1000) {
    EXPECT_TRUE(m_compress.setMinThreshold(0));
    EXPECT_TRUE(m_compress.setMinThreshold(1000));
    EXPECT_FALSE(m_compress.setMinThreshold(1001));
    EXPECT_FALSE(m_compress.setMinThreshold(-1));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "setMinThreshold error.    threshold: 1001"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "setMinThreshold error.    threshold: -1"));
}

TEST_F(FdCompressTest, KeepsASpaceThatIsLargeEnough) {
    const char* space = m_compress.getSpace();
    m_log.clear();

    EXPECT_TRUE(m_compress.getMallocEncodeMemory(65536));
    EXPECT_TRUE(m_compress.getMallocEncodeMemory(1));
    EXPECT_TRUE(m_compress.getMallocEncodeMemory(-1));

    EXPECT_EQ(m_compress.getSpace(), space);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(FdCompressTest, OneByteMoreMakesASpaceOf69632Bytes) {
    ASSERT_TRUE(m_compress.getMallocEncodeMemory(65537));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO,
                          "malloc encode memory!!!   pdata: " + pointerText(m_compress.getSpace()) +
                              ", length: 65537, size: 68 KB"));
    m_compress.getSpace()[69631] = 1;  // within the space, which the address sanitizer proves
    m_log.clear();

    EXPECT_TRUE(m_compress.getMallocEncodeMemory(69632));

    EXPECT_TRUE(m_log.lines().empty());  // the space was large enough
}

TEST_F(FdCompressTest, ALengthThatRoundsToANegativeNumberLeavesNoSpace) {
    EXPECT_FALSE(m_compress.getMallocEncodeMemory(kIntMax));

    EXPECT_EQ(m_compress.getSpace(), nullptr);
    EXPECT_TRUE(
        m_log.has(ZLOG_LEVEL_WARNING, "align4k is zero. length: " + std::to_string(kIntMax)));
}

TEST_F(FdCompressTest, ASpaceThatIsGoneComesBackWithTheNextDemand) {
    ASSERT_FALSE(m_compress.getMallocEncodeMemory(kIntMax));

    EXPECT_TRUE(m_compress.getMallocEncodeMemory(0));  // the size 0 is enough for that
    EXPECT_EQ(m_compress.getSpace(), nullptr);
    EXPECT_TRUE(m_compress.getMallocEncodeMemory(1));
    EXPECT_NE(m_compress.getSpace(), nullptr);
}

TEST_F(FdCompressTest, AFailedAllocationIsLoggedAndLeavesNoSpace) {
    constexpr int kTwoGiB = kIntMax / 4096 * 4096;
    const auto withoutMemory = [this] {
        const ScarceMemory limit;
        const bool result = m_compress.getMallocEncodeMemory(kTwoGiB);
        std::_Exit(!result && m_compress.getSpace() == nullptr &&
                           m_log.has(ZLOG_LEVEL_WARNING,
                                     "malloc encode memory error!!!   pdata: (nil), length: "
                                     "2147479552, size: 2097148 KB")
                       ? 0
                       : 1);
    };
    EXPECT_EXIT(withoutMemory(), testing::ExitedWithCode(0), "");
}

TEST_F(FdCompressTest, UncompressRefusesNullAndEmptyData) {
    char* out = m_data;
    EXPECT_FALSE(m_compress.uncompressData(nullptr, 10, 5, 10, out));
    EXPECT_FALSE(m_compress.uncompressData(m_data, 0, 5, 10, out));
    EXPECT_FALSE(m_compress.uncompressData(m_data, -1, 5, 10, out));

    EXPECT_EQ(out, m_data);
    EXPECT_TRUE(
        m_log.has(ZLOG_LEVEL_WARNING, "can't uncompress data. cmprData: (nil), compressSize: 10"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "can't uncompress data. cmprData: " +
                                                  pointerText(m_data) + ", compressSize: 0"));
}

TEST_F(FdCompressTest, UncompressTakesDataAndProducesNone) {
    char* out = nullptr;
    EXPECT_TRUE(m_compress.uncompressData(m_data, 1, 5, 10, out));
    EXPECT_EQ(out, nullptr);
}
