// The drive monitor seen from the server, with real mounts in a private namespace.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ZFdClientMgr.h"
#include "common/Comm/WireNumbers.h"
#include "support/FakeChannel.h"
#include "support/FileRequests.h"
#include "support/LogCapture.h"
#include "support/MountNamespace.h"
#include "support/PolicyMessage.h"
#include "support/WaitUntil.h"
#include "support/WireMessage.h"

namespace {

constexpr std::size_t kNameAt = 20;
constexpr std::uint32_t kReadOnlyWord = PolicyMessage::kAllMedia | PolicyMessage::kReadOnly;

constexpr std::uint32_t kFailIfNew = 0x100;
constexpr std::uint32_t kRead = 0x1000;
constexpr std::uint32_t kWrite = 0x2000;

int typeOf(const FakeChannel::Message& message) {
    return loadLe<std::uint16_t>(message.data());
}
int idOf(const FakeChannel::Message& message) {
    return loadLe<std::int32_t>(message.data() + 12);
}

// The map's name, of an addition or a deletion.
std::string nameOf(const FakeChannel::Message& message) {
    const auto size = loadLe<std::uint32_t>(message.data() + 16);
    return std::string(message.data() + kNameAt, size - 1);  // without the terminator
}

// "type:id name" of the messages about drives, in their order.
std::vector<std::string> notices(const std::vector<FakeChannel::Message>& messages) {
    std::vector<std::string> result;
    for (const auto& message : messages) {
        const std::string id = ":" + std::to_string(idOf(message));
        if (typeOf(message) == kMapAdd) result.push_back("add" + id + " " + nameOf(message));
        if (typeOf(message) == kDriveName) result.push_back("name" + id);
        if (typeOf(message) == kMapDelete) result.push_back("delete" + id + " " + nameOf(message));
    }
    return result;
}

struct DriveName {
    int rootFlag;
    int mapType;
    std::string share;
};

DriveName driveNameOf(const FakeChannel::Message& message) {
    const std::size_t shareAt = 30 + loadLe<std::uint16_t>(message.data() + 28);
    return {loadLe<std::int32_t>(message.data() + 20), loadLe<std::int32_t>(message.data() + 24),
            std::string(message.data() + shareAt + 2,
                        loadLe<std::uint16_t>(message.data() + shareAt) - 1U)};
}

int count(const std::vector<FakeChannel::Message>& messages, int type) {
    return static_cast<int>(
        std::ranges::count_if(messages, [type](const auto& m) { return typeOf(m) == type; }));
}

std::vector<char> mapCountRequest() {
    std::vector<char> request(12);
    request[0] = 16;
    return request;
}

std::string below(const std::string& folder, const std::string& name) {
    return folder + "/" + name;
}

class DriveMonitorTest : public testing::Test {
protected:
    DriveMonitorTest() {
        m_client.Init(m_channel.writer(), m_channel.metric());
        m_client.Start();
    }
    ~DriveMonitorTest() override {
        m_client.Stop();
        m_client.Release();
    }

    void put(std::vector<char> message) {
        ASSERT_TRUE(m_client.PutMsg(message.data(), static_cast<int>(message.size())));
    }

    // Sends the lists ahead of the policy word, since the monitor sees each field as it is stored:
    // with the word first it might look for a moment at what this machine has mounted.
    void apply(PolicyMessage policy) {
        const std::uint32_t word = std::exchange(policy.policy, 0);
        put(policy.build());
        policy.policy = word;
        put(policy.build());
    }

    // Offers what is mounted below `folder`.
    void offer(const std::string& folder, std::uint32_t policy = PolicyMessage::kAllMedia) {
        apply({.policy = policy, .mountPath = folder, .localFs = "tmpfs"});
    }

    // Blocks until `passes` passes of the monitor with a change in them are over. The next one is a
    // tenth of a second away.
    void waitForPasses(int passes) {
        EXPECT_TRUE(waitUntil([&] {
            return std::ranges::count_if(m_channel.metrics(), [](const std::string& text) {
                       return text.starts_with("Total number of disks:");
                   }) >= passes;
        }));
    }

    // The notices so far, once there are `wanted` messages.
    std::vector<std::string> noticesOf(std::size_t wanted) {
        EXPECT_TRUE(m_channel.waitForWrites(wanted));
        return notices(m_channel.writes());
    }

