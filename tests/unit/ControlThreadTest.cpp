#include "common/Thread/ControlThread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapManager.h"
#include "common/Policy/FdClientPolicy.h"
#include "support/FakeChannel.h"
#include "support/LogCapture.h"
#include "support/MountNamespace.h"
#include "support/TempDir.h"
#include "support/WaitUntil.h"
#include "support/WireMessage.h"

namespace {

constexpr int kPolicy = 0x5B;  // all media, writable
constexpr int kServerVersion = 61;

constexpr char kRelease[] = "0x500e0006:  client clear map info.";
constexpr char kFailure[] = "add a driver failure.";

MapDriverNode makeNode(const std::string& path, int type = 0x8, int policy = kPolicy) {
    MapDriverNode node{-1, type, policy, {}};
    path.copy(node.m_pre_path, sizeof node.m_pre_path - 1);
    return node;
}

std::vector<std::string> paths(const std::list<MapDriverNode>& nodes) {
    std::vector<std::string> result;
    for (const MapDriverNode& node : nodes) result.emplace_back(node.m_pre_path);
    return result;
}

int typeOf(const FakeChannel::Message& message) {
    return loadLe<std::uint16_t>(message.data() + kTypeAt);
}

std::vector<int> types(const std::vector<FakeChannel::Message>& messages) {
    std::vector<int> result(messages.size());
    std::ranges::transform(messages, result.begin(), typeOf);
    return result;
}

int mapIdOf(const FakeChannel::Message& message) {
    return loadLe<std::int32_t>(message.data() + kHeaderSize);
}

class ControlThreadTest : public testing::Test {
protected:
    ControlThreadTest() {
        m_manager.initNet(m_channel.writer(), m_channel.metric());
        m_control.setMapManager(&m_manager);
        m_policy.setServerVersion(kServerVersion);
        m_log.clear();
    }

    // Redirection on, with the root map as the only drive that needs no mount.
    void offerRoot(int policy = kPolicy) {
        m_policy.setLinuxRootDirEnable(1);
        m_policy.setLinuxMountPath("/no such folder");
        m_policy.setItaPolicy(policy);
    }

    // Only what is mounted below `folder`.
    void offerBelow(const std::string& folder, int policy = kPolicy) {
        m_policy.setLinuxMountPath(folder.c_str());
        m_policy.setLinuxLocalfs("tmpfs");
        m_policy.setItaPolicy(policy);
    }

    void expectNodeLines(int level, const MapDriverNode& node, int count = 1) const {
        EXPECT_EQ(m_log.count(level, "mountNode.m_mapIndex:   " + std::to_string(node.m_mapIndex)),
                  count);
        EXPECT_EQ(m_log.count(level, "mountNode.m_policy:     " + std::to_string(node.m_policy)),
                  count);
        EXPECT_EQ(m_log.count(level, "mountNode.m_type:       " + std::to_string(node.m_type)),
                  count);
        EXPECT_EQ(m_log.count(level, std::string("mountNode.m_pre_path:   ") + node.m_pre_path),
                  count);
    }

    // From here on each pass fails to add the root, once, and says so.
    void failInEachPass() {
        m_channel.m_result = -1;
        m_policy.setLinuxRootDirEnable(1);
        m_control.moniterDriverChange();
        m_log.clear();
    }

    // How often kFailure is logged between the line `from`, or the start, and the release.
    int passesUntilRelease(const std::string& from = {}) const {
        EXPECT_TRUE(waitUntil([this] { return m_log.has(ZLOG_LEVEL_INFO, kRelease); },
                              std::chrono::seconds(60)));
        int passes = 0;
        for (const LogLine& line : m_log.lines()) {
            if (line.message == kRelease) break;
            if (line.message == from) passes = 0;
            if (line.message == kFailure) ++passes;
        }
        return passes;
    }

    // Whether the first line with the one text stands before the first with the other.
    bool isLoggedAhead(const std::string& first, const std::string& second) const {
        const std::vector<LogLine> lines = m_log.lines();
        return std::ranges::find(lines, first, &LogLine::message) <
               std::ranges::find(lines, second, &LogLine::message);
    }

