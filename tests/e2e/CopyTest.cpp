// get and put, from program to program: whole files or no files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "e2e/ToolsFixture.h"
#include "support/Sanitizers.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uid_t kNobody = 65534;

std::string noise(std::size_t size) {
    std::vector<std::uint64_t> words(size / sizeof(std::uint64_t) + 1);
    std::ranges::generate(words, std::mt19937_64());
    std::string bytes(size, '\0');
    std::memcpy(bytes.data(), words.data(), size);
    return bytes;
}

class CopyTest : public InEachDialect {
protected:
    // A get whose reader stands still: `meanwhile` runs when 100 bytes were read of it.
    Outcome getWhile(const std::string& name, const std::function<void()>& meanwhile,
                     std::size_t* received) {
        const std::string fifo = m_folder.str("fifo");
        EXPECT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
        Program get(mountCommand({"get", name, "-"}), {.out = fifo});
        const int fd = ::open(fifo.c_str(), O_RDONLY);
        std::string bytes(1 << 20, '\0');
        *received = static_cast<std::size_t>(std::max<ssize_t>(0, ::read(fd, bytes.data(), 100)));
        meanwhile();
        for (ssize_t got = 0; (got = ::read(fd, bytes.data(), bytes.size())) > 0;) {
            *received += static_cast<std::size_t>(got);
        }
        ::close(fd);
        return get.finish();
    }
};

TEST_P(CopyTest, GetCopiesAFileOfManyReads) {
    const std::string content = noise((20 << 20) + 12345);
    m_folder.file("Data/big", content);
    share();
    const Outcome outcome = fdmount({"get", at("big"), m_here});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_TRUE(readFile(m_here + "/big") == content);
    EXPECT_THAT(namesIn(m_here), ElementsAre("big"));
}

TEST_P(CopyTest, GetCopiesShortFilesToTheByte) {
    for (const std::size_t size : {0U, 1U, 100U, 511U, 512U, 513U}) {
        m_folder.file("Data/f" + std::to_string(size), noise(size));
    }
    share();
    for (const std::size_t size : {0U, 1U, 100U, 511U, 512U, 513U}) {
        const std::string name = "f" + std::to_string(size);
        EXPECT_EQ(fdmount({"get", at(name), m_here}).exitCode, 0);
        EXPECT_EQ(readFile(m_here + "/" + name), noise(size)) << size;
    }
}