    // Sends a request and gives the result that comes for it.
    FakeChannel::Message answerTo(std::vector<char> request) {
        const int before = count(m_channel.writes(), kResult);
        put(std::move(request));
        EXPECT_TRUE(m_channel.waitFor(
            [&](const auto& messages) { return count(messages, kResult) > before; }));
        const auto messages = m_channel.writes();
        const auto result =
            std::ranges::find_if(messages.rbegin(), messages.rend(),
                                 [](const auto& message) { return typeOf(message) == kResult; });
        return result == messages.rend() ? FakeChannel::Message(64) : *result;
    }

    // Waits until the monitor has seen all that was mounted before the call: it announces a mount
    // made for the purpose, and withdraws it.
    void settle(const std::string& folder) {
        const auto adds = [this] { return count(m_channel.writes(), kMapAdd); };
        const auto deletes = [this] { return count(m_channel.writes(), kMapDelete); };
        const int addsBefore = adds();
        mountTmpfs(folder + "/settle");
        EXPECT_TRUE(waitUntil([&] { return adds() > addsBefore; }));
        const int deletesBefore = deletes();
        unmount(folder + "/settle");
        EXPECT_TRUE(waitUntil([&] { return deletes() > deletesBefore; }));
    }

    LogCapture m_log;
    FakeChannel m_channel;
    ZFdClientMgr m_client;
};

TEST_F(DriveMonitorTest, AMountIsAnnouncedAndWithdrawn) {
    inMountNamespace([this](const std::string& folder) {
        offer(folder);
        mountTmpfs(folder + "/Data");

        EXPECT_EQ(noticesOf(2), (std::vector<std::string>{"add:0 Mac-Data", "name:0"}));
        const DriveName name = driveNameOf(m_channel.writes()[1]);
        EXPECT_EQ(name.rootFlag, 0);
        EXPECT_EQ(name.mapType, 0x8);
        EXPECT_EQ(name.share, "Data");

        unmount(folder + "/Data");

        EXPECT_EQ(noticesOf(3).back(), "delete:0 Mac-Data");
        EXPECT_TRUE(waitUntil([this] { return m_channel.metrics().size() == 3; }));
        const auto metrics = m_channel.metrics();
        EXPECT_EQ(metrics[0].rfind("Disk serial number:292991 Total disk space:4194304", 0), 0U);
        EXPECT_EQ(metrics[1], "Total number of disks:1");
        EXPECT_EQ(metrics[2], "Total number of disks:0");
    });
}

TEST_F(DriveMonitorTest, AnAdditionIsSentByteForByte) {
    inMountNamespace([this](const std::string& folder) {
        offer(folder);
        mountTmpfs(folder + "/A");  // "Mac-A": five letters

        ASSERT_TRUE(m_channel.waitForWrites(2));
        const FakeChannel::Message message = m_channel.writes()[0];
        ASSERT_EQ(message.size(), 81U);
        const std::string head("\x00\x02\0\0\0\0\0\0\x45\0\0\0\0\0\0\0\6\0\0\0Mac-A\0", 26);
        EXPECT_EQ(std::string(message.data(), 26), head);
        const std::string wide("\x0C\0M\0a\0c\0-\0A\0\0\0", 14);
        EXPECT_EQ(std::string(message.data() + 26, 14), wide);
        EXPECT_EQ(loadLe<std::uint64_t>(message.data() + 40), 4U << 20);  // total
        EXPECT_EQ(loadLe<std::uint32_t>(message.data() + 64), 0x4787FU);  // serial
        EXPECT_EQ(std::string(message.data() + 78, 3), std::string(3, '\0'));
    });
}

TEST_F(DriveMonitorTest, ABindMountHasTheTypeOfTheFileSystemBehindIt) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/outside/disk");
        std::ofstream(folder + "/outside/disk/file") << "content";
        offer(folder + "/inside");
        bindMount(folder + "/outside/disk", folder + "/inside/bound");

        EXPECT_EQ(noticesOf(2), (std::vector<std::string>{"add:0 Mac-bound", "name:0"}));

        unmount(folder + "/inside/bound");

        EXPECT_EQ(noticesOf(3).back(), "delete:0 Mac-bound");
        EXPECT_TRUE(std::filesystem::exists(folder + "/outside/disk/file"));
    });
}

