// The mount monitor of the Linux dialect. Its passes run on the test's thread, except where the
// thread's own rhythm is the matter.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "common/LinuxServer/workthread/MapCtrlThread.h"
#include "support/LinuxContextFixture.h"
#include "support/MountNamespace.h"

namespace {

using linuxframes::Message;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kAllMedia = 0x5b;  // all media, writable

std::vector<std::string> paths(const std::list<MountInfo>& mounts) {
    std::vector<std::string> result;
    for (const MountInfo& mount : mounts) result.emplace_back(mount.path);
    return result;
}

class MountMonitorTest : public LinuxContextFixture {
protected:
    MountMonitorTest() {
        startSender();
        m_log.clear();
    }

    // The root pseudo-mount and nothing else.
    void offerRoot(int policy = kAllMedia) {
        m_policy.setLinuxRootDirEnable(1);
        m_policy.setLinuxMountPath("/no such folder");
        m_policy.setItaPolicy(policy);
    }

    // Only what is mounted below `folder`.
    void offerBelow(const std::string& folder, int policy = kAllMedia) {
        m_policy.setLinuxMountPath(folder.c_str());
        m_policy.setLinuxLocalfs("tmpfs");
        m_policy.setItaPolicy(policy);
    }

    void answer(int subtype, int mapid, std::int64_t res = 0) {
        m_thread->handleMapCtrlCmd(nodeOf({.mapid = mapid,
                                           .type = 1,
                                           .subtype = subtype,
                                           .payload = linuxframes::Bytes(16),
                                           .res = res}));
    }

    // "subtype:mapid" of all that has gone out, once that many messages have.
    std::vector<std::string> notices(std::size_t wanted) {
        std::vector<std::string> result;
        for (const Message& message : sent(wanted)) {
            result.push_back(std::to_string(message.subtype) + ":" + std::to_string(message.mapid));
        }
        return result;
    }

    // The lines of a level above debug.
    std::vector<LogLine> loudLines() const {
        std::vector<LogLine> lines = m_log.lines();
        std::erase_if(lines, [](const LogLine& line) { return line.level == 4; });
        return lines;
    }

