#include "ZBoundsChecked.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string_view>

namespace {
constexpr std::size_t kLargest = 0x7FFFFFFF;

std::array<char, 8> filled() {
    return {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'};
}

constexpr std::array<char, 8> kZeros = {};

TEST(MemcpySTest, CopiesUpToTheWholeDestination) {
    auto dst = kZeros;
    EXPECT_EQ(memcpy_s(dst.data(), 8, "12345678", 8), 0);
    EXPECT_EQ(std::string_view(dst.data(), 8), "12345678");
}

TEST(MemcpySTest, OneByteTooManyClearsTheDestination) {
    auto dst = filled();
    EXPECT_EQ(memcpy_s(dst.data(), 8, "123456789", 9), 162);
    EXPECT_EQ(dst, kZeros);
}

TEST(MemcpySTest, ChecksTheSizeBeforeThePointers) {
    auto dst = filled();
    EXPECT_EQ(memcpy_s(nullptr, 0, nullptr, 1), 34);
    EXPECT_EQ(memcpy_s(dst.data(), kLargest + 1, "x", 1), 34);
    EXPECT_EQ(memcpy_s(nullptr, kLargest, "x", 1), 22);
    EXPECT_EQ(dst, filled());
}

TEST(MemcpySTest, ANullSourceClearsTheDestinationEvenForNoBytes) {
    auto dst = filled();
    EXPECT_EQ(memcpy_s(dst.data(), 8, nullptr, 0), 150);
    EXPECT_EQ(dst, kZeros);
}

TEST(MemcpySTest, NothingMovesOntoItselfOrForNoBytes) {
    auto dst = filled();
    EXPECT_EQ(memcpy_s(dst.data(), 8, dst.data(), 8), 0);
    EXPECT_EQ(memcpy_s(dst.data(), 8, dst.data() + 1, 0), 0);
    EXPECT_EQ(dst, filled());
}

TEST(MemcpySTest, OverlapIsFoundInBothDirectionsAndClearsTheDestination) {
    auto forward = filled();
    EXPECT_EQ(memcpy_s(forward.data(), 6, forward.data() + 1, 4), 182);
    EXPECT_EQ(forward, (std::array<char, 8>{0, 0, 0, 0, 0, 0, 'g', 'h'}));
    auto backward = filled();
    EXPECT_EQ(memcpy_s(backward.data() + 1, 6, backward.data(), 4), 182);
    EXPECT_EQ(backward, (std::array<char, 8>{'a', 0, 0, 0, 0, 0, 0, 'h'}));
}

TEST(MemcpySTest, RegionsThatTouchDoNotOverlap) {
    auto dst = filled();
    EXPECT_EQ(memcpy_s(dst.data(), 8, dst.data() + 4, 4), 0);
    EXPECT_EQ(std::string_view(dst.data(), 8), "efghefgh");
    EXPECT_EQ(memcpy_s(dst.data() + 2, 6, dst.data(), 2), 0);
    EXPECT_EQ(std::string_view(dst.data(), 8), "efefefgh");
}

TEST(MemmoveSTest, MovesOverlappingRegions) {
    auto dst = filled();
    EXPECT_EQ(memmove_s(dst.data(), 8, dst.data() + 1, 7), 0);
    EXPECT_EQ(std::string_view(dst.data(), 8), "bcdefghh");
}

TEST(MemmoveSTest, ChecksAsTheCopyDoes) {
    auto dst = filled();
    EXPECT_EQ(memmove_s(dst.data(), 0, "x", 1), 34);
    EXPECT_EQ(memmove_s(nullptr, 8, "x", 1), 22);
    EXPECT_EQ(dst, filled());
    EXPECT_EQ(memmove_s(dst.data(), 8, "123456789", 9), 162);
    EXPECT_EQ(dst, kZeros);
    dst = filled();
    EXPECT_EQ(memmove_s(dst.data(), 8, nullptr, 1), 150);
    EXPECT_EQ(dst, kZeros);
}

TEST(MemsetSTest, FillsAndAcceptsAnEmptyDestination) {
    auto dst = filled();
    EXPECT_EQ(memset_s(dst.data(), 8, 'x', 3), 0);
    EXPECT_EQ(std::string_view(dst.data(), 8), "xxxdefgh");
    EXPECT_EQ(memset_s(dst.data(), 0, 'x', 0), 0);
}

TEST(MemsetSTest, ACountAboveTheSizeFillsTheDestinationWithTheValue) {
    auto dst = filled();
    EXPECT_EQ(memset_s(dst.data(), 8, 'x', 9), 162);
    EXPECT_EQ(std::string_view(dst.data(), 8), "xxxxxxxx");
}

TEST(MemsetSTest, RefusesBadSizesAndANullDestination) {
    auto dst = filled();
    EXPECT_EQ(memset_s(dst.data(), 0, 'x', 1), 34);
    EXPECT_EQ(memset_s(dst.data(), kLargest + 1, 'x', 1), 34);
    EXPECT_EQ(memset_s(nullptr, 0, 'x', 0), 34);
    EXPECT_EQ(memset_s(nullptr, 8, 'x', 1), 22);
    EXPECT_EQ(dst, filled());
}

TEST(SprintfSTest, GivesTheLengthOfATextThatFits) {
    auto dst = filled();
    EXPECT_EQ(sprintf_s(dst.data(), 8, "%s-%d", "abc", 123), 7);
    EXPECT_STREQ(dst.data(), "abc-123");
}

TEST(SprintfSTest, ATextThatDoesNotFitIsEmptied) {
    auto dst = filled();
    EXPECT_EQ(sprintf_s(dst.data(), 8, "%s", "12345678"), -1);
    EXPECT_STREQ(dst.data(), "");
}

TEST(SprintfSTest, TouchesNothingForABadSizeOrANullDestination) {
    auto dst = filled();
    EXPECT_EQ(sprintf_s(dst.data(), 0, "x"), -1);
    EXPECT_EQ(sprintf_s(dst.data(), kLargest + 1, "x"), -1);
    EXPECT_EQ(sprintf_s(nullptr, 8, "x"), -1);
    EXPECT_EQ(dst, filled());
}

TEST(SprintfSTest, ANullFormatEmptiesTheText) {
    auto dst = filled();
    const char* volatile none = nullptr;
    EXPECT_EQ(sprintf_s(dst.data(), 8, none, 0), -1);
    EXPECT_STREQ(dst.data(), "");
}

TEST(StrcpySTest, CopiesATextWithItsTerminator) {
    auto dst = filled();
    EXPECT_EQ(strcpy_s(dst.data(), 4, "Mac"), 0);
    EXPECT_STREQ(dst.data(), "Mac");
    EXPECT_EQ(strcpy_s(dst.data(), 3, "Mac"), 162);
    EXPECT_EQ(strcpy_s(dst.data(), 3, nullptr), 150);
}

TEST(FastVariantsTest, KeepTheContractsOfThePlainOnes) {
    for (const auto copy : {memcpy_sOptAsm, memcpy_sOptTc}) {
        auto dst = filled();
        EXPECT_EQ(copy(dst.data(), 8, "12345678", 8), 0);
        EXPECT_EQ(std::string_view(dst.data(), 8), "12345678");
        EXPECT_EQ(copy(dst.data(), 8, "123456789", 9), 162);
        EXPECT_EQ(dst, kZeros);
    }
    for (const auto fill : {memset_sOptAsm, memset_sOptTc}) {
        auto dst = filled();
        EXPECT_EQ(fill(dst.data(), 8, 'x', 9), 162);
        EXPECT_EQ(std::string_view(dst.data(), 8), "xxxxxxxx");
    }
}
}  // namespace
