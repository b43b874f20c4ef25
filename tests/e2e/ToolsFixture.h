// fdshare over a folder of the test's own, and fdmount at the other end.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "e2e/Program.h"
#include "support/TempDir.h"

class ToolsFixture : public ::testing::Test {
protected:
    // Shares m_share as the drive "Mac-Data".
    void share(std::vector<std::string> options = {}, uid_t user = 0) {
        options.push_back(m_share);
        start(options, user);
    }

    void start(const std::vector<std::string>& options, uid_t user = 0) {
        std::vector<std::string> command{FDSHARE, "-vv", "--listen", m_endpoint};
        command.insert(command.end(), options.begin(), options.end());
        m_host = std::make_unique<Program>(command, Program::Options{.user = user});
        ASSERT_TRUE(m_host->waitForError(m_endpoint + ": listening")) << m_host->finish().err;
        if (m_host->error().find("confined by Landlock instead") != std::string::npos) {
            m_drive = "Mac r-rt" + m_share;  // a sanitizer's own thread forbids user namespaces
        }
    }

    std::vector<std::string> mountCommand(const std::vector<std::string>& arguments) const {
        std::vector<std::string> command{FDMOUNT, m_endpoint};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return command;
    }

    Outcome fdmount(const std::vector<std::string>& arguments,
                    const Program::Options& options = {}) const {
        return run(mountCommand(arguments), options);
    }

    // One line on standard error that is `text`, a failing exit code, nothing else.
    static void expectFailure(const Outcome& outcome, const std::string& text) {
        EXPECT_EQ(outcome.exitCode, 1);
        EXPECT_EQ(outcome.err, "fdmount: " + text + "\n");
        EXPECT_EQ(outcome.out, "");
    }

    static std::vector<std::string> namesIn(const std::string& folder) {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    const TempDir m_folder;
    const std::string m_share = m_folder.folder("Data");
    const std::string m_here = m_folder.folder("here");
    const std::string m_endpoint = "unix:" + m_folder.str("socket");
    std::string m_drive = "Mac-Data";
    std::unique_ptr<Program> m_host;
};
