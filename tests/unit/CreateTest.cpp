// The requests that open and close objects.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/DirOperate.h"
#include "linux/comm/Opreator/FileOperate.h"
#include "support/AsOrdinaryUser.h"
#include "support/DeniedCall.h"
#include "support/HandlerFixture.h"
#include "support/InChild.h"
#include "support/MountNamespace.h"
#include "support/PrivateRoot.h"
#include "support/SyscallFault.h"

namespace {

constexpr std::uint32_t kOpenOrFail = SHFL_CF_ACT_OPEN_IF_EXISTS | SHFL_CF_ACT_FAIL_IF_NEW;
constexpr std::uint32_t kOpenOrCreate = SHFL_CF_ACT_OPEN_IF_EXISTS | SHFL_CF_ACT_CREATE_IF_NEW;
constexpr std::uint32_t kFailOrCreate = SHFL_CF_ACT_FAIL_IF_EXISTS | SHFL_CF_ACT_CREATE_IF_NEW;
constexpr std::uint32_t kReplaceOrFail = SHFL_CF_ACT_REPLACE_IF_EXISTS | SHFL_CF_ACT_FAIL_IF_NEW;
constexpr std::uint32_t kUnixMode = 0xF1FF;

class CreateTest : public HandlerFixture {
protected:
    // The block of the reply; the status goes to m_status.
    _SHFLCREATEPARMS create(std::string_view path, const _SHFLCREATEPARMS& parms) {
        m_reply = call(ZrsfCreate, createRequest(path, parms));
        EXPECT_EQ(m_reply.size(), 12U + 139U);
        EXPECT_EQ(cbBufferOf(m_reply), 128U);
        m_status = statusOf(m_reply);
        return createParmsOf(m_reply);
    }
    _SHFLCREATEPARMS create(std::string_view path, std::uint32_t flags) {
        _SHFLCREATEPARMS parms{};
        parms.CreateFlags = flags;
        return create(path, parms);
    }

    bool isOpen(const _SHFLCREATEPARMS& parms) { return record(parms.Handle) != nullptr; }

