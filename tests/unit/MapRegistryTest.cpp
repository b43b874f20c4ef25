// Adding, naming, finding and removing maps.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "common/Map/MapManager.h"
#include "common/Map/MapNaming.h"
#include "common/Policy/FdClientPolicy.h"
#include "linux/comm/Opreator/FdCommon_linux.h"
#include "support/LogCapture.h"

using namespace std::string_literals;

namespace {

constexpr int kLocalDisk = 0x3;  // any kind of map that is not a printer port
constexpr int kPrinterPort = 0x1000;
constexpr int kEnabled = 0x1;
constexpr int kReadOnlyBit = 0x20;
constexpr int kWin7 = 0x100;
constexpr int kWinXp = 0x200;

std::string utf16(std::string text) {
    std::string converted(4096, '\0');
    const int size = utf8ToUtf16L(converted.data(), static_cast<int>(converted.size()), text.data(),
                                  static_cast<int>(text.size()));
    converted.resize(static_cast<std::size_t>(size));
    return converted;
}

class MapRegistryTest : public testing::Test {
protected:
    MapFolderPtr add(const std::string& path, int type = kLocalDisk) {
        return m_manager.addMapInfo(path.c_str(), static_cast<int>(path.size()) + 1, type);
    }

    // The name of a new map, or a text that tells that there is none.
    std::string nameOf(const std::string& path, int type = kLocalDisk) {
        const MapFolderPtr map = add(path, type);
        return map == nullptr ? "(no map)" : map->m_utf8_mapName;
    }

    MapFolderPtr findByUtf16(const std::string& name) {
        return m_manager.getMapInfoByShareNameUtf16(name.data(), static_cast<int>(name.size()));
    }

    void expectNoMapAfter(int level, const std::string& text, const MapFolderPtr& map) {
        EXPECT_EQ(map, nullptr);
        EXPECT_EQ(m_log.count(level, text), 1) << text;
        const int listed = m_manager.getMapNum();
        const MapFolderPtr next = add("/next");
        ASSERT_NE(next, nullptr);
        EXPECT_EQ(next->m_nMapIndex, listed);  // nothing was ever removed
    }

    FdClientPolicy m_policy;
    MapManager m_manager{&m_policy, ZListener{}};
    LogCapture m_log;
};

TEST_F(MapRegistryTest, FillsTheRecordOfAFolder) {
    m_policy.setItaPolicy(kEnabled);
    const MapFolderPtr map = add("/Volumes/Data");
    ASSERT_NE(map, nullptr);

    EXPECT_EQ(map->m_nMapIndex, 0);
    EXPECT_EQ(map->m_mapType, kLocalDisk);
    EXPECT_STREQ(map->m_clientFolder, "/Volumes/Data");
    EXPECT_EQ(map->m_clientFolder_size, 14);
    EXPECT_EQ(std::string(map->m_utf16_clientFolder, 28), utf16("/Volumes/Data\0"s));
    EXPECT_EQ(map->m_utf16_clientFolder_size, 65535);  // the whole array was converted
    EXPECT_STREQ(map->m_utf8_mapName, "Mac-Data");
    EXPECT_EQ(map->m_utf8_mapName_size, 9);
    EXPECT_EQ(std::string(map->m_utf16_mapName, 18), utf16("Mac-Data\0"s));
    EXPECT_EQ(map->m_utf16_mapName_size, 18);
    EXPECT_STREQ(map->m_utf8_shareFileName, "Data");
    EXPECT_EQ(map->m_utf8_shareFileName_size, 5);
    EXPECT_EQ(map->m_rootFlag, 0);
    EXPECT_EQ(map->m_bWritable, 1);
    EXPECT_EQ(map->m_policy, &m_policy);
}

TEST_F(MapRegistryTest, GivesEveryMapTheHostsListener) {
    int context = 0;
    const ZListener listener{&context, [](ZUiEvent event) { return static_cast<int>(event.msg); }};
    MapManager manager(&m_policy, listener);

    const MapFolderPtr map = manager.addMapInfo("/Volumes/Data", 14, kLocalDisk);

    ASSERT_NE(map, nullptr);
    EXPECT_EQ(map->m_listener.context, &context);
    EXPECT_EQ(map->m_listener.callback, listener.callback);
}

TEST_F(MapRegistryTest, ShowsTheHostsName) {
    char host[1024] = {};
    const int length = getHostName(host, sizeof(host));
    ASSERT_GT(length, 0);
    const MapFolderPtr map = add("/Volumes/Data");
    ASSERT_NE(map, nullptr);

    EXPECT_STREQ(map->m_utf8_computerName, host);
    EXPECT_EQ(map->m_utf8_computerName_size, length + 1);
}

TEST_F(MapRegistryTest, LogsANewMap) {
    const MapFolderPtr map = add("/Volumes/my-disk");
    ASSERT_NE(map, nullptr);

    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "full folderName : /Volumes/my-disk"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "folderName: my-disk"));
    EXPECT_TRUE(m_log.contains(ZLOG_LEVEL_INFO, map->m_utf8_mapName));
    EXPECT_TRUE(m_log.contains(ZLOG_LEVEL_INFO, map->m_utf8_computerName));
}

