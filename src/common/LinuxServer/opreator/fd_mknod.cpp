// Makes a file, a FIFO or a device node.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_mknod_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("mknod", map, item);
    const std::int64_t mode = op.number();
    const std::int64_t dev = op.number();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, mode: %llx, dev: %lld", op.path(),
              static_cast<long long>(mode), static_cast<long long>(dev));
    if (!op.isInside()) return op.finish(kResInvalid);
    if (map->isReadOnly()) return op.refuse(mode);
    return op.run([&](const char* local) { return fd_mknod_f(map, local, mode, dev); });
}
