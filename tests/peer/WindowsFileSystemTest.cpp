// A drive whose other side answers as the test says: late, wrongly, or with what was not asked for.
#include "peer/windows/WindowsFileSystem.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "peer/RawSide.h"
#include "peer/Text.h"
#include "peer/windows/Status.h"

namespace peer::windows {

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

constexpr std::uint64_t kHandle = 7;

Bytes created(std::int32_t status, std::uint64_t handle, std::uint32_t result = kFileExists,
              std::uint32_t flags = 0) {
    Bytes block;
    peer::appendLe(block, handle);
    peer::appendLe(block, result);
    peer::appendLe(block, flags);
    ObjectInfo().appendTo(block);
    block.append(20, '\0');
    return FakeDrives::payload(status, 128, block);
}

Bytes listed(std::int32_t status, const std::string& name, std::uint32_t mode) {
    Bytes entry;
    ObjectInfo info;
    info.mode = mode;
    info.appendTo(entry);
    entry.append(30, '\0');
    const Bytes wide = *peer::utf16FromUtf8(name);
    peer::appendLe(entry, static_cast<std::uint16_t>(wide.size() + 2));
    peer::appendLe(entry, static_cast<std::uint16_t>(wide.size()));
    peer::append(entry, wide);
    entry.append(2, '\0');
    Bytes all;
    peer::appendLe(all, std::uint32_t{1});
    peer::append(all, entry);
    return FakeDrives::payload(status, static_cast<std::uint32_t>(entry.size()), all);
}

Bytes infoOf(std::uint32_t mode, std::int64_t modified) {
    ObjectInfo info;
    info.mode = mode;
    info.modified = modified;
    Bytes record;
    info.appendTo(record);
    return FakeDrives::payload(0, ObjectInfo::kSize, record);
}

std::uint16_t codeOf(const Bytes& request) {
    return peer::loadLe<std::uint16_t>(request.data());
}

class WindowsFileSystemTest : public ::testing::Test {
protected:
    // Called with m_mutex held. Nothing: the request is not answered.
    using Answer = std::function<std::optional<Bytes>(const Bytes& request)>;

    void SetUp() override {
        on(kCreate, [](const Bytes&) { return created(0, kHandle); });
        on(kList, [](const Bytes&) { return listed(kNoMoreFiles, "f", kModeRegular | 0644); });
        on(kRename, [](const Bytes&) { return FakeDrives::payload(-120, 0); });
        on(kClose, [](const Bytes&) { return FakeDrives::payload(0, 0); });
    }

    WindowsFileSystem& start(std::chrono::milliseconds timeout = 20s) {
        Session::Options options;
        options.timeout = timeout;
        m_session = std::make_shared<Session>(m_drives.channel(), options);
        m_drives.shakeHands();
        m_session->open();
        m_drives.next();
        m_far = std::thread([this] { answerAll(); });
        m_files = std::make_unique<WindowsFileSystem>(m_session, Drive());
        return *m_files;
    }

    void TearDown() override {
        m_files.reset();
        m_session.reset();
        m_drives.far().interrupt();
        m_far.join();
    }

    void on(std::uint16_t code, Answer answer) {
        const std::lock_guard lock(m_mutex);
        m_answers[code] = std::move(answer);
    }

    void answerAll() {
        try {
            while (const std::optional<Bytes> request = m_drives.far().receive()) answer(*request);
        } catch (const peer::ChannelError&) {
            return;  // the test is over
        }
    }

    void answer(const Bytes& request) {
        const std::lock_guard lock(m_mutex);
        if (codeOf(request) == kClose) m_closed.push_back(handleOf(request));
        if (const auto payload = m_answers[codeOf(request)](request)) {
            m_drives.answer(request, *payload);
        }
    }

    std::vector<std::uint64_t> closed() {
        const std::lock_guard lock(m_mutex);
        return m_closed;
    }

    static std::uint64_t handleOf(const Bytes& request) {
        return peer::loadLe<std::uint64_t>(&request[12]);
    }

    template <typename Work>
    static int errorOf(Work work) {
        try {
            work();
            return 0;
        } catch (const peer::RemoteError& error) {
            return error.error();
        }
    }

