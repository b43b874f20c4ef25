// Reads the target of a symbolic link.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <limits>

#include "common/Comm/FdLog.h"

int fd_readlink_f(FdMapInfo* /*map*/, const char* path, char* buffer, std::int64_t size) {
    FD_LOG_DEBUG("path: %s, size: %lld", path, static_cast<long long>(size));
    const auto room = static_cast<std::size_t>(std::max<std::int64_t>(size - 1, 0));
    const ssize_t count = readlink(path, buffer, room);
    const int res = count == -1 ? -errno : static_cast<int>(count);
    if (count != -1) buffer[count] = '\0';
    FD_LOG_DEBUG("res: %d", res);
    return res + 1;  // Kept: an error goes out one higher than it is
}
