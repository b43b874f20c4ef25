// Tests that a folder can be opened and gives it a number.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_opendir_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("opendir", map, item);
    op.number();  // the length of the record, which is known
    fd_file_info info = op.fileInfo();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s", op.path());
    if (!op.isInside()) return op.finish(kResInvalid);
    return op.run([&](const char* local) {
        const int result = fd_opendir_f(map, local, &info);
        return result != 0 ? result : op.replyInfo(info, "sprintf_s failed!!!.");
    });
}
