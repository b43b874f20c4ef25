// Figures of the file system.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_statfs_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("statfs", map, item);
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s", op.path());
    if (!op.isInside()) return op.finish(kResInvalid);
    return op.run([&](const char* local) {
        fd_statvfs stat{};
        const int result = fd_statfs_f(map, local, &stat);
        return result != 0 ? result : op.reply(&stat, sizeof(stat));
    });
}
