// What only the Windows dialect has: its policies, its handles, and its view of names and links.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "drive/DriveFixture.h"
#include "peer/windows/Session.h"
#include "peer/windows/WindowsFileSystem.h"
#include "support/NoNamespaces.h"
#include "support/WaitUntil.h"

namespace peer::windows {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class WindowsDriveTest : public DriveFixture {
protected:
    void use(const Policy& policy = {}, const std::string& shareOptions = {}) {
        DriveFixture::use(peer::Dialect::kWindows, policy, shareOptions);
    }
};

TEST_F(WindowsDriveTest, ThePolicyMayForbidToChangeSizes) {
    Policy policy;
    policy.setEndOfFile = 0;
    use(policy);
    put("file", "0123456789");
    EXPECT_EQ(errorOf([&] { drive().truncate(at("file"), 4); }), EPERM);
    EXPECT_EQ(errorOf([&] { drive().open(at("file"), O_RDWR)->truncate(4); }), EPERM);
    EXPECT_EQ(readFile(here("file")), "0123456789");
    drive().truncate(at("file"), 0);
    EXPECT_EQ(stat("file").size, 0);
}

TEST_F(WindowsDriveTest, ThePolicyMayBoundSizes) {
    Policy policy;
    policy.setEndOfFileLimit = 2;
    use(policy);
    put("file", "text");
    drive().truncate(at("file"), 2 << 20);
    EXPECT_EQ(stat("file").size, 2 << 20);
    EXPECT_EQ(errorOf([&] { drive().truncate(at("file"), (2 << 20) + 1); }), EFBIG);
    EXPECT_EQ(stat("file").size, 2 << 20);
}

class ReadOnlyDriveTest : public WindowsDriveTest {
protected:
    void expectNothingCanBeChanged() {
        EXPECT_EQ(errorOf([&] { put("new", ""); }), EROFS);
        EXPECT_EQ(errorOf([&] { drive().makeFolder(at("new"), 0755); }), EROFS);
        EXPECT_EQ(errorOf([&] { drive().open(at("file"), O_WRONLY); }), EROFS);
        EXPECT_EQ(errorOf([&] { drive().open(at("file"), O_RDONLY | O_TRUNC); }), EROFS);
        EXPECT_EQ(errorOf([&] { drive().remove(at("file")); }), EROFS);
        EXPECT_EQ(errorOf([&] { drive().rename(at("file"), at("other")); }), EROFS);
        EXPECT_EQ(errorOf([&] { drive().truncate(at("file"), 1); }), EROFS);
        EXPECT_EQ(errorOf([&] { drive().chmod(at("file"), 0600); }), EROFS);
        EXPECT_EQ(errorOf([&] { drive().setTimes(at("file"), 1, 1); }), EROFS);
        EXPECT_EQ(errorOf([&] { drive().open(at("file"), O_RDONLY)->chmod(0600); }), EROFS);
        EXPECT_EQ(get("file"), "text");
        EXPECT_THAT(names(""), ElementsAre("file"));
        EXPECT_TRUE(drive().volume().readOnly);
    }
};

TEST_F(ReadOnlyDriveTest, SaysSoIfThePolicyAsksForThat) {
    m_folder.file("Data/file", "text");
    Policy policy;
    policy.word |= kReadOnly;
    use(policy);
    expectNothingCanBeChanged();
}

TEST_F(ReadOnlyDriveTest, SaysSoIfTheOtherSideOffersNoMore) {
    m_folder.file("Data/file", "text");
    use({}, "--read-only");
    expectNothingCanBeChanged();
}

// Where namespaces are forbidden, the file tree is the drive, and only the share can be opened.
TEST_F(WindowsDriveTest, TheWayToTheOnlyFolderThatCanBeOpenedIsSeen) {
    m_folder.file("Data/file", "text");
    m_folder.file("other", "text");
    ::chmod(m_folder.str().c_str(), 0755);
    try {
        DriveFixture::use(peer::Dialect::kWindows, {}, {}, kWithoutNamespaces);
    } catch (const peer::SessionError&) {
        if (lacksMeansOfConfinement(log())) GTEST_SKIP() << log();
        throw;
    }
    ASSERT_NE(m_prefix, "") << log();

    for (std::size_t end = m_prefix.find('/'); end != std::string::npos;
         end = m_prefix.find('/', end + 1)) {
        EXPECT_TRUE(drive().stat(m_prefix.substr(0, end)).isDirectory()) << m_prefix;
    }
    EXPECT_TRUE(stat("").isDirectory());
    EXPECT_THAT(names(""), ElementsAre("file"));
    EXPECT_EQ(stat("file").size, 4);
    put("new", "text");
    EXPECT_EQ(get("new"), "text");
    drive().remove(at("new"));
    EXPECT_GT(drive().volume().blocks, 0U);
    EXPECT_EQ(errorOf([&] { drive().open(m_folder.str("other").substr(1), O_RDONLY); }), ENOENT);
}

TEST_F(WindowsDriveTest, ALinkIsWhatItLeadsTo) {
    use();
    put("file", "text");
    drive().makeFolder(at("folder"), 0755);
    put("folder/inside", "");
    ::symlink("file", here("link").c_str());
    ::symlink("folder", here("way").c_str());
    ::symlink("nowhere", here("dangling").c_str());
    EXPECT_THAT(names(""), UnorderedElementsAre("file", "folder", "link", "way"));
    EXPECT_EQ(stat("link").mode, stat("file").mode);
    EXPECT_EQ(get("link"), "text");
    EXPECT_THAT(names("way"), ElementsAre("inside"));
    EXPECT_EQ(errorOf([&] { stat("dangling"); }), ENOENT);

    drive().remove(at("link"));
    drive().removeFolder(at("way"));  // the link, whatever the folder holds
    EXPECT_THAT(names(""), UnorderedElementsAre("file", "folder"));
    EXPECT_THAT(names("folder"), ElementsAre("inside"));
}

TEST_F(WindowsDriveTest, LinksAndDevicesCannotBeMade) {
    use();
    put("file", "");
    EXPECT_EQ(errorOf([&] { drive().link(at("file"), at("other")); }), EPERM);
    EXPECT_EQ(errorOf([&] { drive().makeLink("file", at("other")); }), EPERM);
    EXPECT_EQ(errorOf([&] { drive().makeNode(at("other"), 0010644, 0); }), EPERM);
    EXPECT_EQ(errorOf([&] { drive().readLink(at("file")); }), EINVAL);
    drive().makeNode(at("other"), 0100600, 0);
    EXPECT_EQ(stat("other").mode, 0100600U);
}

TEST_F(WindowsDriveTest, NamesThatItCannotSayAreRefusedEachWithItsReason) {
    m_folder.file("Data/back\\slash", "text");
    m_folder.file("Data/bad\xFF", "text");
    m_folder.file("Data/back", "");
    use();
    EXPECT_THAT(names(""), UnorderedElementsAre("back\\slash", "back"));
    EXPECT_EQ(errorOf([&] { stat("back\\slash"); }), EINVAL);
    EXPECT_EQ(errorOf([&] { stat("bad\xFF"); }), EILSEQ);
    EXPECT_EQ(errorOf([&] { put("\xED\xA0\x80", ""); }), EINVAL);  // half a pair
    EXPECT_EQ(errorOf([&] { put(std::string(200, '/'), ""); }), EEXIST);
}

TEST_F(WindowsDriveTest, APathThatIsTooLongIsCalledThat) {
    use();
    std::string path;
    for (int i = 0; i < 4; ++i) {
        path += (i > 0 ? "/" : "") + std::string(240, 'd');
        drive().makeFolder(at(path), 0755);
    }
    EXPECT_EQ(errorOf([&] { put(path + "/" + std::string(100, 'f'), ""); }), ENAMETOOLONG);
    for (std::size_t more = 1; more < 60; ++more) {
        const std::string name = path + "/" + std::string(more, 'f');
        const int error = errorOf([&] { put(name, ""); });
        ASSERT_TRUE(error == 0 || error == ENAMETOOLONG) << error << " with " << more;
        if (error == 0) {
            ASSERT_EQ(stat(name).size, 0);
        }
    }
}

TEST_F(WindowsDriveTest, FoldersKeepTheirModesAndTimesWithoutAWord) {
    use();
    drive().makeFolder(at("folder"), 0700);
    const peer::Attributes before = stat("folder");
    EXPECT_FALSE(drive().chmod(at("folder"), 0500));
    drive().setTimes(at("folder"), 1, 1);
    EXPECT_EQ(stat("folder").mode, before.mode);
    EXPECT_EQ(stat("folder").modified, before.modified);
}

TEST_F(WindowsDriveTest, TheOwnersPermissionToReadStays) {
    use();
    put("file", "");
    EXPECT_EQ(drive().chmod(at("file"), 0200), 0600U);
    EXPECT_EQ(stat("file").mode, 0100600U);
    EXPECT_EQ(drive().chmod(at("file"), 07711), 07711U);
    EXPECT_EQ(stat("file").mode, 0107711U);
}

TEST_F(WindowsDriveTest, EverythingBelongsToThisUser) {
    use();
    put("file", "");
    EXPECT_EQ(stat("file").uid, ::geteuid());
    EXPECT_EQ(stat("file").gid, ::getegid());
    EXPECT_EQ(stat("file").links, 1U);
}

// The plug-in prints what is open when it is asked for its maps without a drive.
class HandleTest : public DriveFixture {
protected:
    void SetUp() override {
        m_connection = peer::connectTo("exec:" FDSHARE " -vv --stdio '" + m_share + "' 2>'" +
                                       m_folder.str("log") + "'");
        Session::Options options;
        options.policy.mountParents = "/media";
        options.policy.localTypes = "ext4|xfs|btrfs|tmpfs|overlay|f2fs|zfs";
        m_session = std::make_shared<Session>(*m_connection.channel, options);
        m_session->open();
        ASSERT_TRUE(m_session->waitForDrives([](const auto& drives) { return !drives.empty(); },
                                             std::chrono::seconds(60)));
        if (log().find("confined by Landlock instead") != std::string::npos) {
            m_prefix = m_share.substr(1);
        }
        m_files = std::make_shared<WindowsFileSystem>(m_session, m_session->drives().front());
    }

