// The reader of fields that follow each other.
#include "common/Comm/WireReader.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {
std::string withLength(std::int32_t length, const std::string& bytes) {
    std::string message(4, '\0');
    storeLe(message.data(), length);
    return message + bytes;
}

TEST(WireReaderTest, ReadsFieldsOneBehindTheOther) {
    const std::string bytes = std::string("\x01\x02\x03\x04", 4) + withLength(2, "ab") + "c";
    WireReader reader(bytes.data(), bytes.size());

    EXPECT_EQ(reader.number<std::int32_t>(), 0x04030201);
    EXPECT_EQ(reader.text(), "ab");
    EXPECT_EQ(reader.number<char>(), 'c');
    EXPECT_EQ(reader.number<char>(), std::nullopt);
}

TEST(WireReaderTest, ConsumesNothingForANumberThatIsCutShort) {
    const std::string bytes = "abc";
    WireReader reader(bytes.data(), bytes.size());

    EXPECT_EQ(reader.number<std::int32_t>(), std::nullopt);
    EXPECT_EQ(reader.number<char>(), 'a');
}

TEST(WireReaderTest, ReadsATextUpToTheEndAndNoFurther) {
    const std::string whole = withLength(3, "abc");
    EXPECT_EQ(WireReader(whole.data(), whole.size()).text(), "abc");
    EXPECT_EQ(WireReader(whole.data(), whole.size() - 1).text(), std::nullopt);
    EXPECT_EQ(WireReader(whole.data(), 3).text(), std::nullopt);
    const std::string huge = withLength(INT_MAX, "abc");
    EXPECT_EQ(WireReader(huge.data(), huge.size()).text(), std::nullopt);
}

TEST(WireReaderTest, ReadsAnEmptyTextAtTheVeryEnd) {
    const std::string empty = withLength(0, "");
    EXPECT_EQ(WireReader(empty.data(), empty.size()).text(), "");
}

TEST(WireReaderTest, ThrowsAtANegativeLength) {
    for (const std::int32_t length : {-1, INT_MIN}) {
        const std::string bytes = withLength(length, "abc");
        WireReader reader(bytes.data(), bytes.size());
        EXPECT_THROW(reader.text(), std::length_error);
    }
}
}  // namespace