    // The next pass is a tenth of a second away.
    void waitForFirstPass() const {
        EXPECT_TRUE(
            waitUntil([this] { return m_log.has(ZLOG_LEVEL_WARNING, "profile dir not map!"); }));
    }

    MapFolder& added(const MapDriverNode& node) {
        m_added = m_control.addDrive(node);
        if (m_added == nullptr) throw std::runtime_error("the drive was not added");
        return *m_added;
    }

    LogCapture m_log;
    FakeChannel m_channel;
    FdClientPolicy m_policy;
    MapManager m_manager{&m_policy, ZListener{}};
    MapFolderPtr m_added;
    ControlThread m_control{&m_policy};  // last: its thread ends before all that it uses
};

// ---- wiring

TEST_F(ControlThreadTest, ANullManagerIsLoggedAndStored) {
    m_control.setMapManager(nullptr);

    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "setMapManager() m_mapmanager == NULL"));
}

// ---- nodes and comparisons

TEST_F(ControlThreadTest, PolicyAndPathMakeTheIdentityOfANode) {
    const MapDriverNode node = makeNode("/a");
    MapDriverNode other = makeNode("/a", 0x40);
    other.m_mapIndex = 7;

    EXPECT_TRUE(m_control.isSameDriverNode(node, other));
    EXPECT_FALSE(m_control.isSameDriverNode(node, makeNode("/A")));
    EXPECT_FALSE(m_control.isSameDriverNode(node, makeNode("/ab")));
    EXPECT_FALSE(m_control.isSameDriverNode(node, makeNode("/a", 0x8, kPolicy | 0x20)));
}

TEST_F(ControlThreadTest, WithoutAnnouncedMountsEveryFreshOneIsToBeAdded) {
    const std::list<MapDriverNode> fresh{makeNode("/b"), makeNode("/a"), makeNode("/b")};

    EXPECT_EQ(paths(m_control.listAddMountPoint(fresh)),
              (std::vector<std::string>{"/b", "/a", "/b"}));
    EXPECT_TRUE(m_control.listDeleteMountPoint(fresh).empty());
    EXPECT_TRUE(m_control.listNoChangeMountPoint(fresh).empty());
}

TEST_F(ControlThreadTest, ComparisonsKeepTheOrderAndTheIdsOfWhatIsAnnounced) {
    inMountNamespace([this](const std::string& folder) {
        for (const char* name : {"/a", "/b", "/c"}) mountTmpfs(folder + name);
        offerBelow(folder);
        m_control.moniterDriverChange();
        const std::list<MapDriverNode> fresh{makeNode(folder + "/x"), makeNode(folder + "/c"),
                                             makeNode(folder + "/x"), makeNode(folder + "/a"),
                                             makeNode(folder + "/c")};

        const auto added = m_control.listAddMountPoint(fresh);
        EXPECT_EQ(paths(added), (std::vector<std::string>{folder + "/x", folder + "/x"}));
        EXPECT_EQ(added.front().m_mapIndex, -1);

        const auto gone = m_control.listDeleteMountPoint(fresh);
        EXPECT_EQ(paths(gone), std::vector<std::string>{folder + "/b"});
        EXPECT_EQ(gone.front().m_mapIndex, 1);

        const auto unchanged = m_control.listNoChangeMountPoint(fresh);
        EXPECT_EQ(paths(unchanged),
                  (std::vector<std::string>{folder + "/c", folder + "/a", folder + "/c"}));
        EXPECT_EQ(unchanged.front().m_mapIndex, 2);
    });
}

// ---- what is wanted

TEST_F(ControlThreadTest, TheRootNodeComesFirstAndNeedsItsOwnSwitchOnly) {
    offerRoot(0x1);

    const std::list<MapDriverNode> wanted = m_control.listLocalMountPoint();

    ASSERT_EQ(wanted.size(), 1U);
    EXPECT_EQ(wanted.front().m_mapIndex, -1);
    EXPECT_EQ(wanted.front().m_type, 0x2);
    EXPECT_EQ(wanted.front().m_policy, 0x1);
    EXPECT_STREQ(wanted.front().m_pre_path, "/.");
}

