// ZrsfSetFileInfo, ZrsfSetEndOfFile and their local steps.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstring>
#include <string>

#include "common/Comm/WireNumbers.h"
#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/FileOperate.h"
#include "support/HandlerFixture.h"
#include "support/InChild.h"

namespace {

constexpr std::size_t kInfoLengthAt = 20;
constexpr std::int64_t kMegabyte = 1'048'576;

std::int64_t nanos(const timespec& time) {
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

struct stat statOf(std::int64_t handle) {
    struct stat found = {};
    EXPECT_EQ(fstat(static_cast<int>(handle), &found), 0);
    return found;
}

class SetFixture : public HandlerFixture {
protected:
    // A file whose times and mode are known.
    std::int64_t oldFile() {
        const std::int64_t handle = openFile("data");
        const timespec times[2] = {{1000, 1}, {2000, 2}};
        EXPECT_EQ(futimens(static_cast<int>(handle), times), 0);
        EXPECT_EQ(fchmod(static_cast<int>(handle), 0644), 0);
        return handle;
    }
    static SHFLFSOBJINFO wanted(std::int64_t access, std::int64_t modification,
                                std::uint32_t mode = 0) {
        SHFLFSOBJINFO info = {};
        info.AccessTime = {access};
        info.ModificationTime = {modification};
        info.Attr.fMode = mode;
        return info;
    }
};

class SetFileInfoTest : public SetFixture {};

TEST_F(SetFileInfoTest, SetsTimesAndModeAndAnswersWithThem) {
    const std::int64_t handle = oldFile();
    const SHFLFSOBJINFO want = wanted(5'000'000'123'000, 6'000'000'456'000, 0100755);

    const SHFLFSOBJINFO info = infoOf(call(ZrsfSetFileInfo, setFileInfoRequest(handle, want)));

    EXPECT_EQ(std::int64_t{info.AccessTime.i64NanosecondsRelativeToUnixEpoch}, 5'000'000'123'000);
    EXPECT_EQ(std::int64_t{info.ModificationTime.i64NanosecondsRelativeToUnixEpoch},
              6'000'000'456'000);
    EXPECT_EQ(std::uint32_t{info.Attr.fMode}, 0x8000U | 0755);
    EXPECT_EQ(statOf(handle).st_mode & 07777U, 0755U);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{3, "setFileInfo end!!!   " + where("data", handle) +
                                            ", length: 92, rc: 0, cb->cbBuffer: 92"}}));
}

TEST_F(SetFileInfoTest, ZerosChangeNothingAndAnswerTheCurrentInformation) {
    const std::int64_t handle = oldFile();
    const struct stat before = statOf(handle);

    const SHFLFSOBJINFO info = infoOf(call(ZrsfSetFileInfo, setFileInfoRequest(handle, {})));

    const struct stat after = statOf(handle);
    EXPECT_EQ(nanos(after.st_ctim), nanos(before.st_ctim));
    EXPECT_EQ(std::int64_t{info.AccessTime.i64NanosecondsRelativeToUnixEpoch}, 1'000'000'000'001);
    EXPECT_EQ(std::int64_t{info.ModificationTime.i64NanosecondsRelativeToUnixEpoch},
              2'000'000'000'002);
    EXPECT_EQ(std::uint32_t{info.Attr.fMode}, 0x8000U | 0644);
}

