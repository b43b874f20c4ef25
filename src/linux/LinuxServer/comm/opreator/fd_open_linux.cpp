// Tests that a file can be opened for reading. Kept: the flags are not used.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>

#include "common/Comm/FdLog.h"

int fd_open_f(FdMapInfo* /*map*/, const char* path, fd_file_info* /*info*/) {
    FD_LOG_DEBUG("path: %s", path);
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    const int res = fd == -1 ? -errno : 0;
    if (fd != -1) close(fd);
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
