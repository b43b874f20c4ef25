// The mode word, the records' way to the wire and the times.
#include "linux/comm/Opreator/ObjectInfo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

unsigned int normalized(unsigned int fMode) {
    return rtFsModeNormalize(fMode, nullptr, 0);
}

unsigned int fromLinux(unsigned int fMode) {
    return rtFsModeFromLinux(fMode, nullptr, 0);
}

RTFSOBJINFO filledInfo(RTFSOBJATTRADD additional) {
    RTFSOBJINFO info{};
    info.cbObject = 0x0102030405060708;
    info.cbAllocated = 8192;
    info.AccessTime = {1};
    info.ModificationTime = {-2};
    info.ChangeTime = {3};
    info.BirthTime = {4};
    info.Attr.fMode = 0x41ED;
    info.Attr.enmAdditional = additional;
    std::fill_n(info.Attr.u, sizeof(info.Attr.u), std::uint8_t{0x5A});
    return info;
}

SHFLFSOBJINFO dirtyWireInfo() {
    SHFLFSOBJINFO info{};
    std::fill_n(info.Attr.u, sizeof(info.Attr.u), std::uint8_t{0xEE});
    return info;
}

int countOf(const SHFLFSOBJINFO& info, std::uint8_t value) {
    return static_cast<int>(std::count(info.Attr.u, info.Attr.u + sizeof(info.Attr.u), value));
}

TEST(ModeNormalizeTest, MakesAnEmptyWordAWritableFile) {
    EXPECT_EQ(normalized(0), 0x000081B6U);
}

TEST(ModeNormalizeTest, MakesALoneDirectoryBitAWritableDirectory) {
    EXPECT_EQ(normalized(0x00100000), 0x001041FFU);
}

TEST(ModeNormalizeTest, MakesALoneReadOnlyBitAReadOnlyFile) {
    EXPECT_EQ(normalized(0x00010000), 0x00018124U);
}

TEST(ModeNormalizeTest, LeavesAWritableUnixFileAsItIs) {
    EXPECT_EQ(normalized(0x81A4), 0x81A4U);
}

TEST(ModeNormalizeTest, GivesAUnixFileWithoutWriteBitsTheReadOnlyBit) {
    EXPECT_EQ(normalized(0x8124), 0x00018124U);
}

TEST(ModeNormalizeTest, GivesAUnixDirectoryTheDirectoryBit) {
    EXPECT_EQ(normalized(0x41ED), 0x001041EDU);
}

TEST(ModeNormalizeTest, GivesAUnixLinkTheReparsePointBit) {
    EXPECT_EQ(normalized(0xA1FF), 0x0400A1FFU);
}

TEST(ModeNormalizeTest, GivesPermissionsWithoutATypeTheTypeOfTheDosHalf) {
    EXPECT_EQ(normalized(0x01A4), 0x000081A4U);
    EXPECT_EQ(normalized(0x001001A4), 0x001041A4U);
}

TEST(ModeNormalizeTest, KeepsTwoFilledHalvesThatDisagree) {
    EXPECT_EQ(normalized(0x00208124), 0x00208124U);  // writable in DOS, read-only in Unix
    EXPECT_EQ(normalized(0x001181FF), 0x001181FFU);  // a read-only directory; a writable file
}

TEST(ModeNormalizeTest, AddsTheDirectoryBitToAWordWithBothHalves) {
    EXPECT_EQ(normalized(0x00014000), 0x00114000U);
}

TEST(ModeNormalizeTest, TakesTheHighestBitForNoDosAttribute) {
    EXPECT_EQ(normalized(0x80008124), 0x80018124U);
}

TEST(ModeNormalizeTest, IgnoresTheName) {
    EXPECT_EQ(rtFsModeNormalize(0x81A4, ".hidden", 7), 0x81A4U);
    EXPECT_EQ(rtFsModeFromLinux(0x81A4, ".hidden", 7), 0x81A4U);
}

TEST(ModeFromDosTest, MakesAReadOnlyDirectory) {
    EXPECT_EQ(rtFsModeFromDos(0x00110000), 0x0011416DU);
}

TEST(ModeFromDosTest, MakesAReparsePointALink) {
    EXPECT_EQ(rtFsModeFromDos(0x04000000), 0x0400A1B6U);
    EXPECT_EQ(rtFsModeFromDos(0x04010000), 0x0401A124U);
    EXPECT_EQ(rtFsModeFromDos(0x04110000), 0x0411A16DU);
}

TEST(ModeFromDosTest, ReplacesTheUnixHalf) {
    EXPECT_EQ(rtFsModeFromDos(0x0001FFFF), 0x00018124U);
}

TEST(ModeFromLinuxTest, AddsToTheDosHalf) {
    EXPECT_EQ(fromLinux(0x41ED), 0x001041EDU);
    EXPECT_EQ(fromLinux(0x416D), 0x0011416DU);
    EXPECT_EQ(fromLinux(0xA16D), 0x0401A16DU);
    EXPECT_EQ(fromLinux(0x00208124), 0x00218124U);
}