TEST_F(SetFileInfoTest, ChangeAndBirthTimeAreDropped) {
    const std::int64_t handle = oldFile();
    SHFLFSOBJINFO want = {};
    want.ChangeTime = {7'000'000'000};
    want.BirthTime = {8'000'000'000};
    want.cbObject = 99;

    infoOf(call(ZrsfSetFileInfo, setFileInfoRequest(handle, want)));

    EXPECT_EQ(nanos(statOf(handle).st_mtim), 2'000'000'000'002);
    EXPECT_EQ(statOf(handle).st_size, 0);
}

TEST_F(SetFileInfoTest, OneTimeAloneIsUsedForBoth) {
    const std::int64_t handle = oldFile();

    infoOf(call(ZrsfSetFileInfo, setFileInfoRequest(handle, wanted(3'000'000'000, 0))));
    EXPECT_EQ(nanos(statOf(handle).st_atim), 3'000'000'000);
    EXPECT_EQ(nanos(statOf(handle).st_mtim), 3'000'000'000);
    EXPECT_TRUE(m_log.has(2, "pModeificationTime == NULL"));

    infoOf(call(ZrsfSetFileInfo, setFileInfoRequest(handle, wanted(0, 4'000'000'000))));
    EXPECT_EQ(nanos(statOf(handle).st_atim), 4'000'000'000);
    EXPECT_EQ(nanos(statOf(handle).st_mtim), 4'000'000'000);
    EXPECT_TRUE(m_log.has(2, "pAccessTime == NULL"));
}

TEST_F(SetFileInfoTest, DigitsBelowTheMicrosecondAreLost) {
    const std::int64_t handle = oldFile();
    infoOf(call(ZrsfSetFileInfo, setFileInfoRequest(handle, wanted(5'000'001'999, 6'123'456'789))));
    EXPECT_EQ(nanos(statOf(handle).st_atim), 5'000'001'000);
    EXPECT_EQ(nanos(statOf(handle).st_mtim), 6'123'456'000);
}

TEST_F(SetFileInfoTest, TheOwnerKeepsTheReadPermission) {
    const std::int64_t handle = oldFile();
    infoOf(call(ZrsfSetFileInfo, setFileInfoRequest(handle, wanted(0, 0, 0200))));
    EXPECT_EQ(statOf(handle).st_mode & 07777U, 0600U);
}

TEST_F(SetFileInfoTest, DosBitsAloneGiveTheirPermissions) {
    const std::int64_t handle = oldFile();
    infoOf(call(ZrsfSetFileInfo, setFileInfoRequest(handle, wanted(0, 0, 0x00010000))));
    EXPECT_EQ(statOf(handle).st_mode & 07777U, 0444U);

    infoOf(call(ZrsfSetFileInfo, setFileInfoRequest(handle, wanted(0, 0, 0x00200000))));
    EXPECT_EQ(statOf(handle).st_mode & 07777U, 0666U);
}

TEST_F(SetFileInfoTest, ADirectoryAnswersSuccessAndStays) {
    m_dir.folder("folder");
    const std::int64_t handle = openFolder("folder");
    const struct stat before = statOf(handle);

    infoOf(call(ZrsfSetFileInfo, setFileInfoRequest(handle, wanted(5'000, 6'000, 0700))));

    EXPECT_EQ(statOf(handle).st_mode, before.st_mode);
    EXPECT_EQ(nanos(statOf(handle).st_mtim), nanos(before.st_mtim));
    EXPECT_TRUE(m_log.has(2, "set file info. type == DIR_HANDLE"));
}

TEST_F(SetFileInfoTest, APrinterPortIsSetAsAFile) {
    const std::int64_t handle = oldFile();
    m_map.m_mapType = 0x1000;
    infoOf(call(ZrsfSetFileInfo, setFileInfoRequest(handle, wanted(0, 0, 0600))));
    infoOf(call(ZrsfSetEndOfFile, setEndOfFileRequest(handle, 5)));
    EXPECT_EQ(statOf(handle).st_mode & 07777U, 0600U);
    EXPECT_EQ(statOf(handle).st_size, 5);
}

TEST_F(SetFileInfoTest, ATimeThatTheSystemRefusesIsOnlyLogged) {
    const std::int64_t handle = oldFile();
    SHFLFSOBJINFO want = wanted(-1'500, 6'000'000'000, 0600);
    want.ChangeTime = {7};
    want.BirthTime = {8};

    infoOf(call(ZrsfSetFileInfo, setFileInfoRequest(handle, want)));

    EXPECT_EQ(nanos(statOf(handle).st_mtim), 2'000'000'000'002);
    EXPECT_EQ(statOf(handle).st_mode & 07777U, 0600U);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{2, "set File time error. errno: " + std::to_string(EINVAL)},
                                    {2, "RTFileSetTimes failed with -2\n"},
                                    {2, "AccessTime       -1500\n"},
                                    {2, "ModificationTime 6000000000\n"},
                                    {2, "ChangeTime       7\n"},
                                    {2, "BirthTime        8\n"},
                                    {3, "setFileInfo end!!!   " + where("data", handle) +
                                            ", length: 92, rc: 0, cb->cbBuffer: 92"}}));
}

TEST_F(SetFileInfoTest, AMapThatIsReadOnlyIsWriteProtected) {
    const std::int64_t handle = oldFile();
    m_map.m_bWritable = 0;

    expectFailure(call(ZrsfSetFileInfo, setFileInfoRequest(handle, wanted(0, 0, 0600))), -113);

    EXPECT_EQ(statOf(handle).st_mode & 07777U, 0644U);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {2, "setFileInfo write protect!!!  " + where("data", handle) + ", length: 92"}}));
}

TEST_F(SetFileInfoTest, ABadRequestIsAnInvalidParameterOnAReadOnlyMapToo) {
    m_map.m_bWritable = 0;
    expectFailure(call(ZrsfSetFileInfo, setFileInfoRequest(4711, {})), -2);
}

TEST_F(SetFileInfoTest, AnUnknownHandleIsAnInvalidParameter) {
    expectFailure(call(ZrsfSetFileInfo, setFileInfoRequest(4711, {})), -2);
    EXPECT_EQ(m_log.lines().size(), 1U);
    EXPECT_TRUE(m_log.contains(
        2, "setFileInfo invalid parameter!!!  hFile: 4711, length: 92, pzrsfHandle: "));
}

TEST_F(SetFileInfoTest, TheNilHandleIsAnInvalidParameterEvenIfItIsInTheTable) {
    m_map.m_handleManage->InsertHandleByName(-1, "nil", HANDLE_TYPE_DIR);

    expectFailure(call(ZrsfSetFileInfo, setFileInfoRequest(-1, {})), -2);

    EXPECT_TRUE(m_log.contains(2, "hFile: 18446744073709551615, length: 92"));
    m_map.m_handleManage->RemoveHandle(-1);
}

TEST_F(SetFileInfoTest, ARecordOfLessThan92BytesIsAnInvalidParameter) {
    const std::int64_t handle = oldFile();
    for (const std::uint32_t length : {0U, 1U, 91U}) {
        m_log.clear();
        Request request = setFileInfoRequest(handle, wanted(0, 0, 0600));
        storeLe(request.data() + kInfoLengthAt, length);
        expectFailure(call(ZrsfSetFileInfo, request), -2);
        char expected[160];
        std::snprintf(expected, sizeof expected,
                      "setFileInfo invalid parameter!!!  hFile: %lld, length: %u, pzrsfHandle: %p",
                      static_cast<long long>(handle), length,
                      static_cast<const void*>(record(handle)));
        EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{2, expected}}));
    }
    EXPECT_EQ(statOf(handle).st_mode & 07777U, 0644U);
}

TEST_F(SetFileInfoTest, ALongerRecordCountsItsFirst92Bytes) {
    for (const std::uint32_t length : {92U, 93U, 1049600U, ~0U}) {
        const std::int64_t handle = oldFile();
        Request request = setFileInfoRequest(handle, wanted(0, 0, 0600));
        storeLe(request.data() + kInfoLengthAt, length);
        infoOf(call(ZrsfSetFileInfo, request));
        EXPECT_EQ(statOf(handle).st_mode & 07777U, 0600U);
    }
}

TEST_F(SetFileInfoTest, AQueryThatFailsAfterwardsGivesTheStatus) {
    m_map.m_handleManage->InsertHandleByName(1'000'000, "/gone", HANDLE_TYPE_DIR);

    expectFailure(call(ZrsfSetFileInfo, setFileInfoRequest(1'000'000, {})), -4);

    EXPECT_TRUE(m_log.has(3,
                          "setFileInfo end!!!   path: /gone, hFile: 1000000, length: 92, rc: -4, "
                          "cb->cbBuffer: 0"));
    m_map.m_handleManage->RemoveHandle(1'000'000);
}

TEST_F(SetFileInfoTest, ARequestThatIsCutShortIsReadAsIfZerosFollowed) {
    const std::int64_t handle = oldFile();
    const Request whole = setFileInfoRequest(handle, wanted(3'000'000'000, 4'000'000'000, 0600));
    for (std::size_t size = 12; size < whole.size(); ++size) {
        const Request cut(whole.begin(), whole.begin() + static_cast<long>(size));
        const auto reply = call(ZrsfSetFileInfo, cut);
        // the whole handle and the 92 of the length are there from byte 21 on
        size < 21 ? expectFailure(reply, -2) : static_cast<void>(infoOf(reply));
    }
}

class LocalStepsTest : public SetFixture {};

TEST_F(LocalStepsTest, BadArgumentsOfRTSetFileInfoAreInvalidParameters) {
    SHFLFSOBJINFO info = {};
    EXPECT_EQ(RTSetFileInfo(3, 91, &info, HANDLE_TYPE_FILE), -2);
    EXPECT_EQ(RTSetFileInfo(3, 92, nullptr, HANDLE_TYPE_FILE), -2);
    EXPECT_EQ(RTSetFileInfo(3, 92, &info, static_cast<HANDLE_TYPE>(2)), -2);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(LocalStepsTest, FailuresOfTimesAndModeAreNotReported) {
    SHFLFSOBJINFO info = wanted(1, 1, 0200);
    EXPECT_EQ(RTSetFileInfo(1'000'000, 92, &info, HANDLE_TYPE_FILE), 0);
    const std::string badFile = std::to_string(EBADF);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{2, "set File time error. errno: " + badFile},
                                    {2, "RTFileSetTimes failed with -4\n"},
                                    {2, "AccessTime       1\n"},
                                    {2, "ModificationTime 1\n"},
                                    {2, "ChangeTime       0\n"},
                                    {2, "BirthTime        0\n"},
                                    {2, "file set mode error. [rc: -37] [errno : " + badFile + "]"},
                                    {2, "RTFileSetMode 180 failed with -37\n"}}));
}

TEST_F(LocalStepsTest, RTFileSetTimesChecksItsArguments) {
    const RTTIMESPEC time = {1'000'000'000};
    EXPECT_EQ(RTFileSetTimes(-1, &time, &time, nullptr, nullptr), -2);
    EXPECT_EQ(RTFileSetTimes(1'000'000, nullptr, nullptr, &time, &time), 0);
    EXPECT_TRUE(m_log.lines().empty());
    EXPECT_EQ(RTFileSetTimes(1'000'000, &time, &time, nullptr, nullptr), -4);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{2, "set File time error. errno: " + std::to_string(EBADF)}}));
}

TEST_F(LocalStepsTest, RTFileSetTimesTakesTimesBefore1970) {
    const std::int64_t handle = oldFile();
    const RTTIMESPEC time = {-5'000'000'000};
    EXPECT_EQ(RTFileSetTimes(handle, &time, &time, nullptr, nullptr), 0);
    EXPECT_EQ(nanos(statOf(handle).st_mtim), -5'000'000'000);
}

TEST_F(LocalStepsTest, RTFileSetTimesTakesTheExtremes) {
    const std::int64_t handle = oldFile();
    for (const std::int64_t extreme : {INT64_MIN, INT64_MAX}) {
        const RTTIMESPEC time = {extreme};
        RTFileSetTimes(handle, &time, &time, nullptr, nullptr);  // the system decides
    }
}

TEST_F(LocalStepsTest, RTFileSetSizeAnswersTheStatusOfTheSystem) {
    const std::int64_t handle = openFile("data");
    EXPECT_EQ(RTFileSetSize(handle, 70), 0);
    EXPECT_EQ(statOf(handle).st_size, 70);
    EXPECT_EQ(RTFileSetSize(handle, ~0ULL), -2);
    EXPECT_EQ(RTFileSetSize(-1, 7), -4);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {2, "file set size error.  size: 18446744073709551615, errno: " +
                          std::to_string(EINVAL)},
                  {2, "file set size error.  size: 7, errno: " + std::to_string(EBADF)}}));
}

class SetEndOfFileTest : public SetFixture {
protected:
    void allow(bool enable, int megabytes) { m_policy.setLinuxSetEndOfFile(enable, megabytes); }

    std::string end(std::int64_t handle, const std::string& size, int rc, int cbBuffer) const {
        return "setEndOfFile end!!!   " + where("data", handle) + ", length: 8, setSize: " + size +
               ", rc: " + std::to_string(rc) + ", res->cbBuffer: " + std::to_string(cbBuffer);
    }
};

Request withLength(Request request, std::uint32_t length) {
    storeLe(request.data() + kInfoLengthAt, length);
    return request;
}

TEST_F(SetEndOfFileTest, GrowsAndShrinksAFile) {
    const std::int64_t handle = openFile("data");
    for (const std::int64_t size : {300, 5, 0}) {
        const SHFLFSOBJINFO info =
            infoOf(call(ZrsfSetEndOfFile, setEndOfFileRequest(handle, size)));
        EXPECT_EQ(std::int64_t{info.cbObject}, size);
        EXPECT_EQ(statOf(handle).st_size, size);
    }
}

TEST_F(SetEndOfFileTest, LogsTheEndAndTheLengthThatItDoesNotUse) {
    const std::int64_t handle = openFile("data");

    infoOf(call(ZrsfSetEndOfFile, withLength(setEndOfFileRequest(handle, 300), 8)));

    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{3, end(handle, "0x12c", 0, 92)}}));
    for (const std::uint32_t length : {0U, 1U, ~0U}) {
        infoOf(call(ZrsfSetEndOfFile, withLength(setEndOfFileRequest(handle, 300), length)));
        EXPECT_TRUE(m_log.contains(3, "length: " + std::to_string(length) + ", setSize: 0x12c"));
    }
}

