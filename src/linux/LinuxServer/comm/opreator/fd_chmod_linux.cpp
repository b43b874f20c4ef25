// Sets the permission bits.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <sys/stat.h>
#include <cerrno>

#include "common/Comm/FdLog.h"

int fd_chmod_f(FdMapInfo* /*map*/, const char* path, std::int64_t mode) {
    FD_LOG_DEBUG("path: %s, mode: %x", path, static_cast<unsigned>(mode));
    const int res = chmod(path, static_cast<mode_t>(mode & 0xFFFF)) == -1 ? -errno : 0;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