    std::vector<char> m_reply;
    int m_status = 1;
};

// What stands under the name of the request.
enum class Object { Missing, File, ReadOnlyFile, Folder };

struct CreateCase {
    Object object;
    std::uint32_t exists;
    std::uint32_t ifNew;
    int status;
    SHFLCREATERESULT result;
    bool opened;
    std::int64_t size;  // of the file afterwards, or -1 for none
};

void PrintTo(const CreateCase& c, std::ostream* out) {
    *out << "object " << static_cast<int>(c.object) << std::hex << " exists 0x" << c.exists
         << " new 0x" << c.ifNew;
}

class CreateActionTest : public CreateTest, public ::testing::WithParamInterface<CreateCase> {
protected:
    void make(Object object) {
        chmod(m_dir.str().c_str(), 0777);  // so that nobody in particular may work in it
        if (object == Object::File) chmod(m_dir.file("x", "hello").c_str(), 0666);
        if (object == Object::ReadOnlyFile) chmod(m_dir.file("x", "hello").c_str(), 0444);
        if (object == Object::Folder) m_dir.folder("x");
    }
};

TEST_P(CreateActionTest, AnswersAsTheActionsAndTheObjectSay) {
    const CreateCase& c = GetParam();
    make(c.object);
    _SHFLCREATEPARMS parms{};
    parms.CreateFlags = c.exists | c.ifNew | SHFL_CF_ACCESS_READWRITE;
    parms.Info.cbObject = 2;  // of a replaced file
    parms.Info.Attr.fMode = 0x00800000;

    const AsOrdinaryUser user;
    const _SHFLCREATEPARMS reply = create("\\x", parms);

    EXPECT_EQ(m_status, c.status);
    EXPECT_EQ(reply.Result, c.result);
    EXPECT_EQ(isOpen(reply), c.opened);
    EXPECT_EQ(reply.Handle == SHFL_HANDLE_NIL, !c.opened);
    struct stat status {};
    const bool isFile = stat(m_dir.str("x").c_str(), &status) == 0 && S_ISREG(status.st_mode);
    EXPECT_EQ(isFile ? status.st_size : -1, c.size);
    EXPECT_EQ((reply.CreateFlags & SHFL_CF_DIRECTORY) != 0, c.object == Object::Folder);
}

constexpr Object kMissing = Object::Missing;
constexpr Object kFile = Object::File;
constexpr Object kReadOnly = Object::ReadOnlyFile;
constexpr Object kFolder = Object::Folder;
constexpr int kDenied = -38;
constexpr int kInvalid = -2;
constexpr int kThere = -105;

const CreateCase kCreateCases[] = {
    {kMissing, 0x00, 0x000, 0, SHFL_FILE_CREATED, true, 0},
    {kMissing, 0x00, 0x100, 0, SHFL_FILE_NOT_FOUND, false, -1},
    {kMissing, 0x00, 0x200, kInvalid, SHFL_NO_RESULT, false, -1},
    {kMissing, 0x10, 0x000, 0, SHFL_FILE_CREATED, true, 0},
    {kMissing, 0x10, 0x100, kInvalid, SHFL_NO_RESULT, false, -1},
    {kMissing, 0x10, 0x200, kInvalid, SHFL_NO_RESULT, false, -1},
    {kMissing, 0x20, 0x000, 0, SHFL_FILE_CREATED, true, 2},
    {kMissing, 0x20, 0x100, 0, SHFL_FILE_NOT_FOUND, false, -1},
    {kMissing, 0x20, 0x200, kInvalid, SHFL_NO_RESULT, false, -1},
    {kMissing, 0x30, 0x000, 0, SHFL_FILE_CREATED, true, 2},
    {kMissing, 0x30, 0x100, 0, SHFL_FILE_NOT_FOUND, false, -1},
    {kMissing, 0x30, 0x200, kInvalid, SHFL_NO_RESULT, false, -1},
    {kMissing, 0x40, 0x000, kInvalid, SHFL_NO_RESULT, false, -1},
    {kMissing, 0x40, 0x100, kInvalid, SHFL_NO_RESULT, false, -1},
    {kMissing, 0xF0, 0x200, kInvalid, SHFL_NO_RESULT, false, -1},

    {kFile, 0x00, 0x000, 0, SHFL_FILE_CREATED, true, 5},
    {kFile, 0x00, 0x100, 0, SHFL_FILE_EXISTS, true, 5},
    {kFile, 0x00, 0x200, kInvalid, SHFL_NO_RESULT, false, 5},
    {kFile, 0x10, 0x000, 0, SHFL_FILE_EXISTS, false, 5},
    {kFile, 0x10, 0x100, kInvalid, SHFL_NO_RESULT, false, 5},
    {kFile, 0x10, 0x200, kInvalid, SHFL_NO_RESULT, false, 5},
    {kFile, 0x20, 0x000, 0, SHFL_FILE_CREATED, true, 2},
    {kFile, 0x20, 0x100, 0, SHFL_FILE_REPLACED, true, 2},
    {kFile, 0x20, 0x200, kInvalid, SHFL_NO_RESULT, false, 5},
    {kFile, 0x30, 0x000, 0, SHFL_FILE_CREATED, true, 2},
    {kFile, 0x30, 0x100, 0, SHFL_FILE_REPLACED, true, 2},
    {kFile, 0x30, 0x200, kInvalid, SHFL_NO_RESULT, false, 5},
    {kFile, 0x40, 0x000, kInvalid, SHFL_NO_RESULT, false, 5},
    {kFile, 0x40, 0x100, kInvalid, SHFL_NO_RESULT, false, 5},
    {kFile, 0xF0, 0x200, kInvalid, SHFL_NO_RESULT, false, 5},

    {kReadOnly, 0x00, 0x000, kDenied, SHFL_NO_RESULT, false, 5},
    {kReadOnly, 0x00, 0x100, kDenied, SHFL_NO_RESULT, false, 5},
    {kReadOnly, 0x00, 0x200, kInvalid, SHFL_NO_RESULT, false, 5},
    {kReadOnly, 0x10, 0x000, 0, SHFL_FILE_EXISTS, false, 5},
    {kReadOnly, 0x10, 0x100, kInvalid, SHFL_NO_RESULT, false, 5},
    {kReadOnly, 0x10, 0x200, kInvalid, SHFL_NO_RESULT, false, 5},
    {kReadOnly, 0x20, 0x000, kDenied, SHFL_NO_RESULT, false, 5},
    {kReadOnly, 0x20, 0x100, kDenied, SHFL_NO_RESULT, false, 5},
    {kReadOnly, 0x20, 0x200, kInvalid, SHFL_NO_RESULT, false, 5},
    {kReadOnly, 0x30, 0x000, kDenied, SHFL_NO_RESULT, false, 5},
    {kReadOnly, 0x30, 0x100, kDenied, SHFL_NO_RESULT, false, 5},
    {kReadOnly, 0x30, 0x200, kInvalid, SHFL_NO_RESULT, false, 5},
    {kReadOnly, 0x40, 0x000, kInvalid, SHFL_NO_RESULT, false, 5},
    {kReadOnly, 0x40, 0x100, kInvalid, SHFL_NO_RESULT, false, 5},

    {kFolder, 0x00, 0x000, 0, SHFL_FILE_EXISTS, true, -1},
    {kFolder, 0x00, 0x100, 0, SHFL_FILE_EXISTS, true, -1},
    {kFolder, 0x00, 0x200, 0, SHFL_FILE_EXISTS, true, -1},
    {kFolder, 0x10, 0x000, kThere, SHFL_FILE_EXISTS, false, -1},
    {kFolder, 0x10, 0x100, 0, SHFL_FILE_EXISTS, true, -1},
    {kFolder, 0x10, 0x200, 0, SHFL_FILE_EXISTS, true, -1},
    {kFolder, 0x20, 0x000, kThere, SHFL_FILE_EXISTS, false, -1},
    {kFolder, 0x20, 0x100, 0, SHFL_FILE_EXISTS, true, -1},
    {kFolder, 0x20, 0x200, 0, SHFL_FILE_EXISTS, true, -1},
    {kFolder, 0x30, 0x000, kThere, SHFL_FILE_EXISTS, false, -1},
    {kFolder, 0x30, 0x100, 0, SHFL_FILE_EXISTS, true, -1},
    {kFolder, 0x30, 0x200, 0, SHFL_FILE_EXISTS, true, -1},
    {kFolder, 0x40, 0x000, kThere, SHFL_FILE_EXISTS, false, -1},
    {kFolder, 0x40, 0x100, 0, SHFL_FILE_EXISTS, true, -1},
    {kFolder, 0xF0, 0x200, 0, SHFL_FILE_EXISTS, true, -1},
};
INSTANTIATE_TEST_SUITE_P(Every, CreateActionTest, ::testing::ValuesIn(kCreateCases));

TEST_F(CreateTest, OpensAFileAndTellsWhatItIs) {
    chmod(m_dir.file("f", "hello").c_str(), 0640);
    const _SHFLCREATEPARMS reply = create("\\f", kOpenOrFail | SHFL_CF_ACCESS_READ);

    EXPECT_EQ(m_status, 0);
    EXPECT_EQ(reply.Info.cbObject, 5);
    EXPECT_EQ(reply.Info.Attr.fMode & kUnixMode, 0x81E9U);  // 0640 and the execute bits
    EXPECT_EQ(reply.Info.Attr.enmAdditional, 1);
    ASSERT_TRUE(isOpen(reply));
    EXPECT_EQ(record(reply.Handle)->type, HANDLE_TYPE_FILE);
    EXPECT_EQ(record(reply.Handle)->name, m_dir.str("f"));
    EXPECT_EQ(fcntl(static_cast<int>(reply.Handle), F_GETFD), FD_CLOEXEC);
}

TEST_F(CreateTest, AnswersWithWhatItDoesNotInterpretAsItCame) {
    m_dir.file("f");
    _SHFLCREATEPARMS parms{};
    parms.CreateFlags = kOpenOrFail | SHFL_CF_ACCESS_READ;
    std::memset(parms.reserved, 0x5A, sizeof parms.reserved);
    const _SHFLCREATEPARMS reply = create("\\f", parms);
    EXPECT_EQ(std::memcmp(reply.reserved, parms.reserved, sizeof parms.reserved), 0);
    EXPECT_EQ(reply.CreateFlags, parms.CreateFlags);
}

TEST_F(CreateTest, LogsAMissingFile) {
    create("\\f", kOpenOrFail | SHFL_CF_ACCESS_READ);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "file not find. SHFL_FILE_NOT_FOUND!!!   path: " +
                                                  m_dir.str("f") + ", createFlags: 0x1100"));
}