TEST_F(ControlThreadTest, WithPolicyWordZeroNothingIsWanted) {
    offerRoot(0);

    EXPECT_TRUE(m_control.listLocalMountPoint().empty());
}

TEST_F(ControlThreadTest, NoMountPointIsFixed) {
    EXPECT_TRUE(m_control.listFixMountPoint().empty());
}

TEST_F(ControlThreadTest, TheTypeListsDecideInTheirOrder) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        m_policy.setLinuxMountPath(folder.c_str());
        const auto typeWith = [this](const char* network, const char* cdrom, const char* remove,
                                     const char* local, int policy) {
            m_policy.setLinuxNetworkfs(network);
            m_policy.setLinuxCdRomfs(cdrom);
            m_policy.setLinuxRemovefs(remove);
            m_policy.setLinuxLocalfs(local);
            m_policy.setItaPolicy(policy);
            const std::list<MapDriverNode> wanted = m_control.listLocalMountPoint();
            return wanted.empty() ? 0 : wanted.front().m_type;
        };

        EXPECT_EQ(typeWith("", "", "", "", kPolicy), 0);
        EXPECT_EQ(typeWith("", "", "", "tmpfs", kPolicy), 0x8);
        EXPECT_EQ(typeWith("", "", "tmpfs", "tmpfs", kPolicy), 0x8);
        EXPECT_EQ(typeWith("", "tmpfs", "tmpfs", "tmpfs", kPolicy), 0x10);
        EXPECT_EQ(typeWith("tmpfs", "tmpfs", "tmpfs", "tmpfs", kPolicy), 0x40);
        // The first list that names the type decides, also when its kind is forbidden.
        EXPECT_EQ(typeWith("tmpfs", "tmpfs", "tmpfs", "tmpfs", kPolicy & ~0x40), 0);
        EXPECT_EQ(typeWith("", "tmpfs", "tmpfs", "tmpfs", kPolicy & ~0x10), 0);
        EXPECT_EQ(typeWith("", "", "tmpfs", "tmpfs", kPolicy & ~0x8), 0);
        EXPECT_EQ(typeWith("", "", "", "tmpfs", kPolicy & ~0x2), 0);
        EXPECT_EQ(typeWith("", "", "", "tmpfs", kPolicy & ~0x1), 0);
    });
}

TEST_F(ControlThreadTest, AMountPathMayHave255BytesAndNotMore) {
    inMountNamespace([this](const std::string& folder) {
        const std::string longest = folder + "/" + std::string(255 - folder.size() - 1, 'p');
        mountTmpfs(longest);
        // A component has 255 bytes at most, so the longer path takes two.
        mountTmpfs(folder + "/q/" + std::string(256 - folder.size() - 3, 'q'));
        offerBelow(folder + "|" + folder + "/q");
        m_log.clear();

        EXPECT_EQ(paths(m_control.listLocalMountPoint()), std::vector<std::string>{longest});
        EXPECT_TRUE(m_log.lines().empty());
    });
}

TEST_F(ControlThreadTest, AMountParentItselfIsNotWanted) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/parent");
        mountTmpfs(folder + "/parent/one");
        mountTmpfs(folder + "/parent/one/two");
        offerBelow(folder + "/parent");

        EXPECT_EQ(paths(m_control.listLocalMountPoint()),
                  (std::vector<std::string>{folder + "/parent/one", folder + "/parent/one/two"}));
    });
}

// ---- one pass

TEST_F(ControlThreadTest, APassThatAddsADriveLogsEachStep) {
    offerRoot();
    m_log.clear();

    m_control.moniterDriverChange();

    MapDriverNode node = makeNode("/.", 0x2);
    node.m_mapIndex = 0;
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, " add mountNode"), 1);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "mountName: /."), 1);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "add a drive success."), 1);
    expectNodeLines(ZLOG_LEVEL_INFO, node);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, " delete mountNode"), 1);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO,
                          "ZMETRICS_CLIENT_FDREDIR_DISKINFO = 353042432, const_cast<char "
                          "*>(strDiskSum.c_str()) = Total number of disks:1 ,strDiskSum.size() + "
                          "1 = 24 "),
              1);
    EXPECT_EQ(types(m_channel.writes()), (std::vector<int>{FD_CMD_MAP_ADD, FD_CMD_DRIVE_NAME}));
    ASSERT_EQ(m_channel.metrics().size(), 2U);
    EXPECT_EQ(m_channel.metrics()[1], "Total number of disks:1");
}

