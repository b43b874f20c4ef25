// No extended attributes.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include "common/Comm/FdLog.h"

int fd_listxattr_f(FdMapInfo* /*map*/, const char* /*path*/, char* /*buffer*/,
                   std::int64_t /*size*/) {
    const int res = kResNotSupported;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