TEST_F(CreateTest, AnswersPathNotFoundWhereAFileStandsForAFolder) {
    m_dir.file("f");
    const _SHFLCREATEPARMS reply = create("\\f\\g", kOpenOrFail | SHFL_CF_ACCESS_READ);
    EXPECT_EQ(m_status, 0);
    EXPECT_EQ(reply.Result, SHFL_PATH_NOT_FOUND);
    EXPECT_EQ(reply.Handle, SHFL_HANDLE_NIL);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "path not find. SHFL_PATH_NOT_FOUND!!!!!!   path: " +
                                                  m_dir.str("f/g") + ", createFlags: 0x1100"));
}

TEST_F(CreateTest, TellsWhatStandsInTheWay) {
    chmod(m_dir.file("f", "hello").c_str(), 0600);
    const _SHFLCREATEPARMS reply = create("\\f", kFailOrCreate | SHFL_CF_ACCESS_READ);
    EXPECT_EQ(m_status, 0);
    EXPECT_EQ(reply.Result, SHFL_FILE_EXISTS);
    EXPECT_EQ(reply.Handle, SHFL_HANDLE_NIL);
    EXPECT_EQ(reply.Info.cbObject, 5);
    EXPECT_EQ(reply.Info.Attr.fMode & kUnixMode, 0x81C9U);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING,
                          "file is exist. VERR_ALREADY_EXISTS!!!   path: " + m_dir.str("f") +
                              ", createFlags: 0x1010, fMode: 0x81c9"));
}

TEST_F(CreateTest, LeavesTheInformationAsItCameWhereALinkWithoutATargetStandsInTheWay) {
    std::filesystem::create_symlink("nowhere", m_dir.str("link"));
    _SHFLCREATEPARMS parms{};
    parms.CreateFlags = kFailOrCreate | SHFL_CF_ACCESS_READ;
    parms.Info.cbObject = 1234;
    parms.Info.Attr.fMode = 0x00010000;
    const _SHFLCREATEPARMS reply = create("\\link", parms);
    EXPECT_EQ(m_status, 0);
    EXPECT_EQ(reply.Result, SHFL_FILE_EXISTS);
    EXPECT_EQ(reply.Info.cbObject, 1234);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING,
                          "file is exist. VERR_ALREADY_EXISTS!!!   path: " + m_dir.str("link") +
                              ", createFlags: 0x1010, fMode: 0x10000"));
}

TEST_F(CreateTest, AnswersTooManyOpenFiles) {
    m_dir.file("f");
    _SHFLCREATEPARMS reply{};
    const bool ran = runWithFaults({{SyscallFault::Call::Open, EMFILE, O_ACCMODE, O_RDWR}}, [&] {
        reply = create("\\f", kOpenOrFail | SHFL_CF_ACCESS_READWRITE);
    });
    if (!ran) GTEST_SKIP() << kNoFaults;
    EXPECT_EQ(m_status, -106);
    EXPECT_EQ(reply.Result, SHFL_NO_RESULT);
    EXPECT_EQ(reply.Handle, SHFL_HANDLE_NIL);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING,
                          "too many file. VERR_TOO_MANY_OPEN_FILES!!!   path: " + m_dir.str("f") +
                              ", createFlags: 0x3100"));
}

TEST_F(CreateTest, GrowsAReplacedFileToTheSizeOfTheRequest) {
    m_dir.file("f", "hello");
    _SHFLCREATEPARMS parms{};
    parms.CreateFlags = kReplaceOrFail | SHFL_CF_ACCESS_WRITE;
    parms.Info.cbObject = 7;
    EXPECT_EQ(create("\\f", parms).Info.cbObject, 7);
    EXPECT_EQ(readFile(m_dir.str("f")), std::string(7, '\0'));
}

TEST_F(CreateTest, SetsTheSizeOfAReplacedFileWhereThePolicyForbidsSetEndOfFile) {
    m_policy.setLinuxSetEndOfFile(0, 1);
    m_dir.file("f", "hello");
    _SHFLCREATEPARMS parms{};
    parms.CreateFlags = kReplaceOrFail | SHFL_CF_ACCESS_WRITE;
    parms.Info.cbObject = 2'000'000;
    EXPECT_TRUE(isOpen(create("\\f", parms)));
    EXPECT_EQ(std::filesystem::file_size(m_dir.str("f")), 2'000'000U);
}

TEST_F(CreateTest, ReplacesAFileWhoseNewSizeCannotBeSet) {
    m_dir.file("f", "hello");
    _SHFLCREATEPARMS parms{};
    parms.CreateFlags = kReplaceOrFail | SHFL_CF_ACCESS_WRITE;
    parms.Info.cbObject = -1;
    const _SHFLCREATEPARMS reply = create("\\f", parms);
    EXPECT_EQ(m_status, 0);
    EXPECT_EQ(reply.Result, SHFL_FILE_REPLACED);
    EXPECT_TRUE(isOpen(reply));
}

