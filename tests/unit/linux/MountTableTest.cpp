#include "linux/compat/MountTable.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "MountInfo.h"
#include "support/MountNamespace.h"
#include "support/TempDir.h"

namespace {

using Mounts = std::vector<std::pair<std::string, std::string>>;

Mounts parse(std::string text) {
    Mounts mounts;
    for (const compat::MountEntry& entry : compat::parseMountInfo(text)) {
        mounts.emplace_back(entry.f_mntonname, entry.f_fstypename);
    }
    return mounts;
}

TEST(MountTableTest, GivesPathAndTypeInTheOrderOfTheTable) {
    EXPECT_EQ(parse("36 35 98:0 /root /mnt2 rw,noatime master:1 - ext3 /dev/root rw\n"
                    "37 35 98:1 / /mnt1 rw - fuse.sshfs host: rw\n"),
              (Mounts{{"/mnt2", "ext3"}, {"/mnt1", "fuse.sshfs"}}));
}

TEST(MountTableTest, StepsOverAnyNumberOfOptionalFields) {
    EXPECT_EQ(parse("1 2 0:1 / /a rw - tmpfs t rw\n"
                    "1 2 0:1 / /b rw shared:7 - tmpfs t rw\n"
                    "1 2 0:1 / /c rw shared:7 master:3 propagate_from:2 unbindable - tmpfs t rw\n"),
              (Mounts{{"/a", "tmpfs"}, {"/b", "tmpfs"}, {"/c", "tmpfs"}}));
}

TEST(MountTableTest, DecodesBlankTabNewlineAndBackslash) {
    EXPECT_EQ(parse("1 2 0:1 / /a\\040b\\011c\\012d\\134e rw - tm\\134pfs t rw\n"),
              (Mounts{{"/a b\tc\nd\\e", "tm\\pfs"}}));
}

TEST(MountTableTest, DecodesABackslashOnceOnly) {
    EXPECT_EQ(parse("1 2 0:1 / /a\\134040b rw - tmpfs t rw\n"), (Mounts{{"/a\\040b", "tmpfs"}}));
}

TEST(MountTableTest, LeavesWhatIsNoEscapeAsItStands) {
    EXPECT_EQ(parse("1 2 0:1 / /a\\04 rw - tmpfs t rw\n1 2 0:1 / /b\\09x\\777\\ rw - tmpfs t rw\n"),
              (Mounts{{"/a\\04", "tmpfs"}, {"/b\\09x\\777\\", "tmpfs"}}));
}

TEST(MountTableTest, KeepsBytesAboveAscii) {
    EXPECT_EQ(parse("1 2 0:1 / /\xC3\xA4\\303\\266 rw - tmpfs t rw\n"),
              (Mounts{{"/\xC3\xA4\xC3\xB6", "tmpfs"}}));
}

TEST(MountTableTest, KeepsDuplicates) {
    EXPECT_EQ(parse("1 2 0:1 / /a rw - tmpfs t rw\n3 2 0:1 / /a rw - tmpfs t rw\n"),
              (Mounts{{"/a", "tmpfs"}, {"/a", "tmpfs"}}));
}

TEST(MountTableTest, KeepsALongPathWhole) {
    const std::string path = "/" + std::string(9000, 'x');
    EXPECT_EQ(parse("1 2 0:1 / " + path + " rw - tmpfs t rw\n"), (Mounts{{path, "tmpfs"}}));
}

TEST(MountTableTest, SkipsLinesThatAreCutShort) {
    const std::string line = "1 2 0:1 / /a rw shared:7 - tmpfs";
    for (std::size_t length = 0; length < line.size() - 5; ++length) {
        EXPECT_EQ(parse(line.substr(0, length) + "\n" + line), (Mounts{{"/a", "tmpfs"}})) << length;
    }
}

TEST(MountTableTest, ATypeMayEndTheText) {
    EXPECT_EQ(parse("1 2 0:1 / /a rw - tmpfs"), (Mounts{{"/a", "tmpfs"}}));
}

TEST(MountTableTest, AnUnreadableTableIsEmpty) {
    const TempDir folder;
    EXPECT_EQ(compat::readMountInfo(folder.str("missing").c_str()), "");
    EXPECT_EQ(compat::readMountInfo(folder.str().c_str()), "");  // opens, and fails to read
    EXPECT_EQ(parse(""), Mounts{});
}

TEST(MountTableTest, ReadsATextOfAnyLength) {
    const TempDir folder;
    const std::string text(300000, 'm');
    EXPECT_EQ(compat::readMountInfo(folder.file("table", text).c_str()), text);
}

TEST(MountTableTest, TheMachinesTableHoldsTheProcFolder) {
    for (const int flag : {MNT_WAIT, MNT_NOWAIT}) {
        compat::MountEntry* mounts = nullptr;
        const int count = compat::getmntinfo(&mounts, flag);
        bool found = false;
        for (int i = 0; i < count; ++i) {
            found = found || (std::string(mounts[i].f_mntonname) == "/proc" &&
                              std::string(mounts[i].f_fstypename) == "proc");
        }
        EXPECT_TRUE(found);
    }
}

TEST(MountTableTest, RealMountsAppearUnderTheirRealNames) {
    inMountNamespace([](const std::string& folder) {
        const std::vector<std::string> expected{folder + "/a b", folder + "/tab\tnew\nline",
                                                folder + "/back\\slash\\040",
                                                folder + "/\xC3\xA4 # {}"};
        for (const std::string& path : expected) mountTmpfs(path);

        compat::MountEntry* mounts = nullptr;
        const int count = compat::getmntinfo(&mounts, MNT_NOWAIT);
        std::vector<std::string> found;
        for (int i = 0; i < count; ++i) {
            const std::string path = mounts[i].f_mntonname;
            if (path.rfind(folder + "/", 0) == 0) found.push_back(path);
        }

        EXPECT_EQ(found, expected);
    });
}

TEST(MountTableTest, ATableOutOfReachIsEmpty) {
    inMountNamespace([](const std::string&) {
        mountTmpfs("/proc");

        compat::MountEntry* mounts = nullptr;
        EXPECT_EQ(compat::getmntinfo(&mounts, MNT_NOWAIT), 0);

        unmount("/proc");
        EXPECT_GT(compat::getmntinfo(&mounts, MNT_NOWAIT), 0);
    });
}

TEST(MountTableTest, FlagsHaveTheirNumbers) {
    EXPECT_EQ(MNT_WAIT, 1);
    EXPECT_EQ(MNT_NOWAIT, 2);
}

TEST(MountTableTest, EachThreadHasATableOfItsOwn) {
    constexpr int kThreads = 4;
    compat::MountEntry* mine = nullptr;
    const int count = compat::getmntinfo(&mine, MNT_NOWAIT);
    ASSERT_GT(count, 0);
    const std::string before = mine[0].f_mntonname;

    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([mine] {
            for (int pass = 0; pass < 50; ++pass) {
                compat::MountEntry* mounts = nullptr;
                EXPECT_GT(compat::getmntinfo(&mounts, MNT_WAIT), 0);
                EXPECT_NE(mounts, mine);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(mine[0].f_mntonname, before);
}

}  // namespace
