// Removes an empty folder.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_rmdir_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("rmdir", map, item);
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s", op.path());
    if (!op.isInside()) return op.finish(kResInvalid);
    if (map->isReadOnly()) return op.refuse();
    return op.run([&](const char* local) { return fd_rmdir_f(map, local); });
}
