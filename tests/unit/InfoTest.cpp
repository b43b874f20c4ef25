#include "linux/comm/Opreator/Info.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "StatFs.h"
#include "linux/compat/FileStatus.h"
#include "support/DeniedCall.h"
#include "support/InChild.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace {

std::int64_t nanos(const RTTIMESPEC& time) {
    return time.i64NanosecondsRelativeToUnixEpoch;
}

class InfoTest : public ::testing::Test {
protected:
    static int queryPath(const std::string& path, RTFSOBJINFO* info) {
        return RTPathQueryInfoEx(path.c_str(), info, RTFSOBJATTRADD_NOTHING);
    }

    LogCapture m_log;
    TempDir m_dir;
    RTFSOBJINFO m_info{};
};

class PathQueryTest : public InfoTest {};
class FileQueryTest : public InfoTest {};
class VolumeQueryTest : public InfoTest {};

TEST_F(PathQueryTest, TellsWhatStatTells) {
    const std::string path = m_dir.file("data", std::string(1000, 'x'));
    struct stat local = {};
    ASSERT_EQ(stat(path.c_str(), &local), 0);

    EXPECT_EQ(queryPath(path, &m_info), 0);

    EXPECT_EQ(std::int64_t{m_info.cbObject}, 1000);
    EXPECT_EQ(std::int64_t{m_info.cbAllocated}, 1000);
    EXPECT_EQ(nanos(m_info.AccessTime),
              local.st_atim.tv_sec * 1'000'000'000 + local.st_atim.tv_nsec);
    EXPECT_EQ(nanos(m_info.ModificationTime),
              local.st_mtim.tv_sec * 1'000'000'000 + local.st_mtim.tv_nsec);
    EXPECT_EQ(nanos(m_info.ChangeTime),
              local.st_ctim.tv_sec * 1'000'000'000 + local.st_ctim.tv_nsec);
    EXPECT_EQ(std::uint32_t{m_info.Attr.fMode}, local.st_mode);
    EXPECT_EQ(static_cast<int>(m_info.Attr.enmAdditional), 1);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(PathQueryTest, LeavesTheAdditionalPartAlone) {
    std::memset(m_info.Attr.u, 'u', sizeof m_info.Attr.u);
    EXPECT_EQ(queryPath(m_dir.str(), &m_info), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(m_info.Attr.u), 36), std::string(36, 'u'));
}

TEST_F(PathQueryTest, TheAdditionalArgumentIsNotLookedAt) {
    EXPECT_EQ(RTPathQueryInfoEx(m_dir.str().c_str(), &m_info, static_cast<RTFSOBJATTRADD>(9)), 0);
}

TEST_F(PathQueryTest, NullIsAnInvalidParameter) {
    EXPECT_EQ(RTPathQueryInfoEx(nullptr, &m_info, RTFSOBJATTRADD_NOTHING), -2);
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{2, "pLinuxPath == NULL"}}));
}

TEST_F(PathQueryTest, APathOf1023BytesFitsAndOneMoreDoesNot) {
    std::string path = m_dir.str();
    path.resize(1023, '/');
    EXPECT_EQ(queryPath(path, &m_info), 0);
    EXPECT_TRUE(m_log.lines().empty());

    EXPECT_EQ(queryPath(path + '/', &m_info), -1);
    EXPECT_EQ(queryPath(std::string(100'000, '/'), &m_info), -1);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{1, "memcpy_s failed"}, {1, "memcpy_s failed"}}));
}

TEST_F(PathQueryTest, WhatIsMissingLogsTheFailedAccess) {
    const std::string path = m_dir.str("missing");

    EXPECT_EQ(queryPath(path, &m_info), -102);

    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{2, "access errno: " + std::to_string(ENOENT) + ",  rc: -102"},
                                    {2, "pLinuxPath: " + path}}));
}

TEST_F(PathQueryTest, AFileAsAParentIsAPathThatIsNotFound) {
    m_dir.file("data");
    EXPECT_EQ(queryPath(m_dir.str("data/below"), &m_info), -103);
}

TEST_F(PathQueryTest, ALinkReportsItsTargetAndADanglingOneIsMissing) {
    m_dir.file("data", "12345");
    ASSERT_EQ(symlink("data", m_dir.str("link").c_str()), 0);
    ASSERT_EQ(symlink("nothing", m_dir.str("dangling").c_str()), 0);

    EXPECT_EQ(queryPath(m_dir.str("link"), &m_info), 0);
    EXPECT_EQ(std::int64_t{m_info.cbObject}, 5);
    EXPECT_EQ(std::uint32_t{m_info.Attr.fMode} & 0xF000U, 0x8000U);
    EXPECT_EQ(queryPath(m_dir.str("dangling"), &m_info), -102);
}

TEST_F(PathQueryTest, AFailureBehindASuccessfulAccessHasItsOwnLines) {
    const std::string path = m_dir.file("data");
    inChild([&] {
        denyCalls({SYS_statx, SYS_newfstatat}, EIO);
        EXPECT_EQ(queryPath(path, &m_info), -250);
        EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{2, "fstat error. "},
                                                       {2, "pLinuxPath: " + path},
                                                       {2, "error: " + std::to_string(EIO)}}));
    });
}

