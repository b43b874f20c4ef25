#include "common/Thread/DriveMessage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "common/Policy/FdClientPolicy.h"
#include "support/LogCapture.h"

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

class DriveMessageTest : public testing::Test {
protected:
    DriveMessageTest() : m_map(&m_policy, ZListener{}) { m_map.m_nMapIndex = 0x01020304; }

    void setMapName(std::string_view utf8, std::string_view utf16) {
        std::memcpy(m_map.m_utf8_mapName, utf8.data(), utf8.size());
        m_map.m_utf8_mapName_size = static_cast<std::uint16_t>(utf8.size());
        std::memcpy(m_map.m_utf16_mapName, utf16.data(), utf16.size());
        m_map.m_utf16_mapName_size = static_cast<std::uint16_t>(utf16.size());
    }

    static std::string bytes(std::optional<DriveMessage> message) {
        return message ? std::string(message->data(), static_cast<std::size_t>(message->size()))
                       : "no message";
    }

    FdClientPolicy m_policy;
    MapFolder m_map;
    const SHFLVOLINFO m_volume{0x1111111111111111, 0x2222222222222222, 0x33333333,
                               0x44444444,         0x55555555,         {255, 0, 0, 0, 1, 0, 0}};
};

constexpr std::string_view kVolumeBytes =
    "\x11\x11\x11\x11\x11\x11\x11\x11\x22\x22\x22\x22\x22\x22\x22\x22"
    "\x33\x33\x33\x33\x44\x44\x44\x44\x55\x55\x55\x55\xFF\0\0\0\0\0\0\1\0\0"sv;
static_assert(kVolumeBytes.size() == 38);

TEST_F(DriveMessageTest, AddsADriveWithFiveLettersAndTerminatorsIn81Bytes) {
    setMapName("Mac-A\0"sv, "M\0a\0c\0-\0A\0\0\0"sv);

    const std::string message = bytes(DriveMessage::addDrive(m_map, m_volume));

    EXPECT_EQ(message.size(), 81U);
    EXPECT_EQ(message,
              "\x00\x02\0\0\0\0\0\0"  // 512, then map id, tag and parameter of the header
              "\x45\0\0\0"            // 69
              "\x04\x03\x02\x01"      // the map id
              "\x06\0\0\0Mac-A\0"
              "\x0C\0M\0a\0c\0-\0A\0\0\0"s +
                  std::string(kVolumeBytes) + "\0\0\0"s);
}

TEST_F(DriveMessageTest, AddsADriveWithFiveLettersAndNoTerminatorIn78Bytes) {
    setMapName("Mac-A", "M\0a\0c\0-\0A\0"sv);

    const std::string message = bytes(DriveMessage::addDrive(m_map, m_volume));

    EXPECT_EQ(message.size(), 78U);
    EXPECT_EQ(message.substr(0, 12), "\x00\x02\0\0\0\0\0\0\x42\0\0\0"s);  // 66
    EXPECT_EQ(message.substr(37, 38), kVolumeBytes);
    EXPECT_EQ(message.substr(75), "\0\0\0"s);
}

TEST_F(DriveMessageTest, PutsTheVolumeAtOddAndEvenOffsetsAlike) {
    setMapName("abcd", "a\0b\0c\0d\0"sv);
    EXPECT_EQ(bytes(DriveMessage::addDrive(m_map, m_volume)).substr(34, 38), kVolumeBytes);
    setMapName("abc", "a\0b\0c\0"sv);
    EXPECT_EQ(bytes(DriveMessage::addDrive(m_map, m_volume)).substr(31, 38), kVolumeBytes);
}