TEST_F(ControlThreadTest, APassWithoutChangeSaysNothing) {
    offerRoot();
    m_control.moniterDriverChange();
    m_channel.clear();
    m_log.clear();

    m_control.moniterDriverChange();

    EXPECT_TRUE(m_channel.writes().empty());
    EXPECT_TRUE(m_channel.metrics().empty());
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(ControlThreadTest, AnOldServerHearsNoDriveName) {
    m_policy.setServerVersion(30);
    offerRoot();

    m_control.moniterDriverChange();

    EXPECT_EQ(types(m_channel.writes()), std::vector<int>{FD_CMD_MAP_ADD});
}

TEST_F(ControlThreadTest, AServerOfVersion31HearsTheDriveName) {
    m_policy.setServerVersion(31);
    offerRoot();

    m_control.moniterDriverChange();

    EXPECT_EQ(types(m_channel.writes()), (std::vector<int>{FD_CMD_MAP_ADD, FD_CMD_DRIVE_NAME}));
}

TEST_F(ControlThreadTest, ANewPolicyWordDeletesInOnePassAndAddsAgainInTheNext) {
    offerRoot();
    m_control.moniterDriverChange();
    m_policy.setItaPolicy(kPolicy | 0x20);
    m_channel.clear();
    m_log.clear();

    m_control.moniterDriverChange();

    EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR, "add a exist drive. clientFolder:/., mapId:0"), 1);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR, "add a driver failure."), 1);
    expectNodeLines(ZLOG_LEVEL_ERROR, makeNode("/.", 0x2, kPolicy | 0x20));
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "delete a drive success."), 1);
    MapDriverNode deleted = makeNode("/.", 0x2);
    deleted.m_mapIndex = 0;
    expectNodeLines(ZLOG_LEVEL_INFO, deleted);
    EXPECT_EQ(types(m_channel.writes()), std::vector<int>{FD_CMD_MAP_DELETE});
    EXPECT_EQ(m_channel.metrics(), std::vector<std::string>{"Total number of disks:0"});
    EXPECT_TRUE(m_control.listNoChangeMountPoint(m_control.listLocalMountPoint()).empty());

    m_control.moniterDriverChange();

    const auto writes = m_channel.writes();
    EXPECT_EQ(types(writes),
              (std::vector<int>{FD_CMD_MAP_DELETE, FD_CMD_MAP_ADD, FD_CMD_DRIVE_NAME}));
    EXPECT_EQ(mapIdOf(writes[1]), 1);
}

TEST_F(ControlThreadTest, AFailedDeletionIsLoggedAsAFailedAdditionAndNotRetried) {
    offerRoot();
    m_control.moniterDriverChange();
    m_manager.deleteMapInfoByMapIndex(0);  // behind the monitor's back
    m_policy.setLinuxRootDirEnable(0);
    m_channel.clear();
    m_log.clear();

    m_control.moniterDriverChange();

    EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR, "delete a not exist drive. mapId:0"), 1);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR, "add a drive failure."), 1);
    MapDriverNode node = makeNode("/.", 0x2);
    node.m_mapIndex = 0;
    expectNodeLines(ZLOG_LEVEL_ERROR, node);
    EXPECT_TRUE(m_channel.writes().empty());

    m_log.clear();
    m_control.moniterDriverChange();
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(ControlThreadTest, ADriveWhoseMessageWasLostStaysUnannounced) {
    m_channel.m_result = -1;
    offerRoot();
    m_control.moniterDriverChange();
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR, "add a driver failure."), 1);
    m_channel.m_result = 0;
    m_channel.clear();

    for (int pass = 1; pass <= 3; ++pass) {
        m_control.moniterDriverChange();
        EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR, "add a exist drive. clientFolder:/., mapId:0"),
                  pass);
        EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR, "add a driver failure."), pass + 1);
    }
    EXPECT_TRUE(m_channel.writes().empty());
}

