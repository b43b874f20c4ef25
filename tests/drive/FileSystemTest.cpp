// What people do with files, on a drive of the real plug-in, in both dialects.
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <thread>

#include "drive/DriveFixture.h"

namespace {

using peer::Dialect;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FileSystemTest : public DriveFixture, public ::testing::WithParamInterface<Dialect> {
protected:
    void SetUp() override { use(GetParam()); }
    bool isWindows() const { return GetParam() == Dialect::kWindows; }

    struct stat hereStat(std::string_view name) const {
        struct stat info {};
        EXPECT_EQ(::lstat(here(name).c_str(), &info), 0) << name;
        return info;
    }
    bool isHere(std::string_view name) const {
        return ::faccessat(AT_FDCWD, here(name).c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
    }
};

INSTANTIATE_TEST_SUITE_P(Dialects, FileSystemTest,
                         ::testing::Values(Dialect::kLinux, Dialect::kWindows),
                         [](const auto& dialect) {
                             return dialect.param == Dialect::kLinux ? "Linux" : "Windows";
                         });

TEST_P(FileSystemTest, AFileIsWrittenAndReadBack) {
    put("note.txt", "hello");
    EXPECT_EQ(readFile(here("note.txt")), "hello");
    EXPECT_EQ(get("note.txt"), "hello");
    EXPECT_EQ(stat("note.txt").size, 5);
}

TEST_P(FileSystemTest, ABlockOfAnySizeGoesToAnyOffset) {
    std::string expected;
    const auto file = drive().create(at("file"), O_RDWR, 0644);
    for (const std::size_t size : {1U, 511U, 512U, 513U, 4095U, 65537U, 1U << 20}) {
        const std::string block(size, static_cast<char>('a' + size % 26));
        EXPECT_EQ(file->write(expected.size(), peer::viewOf(block))(), size);
        expected += block;
    }
    EXPECT_EQ(readFile(here("file")), expected);
    for (const std::size_t offset : {0U, 1U, 510U, 1023U, 70001U}) {
        for (const std::size_t length : {1U, 7U, 511U, 513U, 65536U}) {
            const peer::Data data = file->read(offset, length)();
            EXPECT_EQ(peer::textOf(data.bytes), expected.substr(offset, length))
                << length << " at " << offset;
        }
    }
}

TEST_P(FileSystemTest, AReadEndsWithTheFile) {
    put("file", std::string(1000, 'x'));
    const auto file = drive().open(at("file"), O_RDONLY);
    EXPECT_EQ(file->read(900, 4096)().bytes.size(), 100U);
    EXPECT_EQ(file->read(999, 1)().bytes.size(), 1U);
    EXPECT_EQ(file->read(1000, 4096)().bytes.size(), 0U);
    EXPECT_EQ(file->read(5'000'000'000, 100)().bytes.size(), 0U);
    EXPECT_EQ(file->read(0, 0)().bytes.size(), 0U);
}

TEST_P(FileSystemTest, ManyTransfersOfOneFileAreUnderWayAtATime) {
    constexpr std::size_t kBlock = 100'000;
    const auto file = drive().create(at("file"), O_RDWR, 0644);
    std::vector<std::string> blocks;
    for (char c = 'a'; c <= 'z'; ++c) blocks.emplace_back(kBlock, c);

    std::vector<peer::File::Writing> writes;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        writes.push_back(file->write(i * kBlock, peer::viewOf(blocks[i])));
    }
    for (const auto& write : writes) EXPECT_EQ(write(), kBlock);
    std::vector<peer::File::Reading> reads;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        reads.push_back(file->read(i * kBlock, kBlock));
    }
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        EXPECT_EQ(peer::textOf(reads[i]().bytes), blocks[i]);
    }
}

TEST_P(FileSystemTest, CreatingRefusesWhatIsThereAlready) {
    put("file", "old");
    ::mkdir(here("folder").c_str(), 0755);
    EXPECT_EQ(errorOf([&] { drive().create(at("file"), O_WRONLY, 0644); }), EEXIST);
    EXPECT_EQ(errorOf([&] { drive().create(at("folder"), O_WRONLY, 0644); }), EEXIST);
    EXPECT_EQ(errorOf([&] { drive().makeFolder(at("file"), 0755); }), EEXIST);
    EXPECT_EQ(errorOf([&] { drive().makeFolder(at("folder"), 0755); }), EEXIST);
    EXPECT_EQ(errorOf([&] { drive().create(at("none/file"), O_WRONLY, 0644); }), ENOENT);
    EXPECT_EQ(readFile(here("file")), "old");
}

TEST_P(FileSystemTest, OpeningRefusesWhatIsNotThereAndFolders) {
    ::mkdir(here("folder").c_str(), 0755);
    EXPECT_EQ(errorOf([&] { drive().open(at("none"), O_RDONLY); }), ENOENT);
    EXPECT_EQ(errorOf([&] { drive().open(at("folder"), O_WRONLY); }), EISDIR);
    EXPECT_EQ(errorOf([&] { drive().stat(at("none")); }), ENOENT);
    EXPECT_EQ(errorOf([&] { drive().stat(at("none/deeper")); }), ENOENT);
    EXPECT_THAT(names(""), ElementsAre("folder"));
}

TEST_P(FileSystemTest, OpeningMayEmptyAFile) {
    put("file", "long content");
    const auto file = drive().open(at("file"), O_WRONLY | O_TRUNC);
    EXPECT_EQ(stat("file").size, 0);
    file->write(0, peer::viewOf("new"))();
    EXPECT_EQ(readFile(here("file")), "new");
}

TEST_P(FileSystemTest, AFileKeepsTheModeThatItWasMadeWith) {
    put("plain", "", 0644);
    put("program", "", 0755);
    put("private", "", 0600);
    EXPECT_EQ(stat("plain").mode, 0100644U);
    EXPECT_EQ(stat("program").mode, 0100755U);
    EXPECT_EQ(stat("private").mode, 0100600U);
    EXPECT_EQ(hereStat("program").st_mode, 0100755U);
    EXPECT_EQ(drive().open(at("plain"), O_RDONLY)->stat().mode, 0100644U);
}

TEST_P(FileSystemTest, PermissionsAreChanged) {
    put("file", "text", 0644);
    drive().chmod(at("file"), 0755);
    EXPECT_EQ(hereStat("file").st_mode, 0100755U);
    EXPECT_EQ(stat("file").mode, 0100755U);
    drive().chmod(at("file"), 0440);
    EXPECT_EQ(hereStat("file").st_mode, 0100440U);
    EXPECT_EQ(errorOf([&] { drive().chmod(at("none"), 0644); }), ENOENT);
}

TEST_P(FileSystemTest, SizesAreChanged) {
    put("file", "0123456789");
    drive().truncate(at("file"), 4);
    EXPECT_EQ(readFile(here("file")), "0123");
    drive().truncate(at("file"), 6);
    EXPECT_EQ(readFile(here("file")), std::string("0123\0\0", 6));
    drive().truncate(at("file"), 0);
    EXPECT_EQ(readFile(here("file")), "");
    drive().open(at("file"), O_RDWR)->truncate(3);
    EXPECT_EQ(stat("file").size, 3);
    EXPECT_EQ(errorOf([&] { drive().truncate(at("none"), 3); }), ENOENT);
}

TEST_P(FileSystemTest, AFileOfMoreThanFourGigabytesIsReachedEverywhere) {
    constexpr std::int64_t kSize = 5'000'000'000;
    put("file", "begin");
    drive().truncate(at("file"), kSize);
    const auto file = drive().open(at("file"), O_RDWR);
    EXPECT_EQ(file->stat().size, kSize);
    file->write(kSize - 3, peer::viewOf("end"))();
    EXPECT_EQ(peer::textOf(file->read(kSize - 3, 100)().bytes), "end");
}

TEST_P(FileSystemTest, TimesAreSetWhereTheDialectCan) {
    put("file", "text");
    constexpr peer::Time kAccessed = 1'234'567'890'123'456'000;
    constexpr peer::Time kModified = 1'000'000'000'000'001'000;
    if (!drive().keepsTimes()) {
        EXPECT_EQ(errorOf([&] { drive().setTimes(at("file"), kAccessed, kModified); }), ENOSYS);
        return;
    }
    drive().setTimes(at("file"), kAccessed, kModified);
    EXPECT_EQ(stat("file").accessed, kAccessed);
    EXPECT_EQ(stat("file").modified, kModified);
    drive().open(at("file"), O_RDONLY)->setTimes(0, -500'000'000);  // to the second before
    EXPECT_EQ(hereStat("file").st_atim.tv_sec, 0);
    EXPECT_EQ(hereStat("file").st_mtim.tv_sec, -1);
}

TEST_P(FileSystemTest, ARenameReplaces) {
    put("draft", "new");
    put("text", "old");
    drive().rename(at("draft"), at("text"));
    EXPECT_THAT(names(""), ElementsAre("text"));
    EXPECT_EQ(get("text"), "new");
    EXPECT_EQ(errorOf([&] { drive().rename(at("none"), at("text")); }), ENOENT);
    EXPECT_EQ(readFile(here("text")), "new");
}

TEST_P(FileSystemTest, AFolderMovesWithAllThatIsInIt) {
    drive().makeFolder(at("a"), 0755);
    drive().makeFolder(at("b"), 0755);
    put("a/file", "text");
    drive().rename(at("a"), at("b/c"));
    EXPECT_EQ(get("b/c/file"), "text");
    drive().makeFolder(at("full"), 0755);
    put("full/file", "");
    EXPECT_EQ(errorOf([&] { drive().rename(at("b"), at("full")); }), ENOTEMPTY);
    EXPECT_NE(errorOf([&] { drive().rename(at("b"), at("b/c/d")); }), 0);
}

TEST_P(FileSystemTest, AnOpenFileSurvivesARenameAndARemoval) {
    put("file", "text");
    const auto file = drive().open(at("file"), O_RDONLY);
    drive().rename(at("file"), at("other"));
    EXPECT_EQ(peer::textOf(file->read(0, 10)().bytes), "text");
}

TEST_P(FileSystemTest, FilesAndFoldersAreRemoved) {
    put("file", "");
    drive().makeFolder(at("folder"), 0755);
    put("folder/file", "");
    EXPECT_EQ(errorOf([&] { drive().remove(at("folder")); }), EISDIR);
    EXPECT_EQ(errorOf([&] { drive().removeFolder(at("file")); }), ENOTDIR);
    EXPECT_EQ(errorOf([&] { drive().removeFolder(at("folder")); }), ENOTEMPTY);
    EXPECT_EQ(errorOf([&] { drive().remove(at("none")); }), ENOENT);
    EXPECT_EQ(errorOf([&] { drive().removeFolder(at("none")); }), ENOENT);
    EXPECT_TRUE(isHere("folder/file"));
    EXPECT_TRUE(isHere("file"));

    drive().remove(at("folder/file"));
    drive().removeFolder(at("folder"));
    drive().remove(at("file"));
    EXPECT_THAT(names(""), IsEmpty());
}

TEST_P(FileSystemTest, AnEmptyFolderIsNoFileToRemove) {
    drive().makeFolder(at("folder"), 0755);
    EXPECT_EQ(errorOf([&] { drive().remove(at("folder")); }), EISDIR);
    EXPECT_TRUE(isHere("folder"));
}

TEST_P(FileSystemTest, TenThousandEntriesAreListedWithTheirAttributes) {
    constexpr int kFiles = 10'000;
    ::mkdir(here("many").c_str(), 0755);
    for (int i = 0; i < kFiles; ++i) {
        m_folder.file("Data/many/a file with number " + std::to_string(i), "12345");
    }
    std::vector<std::string> all;
    drive().list(at("many"), [&](std::vector<peer::DirEntry> entries) {
        for (peer::DirEntry& entry : entries) {
            EXPECT_EQ(entry.attributes.size, 5);
            EXPECT_TRUE(entry.attributes.isRegular());
            all.push_back(std::move(entry.name));
        }
    });
    EXPECT_EQ(all.size(), std::size_t{kFiles});
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::unique(all.begin(), all.end()), all.end());
}

