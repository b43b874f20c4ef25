// Requests on file systems that refuse them: read-only, full, in two parts, or broken.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/CreateParms.h"
#include "support/HandlerFixture.h"
#include "support/MountNamespace.h"
#include "support/SyscallFault.h"
#include "support/linux/FailingFs.h"

namespace {

using Call = FailingFs::Call;

constexpr int kBusy = 130;
constexpr int kDeviceError = -250;
constexpr int kDiskFull = -152;
constexpr int kNotSameDevice = -119;
constexpr int kWriteProtect = -113;
constexpr int kUnresolved = -35;

std::string number(long long value) {
    return std::to_string(value);
}

class FailingFileSystemTest : public HandlerFixture {
protected:
    // To be the whole of a test: the map shows a file system that fails on demand.
    void onFailingFs(const std::function<void(FailingFs&)>& body) {
        if (const std::string reason = FailingFs::reasonToSkip(); !reason.empty()) {
            GTEST_SKIP() << reason;
        }
        inMountNamespace([&](const std::string& folder) {
            FailingFs fs(folder + "/mnt");
            serveFrom(folder + "/mnt");
            fs.addFile("f");
            body(fs);
        });
    }

    // The same with a file system that cannot be written to: "f" is what it holds.
    void onReadOnlyFs(const std::function<void()>& body) {
        inMountNamespace([&](const std::string& folder) {
            mountTmpfs(folder + "/mnt");
            serveFrom(folder + "/mnt");
            close(open((m_folder + "/f").c_str(), O_CREAT | O_CLOEXEC, 0644));
            remountReadOnly(folder + "/mnt");
            body();
        });
    }

    void serveFrom(const std::string& folder) {
        m_folder = folder;
        serve(folder);
    }

    std::int64_t openAt(const std::string& name, int flags) {
        const std::string path = m_folder + "/" + name;
        return insert(open(path.c_str(), flags | O_CLOEXEC), path);
    }

    int remove(const std::string& path) { return statusOf(call(ZrsfRemove, removeRequest(path))); }

    int rename(const std::string& from, const std::string& to, std::uint32_t flags = 0) {
        return statusOf(call(ZrsfRename, renameRequest(from, to, flags)));
    }

    int setSize(std::int64_t handle, std::int64_t size) {
        return statusOf(call(ZrsfSetEndOfFile, setEndOfFileRequest(handle, size)));
    }

