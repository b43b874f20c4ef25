// Would set an extended attribute: answered as not supported.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_setxattr_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("setxattr", map, item);
    const std::int32_t nameLength = op.length();
    const char* name = op.text();
    op.bytes(nameLength);
    const std::int64_t valuesize = op.number();
    const char* value = op.bytes(valuesize);
    const std::int64_t flags = op.number();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, name: %s", op.path(), name);
    if (!op.isInside()) return op.finish(kResInvalid);
    if (map->isReadOnly()) return op.refuse();
    return op.run([&](const char* local) {
        return fd_setxattr_f(map, local, name, value, valuesize, flags);
    });
}
