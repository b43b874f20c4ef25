// Linux: statx delivers everything, birth time included, in one call. Any thread.
#include "linux/compat/FileStatus.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace compat {
namespace {

constexpr unsigned kWanted = STATX_BASIC_STATS | STATX_BTIME;

std::int64_t nanosecondsOf(const struct statx_timestamp& time) {
    return nanoseconds(time.tv_sec, time.tv_nsec);
}

std::int64_t nanosecondsOf(const struct timespec& time) {
    return nanoseconds(time.tv_sec, time.tv_nsec);
}

FileStatus fromStatx(const struct statx& found) {
    const bool hasBirthTime = (found.stx_mask & STATX_BTIME) != 0;
    return {static_cast<std::int64_t>(found.stx_size),
            found.stx_mode,
            nanosecondsOf(found.stx_atime),
            nanosecondsOf(found.stx_mtime),
            nanosecondsOf(found.stx_ctime),
            nanosecondsOf(hasBirthTime ? found.stx_btime : found.stx_mtime)};
}

FileStatus fromStat(const struct stat& found) {
    return {found.st_size,
            found.st_mode,
            nanosecondsOf(found.st_atim),
            nanosecondsOf(found.st_mtim),
            nanosecondsOf(found.st_ctim),
            nanosecondsOf(found.st_mtim)};
}

// An old kernel answers ENOSYS, a sandbox that is older than the call EPERM, which a query never
// gives for a reason of its own.
bool isMissingCall(int err) {
    return err == ENOSYS || err == EPERM;
}

int query(int fd, const char* path, int flags, FileStatus* status) {
    struct statx found = {};
    if (statx(fd, path, flags, kWanted, &found) == 0) {
        *status = fromStatx(found);
        return 0;
    }
    if (!isMissingCall(errno)) return -1;

    struct stat older = {};
    if (fstatat(fd, path, &older, flags) != 0) return -1;
    *status = fromStat(older);
    return 0;
}

}  // namespace

int statPath(const char* path, FileStatus* status) {
    return query(AT_FDCWD, path, 0, status);
}

int statHandle(int fd, FileStatus* status) {
    return query(fd, "", AT_EMPTY_PATH, status);
}

}  // namespace compat
