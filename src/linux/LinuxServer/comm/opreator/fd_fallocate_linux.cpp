// No space is reserved ahead.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include "common/Comm/FdLog.h"

int fd_fallocate_f(FdMapInfo* /*map*/, const char* /*path*/, std::int64_t /*mode*/,
                   std::int64_t /*offset*/, std::int64_t /*length*/, fd_file_info* /*info*/) {
    FD_LOG_INFO("linux client not support fallocate");
    const int res = kResNotSupported;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