TEST_F(FileQueryTest, TellsTheSameAsThePath) {
    const std::string path = m_dir.file("data", "12345");
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    RTFSOBJINFO byPath = {};
    ASSERT_EQ(queryPath(path, &byPath), 0);

    for (const auto additional : {RTFSOBJATTRADD_NOTHING, RTFSOBJATTRADD_UNIX}) {
        m_info = {};
        EXPECT_EQ(RTFileQueryInfo(static_cast<unsigned>(fd), &m_info, additional), 0);
        EXPECT_EQ(std::memcmp(&m_info, &byPath, sizeof byPath), 0);
    }
    EXPECT_TRUE(m_log.lines().empty());
    close(fd);
}

TEST_F(FileQueryTest, TheLow32BitsAreTheDescriptor) {
    const int fd = open(m_dir.file("data").c_str(), O_RDONLY | O_CLOEXEC);
    const auto hFile = (1ULL << 32) | static_cast<unsigned>(fd);
    EXPECT_EQ(RTFileQueryInfo(hFile, &m_info, RTFSOBJATTRADD_NOTHING), 0);
    close(fd);
}

TEST_F(FileQueryTest, ADescriptorOfAnyKindIsServed) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(RTFileQueryInfo(static_cast<unsigned>(ends[0]), &m_info, RTFSOBJATTRADD_NOTHING), 0);
    EXPECT_EQ(std::uint32_t{m_info.Attr.fMode} & 0xF000U, 0x1000U);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(FileQueryTest, BadArgumentsAreInvalidParameters) {
    EXPECT_EQ(RTFileQueryInfo(0, &m_info, RTFSOBJATTRADD_NOTHING), -2);
    EXPECT_EQ(RTFileQueryInfo(7, nullptr, RTFSOBJATTRADD_NOTHING), -2);
    EXPECT_EQ(RTFileQueryInfo(7, &m_info, static_cast<RTFSOBJATTRADD>(0)), -2);
    EXPECT_EQ(RTFileQueryInfo(7, &m_info, static_cast<RTFSOBJATTRADD>(3)), -2);
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{1, "hFile == NULL"},
                                                   {1, "pObjInfo == NULL.  hFile: 7"},
                                                   {1, "enmAdditionalAttribs: 0"},
                                                   {1, "enmAdditionalAttribs: 3"}}));
}

TEST_F(FileQueryTest, ADescriptorThatIsNotOpenIsAnInvalidHandle) {
    EXPECT_EQ(RTFileQueryInfo(~0ULL, &m_info, RTFSOBJATTRADD_NOTHING), -4);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {2, "fstat error. "}, {2, "hFile: -1"}, {2, "error: " + std::to_string(EBADF)}}));
}

// Others may write to the volume meanwhile: what is left of it counts once it has stayed the same.
TEST_F(VolumeQueryTest, TellsTheSizesForAnUnprivilegedUser) {
    struct statfs before = {};
    struct statfs after = {};
    long long total = 0;
    long long available = 0;
    unsigned unit = 0;
    unsigned sector = 0;

    int tries = 0;
    do {
        ASSERT_EQ(statfs(m_dir.str().c_str(), &before), 0);
        EXPECT_EQ(RTFsQuerySizes(m_dir.str().c_str(), &total, &available, &unit, &sector), 0);
        ASSERT_EQ(statfs(m_dir.str().c_str(), &after), 0);
    } while (before.f_bavail != after.f_bavail && ++tries < 1000);

    EXPECT_EQ(total, static_cast<long long>(after.f_blocks) * after.f_bsize);
    EXPECT_EQ(available, static_cast<long long>(after.f_bavail) * after.f_bsize);
    EXPECT_EQ(unit, static_cast<unsigned>(after.f_bsize));
    EXPECT_EQ(sector, unit);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(VolumeQueryTest, AnyOutputOfTheSizesMayBeNull) {
    EXPECT_EQ(RTFsQuerySizes(m_dir.str().c_str(), nullptr, nullptr, nullptr, nullptr), 0);
}

TEST_F(VolumeQueryTest, EveryVolumeHasTheSameSerial) {
    for (const std::string& path : {m_dir.str(), std::string("/"), std::string("/proc")}) {
        unsigned serial = 0;
        EXPECT_EQ(RTFsQuerySerial(path.c_str(), &serial), 0);
        EXPECT_EQ(serial, 0x0004787FU);
    }
}

TEST_F(VolumeQueryTest, EveryVolumeHasTheSameProperties) {
    RTFSPROPERTIES properties;
    std::memset(&properties, 0xFF, sizeof properties);

    EXPECT_EQ(RTFsQueryProperties("/proc", &properties), 0);

    EXPECT_EQ(std::string(reinterpret_cast<char*>(&properties), sizeof properties),
              std::string("\xFF\0\0\0\0\0\0\1\0\0", 10));
}

TEST_F(VolumeQueryTest, NullIsAnInvalidParameter) {
    unsigned serial = 0;
    RTFSPROPERTIES properties = {};
    EXPECT_EQ(RTFsQuerySizes(nullptr, nullptr, nullptr, nullptr, nullptr), -2);
    EXPECT_EQ(RTFsQuerySerial(nullptr, &serial), -2);
    EXPECT_EQ(RTFsQuerySerial("/", nullptr), -2);
    EXPECT_EQ(RTFsQueryProperties(nullptr, &properties), -2);
    EXPECT_EQ(RTFsQueryProperties("/", nullptr), -2);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(VolumeQueryTest, AMissingPathAnswersItsStatus) {
    const std::string path = m_dir.str("missing");
    unsigned serial = 1;
    long long total = 1;
    RTFSPROPERTIES properties = {};

    EXPECT_EQ(RTFsQuerySizes(path.c_str(), &total, nullptr, nullptr, nullptr), -102);
    EXPECT_EQ(RTFsQuerySerial(path.c_str(), &serial), -102);
    EXPECT_EQ(RTFsQueryProperties(path.c_str(), &properties), -102);

    EXPECT_EQ(total, 1);
    EXPECT_EQ(serial, 1U);
    const std::string noEntry = std::to_string(ENOENT);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{2, "RTFsQuerySizes() errno: " + noEntry},
                                    {2, "RTFsQuerySerial() errno: " + noEntry + ", rc: -102"},
                                    {2, "RTFsQuerySerial() errno: " + noEntry + ", rc: -102"}}));
}

