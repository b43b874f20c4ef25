// Makes a file, a FIFO or a device node.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>

#include "common/Comm/FdLog.h"

namespace {
// The protocol's numbers of the file types.
constexpr std::int64_t kTypeMask = 0xF000;
constexpr std::int64_t kRegular = 0x8000;
constexpr std::int64_t kFifo = 0x1000;

int makeFile(const char* path, mode_t mode) {
    const int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    return fd == -1 ? -1 : close(fd);
}

int makeNode(const char* path, std::int64_t mode, std::int64_t rdev) {
    const auto bits = static_cast<mode_t>(mode & 0xFFFF);
    if ((mode & kTypeMask) == kRegular) return makeFile(path, bits);
    if ((mode & kTypeMask) == kFifo) return mkfifo(path, bits);
    return mknod(path, bits, static_cast<dev_t>(static_cast<std::uint32_t>(rdev)));
}
}  // namespace

int fd_mknod_f(FdMapInfo* /*map*/, const char* path, std::int64_t mode, std::int64_t rdev) {
    FD_LOG_DEBUG("path: %s, mode: %x", path, static_cast<unsigned>(mode));
    const int res = makeNode(path, mode, rdev) == -1 ? -errno : 0;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