TEST_F(ControlThreadTest, AMapsReleaseIsLogged) {
    auto map = std::make_shared<MapFolder>(&m_policy, ZListener{});
    map->m_nMapIndex = 12;
    std::strcpy(map->m_clientFolder, "/media/x");
    const std::weak_ptr<MapFolder> released = map;
    std::list<MapFolderPtr> maps{nullptr, std::move(map)};

    m_control.freeMapFolderList(std::move(maps));

    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "pMap->m_nMapIndex: 12, pMap->m_ClientFolder: /media/x"),
              1);
    EXPECT_TRUE(released.expired());
}

// ---- announcements

TEST_F(ControlThreadTest, AddsADriveAndTellsItsVolume) {
    const TempDir folder;

    const MapFolderPtr map = m_control.addDrive(makeNode(folder.str()));

    ASSERT_NE(map, nullptr);
    const auto message = m_channel.onlyWrite();
    const std::size_t names = map->m_utf8_mapName_size + std::size_t{map->m_utf16_mapName_size};
    ASSERT_EQ(message.size(), names + 63);
    EXPECT_EQ(typeOf(message), FD_CMD_MAP_ADD);
    const char* volume = message.data() + 22 + names;
    const auto space = std::filesystem::space(folder.path());
    EXPECT_EQ(loadLe<std::uint64_t>(volume), space.capacity);
    EXPECT_EQ(loadLe<std::uint32_t>(volume + 24), 0x0004787FU);
    EXPECT_EQ(loadLe<std::uint32_t>(volume + 28), 255U);
    EXPECT_EQ(volume[35], 1);  // Unicode
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "Four-byte problem, sizeof struct SHFLVOLINFO : 38"), 1);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "0x500e0004:  add driver."), 1);
    EXPECT_EQ(m_channel.metrics(),
              std::vector<std::string>{
                  "Disk serial number:292991 Total disk space:" + std::to_string(space.capacity) +
                  " free disk space:" + std::to_string(loadLe<std::uint64_t>(volume + 8))});
}

TEST_F(ControlThreadTest, AVolumeThatVanishedIsAnnouncedWithZeroSizes) {
    const MapFolderPtr map = m_control.addDrive(makeNode("/no such folder/Mac"));

    ASSERT_NE(map, nullptr);
    const auto message = m_channel.onlyWrite();
    EXPECT_EQ(std::vector<char>(message.end() - 41, message.end()), std::vector<char>(41, '\0'));
    EXPECT_EQ(
        m_channel.metrics(),
        std::vector<std::string>{"Disk serial number:0 Total disk space:0 free disk space:0"});
}

TEST_F(ControlThreadTest, APrinterPortIsAnnouncedWithoutAFileSystemQuery) {
    const MapFolderPtr map = m_control.addDrive(makeNode("/dev/lp0", kPrinterMap));

    ASSERT_NE(map, nullptr);
    const auto message = m_channel.onlyWrite();
    EXPECT_EQ(typeOf(message), FD_CMD_PRINTER_ADD);
    EXPECT_EQ(message.size(), map->m_utf8_mapName_size + 63U + map->m_utf16_mapName_size);
    EXPECT_EQ(std::vector<char>(message.end() - 41, message.end()), std::vector<char>(41, '\0'));
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_INFO, "Four-byte problem"));
    EXPECT_EQ(
        m_channel.metrics(),
        std::vector<std::string>{"Disk serial number:0 Total disk space:0 free disk space:0"});
}

TEST_F(ControlThreadTest, TheSamePathTwiceIsRefused) {
    const MapFolderPtr map = m_control.addDrive(makeNode("/no such folder/Mac"));
    ASSERT_NE(map, nullptr);

    EXPECT_EQ(m_control.addDrive(makeNode("/no such folder/Mac")), nullptr);

    EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR,
                          "add a exist drive. clientFolder:/no such folder/Mac, mapId:0"),
              1);
    EXPECT_EQ(m_channel.writes().size(), 1U);
}

