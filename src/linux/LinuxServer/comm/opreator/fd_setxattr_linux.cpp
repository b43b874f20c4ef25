// No extended attributes.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include "common/Comm/FdLog.h"

int fd_setxattr_f(FdMapInfo* /*map*/, const char* /*path*/, const char* /*name*/,
                  const char* /*value*/, std::int64_t /*size*/, std::int64_t /*flags*/) {
    const int res = kResNotSupported;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