TEST_P(CopyTest, GetReplacesAFileAndKeepsThePermissionsOfTheOriginal) {
    ::chmod(m_folder.file("Data/one", "new").c_str(), 0640);
    m_folder.file("here/target", "old content");
    share();
    EXPECT_EQ(fdmount({"get", at("one"), m_here + "/target"}).exitCode, 0);
    EXPECT_EQ(readFile(m_here + "/target"), "new");
    struct stat info {};
    ASSERT_EQ(::stat((m_here + "/target").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0640U);
}

TEST_P(CopyTest, GetWritesIntoTheCurrentFolderWithoutATarget) {
    m_folder.file("Data/one", "1");
    share();
    EXPECT_EQ(fdmount({"get", at("one")}, {.folder = m_here}).exitCode, 0);
    EXPECT_EQ(readFile(m_here + "/one"), "1");
}

TEST_P(CopyTest, GetCopiesTwoGigabytes) {
    const std::string file = m_folder.file("Data/huge", "begin");
    constexpr off_t kSize = kThreadSanitizer ? off_t{256} << 20 : off_t{2} << 30;
    ASSERT_EQ(::truncate(file.c_str(), kSize), 0);
    share();
    const Outcome outcome = fdmount({"get", at("huge"), "-"}, {.out = "/dev/null"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
}

TEST_P(CopyTest, GetOfAFileThatShrinksFailsWithItsName) {
    const std::string file = m_folder.file("Data/big");
    ASSERT_EQ(::truncate(file.c_str(), 64 << 20), 0);
    share();
    std::size_t received = 0;
    const Outcome outcome = getWhile(
        at("big"), [&] { ASSERT_EQ(::truncate(file.c_str(), 40 << 20), 0); }, &received);
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.err, "fdmount: " + at("big") +
                               ": became shorter while it was read: 41943040 of 67108864 bytes "
                               "were there\n");
    EXPECT_EQ(received, std::size_t{40} << 20);
}

TEST_P(CopyTest, GetOfAFileThatGrowsGivesWhatWasThere) {
    const std::string file = m_folder.file("Data/big");
    ASSERT_EQ(::truncate(file.c_str(), 64 << 20), 0);
    share();
    std::size_t received = 0;
    const Outcome outcome = getWhile(
        at("big"), [&] { ASSERT_EQ(::truncate(file.c_str(), 80 << 20), 0); }, &received);
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.err, "fdmount: " + at("big") +
                               ": changed its size while it was read; the copy has the 67108864 "
                               "bytes that it began with\n");
    EXPECT_EQ(received, std::size_t{64} << 20);
}

TEST_P(CopyTest, GetOfADirectoryOrNothingIsNamed) {
    m_folder.folder("Data/sub");
    share();
    expectFailure(fdmount({"get", at("sub"), m_here}), at("sub") + ": is a directory");
    expectFailure(fdmount({"get", m_drive, m_here}), m_drive + ": is a directory");
    expectFailure(fdmount({"get", at("none"), m_here}), at("none") + ": " + m_dialect.noFile);
    EXPECT_THAT(namesIn(m_here), IsEmpty());
}

TEST_P(CopyTest, GetRefusesATargetThatIsNoFile) {
    m_folder.file("Data/one", "1");
    share();
    expectFailure(fdmount({"get", at("one"), "/dev/null"}),
                  "/dev/null: is not a regular file; use - for standard output");
    expectFailure(fdmount({"get", at("one"), m_here + "/none/x"}),
                  m_here + "/none/x: No such file or directory");
}

TEST_P(CopyTest, GetOnAFullDiskLeavesNothing) {
    m_folder.file("Data/big", noise(4 << 20));
    share();
    const std::string script =
        "mount -t tmpfs -o size=1m none \"$1\" || exit 77; folder=$1; shift; "
        "\"$@\" \"$folder/copy\"; result=$?; ls -A \"$folder\"; exit $result";
    const Outcome outcome =
        run({"/usr/bin/unshare", "-rm", "/bin/sh", "-c", script, "sh", m_here, FDMOUNT, "--dialect",
             m_dialect.name, m_endpoint, "get", at("big")},
            {});
    if (outcome.exitCode == 77 || outcome.err.starts_with("unshare")) {
        GTEST_SKIP() << "no mount namespaces here: " << outcome.err;
    }
    expectFailure(outcome, m_here + "/copy: No space left on device");
}

TEST_P(CopyTest, AnInterruptedGetLeavesNothing) {
    const std::string file = m_folder.file("Data/big");
    ASSERT_EQ(::truncate(file.c_str(), off_t{64} << 30), 0);
    share();
    Program get(mountCommand({"--trace", "get", at("big"), m_here}), {});
    ASSERT_TRUE(get.waitForError(m_dialect.tracedRead));
    get.signal(SIGINT);
    const Outcome outcome = get.finish();
    EXPECT_EQ(outcome.exitCode, 128 + SIGINT);
    EXPECT_THAT(outcome.err, ::testing::EndsWith("fdmount: interrupted\n"));
    EXPECT_THAT(namesIn(m_here), IsEmpty());
}

TEST_P(CopyTest, PutCopiesAFileOfManyWrites) {
    const std::string content = noise((20 << 20) + 12345);
    m_folder.file("here/big", content);
    share();
    const Outcome outcome = fdmount({"put", m_here + "/big", at("copy")});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_TRUE(readFile(m_share + "/copy") == content);
    EXPECT_THAT(namesIn(m_share), ElementsAre("copy"));
}

TEST_P(CopyTest, PutReplacesAFileAndKeepsItsPermissions) {
    m_folder.file("here/one", "new");
    ::chmod(m_folder.file("Data/one", "a longer old content").c_str(), 0640);
    share();
    const Outcome outcome = fdmount({"put", m_here + "/one", at("one")});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(readFile(m_share + "/one"), "new");
    struct stat info {};
    ASSERT_EQ(::stat((m_share + "/one").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0640U);
    EXPECT_THAT(namesIn(m_share), ElementsAre("one"));
}

TEST_P(CopyTest, PutIntoAFolderKeepsTheName) {
    m_folder.file("here/one", "1");
    m_folder.folder("Data/sub");
    share();
    EXPECT_EQ(fdmount({"put", m_here + "/one", at("sub")}).exitCode, 0);
    EXPECT_EQ(fdmount({"put", m_here + "/one", m_drive}).exitCode, 0);
    EXPECT_EQ(readFile(m_share + "/sub/one"), "1");
    EXPECT_EQ(readFile(m_share + "/one"), "1");
}

TEST_P(CopyTest, PutTakesStandardInput) {
    share();
    const Outcome outcome =
        fdmount({"put", "-", at("one")}, {.in = m_folder.file("in", "from afar")});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(readFile(m_share + "/one"), "from afar");
}

TEST_P(CopyTest, PutMakesNoNameForStandardInputAndNoFileForAFolder) {
    m_folder.file("here/one", "1");
    m_folder.file("Data/file");
    share();
    expectFailure(fdmount({"put", "-", m_drive}),
                  m_drive + ": is a directory, and standard input has no name to keep");
    for (const std::string name : {"none/", "file/"}) {
        expectFailure(fdmount({"put", m_here + "/one", at(name)}),
                      at(name) + ": is not a directory");
    }
    EXPECT_THAT(namesIn(m_share), ElementsAre("file"));
    EXPECT_EQ(readFile(m_share + "/file"), "");
}

TEST_P(CopyTest, PutOnAReadOnlyShareIsRefused) {
    m_folder.file("here/one", "new");
    m_folder.file("Data/one", "old");
    share({"--read-only"});
    expectFailure(fdmount({"put", m_here + "/one", at("one")}),
                  at("one") + ": " + m_dialect.readOnly);
    EXPECT_EQ(readFile(m_share + "/one"), "old");
    EXPECT_THAT(namesIn(m_share), ElementsAre("one"));
}

TEST_P(CopyTest, PutOnADriveThatIsAskedForReadOnlyIsRefused) {
    m_folder.file("here/one", "new");
    share();
    expectFailure(fdmount({"--read-only", "put", m_here + "/one", at("one")}),
                  at("one") + ": " + m_dialect.readOnly);
    EXPECT_THAT(namesIn(m_share), IsEmpty());
}

TEST_P(CopyTest, PutIntoAFolderOfSomebodyElseIsRefused) {
    m_folder.file("here/one", "new");
    m_folder.folder("Data/theirs");
    ::chmod(m_folder.str("Data/theirs").c_str(), 0555);
    ::chmod(m_folder.str().c_str(), 0777);
    share({}, kNobody);
    expectFailure(fdmount({"put", m_here + "/one", at("theirs/one")}),
                  at("theirs/one") + ": " + m_dialect.denied);
    EXPECT_THAT(namesIn(m_share + "/theirs"), IsEmpty());
}

TEST_P(CopyTest, AnInterruptedPutLeavesNothing) {
    const std::string fifo = m_folder.str("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    share();
    const int writer = ::open(fifo.c_str(), O_RDWR);
    Program put(mountCommand({"--trace", "put", "-", at("one")}), {.in = fifo});
    ASSERT_TRUE(put.waitForError(m_dialect.tracedCreate));
    put.signal(SIGINT);
    const Outcome outcome = put.finish();
    ::close(writer);
    EXPECT_EQ(outcome.exitCode, 128 + SIGINT) << outcome.err;
    EXPECT_THAT(namesIn(m_share), IsEmpty());
}

TEST_P(CopyTest, PutOfWhatIsNoFileIsRefused) {
    share();
    expectFailure(fdmount({"put", m_here, at("one")}), m_here + ": is a directory");
    expectFailure(fdmount({"put", "/dev/zero", at("one")}),
                  "/dev/zero: is not a regular file; use - for standard input");
    expectFailure(fdmount({"put", m_here + "/none", at("one")}),
                  m_here + "/none: No such file or directory");
}

INSTANTIATE_TEST_SUITE_P(Dialects, CopyTest, ::testing::Values(kLinux, kWindows), dialectName);

}  // namespace
