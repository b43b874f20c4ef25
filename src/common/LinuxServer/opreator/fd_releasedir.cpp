// Nothing to do: no folder stays open between requests.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_releasedir_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("releasedir", map, item);
    op.number();  // the length of the record, which is known
    fd_file_info info = op.fileInfo();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s", op.path());
    if (!op.isInside()) return op.finish(kResInvalid);
    return op.run([&](const char* local) { return fd_releasedir_f(map, local, &info); });
}