    std::shared_ptr<MapCtrlThread> m_thread = std::make_shared<MapCtrlThread>(m_context.get());
};

using Notices = std::vector<std::string>;

TEST_F(MountMonitorTest, PolicyAndPathMakeTheIdentityOfAMount) {
    MountInfo other = mountAt("/a", 0x40, kAllMedia);
    other.mapid = 7;
    other.flag = 3;

    EXPECT_TRUE(m_thread->isSameDriverNode(mountAt("/a"), other));
    EXPECT_FALSE(m_thread->isSameDriverNode(mountAt("/a"), mountAt("/A")));
    EXPECT_FALSE(m_thread->isSameDriverNode(mountAt("/a"), mountAt("/ab")));
    EXPECT_FALSE(m_thread->isSameDriverNode(mountAt("/a"), mountAt("/a", 8, kAllMedia | 0x20)));
}

TEST_F(MountMonitorTest, WithoutOfferedMountsEveryLocalOneIsNew) {
    const std::list<MountInfo> local{mountAt("/b"), mountAt("/a"), mountAt("/b")};

    EXPECT_EQ(paths(m_thread->listAddMountPoint(local)),
              (std::vector<std::string>{"/b", "/a", "/b"}));
    EXPECT_TRUE(m_thread->listDeleteMountPoint(local).empty());
    EXPECT_TRUE(m_thread->listNochangeMountPoint(local).empty());
}

TEST_F(MountMonitorTest, TheSetOperationsKeepTheOrderOfTheListThatTheyWalk) {
    inMountNamespace([this](const std::string& folder) {
        for (const char* name : {"/a", "/b", "/c"}) mountTmpfs(folder + name);
        offerBelow(folder);
        m_thread->monitorChange();
        const std::list<MountInfo> local{mountAt(folder + "/x"), mountAt(folder + "/c"),
                                         mountAt(folder + "/a"), mountAt(folder + "/w")};

        EXPECT_EQ(paths(m_thread->listAddMountPoint(local)),
                  (std::vector<std::string>{folder + "/x", folder + "/w"}));
        EXPECT_EQ(paths(m_thread->listDeleteMountPoint(local)),
                  std::vector<std::string>{folder + "/b"});
        EXPECT_EQ(paths(m_thread->listNochangeMountPoint(local)),
                  (std::vector<std::string>{folder + "/c", folder + "/a"}));
    });
}

TEST_F(MountMonitorTest, PrintsAListAtDebugLevel) {
    MountInfo mount = mountAt("/media/stick", 2);
    mount.mapid = -1;

    m_thread->printMountList({mount});

    const std::vector<LogLine> expected = {{4, "mapid: -1, policy: 0x5b, type: 0x2"},
                                           {4, "path: /media/stick"}};
    EXPECT_EQ(m_log.lines(), expected);
}

TEST_F(MountMonitorTest, ListsTheRootPseudoMountFirst) {
    offerRoot();

    const std::list<MountInfo> local = m_thread->listLocalMountPoint(&m_policy);

    ASSERT_EQ(local.size(), 1U);
    EXPECT_EQ(local.front().mapid, -1);
    EXPECT_EQ(local.front().type, 2);
    EXPECT_EQ(local.front().policy, kAllMedia);
    EXPECT_EQ(local.front().flag, 0);
    EXPECT_STREQ(local.front().path, "/.");
}

TEST_F(MountMonitorTest, ListsNothingWhileRedirectionIsOff) {
    offerRoot(0);

    EXPECT_TRUE(m_thread->listLocalMountPoint(&m_policy).empty());
}

TEST_F(MountMonitorTest, NeverListsTheMountAtTheRootItself) {
    m_policy.setLinuxMountPath("/|");
    for (const char* types : {"overlay|ext4|rootfs|xfs|btrfs|tmpfs", ""}) {
        m_policy.setLinuxLocalfs(types);
        m_policy.setItaPolicy(kAllMedia);
        for (const std::string& path : paths(m_thread->listLocalMountPoint(&m_policy))) {
            EXPECT_NE(path, "/");
        }
    }
}

TEST_F(MountMonitorTest, TheTypeListsDecideInTheirOrder) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        m_policy.setLinuxMountPath(folder.c_str());
        const auto typeWith = [this](const char* local, const char* remove, const char* cdrom,
                                     const char* network, int policy) {
            m_policy.setLinuxLocalfs(local);
            m_policy.setLinuxRemovefs(remove);
            m_policy.setLinuxCdRomfs(cdrom);
            m_policy.setLinuxNetworkfs(network);
            m_policy.setItaPolicy(policy);
            const std::list<MountInfo> mounts = m_thread->listLocalMountPoint(&m_policy);
            return mounts.empty() ? 0 : mounts.front().type;
        };

        EXPECT_EQ(typeWith("tmpfs", "tmpfs", "tmpfs", "tmpfs", kAllMedia), 2);
        EXPECT_EQ(typeWith("", "tmpfs", "tmpfs", "tmpfs", kAllMedia), 8);
        EXPECT_EQ(typeWith("", "", "tmpfs", "tmpfs", kAllMedia), 0x10);
        EXPECT_EQ(typeWith("", "", "", "tmpfs", kAllMedia), 0x40);
        EXPECT_EQ(typeWith("", "", "", "", kAllMedia), 0);
        EXPECT_TRUE(m_log.has(4, "unknow file system type.  type: tmpfs"));
        // The first list that names the type decides, also when its kind is forbidden.
        EXPECT_EQ(typeWith("tmpfs", "tmpfs", "tmpfs", "tmpfs", kAllMedia & ~0x2), 0);
        EXPECT_EQ(typeWith("", "tmpfs", "tmpfs", "tmpfs", kAllMedia & ~0x8), 0);
        EXPECT_EQ(typeWith("", "", "tmpfs", "tmpfs", kAllMedia & ~0x10), 0);
        EXPECT_EQ(typeWith("", "", "", "tmpfs", kAllMedia & ~0x40), 0);
        EXPECT_EQ(typeWith("tmpfs", "", "", "", kAllMedia & ~0x1), 0);
    });
}

