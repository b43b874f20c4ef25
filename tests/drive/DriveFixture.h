// A folder of the test's own as a drive, offered by fdshare and used in either dialect.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "peer/Endpoint.h"
#include "peer/FileSystem.h"
#include "peer/Machine.h"
#include "support/TempDir.h"

namespace peer {
inline void PrintTo(Dialect dialect, std::ostream* to) {
    *to << (dialect == Dialect::kLinux ? "linux" : "windows");
}
}  // namespace peer

// How a refusal came: 0 if there was none.
template <typename Work>
int errorOf(Work work) {
    try {
        work();
        return 0;
    } catch (const peer::RemoteError& error) {
        return error.error();
    }
}

class DriveFixture : public ::testing::Test {
protected:
    // Shares m_share and uses it; once a test. `runner` is a command that runs the rest of its
    // line.
    void use(peer::Dialect dialect, const peer::windows::Policy& policy = {},
             const std::string& shareOptions = {}, const std::string& runner = {});

    // What a sanitizer has found in the program that shares is a failure too.
    void TearDown() override;

    // Ends the use of the drive, and the program that shares it.
    void hangUp();

    peer::FileSystem& drive() { return *m_files; }

    // The path of an object on the drive, and here.
    std::string at(std::string_view name) const;
    std::string here(std::string_view name) const { return m_share + "/" + std::string(name); }

    void put(std::string_view name, std::string_view content, std::uint32_t mode = 0644);
    std::string get(std::string_view name);
    std::vector<std::string> names(std::string_view folder);
    peer::Attributes stat(std::string_view name) { return drive().stat(at(name)); }

    // What fdshare and the plug-in in it have written. The plug-in's lines begin behind the level.
    std::string log() const { return readFile(m_folder.str("log")); }

    const TempDir m_folder;
    const std::string m_share = m_folder.folder("Data");
    peer::Connection m_connection;
    std::unique_ptr<peer::Machine> m_machine;
    std::shared_ptr<peer::FileSystem> m_files;
    std::string m_prefix;  // of all paths, if the drive is the whole file tree
};