    std::vector<char> setTimesAndMode(std::int64_t handle) {
        SHFLFSOBJINFO info = {};
        info.AccessTime = {5'000'000'000};
        info.ModificationTime = {6'000'000'000};
        info.Attr.fMode = 0600;
        return call(ZrsfSetFileInfo, setFileInfoRequest(handle, info));
    }

    // The reply says success, and shows the mode that the object still has.
    static void expectSuccessWithMode(const std::vector<char>& reply, unsigned mode) {
        EXPECT_EQ(::infoOf(reply).Attr.fMode & 07777U, mode);
    }

    std::string removeError(int error) const {
        return "remove error!!!   nameLength: 4, path: " + m_folder +
               "/f, flag: 0x0, errno: " + number(error);
    }

    static std::string renameError(int error) {
        return "rename with replace flag, but error. errno: " + number(error);
    }

    bool logsRefusedTimesAndMode(int error, int timesStatus) const {
        return m_log.has(2, "set File time error. errno: " + number(error)) &&
               m_log.has(2, "RTFileSetTimes failed with " + number(timesStatus) + "\n") &&
               m_log.has(2, "file set mode error. [rc: -37] [errno : " + number(error) + "]") &&
               m_log.has(2, "RTFileSetMode 180 failed with -37\n");
    }

    std::string m_folder;
};

// ---- remove

TEST_F(FailingFileSystemTest, AFileThatIsBusyAndThenGoneIsRemoved) {
    onFailingFs([&](FailingFs& fs) {
        fs.fail(Call::Unlink, kBusy);
        fs.vanishAfter(3);

        EXPECT_EQ(remove("\\f"), 0);

        EXPECT_TRUE(m_log.has(3, "pRealFilePath : " + m_folder + "/f is not exist. i = 3"));
        EXPECT_TRUE(m_log.has(1, removeError(0)));
        EXPECT_TRUE(m_log.has(
            3, "remove end!!!   nameLength: 4, path: " + m_folder + "/f, flag: 0x0, rc: 0"));
    });
}

TEST_F(FailingFileSystemTest, AFolderThatIsBusyIsWaitedForAsWell) {
    onFailingFs([&](FailingFs& fs) {
        fs.addFolder("d");
        fs.fail(Call::Rmdir, kBusy);
        fs.vanishAfter(0);

        EXPECT_EQ(remove("\\d"), 0);

        EXPECT_TRUE(m_log.has(3, "pRealFilePath : " + m_folder + "/d is not exist. i = 0"));
    });
}

TEST_F(FailingFileSystemTest, AFileThatStaysBusyIsLookedAt500TimesAndIsAnUnresolvedError) {
    onFailingFs([&](FailingFs& fs) {
        fs.fail(Call::Unlink, kBusy);
        int status = 1;
        // The pauses fail, so that the tries follow each other at once.
        ASSERT_TRUE(
            runWithFaults({{SyscallFault::Call::Sleep, EINTR}}, [&] { status = remove("\\f"); }));

        EXPECT_EQ(status, kUnresolved);
        EXPECT_EQ(fs.looksAt("f"), 500);
        EXPECT_TRUE(m_log.has(1, removeError(kBusy)));
        EXPECT_FALSE(m_log.contains(3, "is not exist"));
    });
}

TEST_F(FailingFileSystemTest, NoOtherRefusalOfARemoveIsWaitedFor) {
    onFailingFs([&](FailingFs& fs) {
        fs.vanishAfter(0);
        const std::pair<int, int> refusals[] = {
            {EBUSY, -138},       {kBusy - 1, kUnresolved}, {kBusy + 1, kUnresolved},
            {EIO, kDeviceError}, {ENOSPC, kDiskFull},      {EPERM, -38}};
        for (const auto& [error, status] : refusals) {
            fs.addFile("f");
            fs.fail(Call::Unlink, error);
            EXPECT_EQ(remove("\\f"), status) << error;
            EXPECT_EQ(fs.looksAt("f"), 0) << error;
            EXPECT_TRUE(m_log.has(1, removeError(error)));
            fs.fail(Call::Unlink, 0);
            fs.vanishAfter(1'000'000);
            EXPECT_EQ(remove("\\f"), 0);
            fs.vanishAfter(0);
        }
    });
}

TEST_F(FailingFileSystemTest, ARemoveOnAReadOnlyFileSystemIsWriteProtected) {
    onReadOnlyFs([&] {
        EXPECT_EQ(remove("\\f"), kWriteProtect);
        EXPECT_TRUE(m_log.has(1, removeError(EROFS)));
        EXPECT_EQ(access((m_folder + "/f").c_str(), F_OK), 0);
    });
}

// ---- rename

TEST_F(FailingFileSystemTest, ARenameOnAReadOnlyFileSystemIsWriteProtected) {
    onReadOnlyFs([&] {
        for (const std::uint32_t flags : {0U, kRenameReplace}) {
            EXPECT_EQ(rename("\\f", "\\g", flags), kWriteProtect);
        }
        EXPECT_EQ(m_log.count(2, renameError(EROFS)), 2);
    });
}

TEST_F(FailingFileSystemTest, ARenameIntoAnotherFileSystemIsNotTheSameDevice) {
    inMountNamespace([&](const std::string& folder) {
        mountTmpfs(folder + "/one");
        mountTmpfs(folder + "/two");
        close(open((folder + "/one/f").c_str(), O_CREAT | O_CLOEXEC, 0644));
        close(open((folder + "/two/old").c_str(), O_CREAT | O_CLOEXEC, 0644));
        serveFrom(folder);

        EXPECT_EQ(rename("\\one\\f", "\\two\\f"), kNotSameDevice);
        EXPECT_EQ(rename("\\one\\f", "\\two\\old", kRenameReplace), kNotSameDevice);

        EXPECT_EQ(m_log.count(2, renameError(EXDEV)), 2);
        EXPECT_EQ(access((folder + "/one/f").c_str(), F_OK), 0);
    });
}

TEST_F(FailingFileSystemTest, ARenameAnswersTheStatusOfTheFileSystem) {
    onFailingFs([&](FailingFs& fs) {
        for (const auto& [error, status] : {std::pair(EIO, kDeviceError), {ENOSPC, kDiskFull}}) {
            fs.fail(Call::Rename, error);
            EXPECT_EQ(rename("\\f", "\\g"), status);
            EXPECT_EQ(rename("\\f", "\\g", kRenameReplace), status);
            EXPECT_EQ(m_log.count(2, renameError(error)), 2);
        }
        fs.fail(Call::Rename, 0);
        EXPECT_EQ(rename("\\f", "\\g"), 0);
    });
}

// ---- times and mode

TEST_F(FailingFileSystemTest, TimesAndModeOfAReadOnlyFileSystemStayAndTheAnswerIsSuccess) {
    onReadOnlyFs([&] {
        expectSuccessWithMode(setTimesAndMode(openAt("f", O_RDONLY)), 0644);
        EXPECT_TRUE(logsRefusedTimesAndMode(EROFS, kWriteProtect));
    });
}

TEST_F(FailingFileSystemTest, TimesAndModeThatABrokenFileSystemRefusesAreSuccessAsWell) {
    onFailingFs([&](FailingFs& fs) {
        fs.fail(Call::Utimens, EIO);
        fs.fail(Call::Chmod, EIO);
        expectSuccessWithMode(setTimesAndMode(openAt("f", O_RDWR)), 0644);
        EXPECT_TRUE(logsRefusedTimesAndMode(EIO, kDeviceError));
    });
}

TEST_F(FailingFileSystemTest, AModeIsSetWhereTheTimesAreRefused) {
    onFailingFs([&](FailingFs& fs) {
        fs.fail(Call::Utimens, ENOSPC);
        expectSuccessWithMode(setTimesAndMode(openAt("f", O_RDWR)), 0600);
        EXPECT_EQ(fs.modeOf("f") & 07777U, 0600U);
    });
}

TEST_F(FailingFileSystemTest, InformationThatCannotBeReadAfterTheChangeIsTheStatus) {
    onFailingFs([&](FailingFs& fs) {
        const std::int64_t handle = openAt("f", O_RDWR);
        fs.fail(Call::Lookup, EIO);

        const std::vector<char> reply = call(ZrsfSetFileInfo, setFileInfoRequest(handle, {}));

        EXPECT_EQ(reply.size(), 12U + 11);
        EXPECT_EQ(statusOf(reply), kDeviceError);
        EXPECT_EQ(cbBufferOf(reply), 0U);
        fs.fail(Call::Lookup, 0);
    });
}

// ---- size

TEST_F(FailingFileSystemTest, ASizeAnswersTheStatusOfTheFileSystem) {
    onFailingFs([&](FailingFs& fs) {
        const std::int64_t handle = openAt("f", O_RDWR);
        const std::pair<int, int> refusals[] = {
            {EIO, kDeviceError}, {ENOSPC, kDiskFull}, {EROFS, kWriteProtect}};
        for (const auto& [error, status] : refusals) {
            fs.fail(Call::Truncate, error);
            EXPECT_EQ(setSize(handle, 70), status);
            EXPECT_TRUE(m_log.has(2, "file set size error.  size: 70, errno: " + number(error)));
        }
        EXPECT_EQ(fs.sizeOf("f"), 0);
    });
}

TEST_F(FailingFileSystemTest, ASizeThatIsSetButCannotBeReadIsTheStatusOfTheQuery) {
    onFailingFs([&](FailingFs& fs) {
        const std::int64_t handle = openAt("f", O_RDWR);
        fs.fail(Call::Lookup, EIO, 1);  // the call itself looks once

        EXPECT_EQ(setSize(handle, 70), kDeviceError);

        fs.fail(Call::Lookup, 0);
        EXPECT_EQ(fs.sizeOf("f"), 70);
        EXPECT_TRUE(m_log.has(2, "set size right. but can't get file info. "));
    });
}

// ---- open, read, write, flush

TEST_F(FailingFileSystemTest, AFileOfAReadOnlyFileSystemIsOpenedForReadingInstead) {
    onReadOnlyFs([&] {
        const auto reply = call(
            ZrsfCreate, createRequest("\\f", SHFL_CF_ACT_FAIL_IF_NEW | SHFL_CF_ACCESS_READWRITE));

        EXPECT_EQ(statusOf(reply), 0);
        const auto handle = static_cast<std::int64_t>(createParmsOf(reply).Handle);
        ASSERT_NE(record(handle), nullptr);
        EXPECT_EQ(fcntl(static_cast<int>(handle), F_GETFL) & O_ACCMODE, O_RDONLY);
        EXPECT_TRUE(m_log.contains(2, "open file with read and write flag, write protect!!!"));
    });
}

TEST_F(FailingFileSystemTest, OnlyAnOpenThatCreatesNothingIsTriedForReading) {
    onReadOnlyFs([&] {
        const auto reply = call(ZrsfCreate, createRequest("\\f", SHFL_CF_ACCESS_READWRITE));
        EXPECT_EQ(statusOf(reply), kWriteProtect);
        EXPECT_EQ(createParmsOf(reply).Handle, SHFL_HANDLE_NIL);
    });
}

TEST_F(FailingFileSystemTest, AWriteThatFillsTheFileSystemIsPartialAndTheNextOneFull) {
    inMountNamespace([&](const std::string& folder) {
        mountTmpfs(folder + "/mnt");  // 4 MiB
        serveFrom(folder + "/mnt");
        const std::int64_t handle = openAt("f", O_RDWR | O_CREAT);
        constexpr std::int64_t kStep = 1'000'000;  // a fifth of them does not fit whole
        const std::string data(kStep, 'x');
        int status = 0;
        std::int64_t written = 0;
        for (int i = 0; i < 6 && status == 0; ++i) {
            status = statusOf(call(ZrsfWrite, writeRequest(handle, written, data)));
            written = lseek(static_cast<int>(handle), 0, SEEK_END);
        }
        EXPECT_EQ(status, kDiskFull);
        EXPECT_GT(written, 4 * kStep);
        EXPECT_LT(written, 5 * kStep);
    });
}

TEST_F(FailingFileSystemTest, ReadWriteAndFlushAnswerADeviceError) {
    onFailingFs([&](FailingFs& fs) {
        const std::int64_t handle = openAt("f", O_RDWR);
        for (const Call failing : {Call::Read, Call::Write, Call::Fsync}) fs.fail(failing, EIO);
        call(ZrsfWrite, writeRequest(handle, 0, "x"));

        EXPECT_EQ(statusOf(call(ZrsfRead, readRequest(handle, 0, 512))), kDeviceError);
        EXPECT_EQ(statusOf(call(ZrsfWrite, writeRequest(handle, 0, "x"))), kDeviceError);
        EXPECT_EQ(statusOf(call(ZrsfFlush, flushRequest(handle))), kDeviceError);
    });
}

}  // namespace
