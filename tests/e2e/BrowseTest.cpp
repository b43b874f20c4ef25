// drives, ls, stat and rm, from program to program.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "e2e/ToolsFixture.h"
#include "support/MountNamespace.h"

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class BrowseTest : public InEachDialect {};

TEST_P(BrowseTest, DrivesShowsEachSharedFolder) {
    start({m_share, m_folder.folder("More")});

    const Outcome outcome = fdmount({"drives"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("\n" + m_drive + "  disk"));
    EXPECT_THAT(outcome.out, HasSubstr("\n" + m_dialect.prefix + "More  disk"));
}

TEST_P(BrowseTest, FoldersOfOneNameBecomeDrivesOfTheirOwn) {
    start({m_share, m_folder.folder("other/Data")});

    EXPECT_EQ(fdmount({"ls"}).out, m_drive + "\n" + m_drive + " 2\n");
}

TEST_P(BrowseTest, DrivesOfOneNameAreToldApart) {
    inMountNamespace([this](const std::string& folder) {
        for (const char* where : {"/one/Data", "/two/Data"}) {
            mountTmpfs(folder + where);
            std::ofstream(folder + where + "/file") << where;
        }
        start({});
        const auto on = [&](std::vector<std::string> arguments) {
            arguments.insert(arguments.begin(), {"--mount-parents", folder});
            return fdmount(arguments);
        };
        // The other side tells such drives apart by itself in one of the dialects.
        const std::string second = m_drive + (m_dialect.prefix.empty() ? " (2)" : " 1");
        EXPECT_EQ(on({"ls"}).out, m_drive + "\n" + second + "\n");
        EXPECT_THAT(on({"drives"}).out, HasSubstr("\n'" + second + "'  disk"));
        EXPECT_EQ(on({"ls", second}).out, "file\n");
        EXPECT_EQ(on({"get", at("file"), "-"}).out, "/one/Data");
        EXPECT_EQ(on({"get", second + "/file", "-"}).out, "/two/Data");
        expectFailure(
            on({"ls", m_drive + " (3)"}),
            "'" + m_drive + " (3)': no such drive; offered: " + m_drive + ", '" + second + "'");
    });
}

TEST_P(BrowseTest, LsShowsTenThousandEntries) {
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

    const Outcome outcome = fdmount({"ls", m_drive});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_TRUE(outcome.out == expected) << outcome.out.substr(0, 200);
}

TEST_P(BrowseTest, LsInLongFormShowsModeAttributesSizeAndTime) {
    ::chmod(m_folder.file("Data/read-only", "12345").c_str(), 0444);
    ::chmod(m_folder.folder("Data/sub").c_str(), 0755);
    share();

    const auto attributes = [this](const std::string& text) {
        return m_dialect.tellsAttributes ? text + " " : "";
    };
    const Outcome outcome = fdmount({"ls", "-l", m_drive});
    EXPECT_THAT(outcome.out, ::testing::ContainsRegex("-r--r--r-- " + attributes("R-----") +
                                                      " *5 2[0-9-]+ [0-9:]+ read-only\n"));
    EXPECT_THAT(outcome.out, ::testing::ContainsRegex("drwxr-xr-x " + attributes("---D--") +
                                                      " *[0-9]+ 2[0-9-]+ [0-9:]+ sub\n"));
}

TEST_P(BrowseTest, LsTakesNamesWithNewlinesBlanksAndOtherScripts) {
    m_folder.file("Data/a\nb");
    m_folder.file("Data/two words");
    m_folder.file("Data/\u65E5\u672C \U0001F600");
    share();

    EXPECT_EQ(fdmount({"ls", m_drive}).out, "a\nb\ntwo words\n\u65E5\u672C \U0001F600\n");
}

TEST_P(BrowseTest, LsOfAFileShowsTheFile) {
    m_folder.file("Data/one");
    share();
    EXPECT_EQ(fdmount({"ls", at("one")}).out, at("one\n"));
}

TEST_P(BrowseTest, LsHidesDotFilesUnlessAsked) {
    m_folder.file("Data/.hidden");
    share();
    EXPECT_EQ(fdmount({"ls", m_drive}).out, "");
    EXPECT_EQ(fdmount({"ls", "-a", m_drive}).out, ".hidden\n");
}

TEST_P(BrowseTest, StatShowsAFileAndTheVolumeOfADrive) {
    m_folder.file("Data/one", "12345");
    share();
    const Outcome outcome = fdmount({"stat", at("one"), m_drive});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_THAT(outcome.out, StartsWith("Name:       " + at("one") +
                                        "\nKind:       regular file\n"
                                        "Size:       5\n"));
    EXPECT_THAT(outcome.out, HasSubstr("Volume: "));
}

TEST_P(BrowseTest, StatOfAFifoDoesNotWaitForAWriter) {
    ASSERT_EQ(::mkfifo(m_folder.str("Data/fifo").c_str(), 0600), 0);
    share();
    EXPECT_THAT(fdmount({"stat", at("fifo")}).out, HasSubstr("Kind:       FIFO"));
    expectFailure(fdmount({"get", at("fifo"), m_here}), at("fifo") + ": is not a regular file");
}

TEST_P(BrowseTest, RmRemovesFilesAndKeepsGoing) {
    m_folder.file("Data/one");
    m_folder.file("Data/two");
    share();
    const Outcome outcome = fdmount({"rm", at("one"), at("none"), at("two")});
    expectFailure(outcome, at("none") + ": " + m_dialect.noFile);
    EXPECT_THAT(namesIn(m_share), IsEmpty());
}

TEST_P(BrowseTest, RmLeavesFoldersUnlessAskedAndFullOnesAnyway) {
    m_folder.folder("Data/empty");
    m_folder.file((m_folder.folder("Data/full"), "Data/full/one"));
    share();
    expectFailure(fdmount({"rm", at("empty")}), at("empty") + ": is a directory");
    EXPECT_EQ(fdmount({"rm", "-d", at("empty")}).exitCode, 0);
    expectFailure(fdmount({"rm", "-d", at("full")}), at("full") + ": " + m_dialect.notEmpty);
    expectFailure(fdmount({"rm", m_drive}), m_drive + ": is a drive");
}

TEST_P(BrowseTest, ADriveThatIsNotOfferedIsNamed) {
    share();
    expectFailure(fdmount({"ls", "Nope/x"}), "Nope: no such drive; offered: " + m_drive);
}

TEST_P(BrowseTest, TraceShowsEachMessageBothWays) {
    m_folder.file("Data/one");
    share();
    const Outcome outcome = fdmount({"--trace", "ls", m_drive});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.err, StartsWith("< handshake: version 61 (15 bytes)\n> policy: word 0x"));
    const std::vector<std::string> lines =
        m_dialect.name == "windows"
            ? std::vector<std::string>{"\n< map-add: id 0, 'Mac-Data', total ",
                                       "'\\\\*', flags 0x0, limit 65536", "ended"}
            : std::vector<std::string>{"\n< plug map 1: 'Data', computer 'Mac', type 0x2",
                                       "\n> map map 1: res 0",
                                       "\n< map-ack map 1",
                                       "\n> readdir map 1 idx ",
                                       ": '/', size 65536 (",
                                       ": res 0, 1 entries: 'one' ("};
    for (const std::string& line : lines) EXPECT_THAT(outcome.err, HasSubstr(line));
}

