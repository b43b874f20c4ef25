// What stands below the mount point, as the kernel asks for it: a folder per drive, and the files
// of each drive in it. One object of this class is what all calls of the file system work on.
//
// Paths are those of the mount, "/" or "/drive/folder/file". Every operation may be called from any
// thread. They throw Refusal, RemoteError and SessionError.
#pragma once

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "fdmount/mount/Drives.h"
#include "fdmount/mount/MountOptions.h"

namespace fdmount {

struct DirectoryEntry {
    std::string name;
    struct stat attributes;
};

// An open folder. It is read anew whenever somebody reads from its beginning.
struct OpenFolder {
    std::mutex mutex;  // guards the entries, and is held while they are fetched
    std::vector<DirectoryEntry> entries;
    bool filled = false;
};

// A file that is open, and the drive that it stays on.
struct Handle {
    Drives::Pointer drive;
    OpenFile* file;
};

class Mount {
public:
    // Whether the session has ended.
    using Ended = std::function<bool()>;

    Mount(const MountOptions& options, Ended ended);

    Drives& drives() { return m_drives; }
    const MountOptions& options() const { return m_options; }

    // The errno of the exception that is being handled, for a call on this path.
    int errorOf(const char* path) const;

    struct stat attributes(const char* path);
    void checkAccess(const char* path, int mask, uid_t user);
    std::vector<DirectoryEntry> list(const char* path);
    std::string readLink(const char* path);
    struct statvfs volume(const char* path);

    void makeNode(const char* path, mode_t mode, dev_t device);
    void makeFolder(const char* path, mode_t mode);
    void makeLink(const char* target, const char* path);
    void link(const char* from, const char* to);
    void remove(const char* path);
    void removeFolder(const char* path);
    void rename(const char* from, const char* to);
    void chmod(const char* path, mode_t mode);
    void chown(const char* path, uid_t uid, gid_t gid);
    void setTimes(const char* path, const struct timespec times[2]);
    void truncate(const char* path, off_t size, Handle* handle);

    // The mount owns what these give, until close() or its own end.
    Handle* open(const char* path, int flags);
    Handle* create(const char* path, int flags, mode_t mode);
    void close(Handle* handle);
    OpenFolder* openFolder();
    void closeFolder(OpenFolder* folder);

    // Waits until everything that was written is on the other side.
    void settle();

    // Waits until no folder is open, so long at most. The kernel tells of a closing when the caller
    // has gone on, and of none once the mount is off.
    void awaitClosings(std::chrono::milliseconds most);

private:
    struct Place {
        Drives::Pointer drive;  // null: the path is "/"
        std::string path;       // on the drive
    };

    Place find(const char* path) const;
    Place findBelowDrive(const char* path, int error) const;  // Refusal{error} for a drive itself
    struct stat shown(const Place& place, const peer::Attributes& attributes) const;
    struct stat rootAttributes() const;
    std::vector<DirectoryEntry> listDrives();
    std::uint64_t inodeOf(const Place& place, const peer::Attributes& attributes) const;
    Handle* keep(Drives::Pointer drive, OpenFile* file);

    const MountOptions m_options;
    const Ended m_ended;
    const uid_t m_uid;
    const gid_t m_gid;
    const struct timespec m_since;
    Drives m_drives;
    std::mutex m_mutex;  // guards everything below
    std::unordered_map<Handle*, std::unique_ptr<Handle>> m_handles;
    std::unordered_map<OpenFolder*, std::unique_ptr<OpenFolder>> m_folders;
    std::condition_variable m_folderClosed;
};

}  // namespace fdmount
