// A mount in this process, over drives that are folders of the test's own.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "fdmount/mount/LiveMount.h"
#include "fdmount/mount/MountPoint.h"
#include "mount/FakeMachine.h"
#include "mount/LocalFileSystem.h"
#include "support/TempDir.h"
#include "support/WaitUntil.h"

class MountFixture : public ::testing::Test {
protected:
    void SetUp() override {
        if (::access("/dev/fuse", R_OK | W_OK) != 0) GTEST_SKIP() << "/dev/fuse is missing";
    }

    void TearDown() override { unmount(); }

    // Mounts what is offered up to now.
    void mount(const std::string& options = "") {
        m_mount = std::make_unique<fdmount::LiveMount>(
            m_machine, fdmount::parseMountOptions({options}), m_point);
        m_thread = std::thread([this] { m_end = m_mount->run(); });
    }

    // One drive, "Data", over m_data.
    void mountData(const std::string& options = "") {
        m_files = std::make_shared<LocalFileSystem>(m_data);
        m_driveId = m_machine.offer("Data", m_files);
        mount(options);
    }

    void unmount() {
        if (m_mount) m_mount->stop();
        if (m_thread.joinable()) m_thread.join();
        if (m_mount) {
            EXPECT_FALSE(m_mount->isBusy());
        }
        m_mount.reset();
    }

    std::string at(const std::string& name) const { return m_point + "/Data/" + name; }
    std::string behind(const std::string& name) const { return m_data + "/" + name; }

    static std::vector<std::string> namesIn(const std::string& folder) {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    // The errno of a call that returned this.
    static int errorOf(long result) { return result < 0 ? errno : 0; }

    const TempDir m_folder;
    const std::string m_point = m_folder.folder("mnt");
    const std::string m_data = m_folder.folder("data");
    FakeMachine m_machine;
    std::shared_ptr<LocalFileSystem> m_files;
    std::uint32_t m_driveId = 0;
    std::unique_ptr<fdmount::LiveMount> m_mount;
    std::thread m_thread;
    fdmount::LiveMount::End m_end{};
};