TEST_F(ControlThreadTest, TheMetricGoesOutForADriveThatCouldNotBeAnnounced) {
    m_channel.m_result = -1;

    EXPECT_EQ(m_control.addDrive(makeNode("/no such folder/Mac")), nullptr);

    EXPECT_EQ(m_channel.metrics().size(), 1U);
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_INFO, "add driver."));
}

TEST_F(ControlThreadTest, AHostWithoutAMetricCallableStopsAnAdditionAndTheEndOfAPass) {
    offerRoot();
    m_control.moniterDriverChange();
    m_channel.clear();
    m_manager.initNet(m_channel.writer(), MetricReportFn{});

    EXPECT_THROW(m_control.addDrive(makeNode("/no such folder/Mac")), std::bad_function_call);
    EXPECT_TRUE(m_channel.writes().empty());  // the metric goes out before the message

    m_policy.setLinuxRootDirEnable(0);
    EXPECT_THROW(m_control.moniterDriverChange(), std::bad_function_call);
    EXPECT_EQ(types(m_channel.writes()), std::vector<int>{FD_CMD_MAP_DELETE});
}

TEST_F(ControlThreadTest, ADriveNameIsLoggedAndSent) {
    const MapFolder& map = added(makeNode("/no such folder/Data", 0x40));
    m_channel.clear();
    m_log.clear();

    EXPECT_TRUE(m_control.sendDriveName(&map));

    const std::string computer = map.m_utf8_computerName;
    const std::size_t size = computer.size() + 1 + 5 + 35;
    EXPECT_EQ(m_channel.onlyWrite().size(), size);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "mapId: 0, msgSize: " + std::to_string(size)), 1);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "rootFlag: 0, mapType: 64"), 1);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "length: " + std::to_string(computer.size() + 1) +
                                               ", compName: " + computer),
              1);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "length: 5, fileName: Data"), 1);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "0x500e0004:  add driver."), 1);
}

TEST_F(ControlThreadTest, ADriveNameThatCouldNotBeSentIsLogged) {
    const MapFolder& map = added(makeNode("/no such folder/Data"));
    m_channel.m_result = -1;
    m_log.clear();

    EXPECT_FALSE(m_control.sendDriveName(&map));

    const std::size_t size = std::strlen(map.m_utf8_computerName) + 1 + 5 + 35;
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR, "msgSize: " + std::to_string(size)), 1);
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_INFO, "add driver."));
}

TEST_F(ControlThreadTest, NoMapHasNoDriveName) {
    EXPECT_FALSE(m_control.sendDriveName(nullptr));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "pMap == NULL"));
}

TEST_F(ControlThreadTest, ADriveNameBeyondItsLimitIsNotSent) {
    MapFolder map(&m_policy, ZListener{});
    map.m_utf8_shareFileName_size = 2049;

    EXPECT_FALSE(m_control.sendDriveName(&map));

    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 162"));
    EXPECT_TRUE(m_channel.writes().empty());
}

TEST_F(ControlThreadTest, ADeletedDriveIsAnnouncedAndItsMapStaysValid) {
    const std::weak_ptr<MapFolder> map = m_control.addDrive(makeNode("/no such folder/Data"));
    ASSERT_FALSE(map.expired());
    m_channel.clear();
    m_log.clear();

    EXPECT_TRUE(m_control.deleteDrive(0));

    EXPECT_EQ(typeOf(m_channel.onlyWrite()), FD_CMD_MAP_DELETE);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "Send umMap. path:Mac-Data, mapId:0 "), 1);
    EXPECT_GE(m_log.count(ZLOG_LEVEL_INFO, "mapId: 0"), 1);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "m_utf8_mapName_size:9"), 1);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "m_utf8_mapName: Mac-Data"), 1);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "0x500e0005:  map delete.  rcFlag: 1"), 1);
    EXPECT_EQ(m_manager.getMapNum(), 0);
    EXPECT_FALSE(map.expired());
}