TEST_F(DriveMonitorTest, MountPathsMayHoldAnyByte) {
    inMountNamespace([this](const std::string& folder) {
        const std::vector<std::string> names{"my disk",
                                             "back\\slash",
                                             "tab\there\nand there",
                                             "\\040",
                                             "Stra\303\237e \360\237\222\276",
                                             "my-disk"};
        for (const std::string& name : names) mountTmpfs(below(folder, name));
        offer(folder);

        const std::vector<std::string> seen = noticesOf(2 * names.size());

        EXPECT_EQ(seen, (std::vector<std::string>{
                            "add:0 Mac-my disk", "name:0", "add:1 Mac-back\\slash", "name:1",
                            "add:2 Mac-tab\there\nand there", "name:2", "add:3 Mac-\\040", "name:3",
                            "add:4 Mac- 4", "name:4", "add:5 Mac-my disk 1", "name:5"}));
        const auto messages = m_channel.writes();
        for (std::size_t i = 0; i < names.size(); ++i) {
            EXPECT_EQ(driveNameOf(messages[2 * i + 1]).share, names[i]);
        }
        for (const std::string& name : names) unmount(below(folder, name));
        EXPECT_EQ(count((noticesOf(3 * names.size()), m_channel.writes()), kMapDelete), 6);
    });
}

TEST_F(DriveMonitorTest, TheDefaultMountParentsAndListsOfferARemovableDisk) {
    inMountNamespace([this](const std::string&) {
        const auto isFolder = [](const char* path) { return std::filesystem::is_directory(path); };
        const std::string parent = isFolder("/media") ? "/media" : "/home";
        mountTmpfs(parent);  // hides what is mounted there on this machine
        mountTmpfs(parent + "/zfd-test-a");
        const auto own = [](const std::string& notice) {
            return notice.find("zfd test") != std::string::npos;
        };

        // No list names the type: the default local list is empty.
        put(PolicyMessage{}.build());
        EXPECT_FALSE(m_channel.waitFor(
            [&](const auto& messages) { return std::ranges::any_of(notices(messages), own); },
            std::chrono::seconds(1)));

        put(PolicyMessage{.removeFs = "vfat|tmpfs"}.build());
        EXPECT_TRUE(m_channel.waitFor(
            [&](const auto& messages) { return std::ranges::any_of(notices(messages), own); }));
    });
}

TEST_F(DriveMonitorTest, TheListThatNamesTheTypeGivesTheKindOfDrive) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        const PolicyMessage base{.mountPath = folder, .localFs = "tmpfs"};
        PolicyMessage network = base;
        network.networkFs = "cifs|tmpfs";
        apply(network);
        ASSERT_TRUE(m_channel.waitForWrites(2));
        EXPECT_EQ(driveNameOf(m_channel.writes()[1]).mapType, 0x40);

        PolicyMessage optical = base;
        optical.policy = 0x1B;  // network drives are off, and no list names the type as one
        optical.cdromFs = "tmpfs|udf";
        apply(optical);
        ASSERT_TRUE(m_channel.waitForWrites(5));
        EXPECT_EQ(driveNameOf(m_channel.writes()[4]).mapType, 0x10);
    });
}

TEST_F(DriveMonitorTest, AForbiddenNetworkTypeIsNotOfferedAsALocalOne) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        apply({.policy = 0x1B,  // all but network
               .mountPath = folder,
               .localFs = "tmpfs",
               .networkFs = "tmpfs"});

        EXPECT_FALSE(m_channel.waitFor([](const auto& messages) { return !messages.empty(); },
                                       std::chrono::seconds(1)));
    });
}

TEST_F(DriveMonitorTest, OnlyMountsBelowAMountParentAreOffered) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/parent");
        mountTmpfs(folder + "/parent/one");
        mountTmpfs(folder + "/parent/one/two");
        mountTmpfs(folder + "/parents");
        offer(folder + "/parent");

        EXPECT_EQ(noticesOf(4),
                  (std::vector<std::string>{"add:0 Mac-one", "name:0", "add:1 Mac-two", "name:1"}));
    });
}

TEST_F(DriveMonitorTest, UnpluggingOneOfTwoLeavesTheOtherWithItsId) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        mountTmpfs(folder + "/b");
        offer(folder);
        ASSERT_EQ(noticesOf(4),
                  (std::vector<std::string>{"add:0 Mac-a", "name:0", "add:1 Mac-b", "name:1"}));

        unmount(folder + "/a");
        ASSERT_EQ(noticesOf(5).back(), "delete:0 Mac-a");
        mountTmpfs(folder + "/c");
        ASSERT_EQ(noticesOf(7)[5], "add:2 Mac-c");
        unmount(folder + "/b");

        EXPECT_EQ(noticesOf(8).back(), "delete:1 Mac-b");
    });
}