TEST_F(MountMonitorTest, AMountHasTheWorkingPolicyAndNoFlagYet) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        offerBelow(folder, kAllMedia | 0x20);

        const std::list<MountInfo> local = m_thread->listLocalMountPoint(&m_policy);

        ASSERT_EQ(local.size(), 1U);
        EXPECT_EQ(local.front().mapid, -1);
        EXPECT_EQ(local.front().policy, kAllMedia | 0x20);
        EXPECT_EQ(local.front().flag, 0);
    });
}

TEST_F(MountMonitorTest, AMountPathMayHave255BytesAndNotMore) {
    inMountNamespace([this](const std::string& folder) {
        const std::string longest = folder + "/" + std::string(255 - folder.size() - 1, 'p');
        mountTmpfs(longest);
        mountTmpfs(folder + "/q/" + std::string(256 - folder.size() - 3, 'q'));
        offerBelow(folder + "|" + folder + "/q");

        EXPECT_EQ(paths(m_thread->listLocalMountPoint(&m_policy)),
                  std::vector<std::string>{longest});
    });
}

TEST_F(MountMonitorTest, OffersTheRootOnceUnderTheNameRoot) {
    offerRoot();

    m_thread->monitorChange();
    m_thread->monitorChange();

    const std::vector<Message> messages = sent(1);
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(linuxframes::plugOf(messages[0].payload).folder, "Root");
    EXPECT_EQ(linuxframes::plugOf(messages[0].payload).type, 2);
    EXPECT_EQ(m_context->findMapInfoByMountPath("/.")->getMapId(), 1);
}

TEST_F(MountMonitorTest, SaysWhatItOffers) {
    offerRoot();
    m_log.clear();

    m_thread->monitorChange();

    EXPECT_TRUE(m_log.hasInOrder({{4, "add mount list"},
                                  {4, "mapid: -1, policy: 0x5b, type: 0x2"},
                                  {4, "path: /."},
                                  {4, "delete mount list"},
                                  {4, "current local mount list."},
                                  {4, "mapid: -1, policy: 0x5b, type: 0x2"},
                                  {4, "path: /."},
                                  {3, "add new mount map"},
                                  {3, "send plugin info."},
                                  {3, "add new mount success. "},
                                  {3, "mount info. mapid: -1, policy: 0x5b, type: 0x2"},
                                  {3, "mount info. path: /."}}));
    EXPECT_EQ(m_log.count(4, "path: /."), 2);  // to add, and of all
    EXPECT_FALSE(m_log.has(3, "delete mount map"));
}

TEST_F(MountMonitorTest, APassWithoutAChangeSaysNothingAboveDebug) {
    offerRoot();
    m_thread->monitorChange();
    sent(1);
    EXPECT_TRUE(waitUntil([&] { return m_log.has(4, "free item node success. "); }));
    m_log.clear();

    m_thread->monitorChange();

    EXPECT_EQ(loudLines(), std::vector<LogLine>{});
    EXPECT_FALSE(m_log.has(4, "add mount list"));
}

TEST_F(MountMonitorTest, WithdrawsWhatThePolicyForbidsOnceItIsMounted) {
    offerRoot();
    m_thread->monitorChange();
    answer(linuxframes::kMap, 1);
    m_policy.setLinuxRootDirEnable(0);
    m_log.clear();

    m_thread->monitorChange();

    EXPECT_EQ(notices(3), (Notices{"4:1", "7:1", "5:1"}));
    EXPECT_TRUE(m_log.hasInOrder({{4, "delete mount list"},
                                  {4, "path: /."},
                                  {4, "current local mount list."},
                                  {3, "delete mount map"},
                                  {3, "unplugin an map! mapid: 1, path: /."},
                                  {3, "delete mount success. "},
                                  {3, "mount info. mapid: -1, policy: 91, type: 2"}}));
    EXPECT_TRUE(m_log.contains(3, "mount info. path: "));  // a number, not the path
    EXPECT_FALSE(m_log.has(3, "mount info. path: /."));
    EXPECT_FALSE(m_log.has(3, "add new mount map"));
    m_thread->monitorChange();
    EXPECT_EQ(notices(3).size(), 3U);  // it is not withdrawn twice
}