TEST_F(CreateTest, CreatesAFileWithTheModeOfItsDosAttributes) {
    const mode_t mask = umask(022);
    _SHFLCREATEPARMS parms{};
    parms.CreateFlags = kOpenOrCreate | SHFL_CF_ACCESS_READWRITE;
    parms.Info.Attr.fMode = 0x00800000;
    EXPECT_EQ(create("\\f", parms).Info.Attr.fMode & kUnixMode, 0x81EDU);  // 0644, and 0111
    umask(mask);
}

TEST_F(CreateTest, TurnsARequestForAFileOnAFolderIntoAFolderOpen) {
    m_dir.folder("d");
    const _SHFLCREATEPARMS reply = create("\\d", kOpenOrFail | SHFL_CF_ACCESS_READ);
    EXPECT_EQ(m_status, 0);
    EXPECT_EQ(reply.Result, SHFL_FILE_EXISTS);
    EXPECT_EQ(reply.CreateFlags, kOpenOrFail | SHFL_CF_ACCESS_READ | SHFL_CF_DIRECTORY);
    ASSERT_TRUE(isOpen(reply));
    const _ZRSFHANDLE* const folder = record(reply.Handle);
    EXPECT_EQ(folder->type, HANDLE_TYPE_DIR);
    EXPECT_EQ(folder->dir.Handle, reply.Handle);
    EXPECT_EQ(folder->dir.SearchHandle, nullptr);
    EXPECT_EQ(folder->name, m_dir.str("d"));
    EXPECT_EQ(reply.Info.Attr.fMode & 0x0010F000U, 0x00104000U);
    EXPECT_EQ(fcntl(static_cast<int>(reply.Handle), F_GETFD), FD_CLOEXEC);
}

TEST_F(CreateTest, OpensTheMapsFolderForAnEmptyPath) {
    const _SHFLCREATEPARMS reply = create("", kOpenOrFail);
    ASSERT_TRUE(isOpen(reply));
    EXPECT_EQ(record(reply.Handle)->name, m_dir.str() + "/");
}

TEST_F(CreateTest, ClosesAnExistingFolderAgainAtOnceIfAsked) {
    m_dir.folder("d");
    const _SHFLCREATEPARMS reply = create("\\d", kOpenOrFail | SHFL_CF_DIR_CLOSE_AFTER_OPEN);
    EXPECT_EQ(m_status, 0);
    EXPECT_GE(reply.Handle, 0);
    EXPECT_FALSE(isOpen(reply));
    EXPECT_EQ(fcntl(static_cast<int>(reply.Handle), F_GETFD), -1);
    EXPECT_NE(reply.CreateFlags & SHFL_CF_DIR_CLOSE_AFTER_OPEN, 0U);
}

TEST_F(CreateTest, KeepsAFileOrANewFolderOpenThoughAskedToCloseAFolder) {
    m_dir.file("f");
    EXPECT_TRUE(isOpen(create("\\f", kOpenOrFail | SHFL_CF_DIR_CLOSE_AFTER_OPEN)));
    EXPECT_TRUE(
        isOpen(create("\\new", kOpenOrCreate | SHFL_CF_DIRECTORY | SHFL_CF_DIR_CLOSE_AFTER_OPEN)));
}

TEST_F(CreateTest, OpensATargetFolderAndNeverCreates) {
    m_dir.folder("d");
    const std::uint32_t flags = kFailOrCreate | SHFL_CF_OPEN_TARGET_DIRECTORY | SHFL_CF_ACCESS_READ;
    const _SHFLCREATEPARMS reply = create("\\d", flags);
    EXPECT_EQ(m_status, 0);
    EXPECT_TRUE(isOpen(reply));
    EXPECT_EQ(reply.CreateFlags, 0x1106U);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "create directory overwrite flag: 0x1016"));
}

TEST_F(CreateTest, KeepsAllButTheActionsOfATargetFoldersFlags) {
    m_dir.folder("d");
    const _SHFLCREATEPARMS reply = create("\\d", 0xFFEFFFFF);  // without the close again
    EXPECT_TRUE(isOpen(reply));
    EXPECT_EQ(reply.CreateFlags, 0xFFEFF10FU);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "create directory overwrite flag: 0xffefffff"));
}

TEST_F(CreateTest, OpensATargetFolderOnAReadOnlyMapWhateverTheActionsWere) {
    m_map.m_bWritable = 0;
    m_dir.folder("d");
    EXPECT_TRUE(isOpen(create("\\d", kOpenOrCreate | SHFL_CF_OPEN_TARGET_DIRECTORY)));
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_WARNING, "create access denied!!!"));
}

TEST_F(CreateTest, AnswersPathNotFoundForATargetFolderThatIsAFile) {
    m_dir.file("f");
    const _SHFLCREATEPARMS reply =
        create("\\f", kOpenOrCreate | SHFL_CF_OPEN_TARGET_DIRECTORY | SHFL_CF_ACCESS_READ);
    EXPECT_EQ(m_status, -103);
    EXPECT_EQ(reply.Result, SHFL_PATH_NOT_FOUND);
    EXPECT_EQ(reply.Handle, SHFL_HANDLE_NIL);
    EXPECT_EQ(reply.CreateFlags, 0x1106U);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "dir open error.  errno: 20"));
}

TEST_F(CreateTest, IgnoresTheTargetFolderFlagForAMissingObject) {
    const _SHFLCREATEPARMS reply =
        create("\\f", kOpenOrCreate | SHFL_CF_OPEN_TARGET_DIRECTORY | SHFL_CF_ACCESS_READ);
    EXPECT_EQ(reply.Result, SHFL_FILE_CREATED);
    EXPECT_EQ(reply.CreateFlags, SHFL_CF_OPEN_TARGET_DIRECTORY | SHFL_CF_ACCESS_READ);
}

