// No extended attributes.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include "common/Comm/FdLog.h"

int fd_getxattr_f(FdMapInfo* /*map*/, const char* /*path*/, const char* /*name*/, char* /*buffer*/,
                  std::int64_t /*size*/) {
    const int res = kResNotSupported;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