TEST_F(MountMonitorTest, RepeatsAWithdrawalThatCameBeforeTheServersAnswer) {
    offerRoot();
    m_thread->monitorChange();
    m_policy.setLinuxRootDirEnable(0);
    m_log.clear();
    const auto start = steady_clock::now();

    m_thread->monitorChange();

    EXPECT_GE(steady_clock::now() - start, milliseconds(480));
    EXPECT_TRUE(m_log.has(2, "unplugin an not response map! mapid: 1, path: /."));
    EXPECT_TRUE(m_log.has(3, "adelete mount failure. "));
    EXPECT_TRUE(m_log.has(3, "mount info. mapid: -1, policy: 91, type: 2"));

    answer(linuxframes::kMap, 1);
    m_thread->monitorChange();
    EXPECT_EQ(notices(3), (Notices{"4:1", "7:1", "5:1"}));
}

TEST_F(MountMonitorTest, AMapThatTheServerTookDownIsNotOfferedAgain) {
    offerRoot();
    m_thread->monitorChange();
    answer(linuxframes::kMap, 1);
    answer(linuxframes::kUnmap, 1);

    m_thread->monitorChange();
    m_thread->monitorChange();

    EXPECT_EQ(notices(3), (Notices{"4:1", "7:1", "9:1"}));
    EXPECT_EQ(m_thread->listNochangeMountPoint({mountAt("/.")}).size(), 1U);
}

// Its withdrawal finds no map any more, so it is tried again until the same mount is back.
TEST_F(MountMonitorTest, AMountWhoseMapIsGoneIsWithdrawnInVainUntilItIsBack) {
    offerRoot();
    m_thread->monitorChange();
    answer(linuxframes::kMap, 1);
    answer(linuxframes::kUnmap, 1);
    m_policy.setLinuxRootDirEnable(0);
    m_thread->monitorChange();
    m_thread->monitorChange();
    EXPECT_EQ(m_log.count(1, "unplugin an not exist map !  path: /."), 2);

    m_policy.setLinuxRootDirEnable(1);
    m_log.clear();
    m_thread->monitorChange();

    EXPECT_EQ(loudLines(), std::vector<LogLine>{});
    EXPECT_EQ(notices(3), (Notices{"4:1", "7:1", "9:1"}));
}

TEST_F(MountMonitorTest, AChangedPolicyWordOffersAnewAndWithdrawsTheOld) {
    offerRoot();
    m_thread->monitorChange();
    answer(linuxframes::kMap, 1);
    m_policy.setItaPolicy(kAllMedia | 0x20);
    m_log.clear();

    m_thread->monitorChange();  // the path is still listed, so the new offer has to wait

    EXPECT_TRUE(m_log.has(1, "plugin an exist mount point!  mapid: 2"));
    EXPECT_TRUE(m_log.has(3, "add new mount failure. "));
    EXPECT_EQ(notices(3), (Notices{"4:1", "7:1", "5:1"}));

    answer(linuxframes::kUnmap, 1);
    m_thread->monitorChange();
    EXPECT_EQ(notices(5), (Notices{"4:1", "7:1", "5:1", "9:1", "4:3"}));
    EXPECT_EQ(m_context->findMapInfoById(3)->getMountPolicy(), kAllMedia | 0x20);
}