TEST_F(CreateTest, MakesAFolderWithAllPermissionsLessTheUmask) {
    const mode_t mask = umask(027);
    const _SHFLCREATEPARMS reply = create("\\d", kFailOrCreate | SHFL_CF_DIRECTORY);
    umask(0);
    const _SHFLCREATEPARMS open = create("\\e", kFailOrCreate | SHFL_CF_DIRECTORY);
    umask(mask);
    EXPECT_EQ(m_status, 0);
    EXPECT_EQ(reply.Result, SHFL_FILE_CREATED);
    EXPECT_TRUE(isOpen(reply));
    EXPECT_EQ(reply.Info.Attr.fMode & kUnixMode, 0x41E8U);  // 0750
    EXPECT_EQ(open.Info.Attr.fMode & kUnixMode, 0x41FFU);   // 0777
}

TEST_F(CreateTest, AnswersAFolderThatCannotBeMade) {
    m_dir.file("f");
    const _SHFLCREATEPARMS reply = create("\\f\\d", kFailOrCreate | SHFL_CF_DIRECTORY);
    EXPECT_EQ(m_status, -103);
    EXPECT_EQ(reply.Result, SHFL_PATH_NOT_FOUND);
    EXPECT_EQ(reply.Handle, SHFL_HANDLE_NIL);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "RTDirCreate error.  errno: 20, rc: -103"));
}

TEST_F(CreateTest, SaysNothingOfAFolderThatCannotBeMadeForAnotherReason) {
    const _SHFLCREATEPARMS reply = create("\\no\\d", kFailOrCreate | SHFL_CF_DIRECTORY);
    EXPECT_EQ(m_status, -102);
    EXPECT_EQ(reply.Result, SHFL_NO_RESULT);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "RTDirCreate error.  errno: 2, rc: -102"));
}

TEST_F(CreateTest, SaysNothingOfAFolderThatMayNotBeMade) {
    chmod(m_dir.str().c_str(), 0755);
    const AsOrdinaryUser user;
    const _SHFLCREATEPARMS reply = create("\\d", kFailOrCreate | SHFL_CF_DIRECTORY);
    EXPECT_EQ(m_status, -38);
    EXPECT_EQ(reply.Result, SHFL_NO_RESULT);
    EXPECT_EQ(reply.Handle, SHFL_HANDLE_NIL);
}

TEST_F(CreateTest, OpensAFolderThatCouldNotBeMadeButIsThere) {
    m_dir.folder("d");
    _SHFLCREATEPARMS reply{};
    const bool ran = runWithFaults({{SyscallFault::Call::Mkdir, EROFS}}, [&] {
        reply = create("\\d", kOpenOrCreate | SHFL_CF_DIRECTORY);
    });
    if (!ran) GTEST_SKIP() << kNoFaults;
    EXPECT_EQ(m_status, 0);
    EXPECT_EQ(reply.Result, SHFL_NO_RESULT);  // what the making left
    EXPECT_TRUE(isOpen(reply));
}

TEST_F(CreateTest, TriesToOpenAFolderThatCouldNotBeMade) {
    const _SHFLCREATEPARMS reply = create("\\no\\d", kOpenOrCreate | SHFL_CF_DIRECTORY);
    EXPECT_EQ(m_status, -102);
    EXPECT_EQ(reply.Result, SHFL_FILE_NOT_FOUND);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "dir open error.  errno: 2"));
}

TEST_F(CreateTest, AnswersAMissingFolder) {
    const _SHFLCREATEPARMS reply = create("\\d", kOpenOrFail | SHFL_CF_DIRECTORY);
    EXPECT_EQ(m_status, -102);
    EXPECT_EQ(reply.Result, SHFL_FILE_NOT_FOUND);
    EXPECT_EQ(reply.Handle, SHFL_HANDLE_NIL);
}

TEST_F(CreateTest, AnswersAFolderThatMayNotBeRead) {
    chmod(m_dir.str().c_str(), 0777);
    chmod(m_dir.folder("d").c_str(), 0111);
    const AsOrdinaryUser user;
    const _SHFLCREATEPARMS reply = create("\\d", kOpenOrFail);
    EXPECT_EQ(m_status, -38);
    EXPECT_EQ(reply.Result, SHFL_FILE_EXISTS);
    EXPECT_EQ(reply.Handle, SHFL_HANDLE_NIL);
}

TEST_F(CreateTest, KeepsAFolderOpenWhoseInformationCannotBeRead) {
    m_dir.folder("d");
    create("\\d", kOpenOrFail);  // the conversion of paths has loaded its tables then
    inChild([&] {
        denyCalls({SYS_statx, SYS_newfstatat}, EIO);
        _SHFLCREATEPARMS parms{};
        parms.CreateFlags = kOpenOrFail | SHFL_CF_DIRECTORY;
        parms.Info.cbObject = 1234;
        const _SHFLCREATEPARMS reply = create("\\d", parms);
        EXPECT_EQ(m_status, -250);
        EXPECT_EQ(reply.Result, SHFL_FILE_EXISTS);
        EXPECT_TRUE(isOpen(reply));
        EXPECT_EQ(reply.Info.cbObject, 1234);  // as it came
    });
}

TEST_F(CreateTest, KeepsTheDescriptorOfAFolderWhoseValueTheTableKnows) {
    m_dir.folder("d");
    const int next = open("/", O_RDONLY | O_CLOEXEC);  // the value that the next open will get
    insert(next, "stale", HANDLE_TYPE_DIR);
    close(next);
    const _SHFLCREATEPARMS reply = create("\\d", kOpenOrFail);
    ASSERT_EQ(reply.Handle, next);
    EXPECT_EQ(m_status, 0);
    EXPECT_STREQ(record(next)->name, "stale");
    EXPECT_TRUE(
        m_log.has(ZLOG_LEVEL_ERROR, "insertHandle error. dirhandle :" + std::to_string(next)));
}

