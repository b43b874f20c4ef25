// The delimited lists of mount parents and file-system types.
#include <gtest/gtest.h>

#include <string>

#include "common/Policy/FdClientPolicy.h"
#include "support/LogCapture.h"
#include "support/ScarceMemory.h"

namespace {
class MountFiltersTest : public testing::Test {
protected:
    FdClientPolicy m_policy;
};

struct List {
    const char* name;
    bool (FdClientPolicy::*set)(const char*);
    bool (FdClientPolicy::*query)(const char*) const;
    const char* nullLine;
    const char* infoLine;    // for the text "/one|two"
    const char* defaultHit;  // null if nothing matches by default
    const char* hit;         // matches in the text "/one|two"
    const char* emptyLine;   // for the empty text
};

const List kLists[] = {
    {"mount parents", &FdClientPolicy::setLinuxMountPath, &FdClientPolicy::isLinuxDirEnable,
     "mountPath == NULL", "setLinuxMountPath    size: 9,  mountPath: /one|two", "/media/disk",
     "/one/disk", "setLinuxMountPath    size: 1,  mountPath: "},
    {"local", &FdClientPolicy::setLinuxLocalfs, &FdClientPolicy::isLocalFileSystem,
     "localFs == NULL", "setLinuxLocalfs    size: 9,  localFs: /one|two", nullptr, "two",
     "setLinuxLocalfs    size: 1,  localFs: "},
    {"removable", &FdClientPolicy::setLinuxRemovefs, &FdClientPolicy::isRemoveFileSystem,
     "removeFs == NULL", "setLinuxRemovefs    size: 9,  removeFs: /one|two", "vfat", "two",
     "setLinuxRemovefs    size: 1,  removeFs: "},
    {"optical", &FdClientPolicy::setLinuxCdRomfs, &FdClientPolicy::isCdRomeFileSystem,
     "cdromFs == NULL", "setLinuxCdRomfs    size: 9,  cdromFs: /one|two", "iso9660", "two",
     "setLinuxCdRomfs    size: 1,  cdromFs: "},
    {"network", &FdClientPolicy::setLinuxNetworkfs, &FdClientPolicy::isNetworkFileSystem,
     "networkFs == NULL", "setLinuxNetworkfs    size: 9,  networkFs: /one|two", "cifs", "two",
     "setLinuxNetworkfs    size: 1,  networkFs: "},
};

TEST_F(MountFiltersTest, MatchesTheDefaultsUntilAServerSpeaks) {
    for (const char* type : {"vfat", "ntfs", "msdos", "fuseblk"}) {
        EXPECT_TRUE(m_policy.isRemoveFileSystem(type)) << type;
    }
    for (const char* type : {"cd9660", "iso9660", "udf"}) {
        EXPECT_TRUE(m_policy.isCdRomeFileSystem(type)) << type;
    }
    for (const char* type : {"smbfs", "afpfs", "cifs"}) {
        EXPECT_TRUE(m_policy.isNetworkFileSystem(type)) << type;
    }
    for (const char* path : {"/media/a", "/Volumes/a", "/swdb/mnt/a", "/home/a"}) {
        EXPECT_TRUE(m_policy.isLinuxDirEnable(path)) << path;
    }
    for (const char* type : {"apfs", "hfs", "ext4", "vfat", "|"}) {
        EXPECT_FALSE(m_policy.isLocalFileSystem(type)) << type;
    }
}

TEST_F(MountFiltersTest, LogsAndMatchesEveryListThatIsSet) {
    for (const List& list : kLists) {
        const LogCapture log;
        EXPECT_TRUE((m_policy.*list.set)("/one|two")) << list.name;
        EXPECT_EQ(log.count(ZLOG_LEVEL_INFO, list.infoLine), 1) << list.name;
        EXPECT_TRUE((m_policy.*list.query)(list.hit)) << list.name;
        if (list.defaultHit != nullptr) {
            EXPECT_FALSE((m_policy.*list.query)(list.defaultHit)) << list.name;
        }
    }
}

TEST_F(MountFiltersTest, KeepsTheOldListWhenItIsGivenNone) {
    for (const List& list : kLists) {
        (m_policy.*list.set)("/one|two");
        const LogCapture log;
        EXPECT_FALSE((m_policy.*list.set)(nullptr)) << list.name;
        EXPECT_EQ(log.lines(), (std::vector<LogLine>{{ZLOG_LEVEL_ERROR, list.nullLine}}));
        EXPECT_TRUE((m_policy.*list.query)(list.hit)) << list.name;
    }
}

TEST_F(MountFiltersTest, MatchesNothingInAnEmptyList) {
    for (const List& list : kLists) {
        const LogCapture log;
        EXPECT_TRUE((m_policy.*list.set)("")) << list.name;
        EXPECT_EQ(log.count(ZLOG_LEVEL_INFO, list.emptyLine), 1) << list.name;
        EXPECT_FALSE((m_policy.*list.query)(list.hit)) << list.name;
        EXPECT_FALSE((m_policy.*list.query)("")) << list.name;
    }
}

TEST_F(MountFiltersTest, NeverMatchesWithoutAName) {
    for (const List& list : kLists) {
        EXPECT_FALSE((m_policy.*list.query)(nullptr)) << list.name;
        EXPECT_FALSE((m_policy.*list.query)("")) << list.name;
    }
}

TEST_F(MountFiltersTest, MatchesNothingAfterAListFoundNoMemory) {
    const std::string huge(64U << 20U, 'x');
    for (const List& list : kLists) {
        (m_policy.*list.set)("/one|two");
        const LogCapture log;
        bool stored = true;
        {
            const ScarceMemory limit;
            stored = (m_policy.*list.set)(huge.c_str());
        }
        if (stored) GTEST_SKIP() << "this system does not bound a program's memory";
        EXPECT_EQ(
            log.lines(),
            (std::vector<LogLine>{{ZLOG_LEVEL_ERROR, "malloc error!!!    fsSize: 67108865"}}));
        EXPECT_FALSE((m_policy.*list.query)(list.hit)) << list.name;

        EXPECT_TRUE((m_policy.*list.set)("/one|two"));  // until the next one comes
        EXPECT_TRUE((m_policy.*list.query)(list.hit)) << list.name;
    }
}

TEST_F(MountFiltersTest, OffersWhatLiesBelowAMountParentButNotTheParent) {
    EXPECT_FALSE(m_policy.isLinuxDirEnable("/Volumes"));
    EXPECT_TRUE(m_policy.isLinuxDirEnable("/Volumes/"));  // the part before that slash is the entry
    EXPECT_TRUE(m_policy.isLinuxDirEnable("/Volumes/usb"));
    EXPECT_TRUE(m_policy.isLinuxDirEnable("/Volumes/usb/deep"));
    EXPECT_FALSE(m_policy.isLinuxDirEnable("/"));
    EXPECT_FALSE(m_policy.isLinuxDirEnable("//"));
    EXPECT_FALSE(m_policy.isLinuxDirEnable("Volumes"));
    EXPECT_FALSE(m_policy.isLinuxDirEnable("Volumes/usb"));
    EXPECT_FALSE(m_policy.isLinuxDirEnable("/Volumesx/usb"));
    EXPECT_FALSE(m_policy.isLinuxDirEnable("/volumes/usb"));
    EXPECT_FALSE(m_policy.isLinuxDirEnable("/swdb/usb"));
}

TEST_F(MountFiltersTest, NeverUsesTheSlashThatAPathBeginsWith) {
    m_policy.setLinuxMountPath("/media|");
    EXPECT_FALSE(m_policy.isLinuxDirEnable("/x"));
    m_policy.setLinuxMountPath("/");
    EXPECT_FALSE(m_policy.isLinuxDirEnable("/x"));
    EXPECT_FALSE(m_policy.isLinuxDirEnable("/x/y"));
    EXPECT_TRUE(m_policy.isLinuxDirEnable("//x"));  // "/" stands before the second slash
}

TEST_F(MountFiltersTest, OffersPathsOfUpTo255Bytes) {
    const std::string longest = "/media/" + std::string(255 - 7, 'x');
    EXPECT_TRUE(m_policy.isLinuxDirEnable(longest.c_str()));
    EXPECT_FALSE(m_policy.isLinuxDirEnable((longest + "x").c_str()));
    EXPECT_FALSE(m_policy.isLinuxDirEnable(("/media/" + std::string(5000, 'x')).c_str()));
}

TEST_F(MountFiltersTest, LooksOnlyAtTheFirstOccurrenceOfAParent) {
    m_policy.setLinuxMountPath("/media/usb|/media");
    EXPECT_FALSE(m_policy.isLinuxDirEnable("/media/disk"));
    EXPECT_TRUE(m_policy.isLinuxDirEnable("/media/usb/disk"));
    m_policy.setLinuxMountPath("/media|/media/usb");
    EXPECT_TRUE(m_policy.isLinuxDirEnable("/media/disk"));
}

TEST_F(MountFiltersTest, TakesAFartherAncestorWhenTheNearestIsNone) {
    m_policy.setLinuxMountPath("/media");
    EXPECT_TRUE(m_policy.isLinuxDirEnable("/media/user/disk"));
    EXPECT_FALSE(m_policy.isLinuxDirEnable("/mnt/media/disk"));
}

TEST_F(MountFiltersTest, MatchesFileSystemTypesAsWholeEntriesOnly) {
    EXPECT_TRUE(m_policy.isRemoveFileSystem("msdos"));
    EXPECT_FALSE(m_policy.isRemoveFileSystem("dos"));
    EXPECT_FALSE(m_policy.isRemoveFileSystem("msdo"));
    EXPECT_FALSE(m_policy.isRemoveFileSystem("MSDOS"));
    EXPECT_FALSE(m_policy.isRemoveFileSystem("vfat|"));
    EXPECT_FALSE(m_policy.isRemoveFileSystem("ext4"));
    EXPECT_FALSE(m_policy.isCdRomeFileSystem(""));
}

TEST_F(MountFiltersTest, TakesNeighboursTogetherForOneEntry) {
    EXPECT_TRUE(m_policy.isRemoveFileSystem("vfat|ntfs"));
    EXPECT_TRUE(m_policy.isRemoveFileSystem("vfat|ntfs|msdos|fuseblk"));
    EXPECT_FALSE(m_policy.isRemoveFileSystem("ntfs|vfat"));
}

TEST_F(MountFiltersTest, LooksOnlyAtTheFirstOccurrenceOfAType) {
    m_policy.setLinuxLocalfs("fuseblk|fuse");
    EXPECT_FALSE(m_policy.isLocalFileSystem("fuse"));
    m_policy.setLinuxLocalfs("fuse|fuseblk");
    EXPECT_TRUE(m_policy.isLocalFileSystem("fuse"));
    EXPECT_TRUE(m_policy.isLocalFileSystem("fuseblk"));
}

TEST_F(MountFiltersTest, MatchesOnlyAtTheDelimiterOfTheMoment) {
    EXPECT_TRUE(m_policy.setDelimiter(';'));
    EXPECT_FALSE(m_policy.isRemoveFileSystem("vfat"));
    EXPECT_FALSE(m_policy.isLinuxDirEnable("/media/disk"));
    EXPECT_TRUE(m_policy.isRemoveFileSystem("vfat|ntfs|msdos|fuseblk"));

    m_policy.setLinuxRemovefs("vfat;ntfs");
    m_policy.setLinuxMountPath("/media;/mnt");
    EXPECT_TRUE(m_policy.isRemoveFileSystem("vfat"));
    EXPECT_TRUE(m_policy.isRemoveFileSystem("ntfs"));
    EXPECT_TRUE(m_policy.isLinuxDirEnable("/mnt/disk"));

    m_policy.setDelimiter('|');
    EXPECT_FALSE(m_policy.isRemoveFileSystem("vfat"));
}

TEST_F(MountFiltersTest, KeepsWorkingWithAZeroDelimiter) {
    m_policy.setDelimiter('\0');
    EXPECT_FALSE(m_policy.isRemoveFileSystem("vfat"));
    EXPECT_FALSE(m_policy.isRemoveFileSystem("fuseblk"));
    m_policy.setLinuxRemovefs("vfat");
    EXPECT_TRUE(m_policy.isRemoveFileSystem("vfat"));
}
}  // namespace
