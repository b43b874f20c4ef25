// The folder of the drives, and what becomes of them while they are in use.
#include <fcntl.h>

#include <cerrno>
#include <condition_variable>
#include <fstream>
#include <mutex>

#include "fdmount/DriveNames.h"
#include "mount/MountFixture.h"
#include "peer/FileDescriptor.h"

namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class DrivesTest : public MountFixture {
protected:
    std::shared_ptr<LocalFileSystem> drive(const std::string& folder) {
        return std::make_shared<LocalFileSystem>(m_folder.folder(folder));
    }
    bool isThere(const std::string& name) const {
        return ::access((m_point + "/" + name).c_str(), F_OK) == 0;
    }
};

TEST(DriveNamesTest, EqualNamesGetNumbersAndKeepThem) {
    fdmount::DriveNames names;
    EXPECT_EQ(names.take(1, "Data"), "Data");
    EXPECT_EQ(names.take(2, "Data"), "Data (2)");
    EXPECT_EQ(names.take(3, "Data"), "Data (3)");
    names.giveBack(1);
    EXPECT_EQ(names.take(2, "Data"), "Data (2)");
    EXPECT_EQ(names.take(4, "Data"), "Data");
}

TEST(DriveNamesTest, NamesThatNoFolderCanHaveAreMadeSafe) {
    EXPECT_EQ(fdmount::folderName("a/b"), "a_b");
    EXPECT_EQ(fdmount::folderName("a\n\x7F\x1B"), "a___");
    EXPECT_EQ(fdmount::folderName(""), "_");
    EXPECT_EQ(fdmount::folderName("."), "_");
    EXPECT_EQ(fdmount::folderName(".."), "__");
    EXPECT_EQ(fdmount::folderName("Größe"), "Größe");
    EXPECT_EQ(fdmount::folderName(std::string(255, 'x')), std::string(255, 'x'));
    EXPECT_EQ(fdmount::folderName(std::string(254, 'x') + "ö"), std::string(254, 'x'));
    fdmount::DriveNames names;
    names.take(1, std::string(300, 'x'));
    EXPECT_EQ(names.take(2, std::string(300, 'x')), std::string(251, 'x') + " (2)");
}

TEST(DriveNamesTest, PrintersTakeNoNameThatADriveCouldHave) {
    const auto files = std::make_shared<LocalFileSystem>("/");
    const auto offers = fdmount::named({{1, "X", peer::Offer::Kind::kPrinter, "", "", nullptr},
                                        {2, "X", peer::Offer::Kind::kDisk, "", "", files},
                                        {3, "X", peer::Offer::Kind::kDisk, "", "", files}});
    EXPECT_EQ(offers.at(0).name, "X (3)");
    EXPECT_EQ(offers.at(1).name, "X");
    EXPECT_EQ(offers.at(2).name, "X (2)");
}

TEST_F(DrivesTest, EachDriveIsAFolder) {
    m_machine.offer("Data", drive("one"));
    m_machine.offer("Data", drive("two"));
    m_machine.offer("A/B", drive("three"));
    m_folder.file("two/here", "text");
    mount();
    EXPECT_THAT(namesIn(m_point), UnorderedElementsAre("Data", "Data (2)", "A_B"));
    EXPECT_EQ(readFile(m_point + "/Data (2)/here"), "text");
}

TEST_F(DrivesTest, PrintersAreNoFolders) {
    m_machine.offer("Printer", nullptr);
    mount();
    EXPECT_THAT(namesIn(m_point), IsEmpty());
}

TEST_F(DrivesTest, DrivesComeAndGo) {
    mount();
    EXPECT_FALSE(isThere("Stick"));
    const std::uint32_t id = m_machine.offer("Stick", drive("stick"));
    EXPECT_TRUE(waitUntil([&] { return isThere("Stick"); }));
    m_machine.withdraw(id);
    EXPECT_TRUE(waitUntil([&] { return !isThere("Stick"); }));
    EXPECT_THAT(namesIn(m_point), IsEmpty());
}

// It is the address sanitizer that would notice: libfuse frees what it holds for a folder when it
// is told of the closing, and that comes a moment behind the call.
TEST_F(DrivesTest, AFolderThatWasReadJustBeforeTheEndIsLetGoOf) {
    for (int round = 0; round < 50; ++round) {
        mount();
        ASSERT_THAT(namesIn(m_point), IsEmpty());
        unmount();
    }
}