TEST_F(CreateTest, CutsAFoldersNameTo521Bytes) {
    const std::string parts =
        std::string(200, 'a') + "/" + std::string(200, 'b') + "/" + std::string(200, 'c');
    m_dir.folder(parts);
    std::string wire = "\\" + parts;
    std::ranges::replace(wire, '/', '\\');
    const _SHFLCREATEPARMS reply = create(wire, kOpenOrFail);
    ASSERT_TRUE(isOpen(reply));
    EXPECT_EQ(record(reply.Handle)->name, m_dir.str(parts).substr(0, 521));
}

TEST_F(CreateTest, OpensNamesOutsideTheBasicPlane) {
    m_dir.file("\U0001F600\u4E2D");
    EXPECT_TRUE(isOpen(create("\\\U0001F600\u4E2D", kOpenOrFail | SHFL_CF_ACCESS_READ)));
}

TEST_F(CreateTest, OpensTheLongestNames) {
    std::string chinese;
    for (int i = 0; i < 85; ++i) chinese += "\u4E2D";  // 255 bytes
    for (const std::string& name : {std::string(255, 'x'), chinese}) {
        EXPECT_TRUE(isOpen(create("\\" + name, kOpenOrCreate | SHFL_CF_ACCESS_READWRITE)));
        EXPECT_TRUE(std::filesystem::exists(m_dir.str(name)));
    }
}

TEST_F(CreateTest, AnswersANameThatIsTooLong) {
    const std::string name(256, 'x');
    const _SHFLCREATEPARMS reply = create("\\" + name, kOpenOrFail | SHFL_CF_ACCESS_READ);
    EXPECT_EQ(m_status, -120);
    EXPECT_EQ(reply.Result, SHFL_NO_RESULT);
    EXPECT_EQ(reply.Handle, SHFL_HANDLE_NIL);
    EXPECT_EQ(
        m_log.lines(),  // those of the query, and none of the open
        (std::vector<LogLine>{
            {ZLOG_LEVEL_WARNING, "access errno: " + std::to_string(ENAMETOOLONG) + ",  rc: -120"},
            {ZLOG_LEVEL_WARNING, "pLinuxPath: " + m_dir.str(name)}}));
}

TEST_F(CreateTest, KeepsTheLetterCaseOfTheRequest) {
    m_dir.file("File");
    if (std::filesystem::exists(m_dir.str("FILE"))) GTEST_SKIP() << "letter case does not count";
    EXPECT_EQ(create("\\FILE", kOpenOrFail | SHFL_CF_ACCESS_READ).Result, SHFL_FILE_NOT_FOUND);
}

TEST_F(CreateTest, RefusesAPathThatCannotBeConverted) {
    Request request = createRequest("\\ab", kOpenOrFail | SHFL_CF_ACCESS_READ);
    request[18] = 0;
    request[19] = static_cast<char>(0xDC);  // half of a pair alone
    const std::vector<char> reply = call(ZrsfCreate, request);
    EXPECT_EQ(reply.size(), 151U);
    EXPECT_EQ(statusOf(reply), -2);
    EXPECT_EQ(createParmsOf(reply).Handle, SHFL_HANDLE_NIL);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR,
                          "utf16LToUtf8() error. length: 6, path: " + m_dir.str() + "\\a"));
}

TEST_F(CreateTest, RefusesAPathThatDoesNotFit) {
    const std::string folder = m_dir.str();
    const std::string tooLong = "\\" + std::string(1023 - folder.size(), 'x');
    EXPECT_EQ(create(tooLong, kOpenOrFail).Handle, SHFL_HANDLE_NIL);
    EXPECT_EQ(m_status, -2);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR,
                          "linuxPath2WinPath()  error. length: 1025, path: " + folder + tooLong));
}

TEST_F(CreateTest, SendsNothingWhenTheFolderCannotBeCopied) {
    m_map.m_clientFolder_size = 1025;
    EXPECT_TRUE(call(ZrsfCreate, createRequest("\\f", kOpenOrFail)).empty());
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 162"));
}

TEST_F(CreateTest, LogsEveryRequestThatMayWrite) {
    create("\\f", kOpenOrCreate | SHFL_CF_ACCESS_READWRITE);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING,
                          "create access denied!!!   mapfoder->m_clientFolder: " + m_dir.str() +
                              ",  flag: 0x3000, path: " + m_dir.str("f") +
                              ", mapfolder->m_bWritable : 1"));
}

TEST_F(CreateTest, RefusesWhateverMayWriteOnAReadOnlyMap) {
    m_map.m_bWritable = 0;
    m_dir.file("f", "hello");
    for (const std::uint32_t actions : {0x000U, 0x010U, 0x020U, 0x030U, 0x120U, 0x130U, 0x040U}) {
        m_log.clear();
        const std::uint32_t flags = actions | SHFL_CF_ACCESS_READ;
        const _SHFLCREATEPARMS reply = create("\\f", flags);
        EXPECT_EQ(m_status, -38) << actions;
        EXPECT_EQ(reply.Handle, SHFL_HANDLE_NIL);
        char text[16];
        snprintf(text, sizeof text, "0x%x", flags);
        const std::string head =
            "create access denied!!!   mapfoder->m_clientFolder: " + m_dir.str() +
            ",  flag: " + text + ", path: " + m_dir.str("f");
        EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, head + ", mapfolder->m_bWritable : 0"));
        EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, head));
    }
    EXPECT_EQ(readFile(m_dir.str("f")), "hello");
}

TEST_F(CreateTest, OpensForWritingOnAReadOnlyMapIfNothingIsCreated) {
    m_map.m_bWritable = 0;
    m_dir.file("f");
    const _SHFLCREATEPARMS reply = create("\\f", kOpenOrFail | SHFL_CF_ACCESS_READWRITE);
    ASSERT_TRUE(isOpen(reply));
    EXPECT_EQ(fcntl(static_cast<int>(reply.Handle), F_GETFL) & O_ACCMODE, O_RDWR);
}

