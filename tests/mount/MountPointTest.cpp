// The folder that is mounted on.
#include "fdmount/mount/MountPoint.h"

#include <sys/sysmacros.h>

#include <chrono>
#include <future>

#include "fdmount/mount/FuseSession.h"
#include "mount/MountFixture.h"

namespace {

using MountPointTest = MountFixture;

// A program that waited for its own answer could not be ended by anything.
TEST_F(MountPointTest, RaisingTheReadAheadWaitsForNoAnswer) {
    fdmount::Mount files(fdmount::parseMountOptions({}), [] { return false; });
    fdmount::FuseSession session(files, m_point);

    const auto raised =
        std::async(std::launch::async, [this] { fdmount::raiseReadAhead(m_point); });
    EXPECT_EQ(raised.wait_for(std::chrono::seconds(5)), std::future_status::ready);

    session.start([] {});
    struct stat info {};
    EXPECT_EQ(::stat(m_point.c_str(), &info), 0);
    const std::string setting = "/sys/class/bdi/" + std::to_string(major(info.st_dev)) + ":" +
                                std::to_string(minor(info.st_dev)) + "/read_ahead_kb";
    if (::access(setting.c_str(), W_OK) == 0) {
        EXPECT_EQ(readFile(setting), "4096\n");
    }
    fdmount::detachMount(m_point);
}

}  // namespace