TEST_P(BrowseTest, ASymbolicLinkIsShownAsTheDialectKnowsIt) {
    m_folder.file("Data/one", "12345");
    ::symlink("one", m_folder.str("Data/link").c_str());
    m_folder.folder("Data/sub");
    m_folder.file("Data/sub/two");
    ::symlink("sub", m_folder.str("Data/folder").c_str());
    share();
    EXPECT_THAT(fdmount({"stat", at("link")}).out,
                HasSubstr(m_dialect.name == "linux" ? "symbolic link\nTarget:     one\n"
                                                    : "regular file\nSize:       5\n"));
    EXPECT_EQ(fdmount({"ls", at("folder")}).out, "two\n");
    EXPECT_EQ(fdmount({"get", at("link"), "-"}).out, "12345");
    EXPECT_EQ(fdmount({"get", at("folder"), "-"}).err,
              "fdmount: " + at("folder") + ": is a directory\n");
}

TEST_P(BrowseTest, ALinkToAnEmptyFolderIsAnEmptyFolder) {
    m_folder.folder("Data/sub");
    ::symlink("sub", m_folder.str("Data/folder").c_str());
    share();
    const Outcome outcome = fdmount({"ls", at("folder")});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(outcome.out + outcome.err, "");
}

TEST_P(BrowseTest, SlashesAndDotsThatLeadNowhereAreNoNames) {
    m_folder.folder("Data/sub");
    m_folder.file("Data/sub/one", "12345");
    share();
    EXPECT_EQ(fdmount({"get", at("/sub//./one"), "-"}).out, "12345");
    EXPECT_EQ(fdmount({"ls", at("./sub/.")}).out, "one\n");
    EXPECT_EQ(fdmount({"ls", at("//.")}).out, "sub\n");
}