TEST_F(SetEndOfFileTest, TheBoundIsAllowedAndOneByteMoreIsNot) {
    const std::int64_t handle = openFile("data");
    allow(true, 2);

    infoOf(call(ZrsfSetEndOfFile, setEndOfFileRequest(handle, 2 * kMegabyte)));
    m_log.clear();
    expectFailure(
        call(ZrsfSetEndOfFile, withLength(setEndOfFileRequest(handle, 2 * kMegabyte + 1), 8)), -37);

    EXPECT_EQ(statOf(handle).st_size, 2 * kMegabyte);
    EXPECT_EQ(
        m_log.lines(),
        (std::vector<LogLine>{{2, "linux is not support set file size!!!  " +
                                      where("data", handle) + ", length: 8, setSize: 0x200001"}}));
}

TEST_F(SetEndOfFileTest, TheLargestBoundTakesMoreThan32Bits) {
    const std::int64_t handle = openFile("data");
    allow(true, 4096);
    infoOf(call(ZrsfSetEndOfFile, setEndOfFileRequest(handle, 4096 * kMegabyte)));
    expectFailure(call(ZrsfSetEndOfFile, setEndOfFileRequest(handle, 4096 * kMegabyte + 1)), -37);
    EXPECT_EQ(statOf(handle).st_size, 4096 * kMegabyte);
}

