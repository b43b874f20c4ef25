// ZrsfQueryFileInfo and ZrsfQueryVolumeInfo.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "StatFs.h"
#include "common/Comm/WireNumbers.h"
#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/ObjectInfo.h"
#include "support/HandlerFixture.h"

namespace {

class FSqueryInfoTest : public HandlerFixture {};

TEST_F(FSqueryInfoTest, TellsSizeTimesAndModeOfAFile) {
    m_dir.file("data", std::string(1000, 'x'));
    const std::int64_t handle = openFile("data");
    const timespec times[2] = {{1'000'000'001, 123'456'789}, {-5, 999'999'999}};
    ASSERT_EQ(futimens(static_cast<int>(handle), times), 0);
    ASSERT_EQ(fchmod(static_cast<int>(handle), 0640), 0);
    struct stat local = {};
    ASSERT_EQ(fstat(static_cast<int>(handle), &local), 0);

    const SHFLFSOBJINFO info = infoOf(call(ZrsfQueryFileInfo, queryFileRequest(handle)));

    EXPECT_EQ(std::int64_t{info.cbObject}, 1000);
    EXPECT_EQ(std::int64_t{info.cbAllocated}, 1000);
    EXPECT_EQ(std::int64_t{info.AccessTime.i64NanosecondsRelativeToUnixEpoch},
              1'000'000'001'123'456'789);
    EXPECT_EQ(std::int64_t{info.ModificationTime.i64NanosecondsRelativeToUnixEpoch},
              -4'000'000'001);
    EXPECT_EQ(std::int64_t{info.ChangeTime.i64NanosecondsRelativeToUnixEpoch},
              local.st_ctim.tv_sec * 1'000'000'000 + local.st_ctim.tv_nsec);
    EXPECT_EQ(std::uint32_t{info.Attr.fMode}, 0x8000U | 0640);
    EXPECT_EQ(static_cast<int>(info.Attr.enmAdditional), 1);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(info.Attr.u), 36), std::string(36, '\0'));
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(FSqueryInfoTest, ServesADirectoryAlike) {
    const SHFLFSOBJINFO info = infoOf(call(ZrsfQueryFileInfo, queryFileRequest(openFolder())));
    EXPECT_EQ(std::uint32_t{info.Attr.fMode} & 0x0010F000U, 0x00104000U);
}

TEST_F(FSqueryInfoTest, AFileThatNobodyMayWriteIsReadOnly) {
    const std::int64_t handle = openFile("data");
    ASSERT_EQ(fchmod(static_cast<int>(handle), 0444), 0);

    const SHFLFSOBJINFO info = infoOf(call(ZrsfQueryFileInfo, queryFileRequest(handle)));

    EXPECT_EQ(std::uint32_t{info.Attr.fMode}, 0x00018124U);
}

TEST_F(FSqueryInfoTest, AnUnknownHandleIsAnInvalidParameter) {
    expectFailure(call(ZrsfQueryFileInfo, queryFileRequest(4711)), -2);
    EXPECT_EQ(m_log.lines().size(), 1U);
    EXPECT_TRUE(m_log.contains(2, "QueryFileInfo. hFile: 4711, pzrsfHandle: "));
}

TEST_F(FSqueryInfoTest, HandleZeroCannotBeQueried) {
    m_map.m_handleManage->InsertHandleByName(0, "/zero", HANDLE_TYPE_FILE);

    expectFailure(call(ZrsfQueryFileInfo, queryFileRequest(0)), -2);

    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{
                                 {1, "hFile == NULL"},
                                 {2, "QueryFileInfo failure!!!   path: /zero, hFile: 0, rc: -2"}}));
    m_map.m_handleManage->RemoveHandle(0);  // not this test's to close
}

TEST_F(FSqueryInfoTest, ADescriptorThatWasClosedAnswersItsStatus) {
    m_map.m_handleManage->InsertHandleByName(1'000'000, "/gone", HANDLE_TYPE_FILE);

    expectFailure(call(ZrsfQueryFileInfo, queryFileRequest(1'000'000)), -4);

    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {2, "fstat error. "},
                  {2, "hFile: 1000000"},
                  {2, "error: " + std::to_string(EBADF)},
                  {2, "QueryFileInfo failure!!!   path: /gone, hFile: 1000000, rc: -4"}}));
    m_map.m_handleManage->RemoveHandle(1'000'000);
}

