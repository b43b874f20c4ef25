// macOS: stat carries the birth time. Any thread.
#include "linux/compat/FileStatus.h"

#include <sys/stat.h>

namespace compat {
namespace {

std::int64_t nanosecondsOf(const struct timespec& time) {
    return nanoseconds(time.tv_sec, time.tv_nsec);
}

// A birth time of -1 second marks a file system that keeps none.
FileStatus fromStat(const struct stat& found) {
    const bool hasBirthTime = found.st_birthtimespec.tv_sec != -1;
    return {found.st_size,
            found.st_mode,
            nanosecondsOf(found.st_atimespec),
            nanosecondsOf(found.st_mtimespec),
            nanosecondsOf(found.st_ctimespec),
            nanosecondsOf(hasBirthTime ? found.st_birthtimespec : found.st_mtimespec)};
}

}  // namespace

int statPath(const char* path, FileStatus* status) {
    struct stat found = {};
    if (stat(path, &found) != 0) return -1;
    *status = fromStat(found);
    return 0;
}

int statHandle(int fd, FileStatus* status) {
    struct stat found = {};
    if (fstat(fd, &found) != 0) return -1;
    *status = fromStat(found);
    return 0;
}

}  // namespace compat
