// The local side of the Linux dialect's operations, on finished paths.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "linux/LinuxServer/comm/opreator/fd_local.h"
#include "support/AsOrdinaryUser.h"
#include "support/LinuxFrames.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace {

using linuxframes::Bytes;
using linuxframes::DirEntry;

class LocalOperationsTest : public testing::Test {
protected:
    LocalOperationsTest() { m_path = m_dir.file("file", "content"); }

    unsigned modeOf(const std::string& name) const {
        struct stat info {};
        EXPECT_EQ(lstat(m_dir.str(name).c_str(), &info), 0);
        return info.st_mode;
    }

    std::vector<DirEntry> list(const std::string& path, std::size_t size = 65536) {
        Bytes block(size + 24);
        const int used = fd_readdir_f(nullptr, path.c_str(), block.data(),
                                      static_cast<std::int64_t>(size), 0, &m_info);
        EXPECT_GE(used, 8);
        block.resize(static_cast<std::size_t>(std::max(used, 0)));
        return linuxframes::entriesOf(block);
    }

    DirEntry entry(const std::vector<DirEntry>& entries, const std::string& name) {
        const auto found = std::ranges::find(entries, name, &DirEntry::name);
        if (found != entries.end()) return *found;
        ADD_FAILURE() << name << " is not listed";
        return {name, std::vector<std::int64_t>(13), 0, 0, 0, 0};
    }

    const char* path() const { return m_path.c_str(); }

    LogCapture m_log;
    TempDir m_dir;
    std::string m_path;
    fd_file_info m_info{};
};

TEST_F(LocalOperationsTest, MostLogTheirResult) {
    fd_access_f(nullptr, path(), 0);
    EXPECT_TRUE(m_log.has(4, "res: 0"));

    fd_unlink_f(nullptr, m_dir.str("nothing").c_str());
    EXPECT_TRUE(m_log.has(4, "res: -" + std::to_string(ENOENT)));
}

TEST_F(LocalOperationsTest, AccessTakesTheLow32BitsOfTheMask) {
    EXPECT_EQ(fd_access_f(nullptr, path(), std::int64_t{1} << 32), 0);
    EXPECT_EQ(fd_access_f(nullptr, path(), 8), -EINVAL);
    EXPECT_EQ(fd_access_f(nullptr, m_dir.str("nothing").c_str(), 0), -ENOENT);
}

TEST_F(LocalOperationsTest, ModesTakeTheirLow16Bits) {
    EXPECT_EQ(fd_chmod_f(nullptr, path(), (std::int64_t{1} << 40) | 0170604), 0);
    EXPECT_EQ(modeOf("file") & 07777, 0604U);
    EXPECT_EQ(fd_mkdir_f(nullptr, m_dir.str("made").c_str(), (std::int64_t{1} << 40) | 0700), 0);
    EXPECT_EQ(modeOf("made"), 040700U);
}

TEST_F(LocalOperationsTest, MknodMakesWhatTheModeSays) {
    EXPECT_EQ(fd_mknod_f(nullptr, m_dir.str("plain").c_str(), 0100600, 0), 0);
    EXPECT_EQ(modeOf("plain"), 0100600U);
    EXPECT_EQ(fd_mknod_f(nullptr, m_dir.str("fifo").c_str(), 010600, 0), 0);
    EXPECT_EQ(modeOf("fifo"), 010600U);
    EXPECT_EQ(fd_mknod_f(nullptr, m_dir.str("socket").c_str(), 0140600, 0), 0);
    EXPECT_EQ(modeOf("socket"), 0140600U);
}

TEST_F(LocalOperationsTest, MknodFailsOnWhatIsThere) {
    for (const std::int64_t mode : {0100600, 010600, 0140600}) {
        EXPECT_EQ(fd_mknod_f(nullptr, path(), mode, 0), -EEXIST);
    }
    EXPECT_EQ(readFile(m_path), "content");
    EXPECT_EQ(fd_mknod_f(nullptr, m_dir.str("no/x").c_str(), 0100600, 0), -ENOENT);
}

