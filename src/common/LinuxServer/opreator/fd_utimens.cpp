// Would set the times: answered as not supported.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_utimens_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("utimens", map, item);
    op.number();  // not used
    fd_timespec times[2] = {};
    for (fd_timespec& time : times) {
        time.tv_sec = op.number();
        time.tv_nsec = op.number();
    }
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s", op.path());
    if (!op.isInside()) return op.finish(kResInvalid);
    if (map->isReadOnly()) return op.refuse();
    return op.run([&](const char* local) { return fd_utimens_f(map, local, times); });
}
