// The owner of a local file is not the server's to set.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include "common/Comm/FdLog.h"

int fd_chown_f(FdMapInfo* /*map*/, const char* /*path*/, std::int64_t /*uid*/,
               std::int64_t /*gid*/) {
    FD_LOG_WARN("linux client not support chown.");
    const int res = kResNotSupported;
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
