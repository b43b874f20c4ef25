// Reads from a file that is open for this call only.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>

#include "common/Comm/FdLog.h"

int fd_read_f(FdMapInfo* /*map*/, const char* path, char* buffer, std::int64_t size,
              std::int64_t offset, fd_file_info* /*info*/) {
    FD_LOG_DEBUG("path: %s, size: %lld, offset: %lld", path, static_cast<long long>(size),
                 static_cast<long long>(offset));
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd == -1) {
        const int err = errno;
        FD_LOG_DEBUG("res: %d", -err);
        return -err;
    }
    size = std::clamp<std::int64_t>(size, 0, kMostBytes);
    const ssize_t count =
        pread(fd, buffer, static_cast<std::size_t>(size), static_cast<off_t>(offset));
    const int res = count == -1 ? -errno : static_cast<int>(count);
    close(fd);
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
