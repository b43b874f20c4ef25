// Conversion between UTF-8 and UTF-16LE.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>

#include "linux/comm/Opreator/FdCommon_linux.h"

using namespace std::string_literals;

namespace {

constexpr int kTextRoom = 64;

// The result and the text that stands in the destination afterwards.
struct Converted {
    int result;
    std::string text;
};

using Conversion = int (*)(char* dst, int dstSize, char* src, int srcSize);

Converted convert(Conversion conversion, std::string src, int room = kTextRoom) {
    std::string dst(kTextRoom, '#');
    const int result = conversion(dst.data(), room, src.data(), static_cast<int>(src.size()));
    dst.resize(dst.find_last_not_of('#') + 1);
    return {result, dst};
}

void expectConverted(const Converted& converted, const std::string& text) {
    EXPECT_EQ(converted.text, text);
    EXPECT_EQ(converted.result, static_cast<int>(text.size()));
}

TEST(TextEncodingTest, ConvertsOneLetterToTwoBytes) {
    expectConverted(convert(utf8ToUtf16L, "a"), "a\0"s);
}

TEST(TextEncodingTest, ConvertsTheTerminatorThatTheSizeCounts) {
    expectConverted(convert(utf8ToUtf16L, "a\0"s), "a\0\0\0"s);
    expectConverted(convert(utf16LToUtf8, "a\0\0\0"s), "a\0"s);
}

TEST(TextEncodingTest, AddsNoTerminatorOfItsOwn) {
    expectConverted(convert(utf16LToUtf8, "a\0"s), "a");
}

TEST(TextEncodingTest, ConvertsAnEmptyTextToNothing) {
    expectConverted(convert(utf8ToUtf16L, ""), "");
    expectConverted(convert(utf16LToUtf8, ""), "");
}

TEST(TextEncodingTest, TurnsACharacterOutsideTheBasicPlaneIntoASurrogatePair) {
    expectConverted(convert(utf8ToUtf16L, "\xF0\x9F\x98\x80"), "\x3D\xD8\x00\xDE"s);
    expectConverted(convert(utf16LToUtf8, "\x3D\xD8\x00\xDE"s), "\xF0\x9F\x98\x80");
}

TEST(TextEncodingTest, ConvertsThereAndBack) {
    const std::string text =
        "Gr\xC3\xBC\xC3\x9F"
        "e/\xE6\x96\x87\xE4\xBB\xB6";
    expectConverted(convert(utf16LToUtf8, convert(utf8ToUtf16L, text).text), text);
}

TEST(TextEncodingTest, RefusesAnOddNumberOfBytes) {
    EXPECT_EQ(convert(utf16LToUtf8, "a\0b"s).result, -1);
}

TEST(TextEncodingTest, RefusesMalformedText) {
    EXPECT_EQ(convert(utf8ToUtf16L, "a\xFF").result, -1);
    EXPECT_EQ(convert(utf8ToUtf16L, "\xC3").result, -1);
    EXPECT_EQ(convert(utf16LToUtf8, "\x00\xDE"s).result, -1);  // half a pair
}

TEST(TextEncodingTest, KeepsWhatWasConvertedBeforeTheRoomRanOut) {
    const Converted cut = convert(utf8ToUtf16L, "abc", 4);
    EXPECT_EQ(cut.result, -1);
    EXPECT_EQ(cut.text, "a\0b\0"s);
}

TEST(TextEncodingTest, FillsTheRoomToTheLastByte) {
    expectConverted(convert(utf8ToUtf16L, "abc", 6), "a\0b\0c\0"s);
}

TEST(TextEncodingTest, RefusesBadArguments) {
    char text[4] = "a";
    for (const Conversion conversion : {utf8ToUtf16L, utf16LToUtf8}) {
        char dst[4] = "##";
        EXPECT_EQ(conversion(nullptr, 4, text, 2), -1);
        EXPECT_EQ(conversion(dst, 4, nullptr, 2), -1);
        EXPECT_EQ(conversion(dst, -1, text, 2), -1);
        EXPECT_EQ(conversion(dst, 4, text, -1), -1);
        EXPECT_STREQ(dst, "##");
    }
}

TEST(TextEncodingTest, ConvertsOnSeveralThreadsAtOnce) {
    std::array<std::thread, 4> threads;
    for (std::thread& thread : threads) {
        thread = std::thread([] {
            for (int round = 0; round < 500; ++round) {
                expectConverted(convert(utf8ToUtf16L, "folder"), "f\0o\0l\0d\0e\0r\0"s);
                expectConverted(convert(utf16LToUtf8, "f\0o\0l\0d\0e\0r\0"s), "folder");
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
