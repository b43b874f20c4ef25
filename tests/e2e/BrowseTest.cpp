// drives, ls, stat and rm, from program to program.
#include <sys/stat.h>

#include <algorithm>
#include <fstream>

#include "e2e/ToolsFixture.h"

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class BrowseTest : public ToolsFixture {};

TEST_F(BrowseTest, DrivesShowsEachSharedFolder) {
    start({m_share, m_folder.folder("More")});

    const Outcome outcome = fdmount({"drives"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("\nMac-Data  disk"));
    EXPECT_THAT(outcome.out, HasSubstr("\nMac-More  disk"));
}

TEST_F(BrowseTest, FoldersOfOneNameBecomeDrivesOfTheirOwn) {
    start({m_share, m_folder.folder("other/Data")});

    EXPECT_EQ(fdmount({"ls"}).out, "Mac-Data\nMac-Data 2\n");
}

TEST_F(BrowseTest, LsShowsTenThousandEntries) {
    constexpr int kCount = 10000;
    std::string expected;
    std::vector<std::string> names;
    for (int i = 0; i < kCount; ++i) {
        names.push_back("file" + std::to_string(i));
        m_folder.file("Data/" + names.back());
    }
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) expected += name + "\n";
    share();

    const Outcome outcome = fdmount({"ls", "Mac-Data"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_TRUE(outcome.out == expected) << outcome.out.substr(0, 200);
}

TEST_F(BrowseTest, LsInLongFormShowsModeAttributesSizeAndTime) {
    ::chmod(m_folder.file("Data/read-only", "12345").c_str(), 0444);
    ::chmod(m_folder.folder("Data/sub").c_str(), 0755);
    share();

    const Outcome outcome = fdmount({"ls", "-l", "Mac-Data"});
    EXPECT_THAT(outcome.out,
                ::testing::ContainsRegex("-r--r--r-- R----- +5 2[0-9-]+ [0-9:]+ read-only\n"));
    EXPECT_THAT(outcome.out,
                ::testing::ContainsRegex("drwxr-xr-x ---D-- +[0-9]+ 2[0-9-]+ [0-9:]+ sub\n"));
}

TEST_F(BrowseTest, LsTakesNamesWithNewlinesBlanksAndOtherScripts) {
    m_folder.file("Data/a\nb");
    m_folder.file("Data/two words");
    m_folder.file("Data/\u65E5\u672C \U0001F600");
    share();

    EXPECT_EQ(fdmount({"ls", "Mac-Data"}).out, "a\nb\ntwo words\n\u65E5\u672C \U0001F600\n");
}

TEST_F(BrowseTest, LsOfAFileShowsTheFile) {
    m_folder.file("Data/one");
    share();
    EXPECT_EQ(fdmount({"ls", "Mac-Data/one"}).out, "Mac-Data/one\n");
}

TEST_F(BrowseTest, LsHidesDotFilesUnlessAsked) {
    m_folder.file("Data/.hidden");
    share();
    EXPECT_EQ(fdmount({"ls", "Mac-Data"}).out, "");
    EXPECT_EQ(fdmount({"ls", "-a", "Mac-Data"}).out, ".hidden\n");
}

TEST_F(BrowseTest, StatShowsAFileAndTheVolumeOfADrive) {
    m_folder.file("Data/one", "12345");
    share();
    const Outcome outcome = fdmount({"stat", "Mac-Data/one", "Mac-Data"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_THAT(outcome.out, StartsWith("Name:       Mac-Data/one\nKind:       regular file\n"
                                        "Size:       5\n"));
    EXPECT_THAT(outcome.out, HasSubstr("Volume: "));
}

TEST_F(BrowseTest, StatOfAFifoDoesNotWaitForAWriter) {
    ASSERT_EQ(::mkfifo(m_folder.str("Data/fifo").c_str(), 0600), 0);
    share();
    EXPECT_THAT(fdmount({"stat", "Mac-Data/fifo"}).out, HasSubstr("Kind:       FIFO"));
    expectFailure(fdmount({"get", "Mac-Data/fifo", m_here}),
                  "Mac-Data/fifo: is not a regular file");
}

TEST_F(BrowseTest, RmRemovesFilesAndKeepsGoing) {
    m_folder.file("Data/one");
    m_folder.file("Data/two");
    share();
    const Outcome outcome = fdmount({"rm", "Mac-Data/one", "Mac-Data/none", "Mac-Data/two"});
    expectFailure(outcome, "Mac-Data/none: no such file or directory (VERR_FILE_NOT_FOUND)");
    EXPECT_THAT(namesIn(m_share), IsEmpty());
}

TEST_F(BrowseTest, RmLeavesFoldersUnlessAskedAndFullOnesAnyway) {
    m_folder.folder("Data/empty");
    m_folder.file((m_folder.folder("Data/full"), "Data/full/one"));
    share();
    expectFailure(fdmount({"rm", "Mac-Data/empty"}), "Mac-Data/empty: is a directory");
    EXPECT_EQ(fdmount({"rm", "-d", "Mac-Data/empty"}).exitCode, 0);
    expectFailure(fdmount({"rm", "-d", "Mac-Data/full"}),
                  "Mac-Data/full: directory not empty (VERR_DIR_NOT_EMPTY)");
    expectFailure(fdmount({"rm", "Mac-Data"}), "Mac-Data: is a drive");
}

TEST_F(BrowseTest, ADriveThatIsNotOfferedIsNamed) {
    share();
    expectFailure(fdmount({"ls", "Nope/x"}), "Nope: no such drive; offered: Mac-Data");
}

TEST_F(BrowseTest, TraceShowsEachMessageBothWays) {
    m_folder.file("Data/one");
    share();
    const Outcome outcome = fdmount({"--trace", "ls", "Mac-Data"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.err, StartsWith("< handshake: version 61 (15 bytes)\n> policy: word 0x5b"));
    EXPECT_THAT(outcome.err, HasSubstr("\n< map-add: id 0, 'Mac-Data', total "));
    EXPECT_THAT(outcome.err, HasSubstr("'\\\\*', flags 0x0, limit 65536"));
    EXPECT_THAT(outcome.err, HasSubstr("ended"));
}

TEST_F(BrowseTest, WrongUsageHasItsExitCode) {
    EXPECT_EQ(run({FDMOUNT}, {}).exitCode, 2);
    EXPECT_EQ(run({FDMOUNT, "http://x", "drives"}, {}).exitCode, 2);
    EXPECT_EQ(run({FDMOUNT, "unix:/x", "fly", "away"}, {}).exitCode, 2);
    EXPECT_EQ(run({FDMOUNT, "unix:/x", "get"}, {}).exitCode, 2);
    EXPECT_EQ(run({FDSHARE}, {}).exitCode, 2);
    EXPECT_EQ(run({FDSHARE, "--stdio", "--listen", "unix:/x"}, {}).exitCode, 2);
    EXPECT_EQ(run({FDSHARE, "--listen", "/x"}, {}).exitCode, 2);
    EXPECT_EQ(run({FDSHARE, "--help"}, {}).exitCode, 0);
    EXPECT_EQ(run({FDMOUNT, "--help"}, {}).exitCode, 0);
}

}  // namespace
