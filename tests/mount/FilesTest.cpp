// What programs do with files on the mount, and how few questions that takes.
#include <fcntl.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "mount/MountFixture.h"
#include "peer/FileDescriptor.h"

namespace {

using peer::FileDescriptor;
using ::testing::UnorderedElementsAre;

class FilesTest : public MountFixture {
protected:
    static struct stat statOf(const std::string& path) {
        struct stat info {};
        EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
        return info;
    }
    static void write(const std::string& path, const std::string& text) {
        std::ofstream(path, std::ios::binary) << text;
    }
    static ssize_t put(int fd, const std::string& text) {
        return ::write(fd, text.data(), text.size());
    }
};

TEST_F(FilesTest, AFileThatIsWrittenIsThereOnBothSides) {
    mountData();
    std::string bytes(3'000'001, 'x');
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
    write(at("file"), bytes);
    EXPECT_EQ(readFile(behind("file")), bytes);
    EXPECT_EQ(readFile(at("file")), bytes);
    EXPECT_EQ(statOf(at("file")).st_size, 3'000'001);
}

TEST_F(FilesTest, AttributesAreThoseOfTheOtherSideAndTheOwnerIsWhoMounts) {
    write(behind("file"), "text");
    ::chmod(behind("file").c_str(), 0666);
    ::link(behind("file").c_str(), behind("other").c_str());
    mountData("uid=1234,gid=4321,umask=027");
    const struct stat info = statOf(at("file"));
    EXPECT_EQ(info.st_mode, S_IFREG | 0640U);
    EXPECT_EQ(info.st_uid, 1234u);
    EXPECT_EQ(info.st_gid, 4321u);
    EXPECT_EQ(info.st_nlink, 2u);
    EXPECT_EQ(info.st_ino, statOf(at("other")).st_ino);
    EXPECT_EQ(info.st_mtim.tv_sec, statOf(behind("file")).st_mtim.tv_sec);
}

TEST_F(FilesTest, AFolderIsListedInOneExchangeWithTheAttributesOfAll) {
    for (unsigned i = 0; i < 500; ++i) write(behind("f" + std::to_string(i)), std::string(i, 'x'));
    mountData();
    statOf(at(""));
    m_files->forgetAsked();
    std::intmax_t bytes = 0;
    for (const std::string& name : namesIn(m_point + "/Data")) bytes += statOf(at(name)).st_size;
    EXPECT_EQ(bytes, 499 * 500 / 2);
    EXPECT_EQ(m_files->asked("list"), 1);
    EXPECT_EQ(m_files->asked("stat"), 0);
}

TEST_F(FilesTest, ADriveThatWasListedAndChangedIsStillThere) {
    mountData();
    EXPECT_TRUE(namesIn(m_point + "/Data").empty());
    EXPECT_EQ(::mkdir(at("folder").c_str(), 0755), 0);
    EXPECT_TRUE(S_ISDIR(statOf(m_point + "/Data").st_mode));
    EXPECT_EQ(::rmdir(at("folder").c_str()), 0);
    EXPECT_TRUE(namesIn(m_point + "/Data").empty());
}

class CrowdedFileSystem : public LocalFileSystem {
public:
    using LocalFileSystem::LocalFileSystem;

