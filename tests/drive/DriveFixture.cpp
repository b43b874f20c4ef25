#include "drive/DriveFixture.h"

#include <chrono>
#include <iterator>

namespace {
constexpr std::chrono::seconds kPatience{60};
}

void DriveFixture::use(peer::Dialect dialect, const peer::windows::Policy& policy,
                       const std::string& shareOptions, const std::string& runner) {
    m_connection = peer::connectTo("exec:" + runner + " " FDSHARE " -vv --stdio " + shareOptions +
                                   " '" + m_share + "' 2>'" + m_folder.str("log") + "'");
    peer::Machine::Options options;
    options.policy = policy;
    options.policy.mountParents = "/media";
    options.policy.localTypes = "ext4|xfs|btrfs|tmpfs|overlay|f2fs|zfs";
    m_machine = peer::Machine::connect(*m_connection.channel, dialect, options);
    ASSERT_TRUE(
        m_machine->waitForDrives([](const auto& drives) { return !drives.empty(); }, kPatience))
        << log();
    m_files = m_machine->drives().front().files;
    if (log().find("confined by Landlock instead") != std::string::npos) {
        m_prefix = m_share.substr(1);  // a sanitizer's own thread forbids user namespaces
    }
}

void DriveFixture::hangUp() {
    m_files.reset();
    m_machine.reset();
    m_connection.channel.reset();  // first, so that the program ends by itself
    m_connection.child.reset();
}

void DriveFixture::TearDown() {
    hangUp();
    if (log().find("Sanitizer:") != std::string::npos) ADD_FAILURE() << log();
}

std::string DriveFixture::at(std::string_view name) const {
    std::string path = m_prefix;
    if (!path.empty() && !name.empty()) path.push_back('/');
    return path.append(name);
}

void DriveFixture::put(std::string_view name, std::string_view content, std::uint32_t mode) {
    const auto file = drive().create(at(name), O_WRONLY, mode);
    if (content.empty()) return;
    ASSERT_EQ(file->write(0, peer::viewOf(content))(), content.size());
}

std::string DriveFixture::get(std::string_view name) {
    const auto file = drive().open(at(name), O_RDONLY);
    std::string content;
    while (true) {
        const peer::Data data = file->read(content.size(), peer::File::kMaxTransfer)();
        content.append(peer::textOf(data.bytes));
        if (data.bytes.size() < peer::File::kMaxTransfer) return content;
    }
}

std::vector<std::string> DriveFixture::names(std::string_view folder) {
    std::vector<std::string> all;
    drive().list(at(folder), [&](std::vector<peer::DirEntry> entries) {
        for (peer::DirEntry& entry : entries) all.push_back(std::move(entry.name));
    });
    return all;
}