    FakeDrives m_drives;
    std::mutex m_mutex;  // guards what the far side uses
    std::map<std::uint16_t, Answer> m_answers;
    std::vector<std::uint64_t> m_closed;
    std::thread m_far;
    std::shared_ptr<Session> m_session;
    std::unique_ptr<WindowsFileSystem> m_files;
};

TEST_F(WindowsFileSystemTest, AReplyThatIsNotWhatItMustBeFailsTheOneOperation) {
    auto& files = start();
    const auto file = files.open("f", O_RDWR);
    on(kRead, [](const Bytes&) { return FakeDrives::payload(0, 1'000'000); });
    on(kWrite, [](const Bytes&) { return FakeDrives::payload(0, 6); });
    on(kQueryInfo, [](const Bytes&) { return FakeDrives::payload(0, 3); });
    on(kList, [](const Bytes&) { return FakeDrives::payload(0, 100); });
    EXPECT_EQ(errorOf([&] { file->read(0, 4096)(); }), EIO);
    EXPECT_EQ(errorOf([&] { file->write(0, peer::viewOf("12345"))(); }), EIO);
    EXPECT_EQ(errorOf([&] { file->stat(); }), EIO);
    EXPECT_EQ(errorOf([&] { files.stat("g"); }), EIO);
    EXPECT_EQ(errorOf([&] { files.list("", [](const auto&) {}); }), EIO);

    on(kWrite, [](const Bytes&) { return FakeDrives::payload(0, 5); });
    EXPECT_EQ(file->write(0, peer::viewOf("12345"))(), 5U);
}

TEST_F(WindowsFileSystemTest, AShortReadGivesNoMoreThanWasAsked) {
    const auto file = start().open("f", O_RDONLY);
    on(kRead, [](const Bytes&) {
        return FakeDrives::payload(0, 512, peer::viewOf(std::string(512, 'x')));
    });
    EXPECT_EQ(file->read(0, 3)().bytes.size(), 3U);
}

TEST_F(WindowsFileSystemTest, OnlyFilesAreOpened) {
    auto& files = start();
    for (const std::uint32_t type : {0x1000U, 0x2000U, 0x6000U, 0xC000U, 0U}) {
        on(kList, [type](const Bytes&) { return listed(kNoMoreFiles, "f", type | 0644U); });
        const std::string name = "of type " + std::to_string(type);
        on(kCreate, [](const Bytes& request) {
            const bool isFolder = peer::loadLe<std::uint16_t>(&request[12]) == 0;
            EXPECT_TRUE(isFolder) << "a name is opened";
            return created(0, kHandle);
        });
        EXPECT_EQ(errorOf([&] { files.open(name, O_RDONLY); }), ENXIO);
        EXPECT_EQ(errorOf([&] { files.truncate(name, 0); }), ENXIO);
        EXPECT_EQ(errorOf([&] { files.setTimes(name, 1, 1); }), EPERM);
    }
}

TEST_F(WindowsFileSystemTest, AFileThatBecameAFolderIsClosedAgain) {
    auto& files = start();
    files.stat("f");
    on(kCreate, [](const Bytes&) { return created(0, 55, kFileExists, kDirectory); });
    EXPECT_EQ(errorOf([&] { files.open("f", O_RDONLY); }), EISDIR);
    m_files.reset();
    m_session->ask(closeRequest(0, 1));  // behind all others
    EXPECT_THAT(closed(), ::testing::Contains(55U));
}

TEST_F(WindowsFileSystemTest, AWriteToWhatWasOpenedForReadingOnlyIsAReadOnlyDrive) {
    const auto file = start().open("f", O_WRONLY);
    on(kWrite, [](const Bytes&) { return FakeDrives::payload(-4, 0); });
    EXPECT_EQ(errorOf([&] { file->write(0, peer::viewOf("x"))(); }), EROFS);
}

TEST_F(WindowsFileSystemTest, WhatWasNotSetIsReported) {
    const auto file = start().open("f", O_RDWR);
    on(kSetInfo, [](const Bytes&) { return infoOf(kModeRegular | 0600, 5'000'000'000); });
    EXPECT_EQ(errorOf([&] { file->chmod(0755); }), EPERM);
    EXPECT_EQ(errorOf([&] { file->chmod(0200); }), 0);  // the owner may read in any case
    EXPECT_EQ(errorOf([&] { file->setTimes(0, 9'000'000'000); }), EPERM);
    EXPECT_EQ(errorOf([&] { file->setTimes(0, 6'000'000'000); }), 0);  // as coarse as it gets
    on(kSetInfo,
       [](const Bytes&) { return infoOf(kModeRegular, std::numeric_limits<std::int64_t>::min()); });
    EXPECT_EQ(errorOf([&] { file->setTimes(0, std::numeric_limits<peer::Time>::max()); }), EPERM);
    EXPECT_EQ(errorOf([&] { file->setTimes(0, std::numeric_limits<peer::Time>::min()); }), 0);
}

// 0 would leave a time as it is, and a fraction of a second before 1970 is refused over there.
TEST_F(WindowsFileSystemTest, TimesThatCannotBeSaidBecomeTheirNeighbours) {
    const auto file = start().open("f", O_RDWR);
    std::vector<std::int64_t> sent;
    on(kSetInfo, [&sent](const Bytes& request) {
        sent.push_back(peer::loadLe<std::int64_t>(&request[24 + 16]));
        sent.push_back(peer::loadLe<std::int64_t>(&request[24 + 24]));
        return infoOf(kModeRegular, sent.back());
    });
    file->setTimes(0, -1);
    file->setTimes(-1'000'000'000, 7);
    const std::lock_guard lock(m_mutex);
    EXPECT_THAT(sent, ElementsAre(1, -1'000'000'000, -1'000'000'000, 7));
}

TEST_F(WindowsFileSystemTest, AListingThatDoesNotGoOnIsGivenUpAndItsHandleClosed) {
    auto& files = start();
    on(kList, [](const Bytes&) {
        return FakeDrives::payload(0, 0, peer::viewOf(std::string_view("\0\0\0\0", 4)));
    });
    EXPECT_EQ(errorOf([&] { files.list("", [](const auto&) {}); }), EIO);
    m_session->ask(closeRequest(0, 1));
    EXPECT_THAT(closed(), ElementsAre(kHandle, 1U));
}

TEST_F(WindowsFileSystemTest, TwoSeparatorsKeepTheSearchForLetterCasesOff) {
    auto& files = start();
    std::vector<std::string> paths;
    const auto keep = [&paths](const Bytes& request, std::size_t at) {
        const auto size = peer::loadLe<std::uint16_t>(&request[at]);
        paths.push_back(peer::utf8FromUtf16(peer::View(request).subspan(at + 2, size)));
    };
    on(kList, [&](const Bytes& request) {
        keep(request, 20);
        return listed(kNoMoreFiles, "x", kModeRegular);
    });
    on(kRemove, [&](const Bytes& request) {
        keep(request, 12);
        return FakeDrives::payload(0, 0);
    });
    files.stat("Tmp/x");
    files.list("Tmp", [](const auto&) {});
    files.list("", [](const auto&) {});
    files.remove("Tmp/x");
    const std::lock_guard lock(m_mutex);
    EXPECT_THAT(paths, ElementsAre("\\\\Tmp\\x", "\\\\Tmp\\*", "\\*", "\\\\Tmp\\x"));
}

TEST_F(WindowsFileSystemTest, AnOperationWithoutAnAnswerFailsAloneAndItsHandleIsClosedLater) {
    auto& files = start(300ms);
    files.stat("f");
    std::optional<Bytes> held;
    on(kCreate, [&](const Bytes& request) -> std::optional<Bytes> {
        const bool isFolder = peer::loadLe<std::uint16_t>(&request[12]) == 0;
        if (isFolder) return created(0, kHandle);
        held = request;
        return std::nullopt;
    });
    EXPECT_THROW(files.open("f", O_RDONLY), peer::NoAnswer);
    {
        const std::lock_guard lock(m_mutex);
        ASSERT_TRUE(held);
        m_drives.answer(*held, created(0, 99));
    }
    files.stat("g");
    m_session->ask(closeRequest(0, 1));
    EXPECT_THAT(closed(), ::testing::Contains(99U));
}

TEST_F(WindowsFileSystemTest, ALostChannelEndsAllWaitsAtOnce) {
    const auto file = start().open("f", O_RDONLY);
    on(kRead, [](const Bytes&) { return std::nullopt; });
    std::vector<peer::File::Reading> reads;
    for (int i = 0; i < 8; ++i) reads.push_back(file->read(0, 10));
    std::vector<std::thread> threads;
    for (const auto& read : reads) {
        threads.emplace_back([&read] { EXPECT_THROW(read(), peer::SessionError); });
    }
    m_drives.channel().interrupt();
    for (std::thread& thread : threads) thread.join();
}

}  // namespace

}  // namespace peer::windows