    void list(std::string_view path, const Take& take) override {
        if (!path.empty()) return LocalFileSystem::list(path, take);
        peer::DirEntry entry;
        entry.attributes.mode = S_IFREG | 0644;
        for (unsigned i = 0; i < 100'000; ++i) {
            entry.name = "entry" + std::to_string(i);
            entry.attributes.inode = 10 + i;
            take({entry});
        }
    }
};

TEST_F(FilesTest, AHundredThousandEntriesAreListed) {
    m_machine.offer("Data", std::make_shared<CrowdedFileSystem>(m_data));
    mount();
    std::vector<std::string> names = namesIn(m_point + "/Data");
    EXPECT_EQ(names.size(), 100'000u);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(std::unique(names.begin(), names.end()), names.end());
}

TEST_F(FilesTest, ManyQuestionsInOneFolderAreAnsweredByItsListing) {
    for (int i = 0; i < 300; ++i) write(behind("f" + std::to_string(i)), "");
    mountData();
    for (int i = 0; i < 300; ++i) statOf(at("f" + std::to_string(i)));
    EXPECT_EQ(m_files->asked("list"), 1);
    EXPECT_LT(m_files->asked("stat"), 20);
}

TEST_F(FilesTest, AFileUnpackedTakesTwoExchanges) {
    mountData();
    ASSERT_EQ(::mkdir(at("folder").c_str(), 0755), 0);
    write(at("folder/first"), "");  // by which it is known what permissions files are given
    m_files->forgetAsked();
    const FileDescriptor file(::open(at("folder/file").c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644));
    EXPECT_EQ(put(file.get(), "text"), 4);
    const struct timespec times[2] = {{1, 0}, {1, 0}};
    EXPECT_EQ(::futimens(file.get(), times), 0);
    EXPECT_EQ(::fchmod(file.get(), 0644), 0);
    ::close(::dup(file.get()));  // a flush
    EXPECT_EQ(m_files->asked("create"), 1);
    EXPECT_EQ(m_files->asked("write"), 1);
    EXPECT_EQ(m_files->asked(), 2);
    EXPECT_EQ(readFile(behind("folder/file")), "text");
}

TEST_F(FilesTest, WhatWasNotAskedForAtFirstIsAskedForWhenTheFileIsClosed) {
    mountData();
    write(at("first"), "");
    m_files->forgetAsked();
    FileDescriptor file(::open(at("file").c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600));
    EXPECT_EQ(m_files->asked("stat"), 1);  // before there was such a file
    const ino_t inode = statOf(at("file")).st_ino;
    const struct timespec times[2] = {{1000, 0}, {2000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, behind("file").c_str(), times, 0), 0);
    file.reset();
    EXPECT_TRUE(waitUntil([&] { return statOf(at("file")).st_mtim.tv_sec == 2000; }));
    EXPECT_EQ(statOf(at("file")).st_ino, inode);
}

TEST_F(FilesTest, AFileThatNobodyMayWriteIsWrittenByWhoMadeIt) {
    mountData();
    {
        const FileDescriptor file(::open(at("file").c_str(), O_WRONLY | O_CREAT | O_EXCL, 0444));
        EXPECT_EQ(put(file.get(), "text"), 4);
        EXPECT_EQ(statOf(at("file")).st_mode & 0777U, 0444u);
    }
    EXPECT_EQ(m_files->asked("flush"), 1);  // by which the drive's file gets its mode
    EXPECT_EQ(readFile(at("file")), "text");
}

TEST_F(FilesTest, TheModeThatIsGivenToAnOpenFileLasts) {
    mountData();
    {
        const FileDescriptor file(::open(at("file").c_str(), O_WRONLY | O_CREAT | O_EXCL, 0400));
        EXPECT_EQ(put(file.get(), "text"), 4);
        EXPECT_EQ(::fchmod(file.get(), 0444), 0);
    }
    EXPECT_EQ(statOf(at("file")).st_mode & 0777U, 0444u);
    EXPECT_EQ(m_files->asked("flush"), 0);
}

TEST_F(FilesTest, WhatIsWrittenIsSeenAtOnceThroughEveryWay) {
    mountData();
    const FileDescriptor out(::open(at("file").c_str(), O_RDWR | O_CREAT, 0600));
    EXPECT_EQ(put(out.get(), "first"), 5);
    EXPECT_EQ(statOf(at("file")).st_size, 5);
    EXPECT_EQ(readFile(at("file")), "first");
    EXPECT_EQ(put(out.get(), "+"), 1);
    EXPECT_EQ(namesIn(m_point + "/Data").size(), 1u);
    EXPECT_EQ(statOf(at("file")).st_size, 6);
    EXPECT_EQ(::pwrite(out.get(), "F", 1, 0), 1);
    EXPECT_EQ(readFile(at("file")), "First+");
    EXPECT_EQ(::ftruncate(out.get(), 2), 0);
    EXPECT_EQ(statOf(at("file")).st_size, 2);
    EXPECT_EQ(readFile(at("file")), "Fi");
}

TEST_F(FilesTest, AFailedWriteIsToldAtTheLatestWhenTheFileIsClosed) {
    mountData();
    FileDescriptor file(::open(at("file").c_str(), O_WRONLY | O_CREAT, 0600));
    m_files->onAsk([](const std::string& operation) {
        if (operation == "write") throw peer::RemoteError(ENOSPC, "full");
    });
    const bool toldAtOnce = put(file.get(), "text") < 0;
    EXPECT_EQ(toldAtOnce ? ENOSPC : errorOf(::close(::dup(file.get()))), ENOSPC);
    EXPECT_EQ(::fsync(file.get()), 0);  // once is enough
    EXPECT_EQ(m_files->asked("flush"), 1);
}

TEST_F(FilesTest, AnOpenFileOutlivesItsName) {
    mountData();
    const FileDescriptor file(::open(at("file").c_str(), O_RDWR | O_CREAT, 0600));
    EXPECT_EQ(put(file.get(), "text"), 4);
    ASSERT_EQ(::unlink(at("file").c_str()), 0);
    EXPECT_EQ(::access(at("file").c_str(), F_OK), -1);
    EXPECT_EQ(put(file.get(), "more"), 4);
    char bytes[9] = {};
    EXPECT_EQ(::pread(file.get(), bytes, 8, 0), 8);
    EXPECT_STREQ(bytes, "textmore");
}

TEST_F(FilesTest, AnOpenFileFollowsItsNewName) {
    mountData();
    const FileDescriptor log(::open(at("log").c_str(), O_RDWR | O_CREAT, 0600));
    EXPECT_EQ(put(log.get(), "one "), 4);
    ASSERT_EQ(::rename(at("log").c_str(), at("log.1").c_str()), 0);
    write(at("log"), "new");
    EXPECT_EQ(put(log.get(), "two"), 3);
    EXPECT_EQ(::fsync(log.get()), 0);
    EXPECT_EQ(readFile(behind("log.1")), "one two");
    EXPECT_EQ(readFile(behind("log")), "new");
}

TEST_F(FilesTest, AFileInAFolderThatIsRenamedFollowsToo) {
    mountData();
    ASSERT_EQ(::mkdir(at("a").c_str(), 0755), 0);
    const FileDescriptor file(::open(at("a/file").c_str(), O_RDWR | O_CREAT, 0600));
    ASSERT_EQ(::rename(at("a").c_str(), at("b").c_str()), 0);
    EXPECT_EQ(put(file.get(), "text"), 4);
    EXPECT_EQ(::fsync(file.get()), 0);
    EXPECT_EQ(readFile(behind("b/file")), "text");
}

TEST_F(FilesTest, RenameTakesThePlaceOfWhatIsThereAndKnowsNoFlags) {
    mountData();
    write(at("new"), "new");
    write(at("old"), "old");
    EXPECT_EQ(errorOf(::renameat2(AT_FDCWD, at("new").c_str(), AT_FDCWD, at("other").c_str(),
                                  RENAME_NOREPLACE)),
              EINVAL);
    EXPECT_EQ(errorOf(::renameat2(AT_FDCWD, at("new").c_str(), AT_FDCWD, at("old").c_str(),
                                  RENAME_EXCHANGE)),
              EINVAL);
    EXPECT_EQ(::rename(at("new").c_str(), at("old").c_str()), 0);
    EXPECT_EQ(readFile(at("old")), "new");
    EXPECT_THAT(namesIn(m_data), UnorderedElementsAre("old"));
}

TEST_F(FilesTest, OpenFlagsDoWhatTheySay) {
    mountData();
    write(at("file"), "text");
    EXPECT_EQ(errorOf(::open(at("file").c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600)), EEXIST);
    const FileDescriptor end(::open(at("file").c_str(), O_WRONLY | O_APPEND));
    EXPECT_EQ(put(end.get(), "+1"), 2);
    EXPECT_EQ(put(end.get(), "+2"), 2);
    EXPECT_EQ(readFile(at("file")), "text+1+2");
    const FileDescriptor cut(::open(at("file").c_str(), O_WRONLY | O_TRUNC));
    EXPECT_EQ(statOf(at("file")).st_size, 0);
    EXPECT_EQ(::pwrite(cut.get(), "x", 1, 100'000), 1);
    EXPECT_EQ(::fsync(cut.get()), 0);
    EXPECT_EQ(readFile(behind("file")), std::string(100'000, '\0') + "x");
}

TEST_F(FilesTest, AFileIsEmptiedWhileItsMakerHasItOpen) {
    mountData();
    write(at("first"), "");  // by which it is known what permissions files are given
    const FileDescriptor log(::open(at("log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600));
    EXPECT_EQ(put(log.get(), "text"), 4);
    const FileDescriptor cut(::open(at("log").c_str(), O_WRONLY | O_TRUNC));
    EXPECT_EQ(statOf(at("log")).st_size, 0);
    EXPECT_EQ(put(log.get(), "more"), 4);
    EXPECT_EQ(::fsync(log.get()), 0);
    EXPECT_EQ(readFile(behind("log")), "more");
}

TEST_F(FilesTest, ACreationThatSomebodyElseWasFasterWithOpensTheFile) {
    mountData();
    ASSERT_EQ(::mkdir(at("folder").c_str(), 0755), 0);  // known to be empty
    write(behind("folder/file"), "theirs");
    EXPECT_EQ(errorOf(::open(at("folder/file").c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600)),
              EEXIST);
    const FileDescriptor file(::open(at("folder/file").c_str(), O_RDWR | O_CREAT, 0600));
    char bytes[7] = {};
    EXPECT_EQ(::pread(file.get(), bytes, 6, 0), 6);
    EXPECT_STREQ(bytes, "theirs");
}

TEST_F(FilesTest, PermissionsThatTheOtherSideHoldsBackAreGivenAfterwards) {
    const mode_t old = ::umask(0);
    mountData();
    m_files->onAsk([](const std::string& operation) {
        ::umask(operation == "makeFolder" || operation == "create" ? 077 : 0);
    });
    EXPECT_EQ(::mkdir(at("folder").c_str(), 0775), 0);
    write(at("file"), "");
    EXPECT_EQ(statOf(at("folder")).st_mode & 0777U, 0775u);
    EXPECT_EQ(statOf(behind("folder")).st_mode & 0777U, 0775u);
    EXPECT_EQ(statOf(behind("file")).st_mode & 0777U, 0666u);
    ::umask(old);
}

TEST_F(FilesTest, ChangesOfTheOtherSideAreSeenAfterTheTimeout) {
    write(behind("file"), "old");
    mountData("attr_timeout=0,entry_timeout=0");
    EXPECT_EQ(readFile(at("file")), "old");
    write(behind("file"), "newer");
    EXPECT_TRUE(waitUntil([&] { return readFile(at("file")) == "newer"; }));
    ::unlink(behind("file").c_str());
    EXPECT_TRUE(waitUntil([&] { return ::access(at("file").c_str(), F_OK) != 0; }));
}

TEST_F(FilesTest, TimesThatCannotBeSetSpoilNothing) {
    mountData();
    write(at("file"), "");
    const time_t before = statOf(at("file")).st_mtim.tv_sec;
    const struct timespec times[2] = {{1000, 0}, {2000, 0}};
    EXPECT_EQ(::utimensat(AT_FDCWD, at("file").c_str(), times, 0), 0);
    EXPECT_EQ(statOf(at("file")).st_mtim.tv_sec, before);
}

TEST_F(FilesTest, TimesThatCanBeSetAre) {
    mountData();
    m_files->keepTimes(true);
    write(at("file"), "text");
    const struct timespec times[2] = {{1000, 0}, {2000, 0}};
    EXPECT_EQ(::utimensat(AT_FDCWD, at("file").c_str(), times, 0), 0);
    EXPECT_EQ(statOf(at("file")).st_mtim.tv_sec, 2000);
    EXPECT_EQ(statOf(at("file")).st_atim.tv_sec, 1000);
    const struct timespec only[2] = {{0, UTIME_OMIT}, {3000, 0}};
    EXPECT_EQ(::utimensat(AT_FDCWD, at("file").c_str(), only, 0), 0);
    EXPECT_EQ(statOf(behind("file")).st_mtim.tv_sec, 3000);
    EXPECT_EQ(statOf(behind("file")).st_atim.tv_sec, 1000);
}

TEST_F(FilesTest, TimesThatNanosecondsCannotSayBecomeTheFirstOrTheLastThatTheyCan) {
    mountData();
    m_files->keepTimes(true);
    write(at("file"), "text");
    constexpr time_t kYear = 365 * 24 * 3600;
    for (const time_t years : {250, 530, 100'000}) {
        const struct timespec late[2] = {{years * kYear, 999'999'999}, {years * kYear, 0}};
        EXPECT_EQ(::utimensat(AT_FDCWD, at("file").c_str(), late, 0), 0);
        EXPECT_GE(statOf(at("file")).st_mtim.tv_sec, 250 * kYear) << years;
        const struct timespec early[2] = {{-years * kYear, 0}, {-years * kYear, 0}};
        EXPECT_EQ(::utimensat(AT_FDCWD, at("file").c_str(), early, 0), 0);
        EXPECT_LT(statOf(at("file")).st_mtim.tv_sec, -50 * kYear) << years;
    }
}

// Lets the owner read, whatever is asked, and leaves folders as they are.
class LenientFileSystem : public LocalFileSystem {
public:
    using LocalFileSystem::LocalFileSystem;

    std::optional<std::uint32_t> chmod(std::string_view path, std::uint32_t mode) override {
        if (stat(path).isDirectory()) return std::nullopt;
        return LocalFileSystem::chmod(path, mode | 0400U);
    }
};

TEST_F(FilesTest, PermissionsAreShownAsTheOtherSideHasTakenThem) {
    m_machine.offer("Data", std::make_shared<LenientFileSystem>(m_data));
    mount();
    write(at("file"), "text");
    EXPECT_EQ(::chmod(at("file").c_str(), 0), 0);
    EXPECT_EQ(statOf(at("file")).st_mode & 07777U, 0400u);
    ASSERT_EQ(::mkdir(at("folder").c_str(), 0755), 0);
    EXPECT_EQ(::chmod(at("folder").c_str(), 0700), 0);
    EXPECT_EQ(statOf(at("folder")).st_mode & 07777U, 0755u);
}

TEST_F(FilesTest, WhatTheMountCannotDoFailsAsOnOtherNetworkFileSystems) {
    mountData();
    write(at("file"), "text");
    EXPECT_EQ(::chown(at("file").c_str(), ::getuid(), ::getgid()), 0);
    EXPECT_EQ(errorOf(::chown(at("file").c_str(), ::getuid() + 1, ::getgid())), EPERM);
    EXPECT_EQ(errorOf(::setxattr(at("file").c_str(), "user.x", "1", 1, 0)), EOPNOTSUPP);
    EXPECT_EQ(errorOf(::getxattr(at("file").c_str(), "user.x", nullptr, 0)), EOPNOTSUPP);
    const FileDescriptor file(::open(at("file").c_str(), O_RDWR));
    EXPECT_EQ(errorOf(::fallocate(file.get(), 0, 0, 4096)), EOPNOTSUPP);
    EXPECT_EQ(::posix_fallocate(file.get(), 0, 4096), 0);  // by writing
    EXPECT_EQ(statOf(at("file")).st_size, 4096);
}

TEST_F(FilesTest, LinksNodesAndVolumesAreThere) {
    mountData();
    write(at("file"), "text");
    EXPECT_EQ(::symlink("file", at("soft").c_str()), 0);
    EXPECT_EQ(readFile(at("soft")), "text");
    EXPECT_EQ(std::filesystem::read_symlink(at("soft")), "file");
    EXPECT_EQ(statOf(at("file")).st_nlink, 1u);
    EXPECT_EQ(::link(at("file").c_str(), at("hard").c_str()), 0);
    EXPECT_EQ(statOf(at("file")).st_nlink, 2u);
    EXPECT_EQ(statOf(at("hard")).st_ino, statOf(at("file")).st_ino);
    EXPECT_EQ(::mkfifo(at("pipe").c_str(), 0600), 0);
    EXPECT_TRUE(S_ISFIFO(statOf(behind("pipe")).st_mode));
    struct statvfs here {
    }, there{};
    ASSERT_EQ(::statvfs(at("file").c_str(), &here), 0);
    ASSERT_EQ(::statvfs(m_data.c_str(), &there), 0);
    EXPECT_EQ(here.f_blocks * here.f_frsize, there.f_blocks * there.f_frsize);
    EXPECT_EQ(::statvfs(m_point.c_str(), &here), 0);
    EXPECT_EQ(here.f_blocks * here.f_frsize, there.f_blocks * there.f_frsize);
}

TEST_F(FilesTest, WhetherAFileMayBeRunIsToldByItsPermissions) {
    write(behind("plain"), "");
    write(behind("script"), "");
    ::chmod(behind("script").c_str(), 0755);
    mountData();
    EXPECT_EQ(errorOf(::access(at("plain").c_str(), X_OK)), EACCES);
    EXPECT_EQ(::access(at("script").c_str(), X_OK), 0);
    EXPECT_EQ(::access(at("plain").c_str(), R_OK | W_OK), 0);
    EXPECT_EQ(::access(at("").c_str(), X_OK), 0);
}

TEST_F(FilesTest, ARefusalOfTheOtherSideIsItsErrno) {
    mountData();
    write(at("file"), "text");
    m_files->onAsk([](const std::string&) { throw peer::RemoteError(EROFS, "no"); });
    EXPECT_EQ(errorOf(::open(at("file").c_str(), O_WRONLY)), EROFS);
    EXPECT_EQ(errorOf(::mkdir(at("folder").c_str(), 0755)), EROFS);
}

TEST_F(FilesTest, AMountThatIsReadOnlyRefusesToWrite) {
    write(behind("file"), "text");
    mountData("ro");
    EXPECT_EQ(errorOf(::open(at("file").c_str(), O_WRONLY)), EROFS);
    EXPECT_EQ(readFile(at("file")), "text");
}

}  // namespace
