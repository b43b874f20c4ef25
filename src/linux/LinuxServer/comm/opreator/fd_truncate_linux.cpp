// Sets the size of a file, in bytes.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <unistd.h>
#include <cerrno>

#include "common/Comm/FdLog.h"

int fd_truncate_f(FdMapInfo* /*map*/, const char* path, std::int64_t size) {
    FD_LOG_DEBUG("path: %s, size: %lld", path, static_cast<long long>(size));
    const int res = truncate(path, static_cast<off_t>(size)) == -1 ? -errno : 0;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