TEST_F(MapRegistryTest, NamesFoldersAfterTheirLastComponent) {
    EXPECT_EQ(nameOf("/Volumes/Data"), "Mac-Data");
    EXPECT_EQ(nameOf("/other/Data"), "Mac-Data 1");
    EXPECT_EQ(nameOf("/Volumes/my-disk"), "Mac-my disk");
    EXPECT_EQ(nameOf("/Volumes/Gr\xC3\xB6\xC3\x9F"
                     "e"),
              "Mac- 3");
    EXPECT_EQ(nameOf("/Volumes/"), "Mac-");
}

TEST_F(MapRegistryTest, KeepsTheRealNameOfAFolderInTheShareName) {
    const MapFolderPtr map =
        add("/Volumes/Gr\xC3\xB6\xC3\x9F"
            "e-1");
    ASSERT_NE(map, nullptr);
    EXPECT_STREQ(map->m_utf8_shareFileName,
                 "Gr\xC3\xB6\xC3\x9F"
                 "e-1");
    EXPECT_EQ(map->m_utf8_shareFileName_size, 10);
}

TEST_F(MapRegistryTest, NamesTheRoot) {
    const MapFolderPtr map = add("/.");
    ASSERT_NE(map, nullptr);

    EXPECT_STREQ(map->m_utf8_mapName, "Mac r-rt");
    EXPECT_EQ(map->m_rootFlag, 1);
    EXPECT_STREQ(map->m_utf8_shareFileName, "/.");
    EXPECT_EQ(map->m_utf8_shareFileName_size, 3);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "root path folder name: rt"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "can't get client path. fildPath: /."));
}

TEST_F(MapRegistryTest, NamesAPathWithoutASlashAsItStands) {
    const MapFolderPtr map = add("my-disk");
    ASSERT_NE(map, nullptr);

    EXPECT_STREQ(map->m_utf8_mapName, "Mac-my-disk");
    EXPECT_STREQ(map->m_utf8_shareFileName, "my-disk");
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "can't get client path. fildPath: my-disk"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "can't get client path. fildPath: my-disk"));
}

TEST_F(MapRegistryTest, LeavesTheComputerPartOutForAnOldXpClient) {
    m_policy.setItaPolicy(kEnabled | kWinXp);
    ASSERT_EQ(m_policy.getWorkingClientVersion(), 10);
    EXPECT_EQ(nameOf("/Volumes/my-disk"), "my disk");
    EXPECT_EQ(nameOf("/other/my-disk"), "my disk 1");
}

TEST_F(MapRegistryTest, KeepsTheComputerPartForANewerXpClient) {
    m_policy.setItaPolicy(kEnabled | kWinXp);
    m_policy.setServerVersion(61);
    ASSERT_NE(m_policy.getWorkingClientVersion(), 10);
    EXPECT_EQ(nameOf("/Volumes/Data"), "Mac-Data");
}

TEST_F(MapRegistryTest, NamesAPrinterPortAfterItsNumberCountedFromOne) {
    const MapFolderPtr map = add("/dev/lp0", kPrinterPort);
    ASSERT_NE(map, nullptr);

    EXPECT_EQ(map->m_clientFolder_size, 9);
    EXPECT_STREQ(map->m_utf8_mapName, "LPT1");
    EXPECT_EQ(map->m_utf8_mapName_size, 4);
    EXPECT_EQ(std::string(map->m_utf16_mapName, 8), utf16("LPT1"));
    EXPECT_EQ(map->m_utf16_mapName_size, 8);
    EXPECT_STREQ(map->m_utf8_shareFileName, "lp0");
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "lpt map name is LPT1"));
    EXPECT_EQ(nameOf("/dev/lp1", kPrinterPort), "LPT2");
}

