// Sets the size of a file.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_truncate_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("truncate", map, item);
    const std::int64_t size = op.number();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, size: %lld", op.path(),
              static_cast<long long>(size));
    if (!op.isInside()) return op.finish(kResInvalid);
    if (map->isReadOnly()) return op.refuse();
    return op.run([&](const char* local) { return fd_truncate_f(map, local, size); });
}