TEST_F(DriveMessageTest, APrinterPortHasACodeOfItsOwn) {
    m_map.m_mapType = kPrinterMap;
    setMapName("LPT1", "L\0P\0T\0001\0"sv);

    const std::string message = bytes(DriveMessage::addDrive(m_map, SHFLVOLINFO{}));

    EXPECT_EQ(message,
              "\x0B\x02\0\0\0\0\0\0\x3F\0\0\0\x04\x03\x02\x01\4\0\0\0LPT1\b\0L\0P\0T\0001\0"s +
                  std::string(41, '\0'));
}

TEST_F(DriveMessageTest, TellsTheNamesOfADrive) {
    std::strcpy(m_map.m_utf8_computerName, "host");
    m_map.m_utf8_computerName_size = 5;
    std::strcpy(m_map.m_utf8_shareFileName, "Data");
    m_map.m_utf8_shareFileName_size = 5;
    m_map.m_rootFlag = 1;
    m_map.m_mapType = 0x40;

    EXPECT_EQ(bytes(DriveMessage::driveName(m_map)),
              "\x0D\x02\0\0\0\0\0\0"  // 525
              "\x21\0\0\0"            // 33
              "\x04\x03\x02\x01"
              "\x16\0\0\0"  // 22, up to the end of the second name
              "\1\0\0\0"
              "\x40\0\0\0"
              "\5\0host\0"
              "\5\0Data\0"
              "\0\0\0"s);
}

TEST_F(DriveMessageTest, WithdrawsADriveWithZerosWhereNothingIsSaid) {
    setMapName("Mac-A\0"sv, "");

    EXPECT_EQ(bytes(DriveMessage::deleteDrive(m_map)),
              "\x01\x02\0\0\0\0\0\0"  // 513
              "\x11\0\0\0"            // 17
              "\x04\x03\x02\x01"
              "\6\0\0\0Mac-A\0"
              "\0\0\0"s);
}

TEST_F(DriveMessageTest, TellsTheFolderOfTheUsersProfile) {
    EXPECT_EQ(bytes(DriveMessage::userProfile(m_map, "/home/u")),
              "\x0F\x02\0\0\0\0\0\0"  // 527
              "\x12\0\0\0"            // 18
              "\x04\x03\x02\x01"
              "\b\0\0\0/home/u\0"
              "\0\0"s);
}

TEST_F(DriveMessageTest, TakesNamesOfTheirGreatestLength) {
    std::fill_n(m_map.m_utf8_mapName, 1024, 'n');
    m_map.m_utf8_mapName_size = 1024;
    std::fill_n(m_map.m_utf16_mapName, 2048, 'w');
    m_map.m_utf16_mapName_size = 2048;

    EXPECT_EQ(bytes(DriveMessage::addDrive(m_map, m_volume)).size(), 1024U + 2048U + 63U);
    EXPECT_EQ(bytes(DriveMessage::deleteDrive(m_map)).size(), 1024U + 23U);
}

TEST_F(DriveMessageTest, ATextAboveItsLimitGivesNoMessage) {
    const LogCapture log;
    m_map.m_utf8_mapName_size = 2029;
    EXPECT_EQ(bytes(DriveMessage::deleteDrive(m_map)), "no message");
    m_map.m_utf8_mapName_size = 2049;
    EXPECT_EQ(bytes(DriveMessage::addDrive(m_map, m_volume)), "no message");
    m_map.m_utf8_mapName_size = 1;
    m_map.m_utf16_mapName_size = 2049;
    EXPECT_EQ(bytes(DriveMessage::addDrive(m_map, m_volume)), "no message");
    m_map.m_utf8_computerName_size = 2049;
    EXPECT_EQ(bytes(DriveMessage::driveName(m_map)), "no message");
    m_map.m_utf8_computerName_size = 1;
    m_map.m_utf8_shareFileName_size = 2049;
    EXPECT_EQ(bytes(DriveMessage::driveName(m_map)), "no message");
    EXPECT_EQ(bytes(DriveMessage::userProfile(m_map, std::string(2048, 'p').c_str())),
              "no message");

    EXPECT_EQ(log.count(ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 162"), 6);
}

}  // namespace