TEST_F(FSqueryInfoTest, APrinterPortIsAllZeroAndTheAdditionalPartStays) {
    m_dir.file("data", "content");
    const std::int64_t handle = openFile("data");
    m_map.m_mapType = 0x1000;
    Request request = queryFileRequest(handle);
    request.resize(150, 'r');

    const auto reply = call(ZrsfQueryFileInfo, request);

    ASSERT_EQ(reply.size(), 12U + 92 + 11);
    EXPECT_EQ(statusOf(reply), 0);
    EXPECT_EQ(cbBufferOf(reply), 92U);
    EXPECT_EQ(std::string(reply.data() + 20, 52), std::string(52, '\0'));
    EXPECT_EQ(loadLe<std::uint32_t>(reply.data() + 72), 1U);
    EXPECT_EQ(std::string(reply.data() + 76, 39), std::string(39, 'r'));
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(FSqueryInfoTest, EveryVolumeLooksLocalCaselessAndWritable) {
    m_map.m_bWritable = 0;
    const std::int64_t handle = openFile("data");

    const auto reply = call(ZrsfQueryVolumeInfo, queryVolumeRequest(handle));

    struct statfs local = {};
    ASSERT_EQ(statfs(m_dir.str().c_str(), &local), 0);
    ASSERT_EQ(reply.size(), 12U + 38 + 11);
    EXPECT_EQ(statusOf(reply), 0);
    EXPECT_EQ(cbBufferOf(reply), 38U);
    const char* volume = reply.data() + kDataAt;
    const auto unit = static_cast<std::uint64_t>(local.f_bsize);
    EXPECT_EQ(loadLe<std::uint64_t>(volume), unit * local.f_blocks);
    EXPECT_GT(loadLe<std::uint64_t>(volume + 8), 0U);
    EXPECT_LE(loadLe<std::uint64_t>(volume + 8), unit * local.f_blocks);
    EXPECT_EQ(loadLe<std::uint32_t>(volume + 16), unit);
    EXPECT_EQ(loadLe<std::uint32_t>(volume + 20), unit);
    EXPECT_EQ(loadLe<std::uint32_t>(volume + 24), 0x0004787FU);
    EXPECT_EQ(loadLe<std::uint32_t>(volume + 28), 255U);
    EXPECT_EQ(std::string(volume + 32, 6), std::string("\0\0\0\1\0\0", 6));
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(FSqueryInfoTest, AVolumeQueryWithTheHandleOfAClosedFileIsAnInvalidParameter) {
    const std::int64_t handle = openFile("data");
    call(ZrsfClose, closeRequest(handle));
    m_log.clear();

    expectFailure(call(ZrsfQueryVolumeInfo, queryVolumeRequest(handle)), -2);

    EXPECT_EQ(m_log.lines().size(), 1U);
    EXPECT_TRUE(
        m_log.contains(2, "QueryVolumeInfo. hFile: " + std::to_string(handle) + ", pzrsfHandle: "));
}

TEST_F(FSqueryInfoTest, AVolumeThatIsGoneAnswersTheLastStatusAndZeros) {
    const std::int64_t handle = openFile("data");
    std::strcpy(m_map.m_clientFolder, "/no/such/folder");
    Request request = queryVolumeRequest(handle);
    request.resize(80, 'r');

    const auto reply = call(ZrsfQueryVolumeInfo, request);

    ASSERT_EQ(reply.size(), 12U + 38 + 11);
    EXPECT_EQ(statusOf(reply), -102);
    EXPECT_EQ(cbBufferOf(reply), 38U);
    EXPECT_EQ(std::string(reply.data() + kDataAt, 38), std::string(38, '\0'));
    const std::string noEntry = std::to_string(ENOENT);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {2, "RTFsQuerySizes() errno: " + noEntry},
                  {2, "QuerySizes  error!!! path: /no/such/folder, rc: -102"},
                  {2,
                   "ullTotalAllocationBytes: 0, ullAvailableAllocationBytes: 0, "
                   "ulBytesPerAllocationUnit: 0, ulBytesPerSector: 0"},
                  {2, "RTFsQuerySerial() errno: " + noEntry + ", rc: -102"},
                  {2, "QuerySerical error. path: /no/such/folder, rc: -102"},
                  {2, "ulSerial: 0"},
                  {2, "RTFsQuerySerial() errno: " + noEntry + ", rc: -102"},
                  {2, "QueryProperties error. path: /no/such/folder, rc: -102"},
                  {2,
                   "cbMaxComponent: 0, fRemote: 0x0, fCaseSensitive: 0x0, fReadOnly: 0x0, "
                   "fSupportsUnicode: 0x0, fCompressed: 0x0, fFileCompression: 0x0"}}));
}

TEST_F(FSqueryInfoTest, AFolderOf521BytesIsQueriedAndALongerOneSendsNothing) {
    const std::int64_t handle = openFile("data");
    std::string folder = "/";  // the same folder, however many slashes
    folder.resize(521, '/');
    folder.copy(m_map.m_clientFolder, sizeof m_map.m_clientFolder);
    m_map.m_clientFolder[521] = '\0';
    EXPECT_EQ(statusOf(call(ZrsfQueryVolumeInfo, queryVolumeRequest(handle))), 0);
    EXPECT_TRUE(m_log.lines().empty());

    m_map.m_clientFolder[521] = '/';
    m_map.m_clientFolder[522] = '\0';
    EXPECT_TRUE(call(ZrsfQueryVolumeInfo, queryVolumeRequest(handle)).empty());
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{1, "memcpy_s failed, err = 162"}}));
}

TEST_F(FSqueryInfoTest, RequestsThatAreCutShortAreReadAsIfZerosFollowed) {
    const Request file = queryFileRequest(0x0101010101010101);
    const Request volume = queryVolumeRequest(0x0101010101010101);
    for (std::size_t size = 12; size < file.size(); ++size) {
        const auto end = static_cast<long>(size);
        expectFailure(call(ZrsfQueryFileInfo, Request(file.begin(), file.begin() + end)), -2);
        expectFailure(call(ZrsfQueryVolumeInfo, Request(volume.begin(), volume.begin() + end)), -2);
    }
}

}  // namespace