TEST_F(SetEndOfFileTest, WithoutABoundAnySizeIsTried) {
    const std::int64_t handle = openFile("data");
    allow(true, 0);
    infoOf(call(ZrsfSetEndOfFile, setEndOfFileRequest(handle, 3'000 * kMegabyte)));
    EXPECT_EQ(statOf(handle).st_size, 3'000 * kMegabyte);
}

TEST_F(SetEndOfFileTest, WithTheSwitchOffEvenZeroIsNotSupported) {
    const std::int64_t handle = openFile("data");
    for (const int bound : {0, 100}) {
        allow(false, bound);
        expectFailure(call(ZrsfSetEndOfFile, setEndOfFileRequest(handle, 0)), -37);
    }
}

TEST_F(SetEndOfFileTest, ANegativeSizePassesTheBoundAndIsRefusedByTheSystem) {
    const std::int64_t handle = openFile("data");

    expectFailure(call(ZrsfSetEndOfFile, withLength(setEndOfFileRequest(handle, -1), 8)), -2);

    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{
                                 {2, "file set size error.  size: 18446744073709551615, errno: " +
                                         std::to_string(EINVAL)},
                                 {3, end(handle, "0xffffffff", -2, 0)}}));
}

TEST_F(SetEndOfFileTest, OfALargeSizeTheLogShowsTheLow32Bits) {
    const std::int64_t handle = openFile("data");
    call(ZrsfSetEndOfFile, setEndOfFileRequest(handle, 0x7'0000'0001));
    EXPECT_TRUE(m_log.contains(2, "setSize: 0x1"));
}

TEST_F(SetEndOfFileTest, ADirectoryIsRefusedByTheSystem) {
    expectFailure(call(ZrsfSetEndOfFile, setEndOfFileRequest(openFolder(), 5)), -2);
    EXPECT_TRUE(m_log.has(2, "file set size error.  size: 5, errno: " + std::to_string(EINVAL)));
}

TEST_F(SetEndOfFileTest, AFileThatWouldGrowTooLargeIsRefused) {
    const std::int64_t handle = openFile("data");
    inChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {10, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &limit);
        expectFailure(call(ZrsfSetEndOfFile, setEndOfFileRequest(handle, 11)), -128);
        infoOf(call(ZrsfSetEndOfFile, setEndOfFileRequest(handle, 10)));
    });
}

