// fdmount as a program that mounts: its start, its end, and what is in its way.
#include <fcntl.h>

#include <cerrno>
#include <csignal>

#include "e2e/fuse/MountedFixture.h"
#include "peer/FileDescriptor.h"

namespace {

using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

class MountTest : public MountedFixture {
protected:
    // A mount whose program was killed.
    void makeStale() {
        startMount();
        m_mounted->signal(SIGKILL);
        m_mounted->finish();
        ASSERT_EQ(::access(m_point.c_str(), F_OK), -1);
        ASSERT_EQ(errno, ENOTCONN);
    }
};

TEST_F(MountTest, TheMountStandsWhenTheProgramHasGoneToTheBackground) {
    m_folder.file("Data/one", "text");
    share();
    const Outcome outcome = fdmount({m_point});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_TRUE(isMounted());
    EXPECT_EQ(readFile(m_point + "/" + m_drive + "/one"), "text");
    EXPECT_EQ(run({"/bin/umount", m_point}, {}).exitCode, 0);
    EXPECT_FALSE(isMounted());
}

TEST_F(MountTest, AWordThatIsNoCommandIsToldToBeNeither) {
    share();
    expectFailure(fdmount({"frob"}),
                  "frob: there is no such command, and no such folder; make it with: mkdir frob");
}

TEST_F(MountTest, AFailureInTheBackgroundIsToldInFront) {
    expectFailure(fdmount({m_point}), m_endpoint + ": cannot connect: No such file or directory");
    EXPECT_FALSE(isMounted());
}

TEST_F(MountTest, EachSignalTakesTheMountOff) {
    share();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        startMount();
        m_mounted->signal(signal);
        const Outcome outcome = m_mounted->finish();
        EXPECT_EQ(outcome.exitCode, 0);
        EXPECT_EQ(outcome.err, "");
        EXPECT_FALSE(isMounted());
    }
}

TEST_F(MountTest, ASignalTakesTheMountOffThoughSomebodyWorksInIt) {
    share();
    startMount();
    const peer::FileDescriptor file(::open((m_there + "/file").c_str(), O_RDWR | O_CREAT, 0600));
    ASSERT_EQ(::write(file.get(), "text", 4), 4);
    EXPECT_EQ(stopMount().exitCode, 0);
    EXPECT_FALSE(isMounted());
    EXPECT_EQ(readFile(m_folder.str("Data/file")), "text");
    char byte = 0;
    EXPECT_EQ(::pread(file.get(), &byte, 1, 2), -1);
    EXPECT_THAT(errno, testing::AnyOf(ENOTCONN, ECONNABORTED));
}

TEST_F(MountTest, ALostConnectionEndsTheMountWithAMessage) {
    share();
    startMount();
    m_host->signal(SIGKILL);
    const Outcome outcome = m_mounted->finish();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.err, HasSubstr("fdmount: " + m_point + " was taken off: "));
    EXPECT_FALSE(isMounted());
}

TEST_F(MountTest, TakingTheMountOffEndsTheProgram) {
    share();
    startMount();
    EXPECT_EQ(run({"/bin/umount", m_point}, {}).exitCode, 0);
    EXPECT_EQ(m_mounted->finish().exitCode, 0);
}

TEST_F(MountTest, AStaleMountSaysHowToTakeItOff) {
    share();
    makeStale();
    expectFailure(fdmount({m_point}), m_point +
                                          ": is a mount whose program has ended; take it off with: "
                                          "fusermount3 -u " +
                                          m_point);
}

TEST_F(MountTest, WhatCannotBeMountedOnIsNamed) {
    share();
    const std::string missing = m_folder.str("missing"), file = m_folder.file("file");
    expectFailure(fdmount({missing}),
                  missing + ": there is no such folder; make it with: mkdir " + missing);
    expectFailure(fdmount({file}), file + ": is not a folder");
    m_folder.file("mnt/full");
    expectFailure(fdmount({m_point}),
                  m_point +
                      ": is not empty; choose an empty folder, or cover what it holds with "
                      "-o nonempty");
    startMount({"-o", "nonempty"});
    EXPECT_THAT(namesIn(m_point), UnorderedElementsAre(m_drive));
    EXPECT_EQ(stopMount().exitCode, 0);
    EXPECT_THAT(namesIn(m_point), UnorderedElementsAre("full"));
}

TEST_F(MountTest, WrongOptionsAreWrongUsage) {
    const Outcome outcome = fdmount({m_point, "-o", "ro,colour=red"});
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_EQ(outcome.err, "fdmount: -o colour=red: is not known (see fdmount --help)\n");
    EXPECT_EQ(fdmount({m_point, "drives"}).exitCode, 2);
}

TEST_F(MountTest, EachMessageCanBeTraced) {
    share();
    startMount({"--trace"});
    EXPECT_TRUE(m_mounted->waitForError("> getattr map"));
    EXPECT_EQ(stopMount().exitCode, 0);
}

TEST_F(MountTest, OptionsReachTheMount) {
    m_folder.file("Data/one", "text");
    share();
    startMount({"-o", "ro,uid=12,gid=34,umask=0077"});
    struct stat info {};
    ASSERT_EQ(::stat((m_there + "/one").c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 12u);
    EXPECT_EQ(info.st_gid, 34u);
    EXPECT_EQ(info.st_mode & 077U, 0u);
    EXPECT_EQ(::open((m_there + "/one").c_str(), O_WRONLY), -1);
    EXPECT_EQ(errno, EROFS);
}

}  // namespace