TEST_F(MapRegistryTest, NamesAPrinterPortWithTheComputerPartForWindows7) {
    m_policy.setItaPolicy(kEnabled | kWin7);
    EXPECT_EQ(nameOf("/dev/lp0", kPrinterPort), "Mac--LPT1");
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "lpt map name is Mac--LPT1"));
}

TEST_F(MapRegistryTest, ReadsNothingBeyondThePathOfAPrinterPort) {
    const char path[] = "/dev/lp0";
    const MapFolderPtr longer = m_manager.addMapInfo(path, 500, kPrinterPort);
    ASSERT_NE(longer, nullptr);
    EXPECT_STREQ(longer->m_utf8_mapName, "LPT\x01");
    EXPECT_NE(m_manager.addMapInfo(path, 1, kPrinterPort), nullptr);
    EXPECT_NE(m_manager.addMapInfo(path, 0, kPrinterPort), nullptr);
    EXPECT_NE(m_manager.addMapInfo(path, -1, kPrinterPort), nullptr);
}

TEST_F(MapRegistryTest, LetsTheServerWriteAsThePolicySaysAndOnPrintersAlways) {
    m_policy.setItaPolicy(kEnabled | kReadOnlyBit);
    ASSERT_FALSE(m_policy.isWritable());
    EXPECT_EQ(add("/Volumes/Data")->m_bWritable, 0);
    EXPECT_EQ(add("/.")->m_bWritable, 0);
    EXPECT_EQ(add("/dev/lp0", kPrinterPort)->m_bWritable, 1);
}

TEST_F(MapRegistryTest, RefusesTheSamePathTwice) {
    ASSERT_NE(add("/Volumes/Data"), nullptr);
    expectNoMapAfter(ZLOG_LEVEL_WARNING,
                     "filepathStr is exist!!!   filePathStr: /Volumes/Data, pathSize: 14",
                     add("/Volumes/Data"));
}

TEST_F(MapRegistryTest, GivesAFreedNameToTheNextMapWithANewId) {
    ASSERT_NE(add("/a/Data"), nullptr);
    EXPECT_EQ(nameOf("/b/Data"), "Mac-Data 1");
    ASSERT_NE(m_manager.deleteMapInfoByMapIndex(0), nullptr);

    const MapFolderPtr third = add("/c/Data");
    ASSERT_NE(third, nullptr);
    EXPECT_STREQ(third->m_utf8_mapName, "Mac-Data");
    EXPECT_EQ(third->m_nMapIndex, 2);
}

TEST_F(MapRegistryTest, CountsTheListWhileIdsOnlyGrow) {
    add("/a");
    add("/b");
    m_manager.deleteMapInfoByMapIndex(1);
    m_log.clear();

    EXPECT_EQ(m_manager.getMapNum(), 1);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{ZLOG_LEVEL_INFO, "m_mapNum: 2, m_mapList: 1"}}));
    EXPECT_EQ(add("/c")->m_nMapIndex, 2);
}

TEST_F(MapRegistryTest, GivesUpOnAUniqueNameAfterAThousandNumbers) {
    for (int i = 0; i < 1000; ++i) {
        const MapFolderPtr map = add("/" + std::to_string(i));
        ASSERT_NE(map, nullptr);
        const std::string name = i == 0 ? "Mac-Data" : "Mac-Data " + std::to_string(i);
        std::memcpy(map->m_utf8_mapName, name.c_str(), name.size() + 1);  // as if named one by one
    }
    EXPECT_EQ(nameOf("/x/Data"), "Mac-Data 1000");
    EXPECT_EQ(
        m_log.count(ZLOG_LEVEL_ERROR, "share name all same.count: 1000, tmpMapName: Mac-Data"), 1);
    EXPECT_EQ(nameOf("/y/Data"), "Mac-Data 1000");
}

TEST_F(MapRegistryTest, RefusesAPathOf1024Bytes) {
    expectNoMapAfter(ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 162",
                     add("/a/" + std::string(1021, 'x')));
}