TEST_F(SetEndOfFileTest, AnUnknownHandleIsAnInvalidParameter) {
    expectFailure(call(ZrsfSetEndOfFile, withLength(setEndOfFileRequest(4711, 5), 8)), -2);
    EXPECT_EQ(m_log.lines().size(), 1U);
    EXPECT_TRUE(m_log.contains(
        2, "setEndOfFile invalid parameter!!!   hFile: 4711, length: 8, pzrsfHandle: "));
}

TEST_F(SetEndOfFileTest, AMapThatIsReadOnlyIsWriteProtected) {
    m_dir.file("data", "12345");
    const std::int64_t handle = openFile("data");
    m_map.m_bWritable = 0;

    expectFailure(call(ZrsfSetEndOfFile, withLength(setEndOfFileRequest(handle, 0), 8)), -113);

    EXPECT_EQ(statOf(handle).st_size, 5);
    EXPECT_EQ(
        m_log.lines(),
        (std::vector<LogLine>{{2, "write protect!!!  " + where("data", handle) + ", length: 8"}}));
}

TEST_F(SetEndOfFileTest, TheNilHandleIsLeftToTheSystemIfItIsInTheTable) {
    m_map.m_handleManage->InsertHandleByName(-1, "nil", HANDLE_TYPE_FILE);

    expectFailure(call(ZrsfSetEndOfFile, setEndOfFileRequest(-1, 5)), -4);

    EXPECT_TRUE(m_log.has(2, "file set size error.  size: 5, errno: " + std::to_string(EBADF)));
    m_map.m_handleManage->RemoveHandle(-1);
}