TEST_F(CreateTest, ReportsAFileThatIsOpenAndCannotBeQueried) {
    m_dir.file("f");
    const int saved = dup(0);
    close(0);  // the next descriptor is 0, which cannot be queried
    const _SHFLCREATEPARMS reply = create("\\f", kOpenOrFail | SHFL_CF_ACCESS_READ);
    EXPECT_EQ(m_status, -2);
    EXPECT_EQ(reply.Handle, SHFL_HANDLE_NIL);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR,
                          "create a file success, but can't query the info of it.  rc: -2"));
    EXPECT_NE(record(0), nullptr);  // stays behind
    m_map.m_handleManage->ClearAll();
    if (saved >= 0) {
        dup2(saved, 0);
        close(saved);
    }
}

class RootFilterTest : public CreateTest {
protected:
    RootFilterTest() {
        std::memset(m_map.m_clientFolder, 0, sizeof m_map.m_clientFolder);
        std::memcpy(m_map.m_clientFolder, "/.", 3);
        m_map.m_clientFolder_size = 3;
        m_map.m_rootFlag = 1;
        m_policy.setItaPolicy(FILE_DRIVER_REDIR);
        m_policy.setLinuxRootDirEnable(1);
        m_policy.setLinuxDirFilterPath(m_dir.folder("seen").c_str());
        m_policy.setLinuxrootDir("/.");
    }

    std::string wirePath(const std::string& name) const {
        std::string path = m_dir.str(name);
        std::ranges::replace(path, '/', '\\');
        return path;
    }
};

TEST_F(RootFilterTest, OpensWhatTheFilterShows) {
    m_dir.file("seen/f");
    EXPECT_TRUE(isOpen(create(wirePath("seen\\f"), kOpenOrFail | SHFL_CF_ACCESS_READ)));
    EXPECT_TRUE(isOpen(create("\\", kOpenOrFail)));  // an ancestor of what is shown
}

TEST_F(RootFilterTest, AnswersNotFoundForAHiddenObjectThatIsOnlyOpened) {
    m_dir.file("hidden");
    for (const std::uint32_t actions : {0x100U, 0x110U, 0x200U}) {
        _SHFLCREATEPARMS parms{};
        parms.CreateFlags = actions | SHFL_CF_ACCESS_READ;
        parms.Result = 77;
        const _SHFLCREATEPARMS reply = create(wirePath("hidden"), parms);
        EXPECT_EQ(m_status, -102);
        EXPECT_EQ(reply.Handle, SHFL_HANDLE_NIL);
        EXPECT_EQ(reply.Result, 77);  // as the request had it
    }
}

TEST_F(RootFilterTest, AnswersAccessDeniedForAHiddenObjectThatMayBeChanged) {
    for (const std::uint32_t actions : {0x000U, 0x010U, 0x020U, 0x120U, 0x130U}) {
        EXPECT_EQ(create(wirePath("hidden"), actions).Handle, SHFL_HANDLE_NIL);
        EXPECT_EQ(m_status, -38);
    }
    EXPECT_FALSE(std::filesystem::exists(m_dir.str("hidden")));
}

TEST_F(RootFilterTest, LooksAtTheActionsOfTheRequestAndNotAtTheHiddenObject) {
    m_dir.folder("hidden");
    const std::uint32_t flags = kOpenOrCreate | SHFL_CF_OPEN_TARGET_DIRECTORY;
    EXPECT_EQ(create(wirePath("hidden"), flags).CreateFlags, flags);
    EXPECT_EQ(m_status, -38);
}

// Runs with the map of a printer port, in a root of its own with that device.
void withDevice(const std::string& device, const std::function<void()>& body) {
    inMountNamespace([&](const std::string& folder) {
        std::filesystem::create_directories(folder + "/dev");
        ASSERT_EQ(mkfifo((folder + device).c_str(), 0600), 0);
        const PrivateRoot root(folder);
        body();
    });
}

class PrinterTest : public CreateTest {
protected:
    void usePort(const std::string& device) {
        m_map.m_mapType = kPrinterMap;
        std::memset(m_map.m_clientFolder, 0, sizeof m_map.m_clientFolder);
        device.copy(m_map.m_clientFolder, sizeof m_map.m_clientFolder);
        m_map.m_clientFolder_size = static_cast<std::uint16_t>(device.size() + 1);
    }
};

TEST_F(PrinterTest, OpensAPortWithoutWaitingAndLeavesTheInformationAsItCame) {
    withDevice("/dev/lp0", [&] {
        usePort("/dev/lp0");
        _SHFLCREATEPARMS parms{};
        parms.CreateFlags = kOpenOrFail | SHFL_CF_ACCESS_READWRITE;
        parms.Info.cbObject = 1234;
        const _SHFLCREATEPARMS reply = create("", parms);
        EXPECT_EQ(m_status, 0);
        EXPECT_EQ(reply.Result, SHFL_FILE_EXISTS);
        ASSERT_TRUE(isOpen(reply));
        EXPECT_EQ(record(reply.Handle)->type, HANDLE_TYPE_FILE);
        EXPECT_NE(fcntl(static_cast<int>(reply.Handle), F_GETFL) & O_NONBLOCK, 0);
        EXPECT_EQ(reply.Info.cbObject, 1234);
        EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "open /dev/lp0. set O_NONBLOCK. "));
        call(ZrsfClose, closeRequest(reply.Handle));
    });
}

TEST_F(PrinterTest, OpensADeviceWithTheDigit9AsAnyFile) {
    withDevice("/dev/lp9", [&] {
        usePort("/dev/lp9");
        const _SHFLCREATEPARMS reply = create("", kOpenOrFail | SHFL_CF_ACCESS_READWRITE);
        ASSERT_TRUE(isOpen(reply));
        EXPECT_EQ(fcntl(static_cast<int>(reply.Handle), F_GETFL) & O_NONBLOCK, 0);
        EXPECT_EQ(reply.Info.Attr.fMode & kUnixMode, 0x11C9U);  // a FIFO, with execute bits
        EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_INFO, "O_NONBLOCK"));
        call(ZrsfClose, closeRequest(reply.Handle));
    });
}

