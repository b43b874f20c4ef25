// One drive of the mount: its files, with what is known and under way here.
//
// Every operation may be called from any thread. They throw RemoteError and SessionError.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fdmount/mount/Knowledge.h"
#include "fdmount/mount/OpenFiles.h"
#include "peer/Machine.h"

namespace fdmount {

class MountedDrive {
public:
    MountedDrive(std::uint32_t id, std::string name, std::shared_ptr<peer::FileSystem> files,
                 Knowledge::Clock::duration fresh)
        : m_id(id), m_name(std::move(name)), m_files(std::move(files)), m_knowledge(fresh) {}

    std::uint32_t id() const { return m_id; }
    const std::string& name() const { return m_name; }

    peer::Attributes stat(const std::string& path);
    peer::Volume volume() { return m_files->volume(); }
    std::vector<peer::DirEntry> list(const std::string& path);
    std::string readLink(const std::string& path) { return m_files->readLink(path); }

    // What stat would tell but for times that may have changed since; nothing is asked.
    std::optional<peer::Attributes> roughly(const std::string& path) const {
        return m_knowledge.roughAttributes(path);
    }

    // Makers give the attributes of what they made.
    peer::Attributes makeNode(const std::string& path, std::uint32_t mode, std::uint64_t device);
    peer::Attributes makeFolder(const std::string& path, std::uint32_t mode);
    void makeLink(const std::string& target, const std::string& path);
    void link(const std::string& from, const std::string& to);
    void remove(const std::string& path);
    void removeFolder(const std::string& path);
    void rename(const std::string& from, const std::string& to);

    void chmod(const std::string& path, std::uint32_t mode);
    void setTimes(const std::string& path, peer::Time accessed, peer::Time modified);
    bool keepsTimes() const { return m_files->keepsTimes(); }
    void truncate(const std::string& path, std::int64_t size, OpenFile* file);

    OpenFile* open(const std::string& path, int flags);
    OpenFile* create(const std::string& path, int flags, std::uint32_t mode,
                     peer::Attributes& attributes);
    std::size_t read(OpenFile& file, std::uint64_t offset, char* to, std::size_t size);
    void write(OpenFile& file, std::uint64_t offset, peer::View data);
    void flush(OpenFile& file);

    // What was told of a new file was not asked for: from here on it is. False: it was.
    bool endGuessing(OpenFile& file);
    void sync(OpenFile& file);
    void close(OpenFile* file);
    void settle() { m_openFiles.settleAll(); }

private:
    peer::Attributes ask(const std::string& path);
    peer::Attributes askForMade(const std::string& path, std::uint32_t mode);
    void giveLateMode(OpenFile& file);
    peer::Attributes attributesOfNew(const std::string& path, std::uint32_t mode, OpenFile& file);

    const std::uint32_t m_id;
    const std::string m_name;
    const std::shared_ptr<peer::FileSystem> m_files;
    std::atomic<std::uint32_t> m_granted{0};  // permissions that new files were given here
    std::atomic<bool> m_clocksAgree{false};
    Knowledge m_knowledge;
    OpenFiles m_openFiles;
};

}  // namespace fdmount
