// Nothing is held back.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include "common/Comm/FdLog.h"

int fd_flush_f(FdMapInfo* /*map*/, const char* /*path*/, fd_file_info* /*info*/) {
    FD_LOG_INFO("linux client not support flush, default success");
    const int res = 0;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
