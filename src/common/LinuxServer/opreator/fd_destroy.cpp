// The server has taken its file system down. Nothing to do, and the result stays as it came.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_destroy_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("destroy", map, item);
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s", op.path());
    if (!op.isInside()) return op.finish(kResInvalid);
    return fd_destroy_f(map, op.path());
}
