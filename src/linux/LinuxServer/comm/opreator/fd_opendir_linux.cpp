// Tests that a folder can be opened. Its number only has to differ from 0.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <dirent.h>
#include <atomic>
#include <cerrno>

#include "common/Comm/FdLog.h"

namespace {
std::atomic<std::uint64_t> lastHandle{0};
}

int fd_opendir_f(FdMapInfo* /*map*/, const char* path, fd_file_info* info) {
    FD_LOG_DEBUG("path: %s", path);
    DIR* stream = opendir(path);
    const int res = stream == nullptr ? -errno : 0;
    if (stream != nullptr) {
        closedir(stream);
        info->handle = ++lastHandle;
    }
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
