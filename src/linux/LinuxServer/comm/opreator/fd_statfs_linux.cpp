// Figures of the file system.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <sys/statvfs.h>
#include <cerrno>

#include "common/Comm/FdLog.h"

int fd_statfs_f(FdMapInfo* /*map*/, const char* path, fd_statvfs* out) {
    FD_LOG_DEBUG("path: %s", path);
    struct statvfs info {};
    const int res = statvfs(path, &info) == -1 ? -errno : statvfs_fuse2fd(&info, out);
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
