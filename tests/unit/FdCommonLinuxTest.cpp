// Separators, last components and display names.
#include "linux/comm/Opreator/FdCommon_linux.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "support/LogCapture.h"

using namespace std::string_literals;

namespace {

constexpr int kPathRoom = 64;

struct Cut {
    int result;
    std::string path;
};

// Cuts `path` in a buffer of `kPathRoom` bytes that is said to have `size`.
Cut cutToFolderName(const std::string& path, int size, int length) {
    char buffer[kPathRoom] = {};
    path.copy(buffer, sizeof(buffer) - 1);
    const int result = getFolderNameByPath(buffer, size, length);
    return {result, buffer};
}

Cut cutToFolderName(const std::string& path) {
    return cutToFolderName(path, kPathRoom, static_cast<int>(path.size()));
}

std::string owned(char* text) {
    const std::unique_ptr<char, decltype(&std::free)> guard(text, &std::free);
    return text == nullptr ? "(null)" : text;
}

TEST(AdjustStrTest, TurnsEachHyphenIntoABlank) {
    char text[] = "my-old-disk";
    EXPECT_TRUE(adjustStr(text, sizeof(text)));
    EXPECT_STREQ(text, "my old disk");
}

TEST(AdjustStrTest, StopsAtTheSize) {
    char text[] = "a-b-c";
    EXPECT_TRUE(adjustStr(text, 3));
    EXPECT_STREQ(text, "a b-c");
}

TEST(AdjustStrTest, StopsAtTheTerminator) {
    char text[] = "a-\0-";
    EXPECT_TRUE(adjustStr(text, sizeof(text)));
    EXPECT_EQ(text[3], '-');
}

TEST(AdjustStrTest, ChangesNothingForASizeBelowOne) {
    char text[] = "-";
    EXPECT_TRUE(adjustStr(text, 0));
    EXPECT_TRUE(adjustStr(text, -1));
    EXPECT_STREQ(text, "-");
    EXPECT_TRUE(adjustStr(nullptr, 1));
}

TEST(IsAllAsciiCharTest, KnowsAsciiFromOtherText) {
    EXPECT_TRUE(isAllAsciiChar("Data \x7F", 100));
    EXPECT_FALSE(isAllAsciiChar("D\xC3\xA4", 100));
}

TEST(IsAllAsciiCharTest, EndsAtTheTerminator) {
    EXPECT_TRUE(isAllAsciiChar("ab\0\xFF", 4));
}

TEST(IsAllAsciiCharTest, EndsAtTheSize) {
    EXPECT_TRUE(isAllAsciiChar("ab\xFF", 2));
    EXPECT_FALSE(isAllAsciiChar("ab\xFF", 3));
}

TEST(IsAllAsciiCharTest, TakesNoTextAtAllForFalseAndNoSizeForTrue) {
    EXPECT_FALSE(isAllAsciiChar(nullptr, 0));
    EXPECT_TRUE(isAllAsciiChar("\xFF", 0));
    EXPECT_TRUE(isAllAsciiChar("\xFF", -1));
}

TEST(GetFolderNameByPathTest, CutsAPathToItsLastComponent) {
    const Cut cut = cutToFolderName("/Volumes/Data");
    EXPECT_EQ(cut.result, 4);
    EXPECT_EQ(cut.path, "Data");
}

TEST(GetFolderNameByPathTest, LeavesTheRootAlone) {
    const Cut cut = cutToFolderName("/.");
    EXPECT_EQ(cut.result, -1);
    EXPECT_EQ(cut.path, "/.");
}

TEST(GetFolderNameByPathTest, LeavesATextWithoutASlashAlone) {
    const Cut cut = cutToFolderName("Data");
    EXPECT_EQ(cut.result, -2);
    EXPECT_EQ(cut.path, "Data");
}

TEST(GetFolderNameByPathTest, LeavesNothingOfATextThatEndsInASlash) {
    const Cut cut = cutToFolderName("/Volumes/");
    EXPECT_EQ(cut.result, 0);
    EXPECT_EQ(cut.path, "");
}

TEST(GetFolderNameByPathTest, FindsTheLastSlashWithinTheLengthAndTakesTheWholeRest) {
    const Cut cut = cutToFolderName("/a/b", kPathRoom, 2);
    EXPECT_EQ(cut.result, 3);
    EXPECT_EQ(cut.path, "a/b");
    EXPECT_EQ(cutToFolderName("a/b", kPathRoom, 1).result, -2);
}

TEST(GetFolderNameByPathTest, RefusesBadArguments) {
    EXPECT_EQ(getFolderNameByPath(nullptr, 8, 2), -1);
    EXPECT_EQ(cutToFolderName("/a", kPathRoom, -1).result, -1);
    const Cut cut = cutToFolderName("/a", 2, 2);
    EXPECT_EQ(cut.result, -1);
    EXPECT_EQ(cut.path, "/a");
}

TEST(GetFolderNameByPathTest, ClearsThePathWhereItsNameIsNotShorterThanTheSize) {
    const LogCapture log;
    char path[8] = "/abcdef";
    EXPECT_EQ(getFolderNameByPath(path, 6, 5), -1);
    EXPECT_EQ(std::string(path, 8), "\0\0\0\0\0\0f\0"s);
    const Cut fits = cutToFolderName("/abcdef", 7, 5);
    EXPECT_EQ(fits.result, 6);
    EXPECT_EQ(fits.path, "abcdef");
    EXPECT_TRUE(log.lines().empty());
}

TEST(GetFolderNameByPathTest, RefusesANameAbove1023Bytes) {
    for (const std::size_t length : {1023U, 1024U}) {
        std::string path = "/" + std::string(length, 'x');
        const int result = getFolderNameByPath(path.data(), static_cast<int>(path.size() + 1),
                                               static_cast<int>(path.size()));
        EXPECT_EQ(result, length == 1023 ? 1023 : -1);
    }
}

TEST(GetRootFlagByPathTest, KnowsTheRootsClientPathAlone) {
    EXPECT_TRUE(getRootFlagByPath("/."));
    EXPECT_FALSE(getRootFlagByPath("/"));
    EXPECT_FALSE(getRootFlagByPath("/./"));
    EXPECT_FALSE(getRootFlagByPath(nullptr));
}

TEST(ExchangeSeparatorsTest, TurnsBackslashesIntoSlashes) {
    char dst[16] = "###############";
    EXPECT_EQ(winPath2LinuxPath(dst, sizeof(dst), "\\a\\bc", 5), 5);
    EXPECT_EQ(std::string(dst, sizeof(dst)), "/a/bc" + std::string(11, '\0'));
}

TEST(ExchangeSeparatorsTest, TurnsSlashesIntoBackslashes) {
    char dst[16] = "###############";
    EXPECT_EQ(linuxPath2WinPath(dst, sizeof(dst), "/a\\bc", 5), 5);
    EXPECT_EQ(std::string(dst, sizeof(dst)), "\\a\\bc" + std::string(11, '\0'));
}

TEST(ExchangeSeparatorsTest, RefusesADestinationBelowTheLength) {
    char dst[8] = "#######";
    EXPECT_EQ(winPath2LinuxPath(dst, 4, "\\a\\bc", 5), -1);
    EXPECT_EQ(linuxPath2WinPath(dst, 4, "/a/bc", 5), -1);
    EXPECT_STREQ(dst, "#######");
}

TEST(ExchangeSeparatorsTest, FillsADestinationOfTheLengthWithoutATerminator) {
    char dst[6] = "#####";
    EXPECT_EQ(winPath2LinuxPath(dst, 5, "\\a\\bcd", 5), 5);
    EXPECT_STREQ(dst, "/a/bc");
    dst[5] = '!';
    EXPECT_EQ(winPath2LinuxPath(dst, 5, "\\a\\bcd", 5), 5);
    EXPECT_EQ(dst[5], '!');
}

TEST(ExchangeSeparatorsTest, GivesTheLengthAlsoWhereTheTextIsShorter) {
    char dst[8] = "#######";
    EXPECT_EQ(winPath2LinuxPath(dst, sizeof(dst), "\\a", 7), 7);
    EXPECT_EQ(std::string(dst, sizeof(dst)), "/a" + std::string(6, '\0'));
}

TEST(ExchangeSeparatorsTest, EmptiesTheDestinationForNoText) {
    char dst[4] = "###";
    EXPECT_EQ(winPath2LinuxPath(dst, sizeof(dst), "", 3), 3);
    EXPECT_STREQ(dst, "");
    dst[0] = '#';
    EXPECT_EQ(linuxPath2WinPath(dst, sizeof(dst), "/a", 0), 0);
    EXPECT_STREQ(dst, "");
    dst[0] = '#';
    EXPECT_EQ(winPath2LinuxPath(dst, sizeof(dst), "\\a", -3), -3);
    EXPECT_STREQ(dst, "");
}

TEST(ExchangeSeparatorsTest, TestsANegativeSizeOnTheWayToLinuxOnly) {
    char dst[4] = "###";
    EXPECT_EQ(winPath2LinuxPath(dst, -1, "\\a", -2), -1);
    EXPECT_EQ(linuxPath2WinPath(dst, -1, "/a", -2), -2);
    EXPECT_EQ(linuxPath2WinPath(dst, -3, "/a", -2), -1);
    EXPECT_STREQ(dst, "###");
}

TEST(ExchangeSeparatorsTest, RefusesNullPointers) {
    char dst[4] = "###";
    EXPECT_EQ(winPath2LinuxPath(nullptr, 4, "a", 1), -1);
    EXPECT_EQ(winPath2LinuxPath(dst, 4, nullptr, 1), -1);
    EXPECT_EQ(linuxPath2WinPath(nullptr, 4, "a", 1), -1);
    EXPECT_EQ(linuxPath2WinPath(dst, 4, nullptr, 1), -1);
}

TEST(ExchangeSeparatorsTest, ChangesNothingElse) {
    const std::string path = "C:\\\\..\\.\\\xC3\xA4";
    char dst[32] = {};
    winPath2LinuxPath(dst, sizeof(dst), path.c_str(), static_cast<int>(path.size()));
    EXPECT_STREQ(dst, "C://.././\xC3\xA4");
}

TEST(CompareIgnoreCaseTest, FindsEqualWordsInDifferentCase) {
    EXPECT_EQ(compareIgnoreCase("DataZ", "dATAz"), 0);
}

TEST(CompareIgnoreCaseTest, LetsTheLengthDecideFirst) {
    EXPECT_EQ(compareIgnoreCase("z", "ab"), -1);
    EXPECT_EQ(compareIgnoreCase("abcd", "z"), 3);
}

TEST(CompareIgnoreCaseTest, GivesTheDifferenceOfTheFoldedBytes) {
    EXPECT_EQ(compareIgnoreCase("aB", "Ad"), -2);
    EXPECT_EQ(compareIgnoreCase("\xC3", "a"), -61 - 97);  // signed bytes
    EXPECT_EQ(compareIgnoreCase("[", "{"), '[' - '{');    // the neighbours of letters do not fold
    EXPECT_EQ(compareIgnoreCase("@", "`"), '@' - '`');
}

TEST(CompareIgnoreCaseTest, OrdersNullFirst) {
    EXPECT_EQ(compareIgnoreCase(nullptr, nullptr), 0);
    EXPECT_EQ(compareIgnoreCase(nullptr, ""), -1);
    EXPECT_EQ(compareIgnoreCase("", nullptr), 1);
}

TEST(StartsWithTest, ComparesTheLeadingBytes) {
    EXPECT_TRUE(starts_with("/dev/lp0", "/dev/lp"));
    EXPECT_TRUE(starts_with("abc", ""));
    EXPECT_FALSE(starts_with("ab", "abc"));
    EXPECT_FALSE(starts_with("abc", "ac"));
    const std::string same = "a";
    EXPECT_TRUE(starts_with(same, same));
}

TEST(EndsWithTest, ComparesTheTrailingBytes) {
    EXPECT_TRUE(ends_with("a.txt", ".txt"));
    EXPECT_TRUE(ends_with("abc", ""));
    EXPECT_FALSE(ends_with("abc", "ab"));
    const std::string same = "a";
    EXPECT_TRUE(ends_with(same, same));
}

TEST(EndsWithTest, ThrowsForASuffixLongerThanTheText) {
    EXPECT_THROW(ends_with("bc", "abc"), std::out_of_range);
}

TEST(GetMountPointFolderTest, GivesTheLastComponent) {
    EXPECT_EQ(owned(getMountPointFolder("/Volumes/Data")), "Data");
    EXPECT_EQ(owned(getMountPointFolder("Data")), "Data");
}

TEST(GetMountPointFolderTest, GivesNothingForATrailingSlashOrNoPath) {
    EXPECT_EQ(owned(getMountPointFolder("/Volumes/")), "(null)");
    EXPECT_EQ(owned(getMountPointFolder("")), "(null)");
    EXPECT_EQ(owned(getMountPointFolder(nullptr)), "(null)");
}

TEST(GetMountPointFolderTest, CallsTheRootAndHiddenNamesRoot) {
    EXPECT_EQ(owned(getMountPointFolder("/.")), "Root");
    EXPECT_EQ(owned(getMountPointFolder("/home/.hidden")), "Root");
}

TEST(GetMountPointPathTest, GivesANewCopy) {
    const char path[] = "/Volumes/Data";
    char* const copy = getMountPointPath(path);
    EXPECT_NE(copy, path);
    EXPECT_EQ(owned(copy), path);
    EXPECT_EQ(getMountPointPath(nullptr), nullptr);
}

TEST(IsRootPathTest, KnowsTheEmptyTextAlone) {
    EXPECT_TRUE(isRootPath(""));
    EXPECT_FALSE(isRootPath("/"));
    EXPECT_FALSE(isRootPath("/."));
}

}  // namespace
