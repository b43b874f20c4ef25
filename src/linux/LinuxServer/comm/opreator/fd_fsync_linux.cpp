// Nothing is held back.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include "common/Comm/FdLog.h"

int fd_fsync_f(FdMapInfo* /*map*/, const char* /*path*/, std::int64_t /*isdatasync*/,
               fd_file_info* /*info*/) {
    FD_LOG_INFO("linux client not support fsync, default success");
    const int res = 0;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