TEST_F(MapRegistryTest, RefusesANameThatDoesNotFit) {
    EXPECT_EQ(nameOf("/" + std::string(1019, 'x')), "Mac-" + std::string(1019, 'x'));
    m_log.clear();
    expectNoMapAfter(ZLOG_LEVEL_ERROR, "sprintf_s failed", add("/" + std::string(1020, 'x')));
}

TEST_F(MapRegistryTest, RefusesANumberedNameThatDoesNotFit) {
    const std::string name(1018, 'x');
    ASSERT_NE(add("/" + name), nullptr);
    m_log.clear();
    expectNoMapAfter(ZLOG_LEVEL_ERROR, "sprintf_s failed", add("/y/" + name));
}

TEST_F(MapRegistryTest, RefusesANameThatCannotBeConverted) {
    expectNoMapAfter(ZLOG_LEVEL_ERROR, "utf8ToUtf16L() return false", add("\xFF"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "pMap->m_utf8_mapName: Mac-\xFF"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "pMap->m_utf8_mapName_size: 6"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "pMap->m_utf16_mapName_size: 65535"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "ClientName:\xFF, mapName:Mac-\xFF "));  // destroyed
}

TEST_F(MapRegistryTest, FindsAMapById) {
    add("/a");
    const MapFolderPtr map = add("/b");
    EXPECT_EQ(m_manager.getMapInfoByID(1), map);
}

TEST_F(MapRegistryTest, LogsAnUnknownId) {
    EXPECT_EQ(m_manager.getMapInfoByID(3), nullptr);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{ZLOG_LEVEL_WARNING, "can not find the map by id. id: 3"}}));
}

TEST_F(MapRegistryTest, FindsAMapByItsPathAndTheSizeThatCountsTheTerminator) {
    const MapFolderPtr map = add("/Volumes/Data");
    m_log.clear();
    EXPECT_EQ(m_manager.getMapInfoByClientPath("/Volumes/Data", 14), map);
    EXPECT_TRUE(m_log.lines().empty());
    EXPECT_EQ(m_manager.getMapInfoByClientPath("/Volumes/Data", 13), nullptr);
    EXPECT_EQ(m_manager.getMapInfoByClientPath("/Volumes/Date", 14), nullptr);
    EXPECT_EQ(m_manager.getMapInfoByClientPath("/Volumes/Data", -1), nullptr);
    EXPECT_TRUE(
        m_log.has(ZLOG_LEVEL_WARNING, "can't find the map by client path. path: /Volumes/Date"));
}

TEST_F(MapRegistryTest, FindsAMapByItsNameWhateverTheSizeSays) {
    const MapFolderPtr map = add("/Volumes/Data");
    m_log.clear();
    EXPECT_EQ(m_manager.getMapInfoByShareNameUtf8("Mac-Data", 0), map);
    EXPECT_EQ(m_manager.getMapInfoByShareNameUtf8("Mac-data", 9), nullptr);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(MapRegistryTest, FindsAUtf16NameWithAndWithoutItsTerminator) {
    m_policy.setItaPolicy(kEnabled | kWinXp);
    const MapFolderPtr map = add("/Volume");  // stored with its terminator, in 14 bytes
    ASSERT_NE(map, nullptr);
    ASSERT_EQ(map->m_utf16_mapName_size, 14);

    EXPECT_EQ(findByUtf16(utf16("Volume\0"s)), map);
    EXPECT_EQ(findByUtf16(utf16("Volume")), map);
    EXPECT_EQ(findByUtf16(utf16("Volumes")), nullptr);  // as long, but another name
    EXPECT_EQ(findByUtf16(utf16("Volum")), nullptr);
}

TEST_F(MapRegistryTest, FindsAUtf16NameThatIsStoredWithoutItsTerminator) {
    const MapFolderPtr map = add("/dev/lp0", kPrinterPort);
    ASSERT_NE(map, nullptr);
    ASSERT_EQ(map->m_utf16_mapName_size, 8);

    EXPECT_EQ(findByUtf16(utf16("LPT1")), map);
    EXPECT_EQ(findByUtf16(utf16("LPT1\0"s)), map);
    EXPECT_EQ(findByUtf16(utf16("LPT1\0\0"s)), nullptr);
}

TEST_F(MapRegistryTest, FindsAStoredSizeOf12By10AndOf10By12) {
    m_policy.setItaPolicy(kEnabled | kWinXp);
    const MapFolderPtr twelve = add("/Other");
    m_policy.setItaPolicy(kEnabled);
    const MapFolderPtr ten = add("/dev/lp0", kPrinterPort);
    ASSERT_NE(twelve, nullptr);
    ASSERT_NE(ten, nullptr);
    ASSERT_EQ(twelve->m_utf16_mapName_size, 12);
    std::memcpy(ten->m_utf16_mapName, utf16("Print").data(), 10);
    ten->m_utf16_mapName_size = 10;

    EXPECT_EQ(findByUtf16(utf16("Other")), twelve);
    EXPECT_EQ(findByUtf16(utf16("Print\0"s)), ten);
}

TEST_F(MapRegistryTest, LogsAnUnknownUtf16Name) {
    EXPECT_EQ(findByUtf16(utf16("Data")), nullptr);
    EXPECT_EQ(
        m_log.lines(),
        (std::vector<LogLine>{{ZLOG_LEVEL_WARNING, "can not find the map by name. path: D"}}));
}

TEST_F(MapRegistryTest, LogsNothingBeyondAnUnknownNameWithoutATerminator) {
    const char name[] = {'N', 'a', 'm', 'e', '!'};
    EXPECT_EQ(m_manager.getMapInfoByShareNameUtf16(name, 4), nullptr);
    EXPECT_EQ(m_manager.getMapInfoByShareNameUtf16(name, 0), nullptr);
    EXPECT_EQ(m_manager.getMapInfoByShareNameUtf16(name, -2), nullptr);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_WARNING, "can not find the map by name. path: Name"), 1);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_WARNING, "can not find the map by name. path: "), 2);
}