class FileStatusTest : public InfoTest {};

TEST_F(FileStatusTest, TheBirthTimeStaysWhenTheModificationTimeMoves) {
    const std::string path = m_dir.file("data");
    struct statx found = {};
    ASSERT_EQ(statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &found), 0);
    const timespec times[2] = {{1000, 0}, {1000, 7}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);

    compat::FileStatus status = {};
    ASSERT_EQ(compat::statPath(path.c_str(), &status), 0);

    const bool hasBirthTime = (found.stx_mask & STATX_BTIME) != 0;
    EXPECT_EQ(status.modificationTime, 1'000'000'000'007);
    EXPECT_EQ(status.birthTime,
              hasBirthTime ? found.stx_btime.tv_sec * 1'000'000'000LL + found.stx_btime.tv_nsec
                           : status.modificationTime);
}

TEST_F(FileStatusTest, WithoutABirthTimeItIsTheModificationTime) {
    struct statx found = {};
    ASSERT_EQ(statx(AT_FDCWD, "/proc/self", 0, STATX_BTIME, &found), 0);
    if ((found.stx_mask & STATX_BTIME) != 0) GTEST_SKIP() << "this /proc keeps birth times";

    compat::FileStatus status = {};
    ASSERT_EQ(compat::statPath("/proc/self", &status), 0);

    EXPECT_EQ(status.birthTime, status.modificationTime);
}

// ENOSYS comes from old kernels, EPERM from sandboxes.
TEST_F(FileStatusTest, WithoutStatxAllButTheBirthTimeIsTheSame) {
    const std::string path = m_dir.file("data", "12345");
    const timespec times[2] = {{1000, 3}, {2000, 7}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    compat::FileStatus before = {};
    ASSERT_EQ(compat::statPath(path.c_str(), &before), 0);

    for (const int err : {ENOSYS, EPERM}) {
        inChild([&] {
            denyCalls({SYS_statx}, err);
            compat::FileStatus byPath = {};
            compat::FileStatus byHandle = {};
            EXPECT_EQ(compat::statPath(path.c_str(), &byPath), 0);
            EXPECT_EQ(compat::statHandle(fd, &byHandle), 0);
            EXPECT_EQ(byPath, byHandle);
            EXPECT_EQ(byPath.size, 5);
            EXPECT_EQ(byPath.mode, before.mode);
            EXPECT_EQ(byPath.accessTime, 1'000'000'000'003);
            EXPECT_EQ(byPath.modificationTime, 2'000'000'000'007);
            EXPECT_EQ(byPath.changeTime, before.changeTime);
            EXPECT_EQ(byPath.birthTime, byPath.modificationTime);
            EXPECT_EQ(compat::statPath("/no/such/path", &byPath), -1);
            EXPECT_EQ(errno, ENOENT);
        });
    }
    close(fd);
}

TEST_F(FileStatusTest, SecondsBeyondTheFieldWrap) {
    EXPECT_EQ(compat::nanoseconds(-1, 999'999'999), -1);
    EXPECT_EQ(compat::nanoseconds(9'223'372'036, 854'775'807), LLONG_MAX);
    EXPECT_EQ(compat::nanoseconds(9'223'372'036, 854'775'808), LLONG_MIN);
    EXPECT_EQ(compat::nanoseconds(LLONG_MAX, 0), -1'000'000'000);
}

}  // namespace
