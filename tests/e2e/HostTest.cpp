// fdshare: its life, and what it keeps out of reach.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "e2e/ToolsFixture.h"
#include "peer/Endpoint.h"
#include "peer/Machine.h"
#include "peer/Text.h"
#include "peer/windows/Session.h"
#include "peer/windows/Status.h"
#include "support/NoNamespaces.h"

namespace {

using namespace peer::windows;
using ::testing::HasSubstr;

class HostTest : public ToolsFixture {
protected:
    HostTest() : ToolsFixture(kWindows) {}

    // Whether the other side can open this path, written as no honest program would.
    bool canOpen(const std::string& wirePath, bool rootMap = false) {
        const peer::Connection connection = peer::connectTo(m_endpoint);
        Session::Options options;
        options.policy.mountParents = "/media";
        options.policy.localTypes = "ext4|xfs|btrfs|tmpfs|overlay|f2fs|zfs";
        options.policy.rootMap = rootMap ? 1 : 0;
        options.policy.filter = "/";
        Session session(*connection.channel, std::move(options));
        session.open();
        EXPECT_TRUE(session.waitForDrives([](const auto& drives) { return !drives.empty(); },
                                          std::chrono::seconds(60)));
        const peer::Bytes path = peer::utf16FromUtf8(wirePath).value();
        const peer::Bytes result =
            session.ask(createRequest(0, path, kOpenIfExists | kFailIfNew | kAccessRead, 0));
        return parseCreated(result).outcome() == 0;
    }
};

TEST_F(HostTest, ServesOneConnectionAfterTheOther) {
    m_folder.file("Data/one");
    share();
    for (int i = 0; i < 3; ++i) EXPECT_EQ(fdmount({"ls", "Mac-Data"}).out, "one\n");
}

TEST_F(HostTest, EndsWellOnEachSignalAndTakesItsSocketAlong) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        share();
        EXPECT_EQ(fdmount({"ls"}).exitCode, 0);
        m_host->signal(signal);
        EXPECT_EQ(m_host->finish().exitCode, 0);
        EXPECT_NE(::access(m_folder.str("socket").c_str(), F_OK), 0);
    }
}

TEST_F(HostTest, EndsWellInTheMiddleOfAConnection) {
    share();
    const peer::Connection connection = peer::connectTo(m_endpoint);
    ASSERT_TRUE(connection.channel->receive());
    m_host->signal(SIGTERM);
    EXPECT_EQ(m_host->finish().exitCode, 0);
}

TEST_F(HostTest, ServesATcpPortThatItTells) {
    m_folder.file("Data/one");
    const std::string told = m_folder.file("told");
    Program host({FDSHARE, "-vv", "--listen", "tcp:0", m_share}, {.out = told});
    ASSERT_TRUE(host.waitForError(": listening")) << host.finish().err;
    std::string endpoint = readFile(told);
    ASSERT_TRUE(endpoint.starts_with("tcp:") && endpoint.ends_with("\n")) << endpoint;
    endpoint.pop_back();

    for (const char* dialect : {"linux", "windows"}) {
        const Outcome outcome = run({FDMOUNT, "--dialect", dialect, endpoint, "drives"}, {});
        EXPECT_THAT(outcome.out, HasSubstr("Data")) << outcome.err;
    }
    const Outcome taken = run({FDSHARE, "--listen", endpoint, m_share}, {});
    EXPECT_EQ(taken.exitCode, 1);
    EXPECT_EQ(taken.err, "fdshare: " + endpoint + ": cannot listen: Address already in use\n");

    host.signal(SIGTERM);
    EXPECT_EQ(host.finish().exitCode, 0);
    EXPECT_EQ(run({FDMOUNT, endpoint, "ls"}, {}).err,
              "fdmount: " + endpoint + ": cannot connect: Connection refused\n");
}

TEST_F(HostTest, APortThatIsNoneIsWrongUsage) {
    const Outcome host = run({FDSHARE, "--listen", "tcp:10.0.0.1:80", m_share}, {});
    EXPECT_EQ(host.exitCode, 2);
    EXPECT_THAT(host.err, HasSubstr("tcp:10.0.0.1:80: is not tcp:PORT with a number from 0"));
    const Outcome mount = run({FDMOUNT, "tcp:0", "ls"}, {});
    EXPECT_EQ(mount.exitCode, 2);
    EXPECT_EQ(mount.err,
              "fdmount: tcp:0: is not tcp:PORT with a number from 1 to 65535; the "
              "address is always 127.0.0.1 (see fdmount --help)\n");
}

