// Nothing to take down.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include "common/Comm/FdLog.h"

int fd_destroy_f(FdMapInfo* /*map*/, const char* /*path*/) {
    const int res = 0;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