TEST_F(DriveMonitorTest, InOnePassAdditionsGoBeforeDeletions) {
    inMountNamespace([this](const std::string& folder) {
        offer(folder);
        mountTmpfs(folder + "/old");
        ASSERT_TRUE(m_channel.waitForWrites(2));

        moveMount(folder + "/old", folder + "/new");  // one path goes as the other comes

        EXPECT_EQ(noticesOf(5),
                  (std::vector<std::string>{"add:0 Mac-old", "name:0", "add:1 Mac-new", "name:1",
                                            "delete:0 Mac-old"}));
    });
}

TEST_F(DriveMonitorTest, ANewPolicyWordTakesAllMapsAwayAndAddsThemUnderNewIds) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        mountTmpfs(folder + "/b");
        offer(folder);
        ASSERT_TRUE(m_channel.waitForWrites(4));
        waitForPasses(1);
        m_channel.clear();

        put(PolicyMessage{.policy = kReadOnlyWord, .mountPath = folder, .localFs = "tmpfs"}
                .build());

        EXPECT_EQ(noticesOf(6),
                  (std::vector<std::string>{"delete:0 Mac-a", "delete:1 Mac-b", "add:2 Mac-a",
                                            "name:2", "add:3 Mac-b", "name:3"}));
        EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR,
                              "add a exist drive. clientFolder:" + folder + "/a, mapId:0"),
                  1);
        EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR,
                              "add a exist drive. clientFolder:" + folder + "/b, mapId:1"),
                  1);
    });
}

TEST_F(DriveMonitorTest, TheSamePolicyAgainChangesNothing) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        offer(folder);
        ASSERT_TRUE(m_channel.waitForWrites(2));

        put(PolicyMessage{.mountPath = folder, .localFs = "tmpfs"}.build());
        settle(folder);

        EXPECT_EQ(notices(m_channel.writes()),
                  (std::vector<std::string>{"add:0 Mac-a", "name:0", "add:1 Mac-settle", "name:1",
                                            "delete:1 Mac-settle"}));
    });
}

TEST_F(DriveMonitorTest, WithoutTheMasterSwitchNothingIsAnnouncedAndNothingWithdrawn) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        mountTmpfs(folder + "/b");
        offer(folder);
        ASSERT_TRUE(m_channel.waitForWrites(4));
        waitForPasses(1);
        const auto hasNews = [](const auto& messages) { return notices(messages).size() > 4; };

        offer(folder, PolicyMessage::kAllMedia & ~1U);
        answerTo(mapCountRequest());  // handled behind the policy
        mountTmpfs(folder + "/c");
        unmount(folder + "/b");
        EXPECT_FALSE(m_channel.waitFor(hasNews, std::chrono::seconds(1)));

        offer(folder);
        EXPECT_EQ(noticesOf(8),
                  (std::vector<std::string>{"add:0 Mac-a", "name:0", "add:1 Mac-b", "name:1",
                                            "add:2 Mac-c", "name:2", "delete:1 Mac-b"}));
    });
}

TEST_F(DriveMonitorTest, AReadOnlyPolicyRefusesToCreateAndLetsRead) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        std::ofstream(folder + "/a/file") << "content";
        offer(folder, kReadOnlyWord);
        ASSERT_TRUE(m_channel.waitForWrites(2));

        EXPECT_EQ(statusOf(answerTo(createRequest("\\new", kWrite))), -38);
        EXPECT_FALSE(std::filesystem::exists(folder + "/a/new"));
        EXPECT_EQ(statusOf(answerTo(createRequest("\\file", kRead | kFailIfNew))), 0);
    });
}

TEST_F(DriveMonitorTest, AWritablePolicyLetsCreate) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        offer(folder);
        ASSERT_TRUE(m_channel.waitForWrites(2));

        EXPECT_EQ(statusOf(answerTo(createRequest("\\new", kWrite))), 0);
        EXPECT_TRUE(std::filesystem::exists(folder + "/a/new"));
    });
}

