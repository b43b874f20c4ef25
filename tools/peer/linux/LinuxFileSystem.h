// A drive's files in the Linux dialect. The other side knows paths and no open files: an open file
// here is a path, which follows a rename that goes through this object.
#pragma once

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

#include "peer/FileSystem.h"
#include "peer/linux/LinkTargets.h"
#include "peer/linux/Session.h"

namespace peer::linux {

class LinuxFile;

class LinuxFileSystem : public FileSystem, public std::enable_shared_from_this<LinuxFileSystem> {
public:
    LinuxFileSystem(std::shared_ptr<Session> session, DrivePtr drive);
    ~LinuxFileSystem() override;

    Attributes stat(std::string_view path) override;
    Volume volume() override;
    void list(std::string_view path, const Take& take) override;
    std::unique_ptr<File> open(std::string_view path, int flags) override;
    std::unique_ptr<File> create(std::string_view path, int flags, std::uint32_t mode) override;
    void makeNode(std::string_view path, std::uint32_t mode, std::uint64_t device) override;
    void makeFolder(std::string_view path, std::uint32_t mode) override;
    void remove(std::string_view path) override;
    void removeFolder(std::string_view path) override;
    void rename(std::string_view from, std::string_view to) override;
    void link(std::string_view from, std::string_view to) override;
    void makeLink(const std::string& target, std::string_view path) override;
    std::string readLink(std::string_view path) override;
    void truncate(std::string_view path, std::int64_t size) override;
    std::optional<std::uint32_t> chmod(std::string_view path, std::uint32_t mode) override;
    void setTimes(std::string_view path, Time accessed, Time modified) override;
    bool keepsTimes() const override { return false; }

private:
    friend class LinuxFile;

    // An open file's path; "" is the drive itself and never open. Guarded by m_openMutex.
    struct OpenPath {
        std::string path;
    };

    Bytes ask(Request request) { return m_session->ask(*m_drive, std::move(request)); }
    void doIt(Request request);
    Block listingOf(std::string_view path);
    void checkFolder(std::string_view path, bool hasBlock);
    void checkOpens(std::string_view path, int accessMode);
    LinkTargets targets();
    LinkTargets learnedTargets(std::string_view path);
    void learn(std::string_view path, std::string_view sent);
    void learnFrom(std::string_view stored);
    void keep(LinkTargets learned);
    bool isDrivesFolder(std::string_view folder);
    std::string storedTarget(std::string_view path);

    // Calls `work` with the path that the file has now.
    template <typename Work>
    auto withPath(const OpenPath& file, Work work) {
        const std::lock_guard lock(m_openMutex);
        return work(std::string_view(file.path));
    }

    const std::shared_ptr<Session> m_session;
    const DrivePtr m_drive;

    std::mutex m_openMutex;  // guards m_open and what it points to
    std::set<OpenPath*> m_open;

    std::mutex m_targetsMutex;  // guards m_targets
    LinkTargets m_targets;
};

}  // namespace peer::linux
