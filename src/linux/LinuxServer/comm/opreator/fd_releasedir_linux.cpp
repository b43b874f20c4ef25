// No folder is open.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include "common/Comm/FdLog.h"

int fd_releasedir_f(FdMapInfo* /*map*/, const char* /*path*/, fd_file_info* /*info*/) {
    const int res = 0;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