TEST_F(DrivesTest, WhoWorksOnADriveThatGoesIsToldSo) {
    mountData();
    std::filesystem::create_directory(behind("folder"));
    std::ofstream(behind("folder/file")) << "text";
    const peer::FileDescriptor folder(::open(at("folder").c_str(), O_RDONLY | O_DIRECTORY));
    const peer::FileDescriptor file(::open(at("folder/file").c_str(), O_RDONLY));
    ASSERT_TRUE(file);
    m_machine.withdraw(m_driveId);
    m_files->onAsk([](const std::string&) { throw peer::SessionError("the drive is gone"); });
    EXPECT_TRUE(waitUntil([&] { return !isThere("Data"); }));
    char byte = 0;
    EXPECT_EQ(errorOf(::read(file.get(), &byte, 1)), ENODEV);
    EXPECT_EQ(errorOf(::openat(folder.get(), "other", O_RDONLY)), ENODEV);
    EXPECT_EQ(errorOf(::open(at("folder/file").c_str(), O_RDONLY)), ENOENT);
}

TEST_F(DrivesTest, NothingIsRenamedOrLinkedAcrossDrives) {
    m_machine.offer("One", drive("one"));
    m_machine.offer("Two", drive("two"));
    m_folder.file("one/file");
    mount();
    const std::string from = m_point + "/One/file", to = m_point + "/Two/file";
    EXPECT_EQ(errorOf(::rename(from.c_str(), to.c_str())), EXDEV);
    EXPECT_EQ(errorOf(::link(from.c_str(), to.c_str())), EXDEV);
}

TEST_F(DrivesTest, TwoDrivesShareNoInodes) {
    m_machine.offer("One", std::make_shared<LocalFileSystem>(m_data));
    m_machine.offer("Two", std::make_shared<LocalFileSystem>(m_data));
    m_folder.file("data/file");
    mount();
    struct stat one {
    }, two{};
    ASSERT_EQ(::stat((m_point + "/One/file").c_str(), &one), 0);
    ASSERT_EQ(::stat((m_point + "/Two/file").c_str(), &two), 0);
    EXPECT_NE(one.st_ino, two.st_ino);
}

TEST_F(DrivesTest, TheFolderOfTheDrivesCannotBeWritten) {
    mountData();
    const std::string name = m_point + "/new", drive = m_point + "/Data";
    EXPECT_EQ(errorOf(::open(name.c_str(), O_CREAT | O_WRONLY, 0600)), EACCES);
    EXPECT_EQ(errorOf(::mkdir(name.c_str(), 0700)), EACCES);
    EXPECT_EQ(errorOf(::mkdir(drive.c_str(), 0700)), EEXIST);
    EXPECT_EQ(errorOf(::symlink("x", name.c_str())), EACCES);
    EXPECT_EQ(errorOf(::rmdir(drive.c_str())), EBUSY);
    EXPECT_EQ(errorOf(::rename(drive.c_str(), name.c_str())), EBUSY);
    EXPECT_EQ(errorOf(::access(m_point.c_str(), W_OK)), EACCES);
    EXPECT_EQ(::access(m_point.c_str(), R_OK | X_OK), 0);
    EXPECT_EQ(errorOf(::chmod(m_point.c_str(), 0700)), EPERM);
}

TEST_F(DrivesTest, ALostMachineGivesCallersNoConnectionAndEndsTheMount) {
    mountData();
    std::ofstream(behind("file")) << "text";
    std::mutex mutex;
    std::condition_variable changed;
    bool reading = false, lost = false;
    m_files->onAsk([&](const std::string& operation) {
        if (operation != "read") return;
        std::unique_lock lock(mutex);
        reading = true;
        changed.notify_all();
        changed.wait(lock, [&] { return lost; });
        throw peer::SessionError("the channel has ended");
    });
    int error = 0;
    std::thread reader([&] {
        const peer::FileDescriptor file(::open(at("file").c_str(), O_RDONLY));
        char byte = 0;
        error = errorOf(::read(file.get(), &byte, 1));
    });
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return reading; });
        m_machine.lose("the channel has ended");
        lost = true;
        changed.notify_all();
    }
    reader.join();
    EXPECT_EQ(error, ENOTCONN);
    m_thread.join();
    EXPECT_EQ(m_end, fdmount::LiveMount::End::kLost);
    EXPECT_FALSE(isThere("Data"));
}

TEST_F(DrivesTest, TakingTheMountOffEndsIt) {
    mountData();
    EXPECT_TRUE(isThere("Data"));
    fdmount::detachMount(m_point);
    m_thread.join();
    EXPECT_EQ(m_end, fdmount::LiveMount::End::kUnmounted);
}

TEST_F(DrivesTest, BeingToldToStopEndsIt) {
    mountData();
    EXPECT_TRUE(isThere("Data"));
    m_mount->stop();
    m_thread.join();
    EXPECT_EQ(m_end, fdmount::LiveMount::End::kStopped);
    EXPECT_FALSE(isThere("Data"));
}

}  // namespace
