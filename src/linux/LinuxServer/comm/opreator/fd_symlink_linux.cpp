// Makes a symbolic link.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <unistd.h>
#include <cerrno>

#include "common/Comm/FdLog.h"

int fd_symlink_f(FdMapInfo* /*map*/, const char* from, const char* to) {
    FD_LOG_DEBUG("from: %s, to: %s", from, to);
    const int res = symlink(from, to) == -1 ? -errno : 0;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
