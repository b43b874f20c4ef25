// Attributes of a file, a folder or a link itself.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_getattr_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("getattr", map, item);
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s", op.path());
    if (!op.isInside()) return op.finish(kResInvalid);
    return op.run([&](const char* local) {
        fd_stat stat{};
        const int result = fd_getattr_f(map, local, &stat);
        return result != 0 ? result : op.reply(&stat, sizeof(stat));
    });
}
