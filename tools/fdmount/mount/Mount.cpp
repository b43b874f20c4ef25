#include "fdmount/mount/Mount.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <limits>
#include <new>
#include <string_view>
#include <utility>

#include "fdmount/mount/Failure.h"
#include "fdmount/mount/Reply.h"

namespace fdmount {

namespace {

constexpr std::uint64_t kRootInode = 1;
constexpr mode_t kExecute = 0111;
constexpr mode_t kWrite = 0222;

// Programs write and read in portions of this size: each of them is a call of its own.
constexpr std::int64_t kLeastBlock = std::int64_t{64} * 1024;

struct timespec timeOf(peer::Time time) {
    std::int64_t seconds = time / peer::kSecond;
    if (time % peer::kSecond < 0) --seconds;
    return {static_cast<time_t>(seconds), static_cast<long>(time - seconds * peer::kSecond)};
}

peer::Time timeOf(const struct timespec& time, peer::Time unchanged) {
    if (time.tv_nsec == UTIME_OMIT) return unchanged;
    struct timespec given = time;
    if (time.tv_nsec == UTIME_NOW) ::clock_gettime(CLOCK_REALTIME, &given);
    // What nanoseconds cannot say becomes the first or the last time that they can.
    constexpr std::int64_t kLimit = std::numeric_limits<peer::Time>::max() / peer::kSecond - 1;
    if (given.tv_sec < -kLimit) return -kLimit * peer::kSecond;
    if (given.tv_sec > kLimit) return kLimit * peer::kSecond;
    return given.tv_sec * peer::kSecond + given.tv_nsec;
}

// What is taken as true here adds to the time for which the kernel does.
Knowledge::Clock::duration freshness(const MountOptions& options) {
    constexpr double kMost = 2;
    const double seconds = std::min({kMost, options.attributeTimeout, options.entryTimeout});
    return std::chrono::duration_cast<Knowledge::Clock::duration>(
        std::chrono::duration<double>(seconds));
}

struct timespec now() {
    struct timespec time {};
    ::clock_gettime(CLOCK_REALTIME, &time);
    return time;
}

}  // namespace

Mount::Mount(const MountOptions& options, Ended ended)
    : m_options(options),
      m_ended(std::move(ended)),
      m_uid(options.uid.value_or(::getuid())),
      m_gid(options.gid.value_or(::getgid())),
      m_since(now()),
      m_drives(freshness(options)) {}

int Mount::errorOf(const char* path) const {
    try {
        throw;
    } catch (const Refusal& refusal) {
        return refusal.error;
    } catch (const peer::RemoteError& error) {
        try {
            find(path);
        } catch (const Refusal& refusal) {
            return refusal.error;  // the drive went meanwhile
        }
        return error.error();
    } catch (const peer::Cancelled&) {
        return ENOTCONN;
    } catch (const peer::SessionError& error) {
        if (m_ended()) return ENOTCONN;
        const bool late = dynamic_cast<const peer::NoAnswer*>(&error) != nullptr;
        return late ? ETIMEDOUT : ENODEV;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    } catch (const std::exception&) {
        return EIO;  // an answer that made no sense
    }
}

Mount::Place Mount::find(const char* path) const {
    const std::string_view whole = std::string_view(path).substr(1);
    if (whole.empty()) return {nullptr, ""};
    const std::size_t slash = whole.find('/');
    Place place{m_drives.find(whole.substr(0, slash)), ""};
    if (!place.drive) throw Refusal{m_ended() ? ENOTCONN : slash == whole.npos ? ENOENT : ENODEV};
    if (slash != whole.npos) place.path = whole.substr(slash + 1);
    return place;
}

Mount::Place Mount::findBelowDrive(const char* path, int error) const {
    if (std::strchr(path + 1, '/') == nullptr) throw Refusal{error};
    return find(path);
}

struct stat Mount::attributes(const char* path) {
    if (const auto reply = Reply::take(path)) return *reply;
    const Place place = find(path);
    return place.drive ? shown(place, place.drive->stat(place.path)) : rootAttributes();
}

struct stat Mount::rootAttributes() const {
    struct stat info {};
    info.st_ino = kRootInode;
    info.st_mode = S_IFDIR | (0755U & ~m_options.umask);
    info.st_nlink = 2 + m_drives.all().size();
    info.st_uid = m_uid;
    info.st_gid = m_gid;
    info.st_blksize = 4096;
    info.st_atim = info.st_mtim = info.st_ctim = m_since;
    return info;
}

struct stat Mount::shown(const Place& place, const peer::Attributes& attributes) const {
    struct stat info {};
    info.st_ino = inodeOf(place, attributes);
    info.st_mode = attributes.mode & ~m_options.umask;
    info.st_nlink = std::max<std::uint64_t>(attributes.links, 1);
    info.st_uid = m_uid;
    info.st_gid = m_gid;
    info.st_rdev = attributes.device;
    info.st_size = std::max<std::int64_t>(attributes.size, 0);
    info.st_blksize = std::clamp<std::int64_t>(attributes.blockSize, kLeastBlock, 1 << 20);
    info.st_blocks = std::max<std::int64_t>(attributes.blocks, 0);
    info.st_atim = timeOf(attributes.accessed);
    info.st_mtim = timeOf(attributes.modified);
    info.st_ctim = timeOf(attributes.changed);
    return info;
}

// The other side's own number for folders and for files with several names, so that these are seen
// to be one file. All others are told apart by their paths, which are known before anybody is
// asked. Two drives share none.
std::uint64_t Mount::inodeOf(const Place& place, const peer::Attributes& attributes) const {
    constexpr unsigned kDriveShift = 56;
    constexpr std::uint64_t kByPath = std::uint64_t{1} << (kDriveShift - 1);
    const bool isOwn = attributes.inode != 0 && (attributes.isDirectory() || attributes.links > 1);
    const std::uint64_t hash = std::hash<std::string>{}(place.path) % kByPath;
    const std::uint64_t inode = isOwn ? attributes.inode : hash | kByPath;
    return inode ^ (std::uint64_t{place.drive->id() + 1} << kDriveShift);
}

void Mount::checkAccess(const char* path, int mask, uid_t user) {
    const Place place = find(path);
    if (mask == F_OK || (mask & (W_OK | X_OK)) == 0) return;
    if (!place.drive) {
        if ((mask & W_OK) != 0) throw Refusal{EACCES};
        return;
    }
    // The other side decides when it comes to it; who does what nobody may hears of it now.
    const struct stat info = shown(place, place.drive->stat(place.path));
    const bool isFolder = S_ISDIR(info.st_mode);
    if ((mask & X_OK) != 0 && !isFolder && (info.st_mode & kExecute) == 0) throw Refusal{EACCES};
    if ((mask & W_OK) != 0 && user != 0 && (info.st_mode & kWrite) == 0) throw Refusal{EACCES};
}

std::vector<DirectoryEntry> Mount::list(const char* path) {
    const Place place = find(path);
    if (!place.drive) return listDrives();
    std::vector<DirectoryEntry> entries;
    const std::string before = place.path.empty() ? "" : place.path + "/";
    for (peer::DirEntry& entry : place.drive->list(place.path)) {
        const Place object{place.drive, before + entry.name};
        entries.push_back({std::move(entry.name), shown(object, entry.attributes)});
    }
    return entries;
}

std::vector<DirectoryEntry> Mount::listDrives() {
    std::vector<DirectoryEntry> entries;
    for (const Drives::Pointer& drive : m_drives.all()) {
        try {
            entries.push_back({drive->name(), shown({drive, ""}, drive->stat(""))});
        } catch (const peer::SessionError&) {
            if (m_ended()) throw;  // otherwise it is one drive that goes
        } catch (const peer::RemoteError&) {
            struct stat info = rootAttributes();  // it is there, whatever it answers
            info.st_ino = inodeOf({drive, ""}, {});
            entries.push_back({drive->name(), info});
        }
    }
    return entries;
}

std::string Mount::readLink(const char* path) {
    const Place place = find(path);
    if (!place.drive) throw Refusal{EINVAL};
    return place.drive->readLink(place.path);
}

struct statvfs Mount::volume(const char* path) {
    Place place = find(path);
    struct statvfs info {};
    info.f_bsize = info.f_frsize = 4096;
    info.f_namemax = 255;
    // Several drives have no common room.
    if (const auto all = m_drives.all(); !place.drive && all.size() == 1) place.drive = all.front();
    if (!place.drive) return info;
    const peer::Volume volume = place.drive->volume();
    info.f_bsize = info.f_frsize = std::max<std::uint64_t>(volume.blockSize, 1);
    info.f_blocks = volume.blocks;
    info.f_bfree = volume.freeBlocks;
    info.f_bavail = volume.availableBlocks;
    info.f_files = volume.files;
    info.f_ffree = info.f_favail = volume.freeFiles;
    info.f_namemax = volume.maxName;
    if (volume.readOnly) info.f_flag |= ST_RDONLY;
    return info;
}

void Mount::makeNode(const char* path, mode_t mode, dev_t device) {
    const Place place = findBelowDrive(path, EACCES);
    Reply::keep(path, shown(place, place.drive->makeNode(place.path, mode, device)));
}

void Mount::makeFolder(const char* path, mode_t mode) {
    const Place place = findBelowDrive(path, EACCES);
    Reply::keep(path, shown(place, place.drive->makeFolder(place.path, mode)));
}

void Mount::makeLink(const char* target, const char* path) {
    const Place place = findBelowDrive(path, EACCES);
    place.drive->makeLink(target, place.path);
}

void Mount::link(const char* from, const char* to) {
    const Place source = findBelowDrive(from, EPERM);
    const Place target = findBelowDrive(to, EACCES);
    if (source.drive != target.drive) throw Refusal{EXDEV};
    source.drive->link(source.path, target.path);
}

void Mount::remove(const char* path) {
    const Place place = findBelowDrive(path, EISDIR);
    place.drive->remove(place.path);
}

void Mount::removeFolder(const char* path) {
    const Place place = findBelowDrive(path, EBUSY);
    place.drive->removeFolder(place.path);
}

void Mount::rename(const char* from, const char* to) {
    const Place source = findBelowDrive(from, EBUSY);
    const Place target = findBelowDrive(to, EACCES);
    if (source.drive != target.drive) throw Refusal{EXDEV};
    source.drive->rename(source.path, target.path);
}

void Mount::chmod(const char* path, mode_t mode) {
    const Place place = find(path);
    if (!place.drive) throw Refusal{EPERM};
    auto known = place.drive->roughly(place.path);
    if (known && ((known->mode ^ mode) & 07777U) == 0) {
        Reply::keep(path, shown(place, *known));
        return;
    }
    place.drive->chmod(place.path, mode & 07777U);
    known = place.drive->roughly(place.path);
    if (known) Reply::keep(path, shown(place, *known));
}

// Everything belongs to one user, whoever it belongs to on the other side. Programs that give a
// file the owner that it has are content.
void Mount::chown(const char* path, uid_t uid, gid_t gid) {
    constexpr auto kSame = static_cast<uid_t>(-1);
    const Place place = find(path);
    if ((uid != kSame && uid != m_uid) || (gid != kSame && gid != m_gid)) throw Refusal{EPERM};
    if (!place.drive) return;
    if (const auto known = place.drive->roughly(place.path)) {
        Reply::keep(path, shown(place, *known));
    }
}

void Mount::setTimes(const char* path, const struct timespec times[2]) {
    const Place place = find(path);
    if (!place.drive) throw Refusal{EPERM};
    const auto known = place.drive->roughly(place.path);
    if (!place.drive->keepsTimes()) {
        // It has no effect, and the copy that asked for it is no worse for that.
        if (known) Reply::keep(path, shown(place, *known));
        return;
    }
    const bool partial = times[0].tv_nsec == UTIME_OMIT || times[1].tv_nsec == UTIME_OMIT;
    const peer::Attributes before = partial ? place.drive->stat(place.path) : peer::Attributes();
    place.drive->setTimes(place.path, timeOf(times[0], before.accessed),
                          timeOf(times[1], before.modified));
}

void Mount::truncate(const char* path, off_t size, Handle* handle) {
    const Place place = findBelowDrive(path, EISDIR);
    place.drive->truncate(place.path, size, handle != nullptr ? handle->file : nullptr);
}

Handle* Mount::open(const char* path, int flags) {
    const Place place = findBelowDrive(path, EISDIR);
    return keep(place.drive, place.drive->open(place.path, flags));
}

Handle* Mount::create(const char* path, int flags, mode_t mode) {
    const Place place = findBelowDrive(path, EACCES);
    peer::Attributes attributes;
    OpenFile* const file = place.drive->create(place.path, flags, mode, attributes);
    Handle* const handle = keep(place.drive, file);
    Reply::keep(path, shown(place, attributes));
    return handle;
}

Handle* Mount::keep(Drives::Pointer drive, OpenFile* file) {
    auto handle = std::make_unique<Handle>(Handle{std::move(drive), file});
    Handle* const key = handle.get();
    const std::lock_guard lock(m_mutex);
    m_handles.emplace(key, std::move(handle));
    return key;
}

void Mount::close(Handle* handle) {
    handle->drive->close(handle->file);
    const std::lock_guard lock(m_mutex);
    m_handles.erase(handle);
}

OpenFolder* Mount::openFolder() {
    auto folder = std::make_unique<OpenFolder>();
    OpenFolder* const key = folder.get();
    const std::lock_guard lock(m_mutex);
    m_folders.emplace(key, std::move(folder));
    return key;
}

void Mount::closeFolder(OpenFolder* folder) {
    const std::lock_guard lock(m_mutex);
    m_folders.erase(folder);
    m_folderClosed.notify_all();
}

void Mount::awaitClosings(std::chrono::milliseconds most) {
    std::unique_lock lock(m_mutex);
    m_folderClosed.wait_for(lock, most, [this] { return m_folders.empty(); });
}

void Mount::settle() {
    for (const Drives::Pointer& drive : m_drives.all()) drive->settle();
}

}  // namespace fdmount
