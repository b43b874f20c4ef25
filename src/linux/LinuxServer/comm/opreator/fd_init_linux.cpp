// Nothing to set up.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include "common/Comm/FdLog.h"

int fd_init_f(FdMapInfo* /*map*/, const char* /*path*/, const char* /*block*/) {
    const int res = 0;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
