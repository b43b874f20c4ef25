// Sets the permission bits.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_chmod_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("chmod", map, item);
    const std::int64_t mode = op.number();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, mode: %llx", op.path(),
              static_cast<long long>(mode));
    if (!op.isInside()) return op.finish(kResInvalid);
    if (map->isReadOnly()) return op.refuse(mode);
    return op.run([&](const char* local) { return fd_chmod_f(map, local, mode); });
}