TEST_P(BrowseTest, StatKeepsGoing) {
    m_folder.file("Data/one", "12345");
    share();
    const Outcome outcome = fdmount({"stat", at("none"), at("one")});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.err, "fdmount: " + at("none") + ": " + m_dialect.noFile + "\n");
    EXPECT_THAT(outcome.out, HasSubstr("Size:       5\n"));
}

TEST_P(BrowseTest, AClosedStandardOutputIsAFailureAndNotTheChannel) {
    m_folder.file("Data/one", "12345");
    share();
    const auto closed = [this](const std::string& streams, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"/bin/sh", "-c", "exec \"$@\" " + streams, "sh",
                                             FDMOUNT, "--dialect", m_dialect.name, m_endpoint});
        return run(arguments, {});
    };
    expectFailure(closed(">&-", {"get", at("one"), "-"}), "standard output: Bad file descriptor");
    expectFailure(closed(">&-", {"ls", m_drive}), "standard output cannot be written");
    expectFailure(closed("<&-", {"put", "-", at("two")}), "standard input: Bad file descriptor");
    EXPECT_EQ(closed("<&- 2>&-", {"--trace", "get", at("one"), "-"}).out, "12345");
    EXPECT_THAT(namesIn(m_share), ::testing::ElementsAre("one"));
}

TEST_P(BrowseTest, AnOptionThatHasNoMeaningHereIsNamed) {
    const auto errorOf = [](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), FDMOUNT);
        const Outcome outcome = run(arguments, {});
        EXPECT_EQ(outcome.exitCode, 2);
        return outcome.err;
    };
    EXPECT_EQ(errorOf({"--dialect", "latin", "unix:/x", "drives"}),
              "fdmount: --dialect: latin is neither linux nor windows (see fdmount --help)\n");
    EXPECT_EQ(errorOf({"-o", "ro", "unix:/x", "drives"}),
              "fdmount: -o: is an option of a mount, not of a command (see fdmount --help)\n");
    EXPECT_EQ(errorOf({"unix:/x", "drives", "-f"}),
              "fdmount: -f: is an option of a mount, not of a command (see fdmount --help)\n");
}

TEST_P(BrowseTest, WrongUsageHasItsExitCode) {
    EXPECT_EQ(run({FDMOUNT}, {}).exitCode, 2);
    EXPECT_EQ(run({FDMOUNT, "http://x", "drives"}, {}).exitCode, 2);
    EXPECT_EQ(run({FDMOUNT, "unix:/x", "fly", "away"}, {}).exitCode, 2);
    EXPECT_EQ(run({FDMOUNT, "--dialect", "latin", "unix:/x", "drives"}, {}).exitCode, 2);
    EXPECT_EQ(run({FDMOUNT, "unix:/x", "get"}, {}).exitCode, 2);
    EXPECT_EQ(run({FDSHARE}, {}).exitCode, 2);
    EXPECT_EQ(run({FDSHARE, "--stdio", "--listen", "unix:/x"}, {}).exitCode, 2);
    EXPECT_EQ(run({FDSHARE, "--listen", "/x"}, {}).exitCode, 2);
    EXPECT_EQ(run({FDSHARE, "--help"}, {}).exitCode, 0);
    EXPECT_EQ(run({FDMOUNT, "--help"}, {}).exitCode, 0);
}

INSTANTIATE_TEST_SUITE_P(Dialects, BrowseTest, ::testing::Values(kLinux, kWindows), dialectName);

}  // namespace