    void TearDown() override {
        m_files.reset();
        m_session.reset();  // before the channel that it reads
        DriveFixture::TearDown();
    }

    std::vector<std::string> openObjects() {
        const std::size_t before = log().size();
        peer::Bytes request = mapCountRequest();
        peer::storeLe(request.data(), std::uint16_t{kUnmapQuery});
        m_session->ask(std::move(request));
        std::istringstream added(log().substr(before));
        std::vector<std::string> open;
        for (std::string line; std::getline(added, line);) {
            if (line.find("--> id: ") != std::string::npos) open.push_back(line);
        }
        return open;
    }

    std::shared_ptr<Session> m_session;
};

TEST_F(HandleTest, AllThatWereOpenedAreClosedWithTheDrive) {
    drive().makeFolder(at("folder"), 0755);
    put("folder/file", "text");
    auto open = drive().open(at("folder/file"), O_RDWR);
    EXPECT_THAT(openObjects(), ::testing::Contains(::testing::HasSubstr("FILE--> id: ")));

    for (int i = 0; i < 50; ++i) {
        names("folder");
        stat("folder/file");
        errorOf([&] { names("none"); });
        errorOf([&] { stat("none"); });
        errorOf([&] { drive().open(at("folder"), O_WRONLY); });
        errorOf([&] { drive().create(at("folder"), O_WRONLY, 0644); });
        errorOf([&] { drive().makeFolder(at("folder"), 0755); });
        drive().chmod(at("folder/file"), 0600);
        drive().setTimes(at("folder/file"), i, i);
        drive().truncate(at("folder/file"), i);
        drive().volume();
        open->flush();
    }
    open.reset();
    m_files.reset();
    EXPECT_THAT(openObjects(), IsEmpty());
}

TEST_F(HandleTest, WhatWasOpenedAheadIsClosedWhenNothingIsLookedUp) {
    put("file", "");
    stat("file");
    EXPECT_TRUE(waitUntil([this] { return openObjects().empty(); }));
    EXPECT_EQ(stat("file").size, 0);
}

}  // namespace

}  // namespace peer::windows
