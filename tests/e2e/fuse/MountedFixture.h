// fdmount's mount of what fdshare shares, both as programs of their own.
#pragma once

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "e2e/ToolsFixture.h"
#include "support/WaitUntil.h"

class MountedFixture : public ToolsFixture {
protected:
    explicit MountedFixture(const DialectWords& dialect = kLinux) : ToolsFixture(dialect) {}

    void SetUp() override {
        if (::access("/dev/fuse", R_OK | W_OK) != 0) GTEST_SKIP() << "/dev/fuse is missing";
    }

    // Whatever a test left, so that its folder can be removed.
    ~MountedFixture() override {
        if (isMounted()) ::umount2(m_point.c_str(), MNT_DETACH);
    }

    std::vector<std::string> foregroundCommand(std::vector<std::string> options = {}) const {
        options.insert(options.begin(), "-f");
        options.push_back(m_point);
        return mountCommand(options);
    }

    void startMount(const std::vector<std::string>& options = {}) {
        m_mounted = std::make_unique<Program>(foregroundCommand(options), Program::Options{});
        ASSERT_TRUE(waitUntil([this] { return isMounted(); })) << m_mounted->error();
        m_there = m_point + "/" + m_drive;
        ASSERT_TRUE(waitUntil([this] { return ::access(m_there.c_str(), F_OK) == 0; }));
    }

    Outcome stopMount() {
        m_mounted->signal(SIGTERM);
        return m_mounted->finish();
    }

    bool isMounted() const {
        std::ifstream table("/proc/self/mountinfo");
        for (std::string line; std::getline(table, line);) {
            if (line.find(" " + m_point + " ") != std::string::npos) return true;
        }
        return false;
    }

    const std::string m_point = m_folder.folder("mnt");
    std::string m_there;  // the drive's folder
    std::unique_ptr<Program> m_mounted;
};