TEST_F(PrinterTest, NeverTurnsIntoAFolderOpen) {
    usePort(m_dir.folder("d"));
    const _SHFLCREATEPARMS reply = create("", kOpenOrFail | SHFL_CF_ACCESS_READWRITE);
    EXPECT_EQ(m_status, -127);
    EXPECT_EQ(reply.Handle, SHFL_HANDLE_NIL);
    EXPECT_EQ(reply.CreateFlags & SHFL_CF_DIRECTORY, 0U);
}

class CloseTest : public HandlerFixture {
protected:
    CloseTest() { m_log.clear(); }

    void closeHandle(std::int64_t handle) {
        const std::vector<char> reply = call(ZrsfClose, closeRequest(handle));
        EXPECT_EQ(reply.size(), 12U + 12U);
        EXPECT_EQ(statusOf(reply), 0);
        EXPECT_EQ(cbBufferOf(reply), 0U);
    }

    static bool isDescriptor(std::int64_t fd) { return fcntl(static_cast<int>(fd), F_GETFD) != -1; }
};

TEST_F(CloseTest, ClosesAFile) {
    const std::int64_t handle = openFile("f");
    closeHandle(handle);
    EXPECT_EQ(record(handle), nullptr);
    EXPECT_FALSE(isDescriptor(handle));
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(CloseTest, ClosesAFolderWithItsStream) {
    const std::int64_t handle = openFolder();
    DIR* const stream = opendir(m_dir.str().c_str());
    const int streamFd = dirfd(stream);
    record(handle)->dir.SearchHandle = stream;
    closeHandle(handle);
    EXPECT_EQ(record(handle), nullptr);
    EXPECT_FALSE(isDescriptor(handle));
    EXPECT_FALSE(isDescriptor(streamFd));
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(CloseTest, AnswersSuccessForAnUnknownHandle) {
    closeHandle(4711);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {ZLOG_LEVEL_WARNING, "removeHandle error!!!   can not find the handle: 4711"}}));
}

TEST_F(CloseTest, ClosesTheStreamOfAFileAndTellsOfIt) {
    const std::int64_t handle = openFile("f");
    DIR* const stream = opendir(m_dir.str().c_str());
    const int streamFd = dirfd(stream);
    record(handle)->dir.SearchHandle = stream;
    closeHandle(handle);
    EXPECT_FALSE(isDescriptor(streamFd));
    EXPECT_TRUE(
        m_log.has(ZLOG_LEVEL_WARNING, "File Handle. pzrsfHandle->dir.SearchHandle: " +
                                          std::to_string(reinterpret_cast<std::intptr_t>(stream))));
}

TEST_F(CloseTest, LogsADescriptorThatIsClosedAlready) {
    const std::int64_t file = openFile("f");
    close(static_cast<int>(file));
    closeHandle(file);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "zrsfCloseFile Should never be failure.  errno: 9"));

    const std::int64_t folder = openFolder();
    close(static_cast<int>(folder));
    closeHandle(folder);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "pzrsfHandle->dir.Handle close Failure. errno: 9"));
}

TEST_F(CloseTest, ClosesWhateverIsNoFileAsAFolder) {
    const std::int64_t handle = openFile("f");
    record(handle)->type = static_cast<HANDLE_TYPE>(7);
    close(static_cast<int>(handle));
    closeHandle(handle);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {ZLOG_LEVEL_ERROR, "pzrsfHandle->dir.Handle close Failure. errno: 9"}}));
}

TEST_F(CloseTest, ClosesNothingForAFolderWithoutADescriptor) {
    for (const long long invalid : {0LL, -1LL}) {
        _ZRSFHANDLE folder{};
        folder.type = HANDLE_TYPE_DIR;
        folder.dir.Handle = invalid;
        m_log.clear();
        zrsfCloseDir(&folder);
        EXPECT_EQ(m_log.lines(),
                  (std::vector<LogLine>{{ZLOG_LEVEL_ERROR, "dirHandle is invalid"}}));
        EXPECT_EQ(folder.dir.Handle, 0);
    }
}

TEST_F(CloseTest, LogsAStreamThatCannotBeClosed) {
    _ZRSFHANDLE folder{};
    folder.type = HANDLE_TYPE_DIR;
    folder.dir.SearchHandle = opendir(m_dir.str().c_str());
    close(dirfd(folder.dir.SearchHandle));
    zrsfCloseDir(&folder);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "searchHandleclose Failure. errno: 9"));
    EXPECT_EQ(folder.dir.SearchHandle, nullptr);
}

TEST_F(CreateTest, SurvivesARequestCutShortAtEveryLength) {
    m_dir.file("f", "hello");
    const Request whole = createRequest("\\f", kOpenOrFail | SHFL_CF_ACCESS_READ);
    for (std::size_t size = kHeaderSize; size < whole.size(); ++size) {
        call(ZrsfCreate, Request(whole.begin(), whole.begin() + static_cast<long>(size)));
        m_map.m_handleManage->ClearAll();
    }
}

TEST_F(CreateTest, SurvivesEveryLengthOfThePath) {
    for (const int length : {0, 1, 2, 1023, 1024, 2047, 2048, 65535}) {
        Request request = createRequest("\\f", kOpenOrFail | SHFL_CF_ACCESS_READ);
        request[12] = static_cast<char>(length & 0xFF);
        request[13] = static_cast<char>(length >> 8);
        const std::vector<char> reply = call(ZrsfCreate, request);
        EXPECT_EQ(reply.size(), 151U) << length;
        m_map.m_handleManage->ClearAll();
    }
}

TEST_F(CloseTest, SurvivesARequestCutShortAtEveryLength) {
    const Request whole = closeRequest(4711);
    for (std::size_t size = kHeaderSize; size < whole.size(); ++size) {
        EXPECT_EQ(
            call(ZrsfClose, Request(whole.begin(), whole.begin() + static_cast<long>(size))).size(),
            24U);
    }
}

}  // namespace