TEST_F(LocalOperationsTest, MknodOfADeviceTakesTheLow32BitsOfTheNumber) {
    const std::string device = m_dir.str("device");
    const int res = fd_mknod_f(nullptr, device.c_str(), 020600, (std::int64_t{1} << 32) | 0x103);
    if (res == -EPERM) GTEST_SKIP() << "this user may not make devices";

    ASSERT_EQ(res, 0);
    struct stat info {};
    ASSERT_EQ(lstat(device.c_str(), &info), 0);
    EXPECT_EQ(info.st_rdev, dev_t{0x103});
    fd_stat wire{};
    fd_getattr_f(nullptr, device.c_str(), &wire);
    EXPECT_EQ(std::int64_t{wire.st_rdev}, 0x103);
}

TEST_F(LocalOperationsTest, OpenTestsForReadingWhateverTheFlags) {
    m_info.flags = 1;
    EXPECT_EQ(fd_open_f(nullptr, path(), &m_info), 0);
    EXPECT_EQ(fd_open_f(nullptr, m_dir.str("nothing").c_str(), &m_info), -ENOENT);
    EXPECT_EQ(fd_open_f(nullptr, m_dir.str().c_str(), &m_info), 0);
}

TEST_F(LocalOperationsTest, OpenForWritingOfAFileThatIsNotReadableFails) {
    chmod(m_dir.str().c_str(), 0755);
    chmod(path(), 0222);
    const AsOrdinaryUser user;
    m_info.flags = 1;

    EXPECT_EQ(fd_open_f(nullptr, path(), &m_info), -EACCES);
    EXPECT_EQ(fd_write_f(nullptr, path(), "x", 1, 0, &m_info), 1);
}

TEST_F(LocalOperationsTest, ReadingNeedsNoRightToWrite) {
    chmod(m_dir.str().c_str(), 0755);
    chmod(path(), 0444);
    const AsOrdinaryUser user;
    char byte = 0;

    EXPECT_EQ(fd_open_f(nullptr, path(), &m_info), 0);
    EXPECT_EQ(fd_read_f(nullptr, path(), &byte, 1, 0, &m_info), 1);
    EXPECT_EQ(fd_write_f(nullptr, path(), "x", 1, 0, &m_info), -EACCES);
}

TEST_F(LocalOperationsTest, ReadAndWriteOpenTheFileEachTime) {
    char buffer[16] = {};
    EXPECT_EQ(fd_write_f(nullptr, path(), "ABC", 3, 1, &m_info), 3);
    EXPECT_EQ(fd_read_f(nullptr, path(), buffer, 16, 0, &m_info), 7);
    EXPECT_STREQ(buffer, "cABCent");
    EXPECT_EQ(fd_read_f(nullptr, path(), buffer, 2, 6, &m_info), 1);
    EXPECT_EQ(fd_read_f(nullptr, path(), nullptr, 0, 0, &m_info), 0);
}

TEST_F(LocalOperationsTest, AFailedReadOrWriteGivesTheNumber) {
    char byte = 0;
    EXPECT_EQ(fd_read_f(nullptr, path(), &byte, 1, -1, &m_info), -EINVAL);
    EXPECT_EQ(fd_write_f(nullptr, path(), &byte, 1, -1, &m_info), -EINVAL);
    EXPECT_EQ(fd_write_f(nullptr, m_dir.str().c_str(), &byte, 1, 0, &m_info), -EISDIR);
    EXPECT_EQ(fd_read_f(nullptr, m_dir.str().c_str(), &byte, 1, 0, &m_info), -EISDIR);
}

