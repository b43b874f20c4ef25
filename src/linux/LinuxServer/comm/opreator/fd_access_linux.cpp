// Tests the rights of this process on a file.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <unistd.h>
#include <cerrno>

#include "common/Comm/FdLog.h"

int fd_access_f(FdMapInfo* /*map*/, const char* path, std::int64_t mask) {
    FD_LOG_DEBUG("path: %s, mask: %d", path, static_cast<int>(mask));
    const int res = access(path, static_cast<int>(mask)) == -1 ? -errno : 0;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