TEST_P(FileSystemTest, AnEmptyFolderHasNoEntries) {
    drive().makeFolder(at("empty"), 0755);
    EXPECT_THAT(names("empty"), IsEmpty());
    EXPECT_TRUE(stat("empty").isDirectory());
    EXPECT_TRUE(stat("").isDirectory());
}

TEST_P(FileSystemTest, ListingRefusesWhatIsNoFolder) {
    put("file", "");
    EXPECT_EQ(errorOf([&] { names("none"); }), ENOENT);
    EXPECT_NE(errorOf([&] { names("file"); }), 0);
}

TEST_P(FileSystemTest, NamesAreWhatTheyAre) {
    const std::vector<std::string> unusual{"a b",   " leading", "trailing ", "trailing.",
                                           "a:b",   "con",      "NUL.txt",   "q?",
                                           "a*b",   "star*",    "<>|\"",     "-f",
                                           "~",     "\xC3\xA4", "a\u0308",   "\xF0\x9F\x98\x80",
                                           "\x01x", "new\nline"};
    for (const std::string& name : unusual) put(name, name);
    EXPECT_THAT(names(""), ::testing::UnorderedElementsAreArray(unusual));
    for (const std::string& name : unusual) {
        EXPECT_EQ(stat(name).size, static_cast<std::int64_t>(name.size())) << name;
        EXPECT_EQ(get(name), name);
        EXPECT_TRUE(isHere(name)) << name;
        drive().rename(at(name), at(name + "2"));
        drive().remove(at(name + "2"));
    }
    EXPECT_THAT(names(""), IsEmpty());
}