TEST_F(LocalOperationsTest, WhatIsNotSupportedSaysSo) {
    const fd_timespec times[2] = {{1, 2}, {3, 4}};

    EXPECT_EQ(fd_chown_f(nullptr, path(), 0, 0), -38);
    EXPECT_TRUE(m_log.has(2, "linux client not support chown."));
    EXPECT_EQ(fd_fallocate_f(nullptr, path(), 0, 0, 1, &m_info), -38);
    EXPECT_TRUE(m_log.has(3, "linux client not support fallocate"));
    EXPECT_EQ(fd_utimens_f(nullptr, path(), times), -38);
    EXPECT_EQ(fd_setxattr_f(nullptr, path(), "user.a", "x", 1, 0), -38);
    EXPECT_EQ(fd_getxattr_f(nullptr, path(), "user.a", nullptr, 0), -38);
    EXPECT_EQ(fd_listxattr_f(nullptr, path(), nullptr, 0), -38);
    EXPECT_EQ(fd_removexattr_f(nullptr, path(), "user.a"), -38);
}

TEST_F(LocalOperationsTest, WhatNeedsNoActionSucceeds) {
    const char* nothing = "/no/such/path";

    EXPECT_EQ(fd_flush_f(nullptr, nothing, &m_info), 0);
    EXPECT_TRUE(m_log.has(3, "linux client not support flush, default success"));
    EXPECT_EQ(fd_fsync_f(nullptr, nothing, 1, &m_info), 0);
    EXPECT_TRUE(m_log.has(3, "linux client not support fsync, default success"));
    EXPECT_EQ(fd_init_f(nullptr, nothing, nullptr), 0);
    EXPECT_EQ(fd_destroy_f(nullptr, nothing), 0);
    EXPECT_EQ(fd_release_f(nullptr, nothing, &m_info), 0);
    EXPECT_EQ(fd_releasedir_f(nullptr, nothing, &m_info), 0);
}

TEST_F(LocalOperationsTest, OpendirGivesAHandleThatIsNotZero) {
    EXPECT_EQ(fd_opendir_f(nullptr, m_dir.str().c_str(), &m_info), 0);
    EXPECT_NE(std::uint64_t{m_info.handle}, 0U);

    EXPECT_EQ(fd_opendir_f(nullptr, path(), &m_info), -ENOTDIR);
}

TEST_F(LocalOperationsTest, NothingStaysOpen) {
    const auto openCount = [] {
        const std::filesystem::directory_iterator all("/dev/fd");
        return std::distance(begin(all), end(all));
    };
    const std::string folder = m_dir.str();
    char block[1024];
    const auto before = openCount();

    for (const char* target :
         {path(), folder.c_str()}) {  // each works on one and fails on the other
        fd_open_f(nullptr, target, &m_info);
        EXPECT_EQ(openCount(), before) << "open";
        fd_opendir_f(nullptr, target, &m_info);
        EXPECT_EQ(openCount(), before) << "opendir";
        fd_read_f(nullptr, target, block, 4, 0, &m_info);
        EXPECT_EQ(openCount(), before) << "read";
        fd_write_f(nullptr, target, block, 4, 0, &m_info);
        EXPECT_EQ(openCount(), before) << "write";
        fd_readdir_f(nullptr, target, block, 1000, 0, &m_info);
        EXPECT_EQ(openCount(), before) << "readdir";
    }
    EXPECT_EQ(fd_mknod_f(nullptr, m_dir.str("made").c_str(), 0100600, 0), 0);
    EXPECT_EQ(openCount(), before) << "mknod";
}

TEST_F(LocalOperationsTest, ReadlinkGivesTheLengthWithTheTerminator) {
    const std::string link = m_dir.str("link");
    std::filesystem::create_symlink("target", link);
    char buffer[16] = {};

    EXPECT_EQ(fd_readlink_f(nullptr, link.c_str(), buffer, 16), 7);
    EXPECT_STREQ(buffer, "target");
    EXPECT_TRUE(m_log.has(4, "res: 6"));
    EXPECT_EQ(fd_readlink_f(nullptr, link.c_str(), buffer, 4), 4);
    EXPECT_STREQ(buffer, "tar");
    EXPECT_EQ(fd_readlink_f(nullptr, path(), buffer, 16), -EINVAL + 1);
    EXPECT_TRUE(m_log.has(4, "res: -" + std::to_string(EINVAL)));
    EXPECT_EQ(fd_readlink_f(nullptr, link.c_str(), buffer, 1), -EINVAL + 1);
}

