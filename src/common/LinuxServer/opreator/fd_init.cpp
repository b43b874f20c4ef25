// The server has mounted its file system. Nothing to do, and the result stays as it came.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_init_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("init", map, item);
    op.number();  // not used
    const char* block = op.bytes(0);
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s", op.path());
    if (!op.isInside()) return op.finish(kResInvalid);
    const int result = fd_init_f(map, op.path(), block);
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "finish!  res: %d, item res: %ld, extsize: %d", result,
              static_cast<long>(item->head.res), static_cast<int>(item->head.extsize));
    return result;
}
