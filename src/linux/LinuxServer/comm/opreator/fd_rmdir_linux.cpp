// Removes an empty folder.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <unistd.h>
#include <cerrno>

#include "common/Comm/FdLog.h"

int fd_rmdir_f(FdMapInfo* /*map*/, const char* path) {
    FD_LOG_DEBUG("path: %s", path);
    const int res = rmdir(path) == -1 ? -errno : 0;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