TEST_F(LocalOperationsTest, ReaddirSaysWhatItIsAskedAndWhereItStopped) {
    list(m_dir.str(), 100);

    EXPECT_TRUE(m_log.has(4, "path: " + m_dir.str() + ", bufsize: 100, read_offset: 0"));
    EXPECT_TRUE(m_log.has(3, "offset: 8, bufsize: 100"));
}

TEST_F(LocalOperationsTest, ReaddirGivesTheNumberOfAFailure) {
    char block[64];

    EXPECT_EQ(fd_readdir_f(nullptr, path(), block, 40, 0, &m_info), -ENOTDIR);
    EXPECT_EQ(fd_readdir_f(nullptr, "/no/such", block, 40, 0, &m_info), -ENOENT);
}

TEST_F(LocalOperationsTest, ADanglingLinkIsListedWithItsOwnAttributes) {
    std::filesystem::create_symlink("nowhere", m_dir.str("dangling"));

    const DirEntry dangling = entry(list(m_dir.str()), "dangling");

    EXPECT_EQ(dangling.stat[2] & 0xf000, 0xa000);
    EXPECT_EQ(dangling.stat[7], 7);
    EXPECT_EQ(dangling.read, -1);
    EXPECT_EQ(dangling.write, -1);
    EXPECT_EQ(dangling.exec, -1);
}

TEST_F(LocalOperationsTest, AnEntryWhoseAttributesAreHiddenIsListedWithNumberAndType) {
    m_dir.folder("closed/inner");
    m_dir.file("closed/secret", "x");
    struct stat info {};
    stat(m_dir.str("closed/secret").c_str(), &info);
    chmod(m_dir.str().c_str(), 0755);
    chmod(m_dir.str("closed").c_str(), 0444);  // names, and nothing behind them
    std::vector<DirEntry> entries;
    {
        const AsOrdinaryUser user;
        entries = list(m_dir.str("closed"));
    }
    chmod(m_dir.str("closed").c_str(), 0755);

    const DirEntry secret = entry(entries, "secret");
    EXPECT_EQ(secret.stat[1], static_cast<std::int64_t>(info.st_ino));
    EXPECT_EQ(secret.stat[2], 0100000);
    EXPECT_EQ(entry(entries, "inner").stat[2], 040000);
    for (const std::size_t field : {0U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 12U}) {
        EXPECT_EQ(secret.stat[field], 0) << field;
    }
}

TEST_F(LocalOperationsTest, AnEntrysPathMayHave1023BytesAndOneMoreEndsTheListing) {
    for (const std::size_t size : {1023U, 1024U}) {
        std::string deep = m_dir.str(std::to_string(size));
        while (deep.size() < 900) deep += "/" + std::string(100, 'd');
        deep += "/" + std::string(size - deep.size() - std::strlen("//name"), 'e');
        std::filesystem::create_directories(deep + "/name");
        Bytes block(4096);
        m_log.clear();

        const int used = fd_readdir_f(nullptr, deep.c_str(), block.data(), 4000, 0, &m_info);

        EXPECT_EQ(m_log.has(1, "sprintf_s failed"), size == 1024) << used;
        EXPECT_EQ(used > 8, size == 1023) << used;
    }
}

TEST_F(LocalOperationsTest, NamesAreBytesAndMayBe255Long) {
    const std::string longest(255, 'n');
    m_dir.file(longest);
    m_dir.file("\xff\xfe odd\n");

    const std::vector<DirEntry> entries = list(m_dir.str());

    entry(entries, longest);
    entry(entries, "\xff\xfe odd\n");
}

