// Would set the owner: answered as not supported.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_chown_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("chown", map, item);
    const std::int64_t uid = op.number();
    const std::int64_t gid = op.number();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, uid: %lld, gid: %lld", op.path(),
              static_cast<long long>(uid), static_cast<long long>(gid));
    if (!op.isInside()) return op.finish(kResInvalid);
    if (map->isReadOnly()) return op.refuse();
    return op.run([&](const char* local) { return fd_chown_f(map, local, uid, gid); });
}
