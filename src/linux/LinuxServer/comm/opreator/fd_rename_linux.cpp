// Gives a file or folder another name.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <cerrno>
#include <cstdio>

#include "common/Comm/FdLog.h"

int fd_rename_f(FdMapInfo* /*map*/, const char* from, const char* to) {
    FD_LOG_DEBUG("from: %s, to: %s", from, to);
    const int res = rename(from, to) == -1 ? -errno : 0;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