TEST_F(LocalOperationsTest, ConvertsAttributesThereAndBack) {
    struct stat from {};
    from.st_dev = 0x1234;
    from.st_ino = 77;
    from.st_mode = 0100644;
    from.st_nlink = 3;
    from.st_uid = 0xfffffffe;
    from.st_gid = 12;
    from.st_rdev = 5;
    from.st_size = std::int64_t{1} << 40;
    from.st_blksize = 4096;
    from.st_blocks = 8;
    from.st_atime = 100;
    from.st_mtime = -200;
    from.st_ctime = 300;
    char bytes[sizeof(fd_stat) + 1];
    auto* wire = reinterpret_cast<fd_stat*>(bytes + 1);  // it need not be aligned

    EXPECT_EQ(stat_fuse2fd(&from, wire), 0);

    const Bytes record(bytes + 1, bytes + sizeof bytes);
    const std::vector<std::int64_t> expected = {
        0x1234, 77, 0100644, 3, 0xfffffffe, 12, 5, std::int64_t{1} << 40, 4096, 8, 100, -200, 300};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(linuxframes::wordAt(record, 8 * i), expected[i]) << i;
    }
    struct stat back {};
    EXPECT_EQ(stat_fd2fuse(wire, &back), 0);
    fd_stat again{};
    stat_fuse2fd(&back, &again);
    EXPECT_EQ(std::memcmp(wire, &again, sizeof again), 0);
}

TEST_F(LocalOperationsTest, ModeAndLinkCountKeep16Bits) {
    struct stat from {};
    from.st_mode = 0x1234567;
    from.st_nlink = 0x10002;
    fd_stat wire{};

    stat_fuse2fd(&from, &wire);

    EXPECT_EQ(std::uint64_t{wire.st_mode}, 0x4567U);
    EXPECT_EQ(std::uint64_t{wire.st_nlink}, 2U);
}

TEST_F(LocalOperationsTest, ConvertsFiguresThereAndBack) {
    struct statvfs from {};
    from.f_bsize = 1;
    from.f_frsize = 2;
    from.f_blocks = 3;
    from.f_bfree = 4;
    from.f_bavail = 5;
    from.f_files = 6;
    from.f_ffree = 7;
    from.f_favail = 8;
    from.f_fsid = 9;
    from.f_flag = 10;
    from.f_namemax = 11;
    fd_statvfs wire{};

    EXPECT_EQ(statvfs_fuse2fd(&from, &wire), 0);

    std::uint64_t fields[11];
    std::memcpy(fields, &wire, sizeof fields);
    const std::uint64_t expected[11] = {2, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    EXPECT_TRUE(std::ranges::equal(fields, expected));
    wire.f_bsize = 1;
    struct statvfs back {};
    EXPECT_EQ(statvfs_fd2fuse(&wire, &back), 0);
    EXPECT_EQ(back.f_bsize, 1U);
    statvfs_fuse2fd(&back, &wire);
    std::memcpy(fields, &wire, sizeof fields);
    EXPECT_TRUE(std::ranges::equal(fields, expected));
}

TEST_F(LocalOperationsTest, ConvertsTimesThereAndBack) {
    const fd_timespec wire[2] = {{1, 2}, {-3, 4}};
    struct timespec local[2] = {};
    fd_timespec back[2] = {};

    EXPECT_EQ(utimens_fd2fuse(wire, local), 0);
    EXPECT_EQ(local[0].tv_sec, 1);
    EXPECT_EQ(local[0].tv_nsec, 2);
    EXPECT_EQ(local[1].tv_sec, -3);
    EXPECT_EQ(utimens_fuse2fd(local, back), 0);
    EXPECT_EQ(std::memcmp(wire, back, sizeof wire), 0);
}

}  // namespace
