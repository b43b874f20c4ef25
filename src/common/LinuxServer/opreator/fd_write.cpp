// Writes to a file that exists.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_write_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("write", map, item);
    const std::int64_t size = op.number();
    const char* data = op.bytes(size);
    fd_file_info info = op.fileInfo(op.length());
    const std::int64_t offset = op.number();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s", op.path());
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "size: %ld, write_offset: %ld, flags: %lx",
              static_cast<long>(size), static_cast<long>(offset),
              static_cast<unsigned long>(info.flags));
    if (!op.isInside()) return op.finish(kResInvalid);
    if (map->isReadOnly()) return op.refuse();
    return op.run(
        [&](const char* local) { return fd_write_f(map, local, data, size, offset, &info); });
}
