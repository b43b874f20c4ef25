// Nothing to do: a write has reached the local system when it is answered.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_fsync_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("fsync", map, item);
    op.number();  // the length of the record, which is known
    fd_file_info info = op.fileInfo();
    const std::int64_t isdatasync = op.number();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, isdatasync: %lld", op.path(),
              static_cast<long long>(isdatasync));
    if (!op.isInside()) return op.finish(kResInvalid);
    return op.run([&](const char* local) { return fd_fsync_f(map, local, isdatasync, &info); });
}
