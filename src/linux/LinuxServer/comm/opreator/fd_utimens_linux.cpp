// The times are not set.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include "common/Comm/FdLog.h"

int fd_utimens_f(FdMapInfo* /*map*/, const char* /*path*/, const fd_timespec /*times*/[2]) {
    const int res = kResNotSupported;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