TEST_F(MountMonitorTest, AFailedOfferIsRepeatedWithANewIdEachTime) {
    offerRoot();
    m_context->setSendThread(nullptr);
    m_thread->monitorChange();
    m_thread->monitorChange();
    EXPECT_EQ(m_log.count(3, "add new mount failure. "), 2);
    m_channel.clear();
    startSender();

    m_thread->monitorChange();

    EXPECT_EQ(notices(1), Notices{"4:3"});
}

TEST_F(MountMonitorTest, AddsBeforeItDeletes) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/old");
        offerBelow(folder);
        m_thread->monitorChange();
        answer(linuxframes::kMap, 1);
        unmount(folder + "/old");
        mountTmpfs(folder + "/new");

        m_thread->monitorChange();

        EXPECT_EQ(notices(4), (Notices{"4:1", "7:1", "4:2", "5:1"}));
    });
}

TEST_F(MountMonitorTest, OffersAMountAgainThatHasGoneAndComeBack) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        offerBelow(folder);
        m_thread->monitorChange();
        answer(linuxframes::kMap, 1);
        unmount(folder + "/a");
        m_thread->monitorChange();
        answer(linuxframes::kUnmap, 1);
        mountTmpfs(folder + "/a");

        m_thread->monitorChange();

        EXPECT_EQ(notices(5), (Notices{"4:1", "7:1", "5:1", "9:1", "4:2"}));
    });
}

TEST_F(MountMonitorTest, OfTwoMountsWithOnePathTheSecondOfferFails) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        mountTmpfs(folder + "/a");
        offerBelow(folder);

        m_thread->monitorChange();
        EXPECT_TRUE(m_log.has(1, "plugin an exist mount point!  mapid: 2"));
        m_log.clear();
        m_thread->monitorChange();

        EXPECT_EQ(loudLines(), std::vector<LogLine>{});
        EXPECT_EQ(notices(1), Notices{"4:1"});
    });
}

TEST_F(MountMonitorTest, EachFailedWithdrawalDelaysTheRestByHalfASecond) {
    inMountNamespace([this](const std::string& folder) {
        for (const char* name : {"/a", "/b"}) mountTmpfs(folder + name);
        offerBelow(folder);
        m_thread->monitorChange();
        for (const char* name : {"/a", "/b"}) unmount(folder + name);
        const auto start = steady_clock::now();

        m_thread->monitorChange();

        EXPECT_GE(steady_clock::now() - start, milliseconds(980));
        EXPECT_EQ(m_log.count(3, "adelete mount failure. "), 2);
    });
}

TEST_F(MountMonitorTest, APassComesAfterHalfASecondOfSilence) {
    offerRoot();
    const auto start = steady_clock::now();

    m_thread->start();

    EXPECT_EQ(notices(1), Notices{"4:1"});
    EXPECT_GE(steady_clock::now() - start, milliseconds(480));
    m_policy.setLinuxRootDirEnable(0);
    EXPECT_TRUE(waitUntil([&] { return m_log.count(3, "adelete mount failure. ") >= 2; }));
    EXPECT_TRUE(m_thread->waitStop(kStopMs));
}

TEST_F(MountMonitorTest, AStreamOfControlMessagesHoldsThePassesOff) {
    offerRoot();
    m_thread->start();
    const auto end = steady_clock::now() + milliseconds(1500);
    auto last = steady_clock::now();
    auto longestGap = milliseconds(0);
    while (last < end) {
        m_thread->addMapCtrlCmd(nodeOf({.mapid = 1, .type = 1, .subtype = 1}));
        ZThread::msleep(5);
        const auto now = steady_clock::now();
        longestGap = std::max(longestGap, std::chrono::duration_cast<milliseconds>(now - last));
        last = now;
    }

    // On a busy machine this thread may have been kept waiting for as long as a pass waits.
    if (longestGap < milliseconds(400)) {
        EXPECT_TRUE(m_channel.writes().empty());
    }
    EXPECT_EQ(notices(1), Notices{"4:1"});
    EXPECT_TRUE(m_thread->waitStop(kStopMs));
}

}  // namespace