TEST_F(DriveMonitorTest, TwoMountsAtOnePathCountAsOne) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        mountTmpfs(folder + "/a");
        offer(folder);
        ASSERT_TRUE(m_channel.waitForWrites(2));
        EXPECT_TRUE(waitUntil([&] {
            return m_log.has(ZLOG_LEVEL_ERROR,
                             "add a exist drive. clientFolder:" + folder + "/a, mapId:0");
        }));
        EXPECT_TRUE(waitUntil(
            [this] { return m_log.contains(ZLOG_LEVEL_INFO, "Total number of disks:1"); }));
        m_log.clear();

        unmount(folder + "/a");  // one of the two
        EXPECT_FALSE(m_channel.waitFor([](const auto& messages) { return messages.size() > 2; },
                                       std::chrono::seconds(1)));
        EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_ERROR, "add a exist drive."));

        unmount(folder + "/a");
        EXPECT_EQ(noticesOf(3),
                  (std::vector<std::string>{"add:0 Mac-a", "name:0", "delete:0 Mac-a"}));
    });
}

TEST_F(DriveMonitorTest, APairAtOnePathIsDeletedTwiceOnceAnotherChangeHasDoubledItsNode) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        mountTmpfs(folder + "/a");
        offer(folder);
        ASSERT_TRUE(m_channel.waitForWrites(2));
        settle(folder);

        unmount(folder + "/a");
        unmount(folder + "/a");

        EXPECT_TRUE(waitUntil(
            [this] { return m_log.has(ZLOG_LEVEL_ERROR, "delete a not exist drive. mapId:0"); }));
        EXPECT_EQ(noticesOf(6).back(), "delete:0 Mac-a");
    });
}

TEST_F(DriveMonitorTest, AnUnreadableMountTableTakesAllButTheRootMapAway) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        apply({.rootDirEnable = 1, .mountPath = folder, .localFs = "tmpfs"});
        ASSERT_EQ(noticesOf(4),
                  (std::vector<std::string>{"add:0 Mac r-rt", "name:0", "add:1 Mac-a", "name:1"}));
        EXPECT_EQ(driveNameOf(m_channel.writes()[1]).rootFlag, 1);
        EXPECT_EQ(driveNameOf(m_channel.writes()[1]).mapType, 0x2);

        mountTmpfs("/proc");
        EXPECT_EQ(noticesOf(5).back(), "delete:1 Mac-a");
        unmount("/proc");
        EXPECT_EQ(noticesOf(7)[5], "add:2 Mac-a");
    });
}

TEST_F(DriveMonitorTest, StopWithdrawsNothing) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");
        offer(folder);
        ASSERT_TRUE(m_channel.waitForWrites(2));

        EXPECT_TRUE(m_client.Stop());

        EXPECT_EQ(m_channel.writes().size(), 2U);
    });
}

TEST_F(DriveMonitorTest, ThreeHundredMountsComeAndGo) {
    inMountNamespace([this](const std::string& folder) {
        constexpr std::size_t kMounts = 300;
        const auto path = [&](std::size_t i) { return folder + "/disk" + std::to_string(i); };
        for (std::size_t i = 0; i < kMounts; ++i) mountTmpfs(path(i));
        offer(folder);

        ASSERT_TRUE(
            m_channel.waitFor([](const auto& messages) { return messages.size() >= 2 * kMounts; },
                              std::chrono::seconds(60)));
        std::set<int> ids;
        for (const auto& message : m_channel.writes()) ids.insert(idOf(message));
        EXPECT_EQ(ids.size(), kMounts);
        EXPECT_EQ(*ids.rbegin(), 299);

        // The id of a request has one byte, so 299 reaches map 43.
        EXPECT_EQ(statusOf(answerTo(createRequest("\\new", kWrite, 255))), 0);
        EXPECT_TRUE(std::filesystem::exists(path(255) + "/new"));
        EXPECT_EQ(statusOf(answerTo(createRequest("\\new", kWrite, 299))), 0);
        EXPECT_TRUE(std::filesystem::exists(path(43) + "/new"));
        EXPECT_FALSE(std::filesystem::exists(path(299) + "/new"));

        for (std::size_t i = 0; i < kMounts; ++i) unmount(path(i));
        EXPECT_TRUE(m_channel.waitFor(
            [](const auto& messages) {
                return count(messages, kMapDelete) == static_cast<int>(kMounts);
            },
            std::chrono::seconds(60)));
        // A request for a map that is gone finds none.
        EXPECT_EQ(statusOf(answerTo(createRequest("\\new", kWrite, 255))), -2);
    });
}

TEST_F(DriveMonitorTest, BeforeAPolicyNothingIsAnnounced) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/a");

        EXPECT_FALSE(m_channel.waitFor([](const auto& messages) { return !messages.empty(); },
                                       std::chrono::seconds(1)));
        EXPECT_TRUE(m_channel.metrics().empty());
    });
}

}  // namespace