TEST_F(ControlThreadTest, ADeletionThatCouldNotBeSentIsReportedAndTheDriveIsGone) {
    const std::weak_ptr<MapFolder> map = m_control.addDrive(makeNode("/no such folder/Data"));
    m_channel.m_result = -1;

    EXPECT_FALSE(m_control.deleteDrive(0));

    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "0x500e0005:  map delete.  rcFlag: 0"));
    EXPECT_EQ(m_manager.getMapNum(), 0);
    EXPECT_FALSE(map.expired());
}

TEST_F(ControlThreadTest, ADeletionOfAnUnknownIdSendsNothing) {
    EXPECT_FALSE(m_control.deleteDrive(5));

    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "delete a not exist drive. mapId:5"));
    EXPECT_TRUE(m_channel.writes().empty());
}

TEST_F(ControlThreadTest, ADeletionWhoseNameIsBeyondItsLimitSendsNothing) {
    const MapFolderPtr map = m_control.addDrive(makeNode("/no such folder/Data"));
    ASSERT_NE(map, nullptr);
    map->m_utf8_mapName_size = 2029;
    m_channel.clear();
    m_log.clear();

    EXPECT_FALSE(m_control.deleteDrive(0));

    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 162"));
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_INFO, "map delete."));
    EXPECT_TRUE(m_channel.writes().empty());
    EXPECT_EQ(m_manager.getMapNum(), 0);
}

TEST_F(ControlThreadTest, ThereIsNoProfileToTellAbout) {
    offerRoot();
    m_control.moniterDriverChange();
    m_channel.clear();

    EXPECT_FALSE(m_control.SendUserProfilePath());

    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "UserProfile path = "));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "profile dir not map!"));
    EXPECT_TRUE(m_channel.writes().empty());
}

TEST_F(ControlThreadTest, TheProfileIsToldWhereAMapHoldsIt) {
    const MapFolderPtr map = m_manager.addMapInfo("", 1, 0x8);  // as the path of the profile is
    ASSERT_NE(map, nullptr);

    EXPECT_TRUE(m_control.SendUserProfilePath());

    EXPECT_EQ(m_channel.onlyWrite(),
              bytesOf("\x0F\x02\0\0\0\0\0\0\x0B\0\0\0\0\0\0\0\x01\0\0\0\0\0\0"));
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "SendUserProfilePath succeed!"), 1);
}

TEST_F(ControlThreadTest, AProfileThatCannotBeToldIsNoSuccess) {
    ASSERT_NE(m_manager.addMapInfo("", 1, 0x8), nullptr);
    m_channel.m_result = -1;

    EXPECT_FALSE(m_control.SendUserProfilePath());

    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_INFO, "SendUserProfilePath succeed!"));
}

TEST_F(ControlThreadTest, TheProfilePathsBufferStaysAsItIs) {
    char buffer[] = "untouched";
    m_control.GetUserProfilePath(buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "untouched");
}

// ---- the loop

TEST_F(ControlThreadTest, TheEndOfTheObjectIsTheEndOfItsThread) {
    {
        ControlThread control(&m_policy);
        control.setMapManager(&m_manager);
        offerRoot();
        control.start();
        ASSERT_TRUE(m_channel.waitForWrites(2));
    }
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "thread func name: ControlThread"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, " wait Stop. m_exit_flag: 1"));
}

TEST_F(ControlThreadTest, WithoutAManagerTheLoopStaysIdle) {
    ControlThread control(&m_policy);
    offerRoot();
    control.start();

    EXPECT_FALSE(m_channel.waitFor([](const auto& writes) { return !writes.empty(); },
                                   std::chrono::seconds(1)));

    EXPECT_TRUE(control.stopAndWait(100));
}

TEST_F(ControlThreadTest, TheLinuxDesktopsPolicyKeepsTheLoopIdle) {
    offerRoot(kPolicy | 0x400);
    m_control.start();

    EXPECT_FALSE(m_channel.waitFor([](const auto& writes) { return !writes.empty(); },
                                   std::chrono::seconds(1)));

    EXPECT_TRUE(m_control.stopAndWait(100));
    EXPECT_FALSE(m_log.has(ZLOG_LEVEL_INFO, " add mountNode"));
}

