// Attributes of a file, a folder or a link itself.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <sys/stat.h>
#include <cerrno>

#include "common/Comm/FdLog.h"

int fd_getattr_f(FdMapInfo* /*map*/, const char* path, fd_stat* out) {
    FD_LOG_DEBUG("path: %s", path);
    struct stat info {};
    const int res = lstat(path, &info) == -1 ? -errno : stat_fuse2fd(&info, out);
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