TEST_F(SetEndOfFileTest, TheHandleComesBeforeWriteProtectionAndThatBeforeThePolicy) {
    const std::int64_t handle = openFile("data");
    m_map.m_bWritable = 0;
    allow(false, 0);
    expectFailure(call(ZrsfSetEndOfFile, setEndOfFileRequest(4711, 5)), -2);
    expectFailure(call(ZrsfSetEndOfFile, setEndOfFileRequest(handle, 5)), -113);
}

// Descriptor 0 cannot be queried, but its size can be set.
TEST_F(SetEndOfFileTest, AQueryThatFailsAfterwardsGivesTheStatusOfTheQuery) {
    m_dir.file("data", "12345");
    inChild([&] {
        const int fd = open(m_dir.str("data").c_str(), O_RDWR | O_CLOEXEC);
        dup2(fd, 0);
        m_map.m_handleManage->InsertHandleByName(0, m_dir.str("data").c_str(), HANDLE_TYPE_FILE);
        const auto reply = call(ZrsfSetEndOfFile, withLength(setEndOfFileRequest(0, 3), 8));
        expectFailure(reply, -2);
        EXPECT_EQ(m_log.lines(),
                  (std::vector<LogLine>{{1, "hFile == NULL"},
                                        {2, "set size right. but can't get file info. "},
                                        {3, end(0, "0x3", -2, 0)}}));
    });
    EXPECT_EQ(readFile(m_dir.str("data")), "123");
}

TEST_F(SetEndOfFileTest, ARequestThatIsCutShortIsReadAsIfZerosFollowed) {
    const std::int64_t handle = openFile("data");
    const Request whole = setEndOfFileRequest(handle, 0x0001'0203);
    for (std::size_t size = 12; size < whole.size(); ++size) {
        const Request cut(whole.begin(), whole.begin() + static_cast<long>(size));
        Request padded = cut;
        padded.resize(whole.size());
        EXPECT_EQ(statusOf(call(ZrsfSetEndOfFile, cut)), statusOf(call(ZrsfSetEndOfFile, padded)))
            << size;
    }
}

}  // namespace