TEST_P(FileSystemTest, AFolderMayEndInAStar) {
    drive().makeFolder(at("all*"), 0755);
    put("all*/file*", "text");
    EXPECT_THAT(names("all*"), ElementsAre("file*"));
    EXPECT_EQ(stat("all*/file*").size, 4);
    drive().remove(at("all*/file*"));
    drive().removeFolder(at("all*"));
    EXPECT_EQ(errorOf([&] { stat("all*"); }), ENOENT);
}

TEST_P(FileSystemTest, NamesThatDifferInCaseAreDifferent) {
    put("readme", "small");
    put("README", "large");
    EXPECT_EQ(get("README"), "large");
    drive().remove(at("README"));
    EXPECT_EQ(errorOf([&] { drive().remove(at("ReadMe")); }), ENOENT);
    EXPECT_EQ(errorOf([&] { stat("ReadMe"); }), ENOENT);
    drive().rename(at("readme"), at("Readme"));
    EXPECT_THAT(names(""), ElementsAre("Readme"));
}

// "Tmp", "Media" and "Dev" are in the root of the other side as "tmp", "media" and "dev".
TEST_P(FileSystemTest, NamesOfTheOtherSidesRootHaveNoMeaningOnTheDrive) {
    for (const std::string name : {"Media", "media", "Dev", "dev", "Tmp", "tmp"}) {
        drive().makeFolder(at(name), 0755);
        put(name + "/in " + name, "");
    }
    for (const std::string name : {"Media", "media", "Dev", "dev", "Tmp", "tmp"}) {
        EXPECT_THAT(names(name), ElementsAre("in " + name));
        EXPECT_EQ(stat(name + "/in " + name).size, 0);
        drive().rename(at(name + "/in " + name), at(name + "/x"));
        drive().remove(at(name + "/x"));
        drive().removeFolder(at(name));
        EXPECT_FALSE(isHere(name));
    }
}