TEST_F(ControlThreadTest, TheFirstPassAddsTheDrivesAndThenLooksForTheProfileOnce) {
    offerRoot();
    m_control.start();
    ASSERT_TRUE(m_channel.waitForWrites(2));
    m_policy.setItaPolicy(kPolicy | 0x20);  // the next passes have work as well
    ASSERT_TRUE(m_channel.waitForWrites(5));
    EXPECT_TRUE(m_control.stopAndWait(100));

    EXPECT_EQ(m_log.count(ZLOG_LEVEL_WARNING, "profile dir not map!"), 1);
    EXPECT_TRUE(isLoggedAhead("add a drive success.", "profile dir not map!"));
    EXPECT_EQ(types(m_channel.writes()),
              (std::vector<int>{FD_CMD_MAP_ADD, FD_CMD_DRIVE_NAME, FD_CMD_MAP_DELETE,
                                FD_CMD_MAP_ADD, FD_CMD_DRIVE_NAME}));
}

TEST_F(ControlThreadTest, ClearingTheMasterSwitchStopsThePassesAndWithdrawsNothing) {
    offerRoot();
    m_control.start();
    ASSERT_TRUE(m_channel.waitForWrites(2));
    waitForFirstPass();

    m_policy.setItaPolicy(kPolicy & ~0x1);
    EXPECT_FALSE(m_channel.waitFor([](const auto& writes) { return writes.size() > 2; },
                                   std::chrono::seconds(1)));

    EXPECT_EQ(m_manager.getMapNum(), 1);
    EXPECT_TRUE(m_control.stopAndWait(100));
    EXPECT_EQ(m_channel.writes().size(), 2U);  // nor does the stop withdraw anything
}

TEST_F(ControlThreadTest, DeletedMapsAreReleasedInTheHundredthPassThatAPolicyAllows) {
    offerRoot();
    failInEachPass();
    m_policy.setItaPolicy(0);
    m_control.start();
    EXPECT_FALSE(m_channel.waitFor([](const auto& writes) { return writes.size() > 1; },
                                   std::chrono::seconds(2)));  // passes that are not counted

    m_policy.setItaPolicy(kPolicy);

    EXPECT_EQ(passesUntilRelease(), 99);  // the hundredth begins with the release
}

TEST_F(ControlThreadTest, ADeletedMapIsReleasedAHundredPassesLater) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        offerBelow(folder);
        m_control.moniterDriverChange();
        failInEachPass();
        const std::weak_ptr<MapFolder> map = m_manager.getMapInfoByID(0);
        ASSERT_FALSE(map.expired());
        m_control.start();
        const auto failures = [this] { return m_log.count(ZLOG_LEVEL_ERROR, kFailure); };
        EXPECT_TRUE(waitUntil([&] { return failures() > 10; }));  // passes before do not count

        unmount(folder + "/a");
        const std::string deletion = "0x500e0005:  map delete.  rcFlag: 0";
        EXPECT_TRUE(waitUntil([&] { return m_log.has(ZLOG_LEVEL_INFO, deletion); }));

        EXPECT_EQ(passesUntilRelease(deletion), 99);
        EXPECT_TRUE(map.expired());
        const std::string released = "pMap->m_nMapIndex: 0, pMap->m_ClientFolder: " + folder + "/a";
        EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, released), 1);
        EXPECT_TRUE(isLoggedAhead(released, kRelease));
        const int atRelease = failures();
        EXPECT_TRUE(waitUntil([&] { return failures() > atRelease + 2; }));
        EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, kRelease), 1);
    });
}

TEST_F(ControlThreadTest, ADeletionOfAnUnknownIdPutsNoReleaseOff) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        offerBelow(folder);
        m_control.moniterDriverChange();
        m_manager.deleteMapInfoByMapIndex(0);  // behind the monitor's back
        failInEachPass();
        m_control.start();
        EXPECT_TRUE(waitUntil([this] { return m_log.count(ZLOG_LEVEL_ERROR, kFailure) > 10; }));

        unmount(folder + "/a");

        EXPECT_EQ(passesUntilRelease(), 99);
        EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR, "delete a not exist drive. mapId:0"), 1);
    });
}

}  // namespace
