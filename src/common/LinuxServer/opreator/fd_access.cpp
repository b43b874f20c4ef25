// Tests the rights on a file.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <cstring>

namespace {
constexpr std::int64_t kWriteAccess = 2;
}

int fd_access_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("access", map, item);
    const std::int64_t mask = op.number();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, mask: %llx", op.path(),
              static_cast<long long>(mask));
    if (!op.isInside()) return op.finish(kResInvalid);
    if ((mask & kWriteAccess) != 0 && map->isReadOnly()) return op.finish(kResAccess);
    if (std::strcmp(op.path(), "/") == 0) return op.finish(0);
    return op.run([&](const char* local) { return fd_access_f(map, local, mask); });
}