TEST_P(FileSystemTest, ANameOf255BytesIsTheLongest) {
    const std::string longest(255, 'n');
    put(longest, "text");
    EXPECT_EQ(stat(longest).size, 4);
    EXPECT_THAT(names(""), ElementsAre(longest));
    EXPECT_EQ(errorOf([&] { put(longest + "n", ""); }), ENAMETOOLONG);
}

TEST_P(FileSystemTest, WhatIsNeitherFileNorFolderIsSeenAndNotOpened) {
    ::mkfifo(here("pipe").c_str(), 0644);
    EXPECT_EQ(stat("pipe").mode & 0170000U, 0010000U);
    EXPECT_THAT(names(""), ElementsAre("pipe"));
    if (isWindows()) {
        EXPECT_EQ(errorOf([&] { drive().open(at("pipe"), O_RDONLY); }), ENXIO);
        EXPECT_EQ(errorOf([&] { drive().truncate(at("pipe"), 0); }), ENXIO);
        EXPECT_EQ(errorOf([&] { drive().chmod(at("pipe"), 0600); }), EPERM);
    }
    drive().remove(at("pipe"));
    EXPECT_FALSE(isHere("pipe"));
}

TEST_P(FileSystemTest, TheVolumeIsThatOfTheFolder) {
    struct statvfs info {};
    ASSERT_EQ(::statvfs(m_share.c_str(), &info), 0);
    const peer::Volume volume = drive().volume();
    EXPECT_EQ(volume.blocks * volume.blockSize, info.f_blocks * info.f_frsize);
    EXPECT_LE(volume.availableBlocks, volume.blocks);
    EXPECT_GT(volume.availableBlocks, 0U);
    EXPECT_EQ(volume.maxName, 255U);
    EXPECT_FALSE(volume.readOnly);
}