TEST_F(HostTest, TheSocketIsPrivate) {
    share();
    struct stat info {};
    ASSERT_EQ(::stat(m_folder.str("socket").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);
}

TEST_F(HostTest, ServesStandardInputAndOutputToTheirEnd) {
    m_folder.file("Data/one");
    const std::string command = std::string("exec:") + FDSHARE + " --stdio '" + m_share + "'";
    const Outcome outcome = run({FDMOUNT, "--dialect", "windows", command, "ls", "Mac-Data"}, {});
    EXPECT_EQ(outcome.out, "one\n");
    EXPECT_EQ(outcome.err, "");
}

TEST_F(HostTest, EndsWithStandardInput) {
    const Outcome outcome = run({FDSHARE, "--stdio", m_share}, {});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.out.substr(4, 2), "\xEF\xCD");
}

TEST_F(HostTest, ReportsALengthOfFourGigabytesAndServesOn) {
    share();
    {
        const peer::Connection connection = peer::connectTo(m_endpoint);
        ASSERT_TRUE(connection.channel->receive());
    }
    const std::string file = m_folder.file("bad", "\xFF\xFF\xFF\xFF");
    const Outcome outcome = run({FDSHARE, "--stdio", m_share}, {.in = file});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.err, HasSubstr("fdshare: standard input and output: the other side "
                                       "announces a message of 4294967295 bytes"));
    EXPECT_EQ(fdmount({"ls"}).out, "Mac-Data\n");
}

TEST_F(HostTest, AFolderThatIsNotThereOrNoFolderIsNamed) {
    const Outcome missing = run({FDSHARE, "--listen", m_endpoint, m_share + "/none"}, {});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.err, "fdshare: " + m_share + "/none: No such file or directory\n");
    const std::string file = m_folder.file("plain");
    EXPECT_EQ(run({FDSHARE, "--listen", m_endpoint, file}, {}).err,
              "fdshare: " + file + ": is not a directory\n");
    EXPECT_NE(::access(m_folder.str("socket").c_str(), F_OK), 0);
}

TEST_F(HostTest, NothingOutsideTheShareCanBeReached) {
    m_folder.file("Data/inside");
    m_folder.file("outside");
    ::symlink("/etc/passwd", m_folder.str("Data/link").c_str());
    ::symlink("../outside", m_folder.str("Data/near").c_str());
    share();
    EXPECT_TRUE(canOpen("\\inside"));
    EXPECT_FALSE(canOpen("\\link"));
    EXPECT_FALSE(canOpen("\\near"));
    EXPECT_FALSE(canOpen("\\..\\..\\etc\\passwd"));
    EXPECT_FALSE(canOpen("\\..\\..\\proc\\1\\root\\etc\\passwd"));
}

TEST_F(HostTest, TheWholeFileTreeOfTheOtherSideIsTheShareToo) {
    m_folder.file("Data/inside");
    share();
    EXPECT_TRUE(canOpen("\\media\\Data\\inside", true));
    EXPECT_FALSE(canOpen("\\etc\\passwd", true));
    EXPECT_FALSE(canOpen("\\proc\\1\\root\\etc\\passwd", true));
}

TEST_F(HostTest, WhoSharesEverythingSharesTheFolderForTemporaryFilesToo) {
    char name[] = "/tmp/zfd-share-XXXXXX";
    ASSERT_NE(::mkdtemp(name), nullptr);
    const std::string folder = name;
    ::close(::open((folder + "/one").c_str(), O_WRONLY | O_CREAT, 0600));
    start({"/"});
    const Outcome outcome = fdmount({"ls", "Mac-root" + folder});
    EXPECT_EQ(outcome.out, "one\n") << outcome.err << m_host->error();
    std::filesystem::remove_all(folder);
}

TEST_F(HostTest, AStandardStreamThatIsClosedIsNamed) {
    for (const char* streams : {"<&-", ">&-", "<&- >&-"}) {
        const Outcome outcome = run({"/bin/sh", "-c", "exec \"$@\" " + std::string(streams), "sh",
                                     FDSHARE, "--stdio", m_share},
                                    {});
        EXPECT_EQ(outcome.exitCode, 1);
        EXPECT_EQ(outcome.err, "fdshare: standard input or output is closed\n");
    }
}

TEST_F(HostTest, AReadOnlyShareCannotBeWrittenWhateverThePolicySays) {
    m_folder.file("Data/one");
    share({"--read-only"});
    expectFailure(fdmount({"rm", "Mac-Data/one"}), at("one") + ": " + m_dialect.readOnly);
    EXPECT_EQ(::access(m_folder.str("Data/one").c_str(), F_OK), 0);
}

TEST_F(HostTest, ARootShareShowsItsFolderInTheFileTreeAndNoOther) {
    m_folder.file("Data/inside");
    m_folder.file("here/other");
    start({"--root", m_share});
    EXPECT_EQ(fdmount({"ls"}).out, "Mac r-rt\n");
    EXPECT_EQ(fdmount({"ls", "Mac r-rt" + m_share}).out, "inside\n");
    EXPECT_EQ(fdmount({"ls", "Mac r-rt" + m_here}).exitCode, 1);
    EXPECT_FALSE(canOpen("\\etc\\passwd", true));
}

