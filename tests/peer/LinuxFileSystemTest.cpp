// A drive's files, with a far end that answers as the test says.
#include "peer/linux/LinuxFileSystem.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <thread>

#include "peer/LinuxSide.h"

namespace peer::linux {

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

class LinuxFileSystemTest : public ::testing::Test {
protected:
    using Message = LinuxSide::Message;

    LinuxFileSystemTest() {
        peer::Machine::Options options;
        options.timeout = 20s;
        m_session = std::make_shared<Session>(m_side.channel(), options);
        m_side.shakeHands();
        m_session->open();
        m_side.next();  // the policy
        m_side.offer(1, "Data");
        m_session->waitForDrives([](const auto& drives) { return !drives.empty(); }, 20s);
        m_files = std::make_shared<LinuxFileSystem>(m_session, m_session->drives().at(0));
    }
    ~LinuxFileSystemTest() override { m_session->close(); }

    // Runs `work` while the far end does each of these to one request.
    void against(std::vector<std::function<void(const Message&)>> answers,
                 const std::function<void()>& work) {
        std::thread far([&] {
            for (const auto& answer : answers) {
                const Message request = m_side.nextFrame();
                m_asked.push_back(nameOf(kOperation, request.head.subtype) +
                                  (" " + request.path()));
                answer(request);
            }
        });
        try {
            work();
        } catch (const peer::RemoteError& error) {
            m_error = error.error();
        }
        far.join();
    }

    std::function<void(const Message&)> answer(std::int64_t res, Bytes payload = {}) {
        return
            [this, res, payload](const Message& request) { m_side.reply(request, res, payload); };
    }

