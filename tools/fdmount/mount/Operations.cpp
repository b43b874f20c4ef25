#include "fdmount/mount/Operations.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "fdmount/mount/Failure.h"
#include "fdmount/mount/Mount.h"
#include "fdmount/mount/MountPoint.h"
#include "fdmount/mount/Reply.h"

namespace fdmount {

namespace {

constexpr unsigned kMostBackground = 64;

Mount& mount() {
    return *static_cast<Mount*>(::fuse_get_context()->private_data);
}

// 0, or what the work throws as the library wants it.
template <typename Work>
int done(const char* path, Work work) {
    Mount& here = mount();
    Reply::clear();
    try {
        work(here);
        return 0;
    } catch (...) {
        return -here.errorOf(path);
    }
}

Handle* handleOf(const fuse_file_info* info) {
    return info == nullptr
               ? nullptr
               : reinterpret_cast<Handle*>(info->fh);  // NOLINT(performance-no-int-to-ptr)
}

OpenFolder* folderOf(const fuse_file_info* info) {
    return reinterpret_cast<OpenFolder*>(info->fh);  // NOLINT(performance-no-int-to-ptr)
}

template <typename Object>
void keep(fuse_file_info* info, Object* object) {
    info->fh = reinterpret_cast<std::uint64_t>(object);
}

void want(fuse_conn_info* connection, unsigned capabilities) {
    connection->want |= connection->capable & capabilities;
}

void* init(fuse_conn_info* connection, fuse_config* config) {
    const MountOptions& options = mount().options();
    config->use_ino = 1;
    config->attr_timeout = options.attributeTimeout;
    config->entry_timeout = options.entryTimeout;
    config->negative_timeout = options.negativeTimeout;
    connection->max_read = options.maxRead;
    connection->max_readahead = kReadAhead;  // or the answer to this would lower it again
    connection->max_background = kMostBackground;
    connection->congestion_threshold = kMostBackground * 3 / 4;
    want(connection, FUSE_CAP_ASYNC_READ | FUSE_CAP_PARALLEL_DIROPS | FUSE_CAP_READDIRPLUS |
                         FUSE_CAP_ATOMIC_O_TRUNC);
    // The attributes come with every listing, and the bytes of a write are needed in memory.
    connection->want &= ~static_cast<unsigned>(FUSE_CAP_READDIRPLUS_AUTO | FUSE_CAP_SPLICE_READ |
                                               FUSE_CAP_SPLICE_WRITE | FUSE_CAP_SPLICE_MOVE);
    return &mount();
}

int getattr(const char* path, struct stat* info, fuse_file_info* /*file*/) {
    Mount& here = mount();  // done() would clear what is taken here
    try {
        *info = here.attributes(path);
        return 0;
    } catch (...) {
        return -here.errorOf(path);
    }
}

int access(const char* path, int mask) {
    return done(path, [&](Mount& m) { m.checkAccess(path, mask, ::fuse_get_context()->uid); });
}

int readlink(const char* path, char* to, std::size_t size) {
    return done(path, [&](Mount& m) {
        const std::string target = m.readLink(path);
        std::snprintf(to, size, "%s", target.c_str());
    });
}

int statfs(const char* path, struct statvfs* info) {
    return done(path, [&](Mount& m) { *info = m.volume(path); });
}

int mknod(const char* path, mode_t mode, dev_t device) {
    return done(path, [&](Mount& m) { m.makeNode(path, mode, device); });
}

int mkdir(const char* path, mode_t mode) {
    return done(path, [&](Mount& m) { m.makeFolder(path, mode); });
}

int symlink(const char* target, const char* path) {
    return done(path, [&](Mount& m) { m.makeLink(target, path); });
}

int link(const char* from, const char* to) {
    const int failed = done(from, [&](Mount& m) { m.link(from, to); });
    // The kernel has to ask anew how many names the file has: who makes a lock by a link looks.
    if (failed == 0) ::fuse_invalidate_path(::fuse_get_context()->fuse, from);
    return failed;
}

int unlink(const char* path) {
    return done(path, [&](Mount& m) { m.remove(path); });
}

int rmdir(const char* path) {
    return done(path, [&](Mount& m) { m.removeFolder(path); });
}

// No drive can be asked for anything but a plain rename in one step. Where the flags are not known
// at all, mv and others do without.
int rename(const char* from, const char* to, unsigned flags) {
    if (flags != 0) return -ENOSYS;
    return done(from, [&](Mount& m) { m.rename(from, to); });
}

int chmod(const char* path, mode_t mode, fuse_file_info* /*file*/) {
    return done(path, [&](Mount& m) { m.chmod(path, mode); });
}

int chown(const char* path, uid_t uid, gid_t gid, fuse_file_info* /*file*/) {
    return done(path, [&](Mount& m) { m.chown(path, uid, gid); });
}

int utimens(const char* path, const struct timespec times[2], fuse_file_info* /*file*/) {
    return done(path, [&](Mount& m) { m.setTimes(path, times); });
}

int truncate(const char* path, off_t size, fuse_file_info* file) {
    return done(path, [&](Mount& m) { m.truncate(path, size, handleOf(file)); });
}

int open(const char* path, fuse_file_info* file) {
    return done(path, [&](Mount& m) { keep(file, m.open(path, file->flags)); });
}

int create(const char* path, mode_t mode, fuse_file_info* file) {
    return done(path, [&](Mount& m) { keep(file, m.create(path, file->flags, mode)); });
}

int read(const char* path, char* to, std::size_t size, off_t offset, fuse_file_info* file) {
    int count = 0;
    const int failed = done(path, [&](Mount&) {
        const Handle& handle = *handleOf(file);
        const auto at = static_cast<std::uint64_t>(offset);
        count = static_cast<int>(handle.drive->read(*handle.file, at, to, size));
    });
    return failed != 0 ? failed : count;
}

int write(const char* path, const char* from, std::size_t size, off_t offset,
          fuse_file_info* file) {
    const int failed = done(path, [&](Mount&) {
        const Handle& handle = *handleOf(file);
        const auto at = static_cast<std::uint64_t>(offset);
        for (std::size_t sent = 0; sent < size;) {
            const std::size_t count = std::min(size - sent, peer::File::kMaxTransfer);
            handle.drive->write(*handle.file, at + sent, {from + sent, count});
            sent += count;
        }
    });
    return failed != 0 ? failed : static_cast<int>(size);
}

// The kernel has to ask anew for what it was told in advance. It holds no lock here that it would
// need for that.
int flush(const char* path, fuse_file_info* file) {
    const Handle& handle = *handleOf(file);
    const bool wasGuessed = handle.drive->endGuessing(*handle.file);
    const int failed = done(path, [&](Mount&) { handle.drive->flush(*handle.file); });
    if (wasGuessed) ::fuse_invalidate_path(::fuse_get_context()->fuse, path);
    return failed;
}

int fsync(const char* path, int /*onlyData*/, fuse_file_info* file) {
    return done(path, [&](Mount&) { handleOf(file)->drive->sync(*handleOf(file)->file); });
}

int release(const char* path, fuse_file_info* file) {
    return done(path, [&](Mount& m) { m.close(handleOf(file)); });
}

int opendir(const char* path, fuse_file_info* folder) {
    return done(path, [&](Mount& m) { keep(folder, m.openFolder()); });
}

int releasedir(const char* path, fuse_file_info* folder) {
    return done(path, [&](Mount& m) { m.closeFolder(folderOf(folder)); });
}

int readdir(const char* path, void* to, fuse_fill_dir_t fill, off_t offset, fuse_file_info* info,
            fuse_readdir_flags /*flags*/) {
    return done(path, [&](Mount& m) {
        OpenFolder& folder = *folderOf(info);
        const std::lock_guard lock(folder.mutex);
        if (offset == 0 || !folder.filled) {
            folder.entries = m.list(path);
            folder.filled = true;
        }
        struct stat kind {};
        kind.st_mode = S_IFDIR;
        static constexpr fuse_fill_dir_flags kPlain{};
        if (offset < 1 && fill(to, ".", &kind, 1, kPlain) != 0) return;
        if (offset < 2 && fill(to, "..", &kind, 2, kPlain) != 0) return;
        for (auto i = static_cast<std::size_t>(std::max<off_t>(offset, 2) - 2);
             i < folder.entries.size(); ++i) {
            const DirectoryEntry& entry = folder.entries[i];
            const auto next = static_cast<off_t>(i + 3);
            if (fill(to, entry.name.c_str(), &entry.attributes, next, FUSE_FILL_DIR_PLUS) != 0) {
                return;
            }
        }
    });
}

int fsyncdir(const char* /*path*/, int /*onlyData*/, fuse_file_info* /*folder*/) {
    return 0;  // the other side makes names lasting in its own time
}

}  // namespace

// What is missing the kernel answers by itself: extended attributes are not supported, room cannot
// be reserved, locks hold on this machine.
const fuse_operations& operations() {
    static const fuse_operations kTable = [] {
        fuse_operations table{};
        table.init = init;
        table.getattr = getattr;
        table.access = access;
        table.readlink = readlink;
        table.statfs = statfs;
        table.mknod = mknod;
        table.mkdir = mkdir;
        table.symlink = symlink;
        table.link = link;
        table.unlink = unlink;
        table.rmdir = rmdir;
        table.rename = rename;
        table.chmod = chmod;
        table.chown = chown;
        table.utimens = utimens;
        table.truncate = truncate;
        table.open = open;
        table.create = create;
        table.read = read;
        table.write = write;
        table.flush = flush;
        table.fsync = fsync;
        table.release = release;
        table.opendir = opendir;
        table.releasedir = releasedir;
        table.readdir = readdir;
        table.fsyncdir = fsyncdir;
        return table;
    }();
    return kTable;
}

}  // namespace fdmount