TEST_F(MapRegistryTest, RefusesAUtf16NameAbove2048Bytes) {
    const std::string name(2049, 'x');
    EXPECT_EQ(m_manager.getMapInfoByShareNameUtf16(name.data(), 2049), nullptr);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{ZLOG_LEVEL_ERROR, "nameSize: 2049, MAX_PATH_BUFF: 2048"}}));
    m_log.clear();
    EXPECT_EQ(m_manager.getMapInfoByShareNameUtf16(name.data(), 2048), nullptr);
    EXPECT_TRUE(m_log.contains(ZLOG_LEVEL_WARNING, "can not find the map by name. path: x"));
}

TEST_F(MapRegistryTest, HandsOutARemovedMapUndestroyed) {
    const MapFolderPtr added = add("/Volumes/Data");
    m_log.clear();

    const MapFolderPtr removed = m_manager.deleteMapInfoByMapIndex(0);

    EXPECT_EQ(removed, added);
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{ZLOG_LEVEL_INFO, "mapId: 0"}}));
    EXPECT_EQ(m_manager.getMapInfoByID(0), nullptr);
}

TEST_F(MapRegistryTest, LogsTheRemovalOfAnUnknownId) {
    add("/Volumes/Data");
    m_log.clear();
    EXPECT_EQ(m_manager.deleteMapInfoByMapIndex(5), nullptr);
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{ZLOG_LEVEL_INFO, "mapId: 5"},
                                                   {ZLOG_LEVEL_WARNING, "can't find the map id"}}));
}

TEST_F(MapRegistryTest, GivesUpItsMapsWithItself) {
    auto manager = std::make_unique<MapManager>(&m_policy, ZListener{});
    ASSERT_NE(manager->addMapInfo("/Volumes/Data", 14, kLocalDisk), nullptr);
    manager.reset();
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "ClientName:/Volumes/Data, mapName:Mac-Data "), 1);
}

TEST(MapNamingTest, TakesAnAsciiComputerNameWithBlanksForHyphens) {
    const LogCapture log;
    MapNameText part;
    EXPECT_TRUE(makeComputerPart(part, "my-mac"));
    EXPECT_STREQ(part.text, "my mac");
    EXPECT_TRUE(log.lines().empty());
}

TEST(MapNamingTest, ReplacesAComputerNameThatIsNotAscii) {
    const LogCapture log;
    MapNameText part;
    EXPECT_TRUE(makeComputerPart(part, "B\xC3\xBCro"));
    EXPECT_STREQ(part.text, "Mac");
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{{ZLOG_LEVEL_WARNING, " tmpCompName is not all ascii char"}}));
}

}  // namespace
