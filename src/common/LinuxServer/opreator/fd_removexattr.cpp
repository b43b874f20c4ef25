// Would remove an extended attribute: answered as not supported.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_removexattr_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("removexattr", map, item);
    op.number();  // the length of the name, which ends in a zero
    const char* name = op.text();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, name: %s", op.path(), name);
    if (!op.isInside()) return op.finish(kResInvalid);
    if (map->isReadOnly()) return op.refuse();
    return op.run([&](const char* local) { return fd_removexattr_f(map, local, name); });
}