TEST_F(HostTest, WithoutTheSandboxTheFoldersAreThePartsOfTheFileTreeThatAreListed) {
    m_folder.file("Data/inside");
    m_folder.file("here/other");
    start({"--no-sandbox", m_share});
    EXPECT_TRUE(m_host->waitForError("fdshare: warning: without the sandbox"));
    EXPECT_EQ(fdmount({"ls", "Mac r-rt" + m_share}).out, "inside\n");
    EXPECT_EQ(fdmount({"get", "Mac r-rt" + m_here + "/other", m_share}).exitCode, 1);
}

TEST_F(HostTest, WhereNamespacesAreForbiddenPathRulesConfine) {
    m_folder.file("Data/inside", "text");
    m_folder.file("here/other");
    ::symlink("/etc/passwd", m_folder.str("Data/link").c_str());
    ::chmod(m_folder.str().c_str(), 0755);
    m_host = std::make_unique<Program>(
        std::vector<std::string>{"/bin/sh", "-c", "exec " + kWithoutNamespaces + " \"$@\"", "sh",
                                 FDSHARE, "-vv", "--listen", m_endpoint, m_share},
        Program::Options{});
    ASSERT_TRUE(m_host->waitForError("\n")) << "silent";
    if (lacksMeansOfConfinement(m_host->error())) GTEST_SKIP() << m_host->error();
    ASSERT_TRUE(m_host->waitForError(": listening")) << m_host->error();
    EXPECT_TRUE(m_host->waitForError("confined by Landlock instead"));

    EXPECT_EQ(fdmount({"ls", "Mac r-rt" + m_share}).out, "inside\nlink\n");
    EXPECT_EQ(fdmount({"get", "Mac r-rt" + m_share + "/inside", "-"}).out, "text");
    EXPECT_FALSE(canOpen("\\etc\\passwd", true));
    EXPECT_EQ(fdmount({"get", "Mac r-rt" + m_share + "/link", "-"}).exitCode, 1);
    EXPECT_EQ(fdmount({"ls", "Mac r-rt" + m_here}).exitCode, 1);
}

// --- in the Linux dialect

class LinuxHostTest : public ToolsFixture {
protected:
    // The errno of an attempt to open this path for reading, or 0.
    int openError(const std::string& path) {
        const peer::Connection connection = peer::connectTo(m_endpoint);
        peer::Machine::Options options;
        options.policy.mountParents = "/media";
        options.policy.localTypes = "ext4|xfs|btrfs|tmpfs|overlay|f2fs|zfs";
        options.policy.filter = "/";
        const auto machine =
            peer::Machine::connect(*connection.channel, peer::Dialect::kLinux, std::move(options));
        EXPECT_TRUE(machine->waitForDrives([](const auto& drives) { return !drives.empty(); },
                                           std::chrono::seconds(60)));
        try {
            machine->drives().at(0).files->open(path, O_RDONLY);
        } catch (const peer::RemoteError& error) {
            return error.error();
        }
        return 0;
    }
};

TEST_F(LinuxHostTest, NothingOutsideTheShareCanBeReached) {
    m_folder.file("Data/inside");
    m_folder.file("outside");
    ::symlink("/etc/passwd", m_folder.str("Data/link").c_str());
    ::symlink("../outside", m_folder.str("Data/near").c_str());
    share();
    // Path rules leave the rest of the file tree in sight and refuse to open it.
    const bool byPathRules = m_drive != "Data";
    const std::string at = byPathRules ? m_share.substr(1) + "/" : "";
    const int refusal = byPathRules ? EACCES : ENOENT;
    const std::string out = at + "../../../../../../..";
    EXPECT_EQ(openError(at + "inside"), 0);
    EXPECT_EQ(openError(at + "link"), refusal);
    EXPECT_EQ(openError(at + "near"), refusal);
    EXPECT_EQ(openError(at + "../outside"), refusal);
    EXPECT_EQ(openError(out + "/etc/passwd"), refusal);
    EXPECT_EQ(openError(out + "/proc/1/root/etc/passwd"), refusal);
}

TEST_F(LinuxHostTest, AReadOnlyShareCannotBeWrittenWhateverThePolicySays) {
    m_folder.file("Data/one");
    share({"--read-only"});
    expectFailure(fdmount({"rm", at("one")}), at("one") + ": " + m_dialect.readOnly);
    EXPECT_EQ(::access(m_folder.str("Data/one").c_str(), F_OK), 0);
}

TEST_F(LinuxHostTest, ARootShareShowsItsFolderInTheFileTreeAndNoOther) {
    m_folder.file("Data/inside");
    m_folder.file("here/other");
    start({"--root", m_share});
    EXPECT_EQ(fdmount({"ls"}).out, "Root\n");
    EXPECT_EQ(fdmount({"ls", "Root" + m_share}).out, "inside\n");
    EXPECT_EQ(fdmount({"ls", "Root" + m_here}).exitCode, 1);
}

}  // namespace