TEST_P(FileSystemTest, InodesAreStableAndDiffer) {
    put("one", "");
    put("two", "");
    const std::uint64_t one = stat("one").inode;
    EXPECT_NE(one, stat("two").inode);
    EXPECT_EQ(one, stat("one").inode);
    drive().list(at(""), [&](const std::vector<peer::DirEntry>& entries) {
        for (const auto& entry : entries) {
            EXPECT_EQ(entry.attributes.inode, stat(entry.name).inode) << entry.name;
        }
    });
}

TEST_P(FileSystemTest, SixteenThreadsWorkAtATime) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 16; ++t) {
        threads.emplace_back([this, t] {
            const std::string folder = "thread " + std::to_string(t);
            drive().makeFolder(at(folder), 0755);
            for (int i = 0; i < 20; ++i) {
                const std::string name = folder + "/" + std::to_string(i);
                put(name, name);
                EXPECT_EQ(stat(name).size, static_cast<std::int64_t>(name.size()));
                drive().rename(at(name), at(name + "x"));
                EXPECT_EQ(get(name + "x"), name);
            }
            EXPECT_EQ(names(folder).size(), 20U);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(names("").size(), 16U);
}

TEST_P(FileSystemTest, ALostMachineIsASessionError) {
    put("file", "text");
    const auto file = drive().open(at("file"), O_RDONLY);
    m_connection.channel->interrupt();
    EXPECT_THROW(stat("file"), peer::SessionError);
    EXPECT_THROW(file->read(0, 4)(), peer::SessionError);
    EXPECT_THROW(names(""), peer::SessionError);
    EXPECT_THROW(put("other", ""), peer::SessionError);
}

}  // namespace