TEST(FileInfoTest, CopiesSizesAndTimesAndNormalizesTheMode) {
    const RTFSOBJINFO local = filledInfo(RTFSOBJATTRADD_NOTHING);
    SHFLFSOBJINFO wire = dirtyWireInfo();

    fileInfoFromRtfs(&wire, &local);

    EXPECT_EQ(std::memcmp(&wire, &local, 48), 0);
    EXPECT_EQ(std::uint32_t{wire.Attr.fMode}, 0x001041EDU);
    EXPECT_EQ(static_cast<int>(wire.Attr.enmAdditional), 1);
    EXPECT_EQ(countOf(wire, 0), 36);
}

TEST(FileInfoTest, PutsUnixAttributesOnTheWireWithTheirFirstEightBytes) {
    const RTFSOBJINFO local = filledInfo(RTFSOBJATTRADD_UNIX);
    SHFLFSOBJINFO wire = dirtyWireInfo();

    fileInfoFromRtfs(&wire, &local);

    EXPECT_EQ(static_cast<int>(wire.Attr.enmAdditional), 3);
    EXPECT_TRUE(std::all_of(wire.Attr.u, wire.Attr.u + 8, [](int b) { return b == 0x5A; }));
    EXPECT_EQ(countOf(wire, 0), 28);
}

TEST(FileInfoTest, TakesAnyOtherKindOfAttributesForNone) {
    const RTFSOBJINFO local = filledInfo(static_cast<RTFSOBJATTRADD>(3));
    SHFLFSOBJINFO wire = dirtyWireInfo();

    fileInfoFromRtfs(&wire, &local);

    EXPECT_EQ(static_cast<int>(wire.Attr.enmAdditional), 1);
    EXPECT_EQ(countOf(wire, 0), 36);
}

TEST(FileInfoTest, CopiesTheModeUntouchedInThePlainVariant) {
    const RTFSOBJINFO local = filledInfo(RTFSOBJATTRADD_UNIX);
    SHFLFSOBJINFO wire = dirtyWireInfo();

    vbfsCopyFsObjInfoFromIprt(&wire, &local);

    EXPECT_EQ(std::memcmp(&wire, &local, 52), 0);
    EXPECT_EQ(static_cast<int>(wire.Attr.enmAdditional), 3);
    EXPECT_EQ(countOf(wire, 0x5A), 8);
}

TEST(FileInfoTest, CopiesTheFileSystemPropertiesFieldByField) {
    const RTFSPROPERTIES local{255, 1, 2, 3, 4, 5, 6};
    SHFLFSPROPERTIES wire{};
    SHFLFSPROPERTIES plain{};

    fileSysInfoFromRtfs(&wire, &local);
    vbfsCopyFsPropertiesFromIprt(&plain, &local);

    const unsigned char bytes[] = {255, 0, 0, 0, 1, 2, 3, 4, 5, 6};
    EXPECT_EQ(std::memcmp(&wire, bytes, sizeof(bytes)), 0);
    EXPECT_EQ(std::memcmp(&plain, bytes, sizeof(bytes)), 0);
}

TEST(TimeSpecTest, GivesTheStoredNanoseconds) {
    const RTTIMESPEC time{-5};
    EXPECT_EQ(RTTimeSpecGetNano(&time), -5);
}

TEST(TimeSpecTest, CountsTicksFrom1601) {
    const RTTIMESPEC epoch{0};
    EXPECT_EQ(RTTimeSpecGetNtTime(&epoch), 116444736000000000);
    const RTTIMESPEC second{1'000'000'000};
    EXPECT_EQ(RTTimeSpecGetNtTime(&second), 116444736010000000);
}

TEST(TimeSpecTest, TruncatesTicksTowardZero) {
    const RTTIMESPEC after{199};
    EXPECT_EQ(RTTimeSpecGetNtTime(&after), 116444736000000001);
    const RTTIMESPEC before{-199};
    EXPECT_EQ(RTTimeSpecGetNtTime(&before), 116444735999999999);
}

TEST(TimeSpecTest, TakesTicksBackToNanoseconds) {
    RTTIMESPEC time{7};
    EXPECT_EQ(RTTimeSpecSetNtTime(&time, 116444736000000000), &time);
    EXPECT_EQ(RTTimeSpecGetNano(&time), 0);
    RTTimeSpecSetNtTime(&time, 116444735999999999);
    EXPECT_EQ(RTTimeSpecGetNano(&time), -100);
}

TEST(TimeSpecTest, WrapsTicksBeyondTheRange) {
    RTTIMESPEC time{7};
    RTTimeSpecSetNtTime(&time, 0);
    EXPECT_EQ(RTTimeSpecGetNano(&time), 0x5E6684F4B3960000);
    RTTimeSpecSetNtTime(&time, std::numeric_limits<unsigned long long>::max());
    EXPECT_EQ(RTTimeSpecGetNano(&time), 0x5E6684F4B3960000 - 100);
}

TEST(TimeSpecTest, ComputesTheSameThroughFileTimes) {
    RTTIMESPEC time{1'000'000'000};
    _FILETIME fileTime{};
    EXPECT_EQ(RTTimeSpecGetNtFileTime(&time, &fileTime), &fileTime);
    EXPECT_EQ(std::uint64_t{fileTime.ticks}, 116444736010000000U);

    time = {0};
    EXPECT_EQ(RTTimeSpecSetNtFileTime(&time, &fileTime), &time);
    EXPECT_EQ(RTTimeSpecGetNano(&time), 1'000'000'000);
}

}  // namespace