    LinuxSide m_side;
    std::shared_ptr<Session> m_session;
    std::shared_ptr<LinuxFileSystem> m_files;
    std::vector<std::string> m_asked;
    int m_error = 0;
};

Bytes text(const std::string& value) {
    return {value.c_str(), value.c_str() + value.size() + 1};
}

TEST_F(LinuxFileSystemTest, AListingIsAskedForWithALargerSizeUntilItFits) {
    std::vector<std::string> names;
    for (int i = 0; i < 430; ++i) names.push_back("entry" + std::to_string(i));
    const Bytes whole = LinuxSide::block(names);
    ASSERT_GT(whole.size(), 65536U);
    std::vector<std::int64_t> sizes;
    const auto fill = [&](const Message& request) {
        sizes.push_back(request.number(8 + 48 + 8));
        const bool first = sizes.size() == 1;
        const std::vector<std::string> some(names.begin(), names.begin() + (first ? 405 : 430));
        m_side.reply(request, 0, LinuxSide::block(some));
    };
    std::size_t listed = 0;
    against({fill, fill},
            [&] { m_files->list("sub", [&](const auto& entries) { listed += entries.size(); }); });
    EXPECT_THAT(sizes, ElementsAre(65536, 4 << 20));
    EXPECT_EQ(listed, 430U);
    EXPECT_EQ(m_asked[0], "readdir /sub");
}

TEST_F(LinuxFileSystemTest, AnEmptyListingIsNotBelievedBeforeTheFolderIsSeen) {
    const auto list = [this] { m_files->list("sub", [](const auto&) { FAIL(); }); };
    against({answer(0), answer(-2)}, list);
    EXPECT_EQ(m_error, ENOENT);
    against({answer(0), answer(0, LinuxSide::stat(0100644))}, list);
    EXPECT_EQ(m_error, ENOTDIR);
    against({answer(0), answer(0, LinuxSide::stat(0040000)), answer(-13)}, list);
    EXPECT_EQ(m_error, EACCES);
    against({answer(0), answer(0, LinuxSide::stat(0040755)), answer(0)}, list);
    EXPECT_EQ(m_error, EIO);
    against({answer(0), answer(0, LinuxSide::stat(0040755)), answer(0)},
            [this] { m_files->list(std::string(1000, 's'), [](const auto&) { FAIL(); }); });
    EXPECT_EQ(m_error, ENAMETOOLONG);
}

TEST_F(LinuxFileSystemTest, AFolderOfNothingButItselfIsEmpty) {
    against({answer(0, LinuxSide::block({".", ".."})), answer(0, LinuxSide::stat(0040755))},
            [this] { m_files->list("", [](const auto&) { FAIL(); }); });
    EXPECT_EQ(m_error, 0);
}

TEST_F(LinuxFileSystemTest, OpeningForWritingIsTriedWithAWriteOfNothing) {
    against({answer(-21)}, [this] { m_files->open("sub", O_WRONLY); });
    EXPECT_EQ(m_error, EISDIR);
    against({answer(0), answer(-13)}, [this] { m_files->open("f", O_RDWR); });
    EXPECT_EQ(m_error, EACCES);
    against({answer(-30)}, [this] { m_files->open("f", O_WRONLY | O_TRUNC); });
    EXPECT_EQ(m_error, EROFS);
    EXPECT_THAT(m_asked, ElementsAre("write /sub", "write /f", "open /f", "truncate /f"));
}

TEST_F(LinuxFileSystemTest, ANewFileGetsItsPermissionsWhenItIsWritten) {
    std::int64_t made = 0, final = 0;
    against({[&](const Message& request) {
                 made = request.number(0);
                 m_side.reply(request, 0);
             },
             answer(4),
             [&](const Message& request) {
                 final = request.number(0);
                 m_side.reply(request, 0);
             }},
            [this] {
                const auto file = m_files->create("f", O_RDWR, 0444);
                EXPECT_EQ(file->write(0, peer::viewOf("data"))(), 4U);
                file->flush();
                file->flush();
            });
    EXPECT_EQ(made, 0100644);
    EXPECT_EQ(final, 0444);
    EXPECT_THAT(m_asked, ElementsAre("mknod /f", "write /f", "chmod /f"));
}

TEST_F(LinuxFileSystemTest, AnOpenFileFollowsARename) {
    against({answer(0, Bytes(48)), answer(0), answer(2, Bytes(2))}, [this] {
        const auto file = m_files->open("sub/f", O_RDONLY);
        m_files->rename("sub", "other");
        const peer::Data data = file->read(0, 10)();
        EXPECT_EQ(data.bytes.size(), 2U);
    });
    EXPECT_EQ(m_asked.at(2), "read /other/f");
}

TEST_F(LinuxFileSystemTest, ARelativeLinkIsMadeAtOnceAndTeachesTheFolder) {
    against({answer(0), answer(0, text("/media/Data/sub/../f")), answer(0, text("/media/Data/x"))},
            [this] {
                m_files->makeLink("../f", "sub/l");
                EXPECT_EQ(m_files->readLink("sub/other"), "../x");
            });
    EXPECT_THAT(m_asked,
                ElementsAre("symlink /sub/../f", "readlink /sub/l", "readlink /sub/other"));
    EXPECT_EQ(m_error, 0);
}

TEST_F(LinuxFileSystemTest, AnAbsoluteLinkIsPrecededByATrialThatIsRemoved) {
    against({answer(0), answer(0, text("/media/Data/./trial")), answer(0), answer(0)},
            [this] { m_files->makeLink("/etc/passwd", "l"); });
    ASSERT_EQ(m_asked.size(), 4U);
    EXPECT_EQ(m_asked[0], "symlink /./trial");
    EXPECT_TRUE(m_asked[2].starts_with("unlink /.fdmount-")) << m_asked[2];
    EXPECT_EQ(m_asked[3], "symlink /../../etc/passwd");
    EXPECT_EQ(m_error, 0);
}

// What the far end says of an object: where it lies, and which one it is there.
Bytes object(std::int64_t fileSystem, std::int64_t inode) {
    Bytes record = LinuxSide::stat(0040755);
    peer::storeLe(record.data(), fileSystem);
    peer::storeLe(record.data() + 8, inode);
    return record;
}

TEST_F(LinuxFileSystemTest, ALinkOfAnEarlierSessionTeachesTheFolder) {
    std::string first, second;
    against({answer(0, text("/media/Data/sub/../f")), answer(0, object(7, 2)),
             answer(0, object(7, 2)), answer(0, text("/media/Data/../../etc/passwd"))},
            [&] {
                first = m_files->readLink("sub/l");
                second = m_files->readLink("other");
            });
    EXPECT_EQ(first, "../f");
    EXPECT_EQ(second, "/etc/passwd");
    EXPECT_EQ(m_asked.at(1), "getattr /" + LinkTargets::wayTo("/media/Data"));
    EXPECT_EQ(m_asked.at(2), "getattr /");
}

TEST_F(LinuxFileSystemTest, AFolderThatOnlyHasTheDrivesNameIsNotTheDrives) {
    std::string elsewhere, otherSystem, deeper;
    against({answer(0, text("/none/Data/f")), answer(-2), answer(0, text("/mnt/Data/f")),
             answer(0, object(8, 2)), answer(0, object(7, 2)), answer(0, text("/Data/Data/./f")),
             answer(0, object(7, 5)), answer(0, object(7, 2)), answer(0, object(7, 2)),
             answer(0, object(7, 2))},
            [&] {
                elsewhere = m_files->readLink("l");
                otherSystem = m_files->readLink("l");
                deeper = m_files->readLink("l");
            });
    EXPECT_EQ(elsewhere, "/none/Data/f");
    EXPECT_EQ(otherSystem, "/mnt/Data/f");
    EXPECT_EQ(deeper, "f");
}

TEST_F(LinuxFileSystemTest, TheFileTreesFolderIsKnownFromTheStart) {
    auto plug = m_session->drives().at(0)->plug;
    plug.root = true;
    plug.folder = "Root";
    m_files =
        std::make_shared<LinuxFileSystem>(m_session, std::make_shared<Drive>(1, std::move(plug)));
    std::string target;
    against({answer(0, text("/./sub/../f")), answer(0)}, [&] {
        target = m_files->readLink("sub/l");
        m_files->makeLink("/etc/passwd", "l");
    });
    EXPECT_EQ(target, "../f");
    EXPECT_EQ(m_asked.at(1), "symlink /../etc/passwd");
}

TEST_F(LinuxFileSystemTest, TimesAreNotKept) {
    EXPECT_FALSE(m_files->keepsTimes());
    try {
        m_files->setTimes("f", 0, 0);
        FAIL();
    } catch (const peer::RemoteError& error) {
        EXPECT_EQ(error.error(), ENOSYS);
    }
}

}  // namespace

}  // namespace peer::linux
