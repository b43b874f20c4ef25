// Would reserve space: answered as not supported.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_fallocate_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("fallocate", map, item);
    op.number();  // the length of the record, which is known
    fd_file_info info = op.fileInfo();
    const std::int64_t mode = op.number();
    const std::int64_t offset = op.number();
    const std::int64_t length = op.number();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG,
              "parse data, path: %s, mode: %llx, offset: %lld, length: %lld", op.path(),
              static_cast<long long>(mode), static_cast<long long>(offset),
              static_cast<long long>(length));
    if (!op.isInside()) return op.finish(kResInvalid);
    return op.run(
        [&](const char* local) { return fd_fallocate_f(map, local, mode, offset, length, &info); });
}
