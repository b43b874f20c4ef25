// fdshare over a folder of the test's own, and fdmount at the other end, in either dialect.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "e2e/Program.h"
#include "support/TempDir.h"

// What differs between the dialects for somebody who types commands.
struct DialectWords {
    std::string name;    // of the option
    std::string prefix;  // of a drive's name
    std::string root;    // the name of the whole file tree
    std::string noFile, notEmpty, readOnly, denied;
    std::string tracedRead, tracedCreate;  // the 21st read of a copy, a file that was made
    bool tellsAttributes;
};

inline const DialectWords kWindows{"windows",
                                   "Mac-",
                                   "Mac r-rt",
                                   "no such file or directory (VERR_FILE_NOT_FOUND)",
                                   "directory not empty (VERR_DIR_NOT_EMPTY)",
                                   "the drive cannot be written",
                                   "permission denied (VERR_ACCESS_DENIED)",
                                   "< result seq 20 of read",
                                   "of create: status 0, count 128, handle",
                                   true};
inline const DialectWords kLinux{"linux",
                                 "",
                                 "Root",
                                 "no such file or directory (ENOENT)",
                                 "directory not empty (ENOTEMPTY)",
                                 "read-only file system (EROFS)",
                                 "permission denied (EACCES)",
                                 ", offset 20971520, length 1048576 (",
                                 "< mknod map 1 idx ",
                                 false};

inline void PrintTo(const DialectWords& dialect, std::ostream* to) {
    *to << dialect.name;
}

class ToolsFixture : public ::testing::Test {
protected:
    explicit ToolsFixture(const DialectWords& dialect = kLinux) : m_dialect(dialect) {}

    // Shares m_share as the drive m_drive.
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
            m_drive = m_dialect.root + m_share;  // a sanitizer's own thread forbids user namespaces
        }
    }

    std::vector<std::string> mountCommand(const std::vector<std::string>& arguments) const {
        std::vector<std::string> command{FDMOUNT, "--dialect", m_dialect.name, m_endpoint};
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

    // A path on the drive.
    std::string at(const std::string& path) const { return m_drive + "/" + path; }

    const DialectWords m_dialect;
    const TempDir m_folder;
    const std::string m_share = m_folder.folder("Data");
    const std::string m_here = m_folder.folder("here");
    const std::string m_endpoint = "unix:" + m_folder.str("socket");
    std::string m_drive = m_dialect.prefix + "Data";
    std::unique_ptr<Program> m_host;
};

// The tests that are the same in both.
class InEachDialect : public ToolsFixture, public ::testing::WithParamInterface<DialectWords> {
protected:
    InEachDialect() : ToolsFixture(GetParam()) {}
};

inline std::string dialectName(const ::testing::TestParamInfo<DialectWords>& info) {
    return info.param.name;
}
