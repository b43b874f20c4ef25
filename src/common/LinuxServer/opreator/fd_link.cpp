// Gives a file a second name.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_link_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("link", map, item);
    op.number();  // the length of the second path, which ends in a zero
    const char* to = op.text();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, to: %s", op.path(), to);
    if (!op.isInside()) return op.finish(kResInvalid);
    if (map->isReadOnly()) return op.refuse();
    return op.run(
        to, [&](const char* local, const char* localTo) { return fd_link_f(map, local, localTo); });
}
