// Reads the target of a symbolic link.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <algorithm>
#include <cerrno>

int fd_readlink_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("readlink", map, item);
    const std::int64_t bufsize = op.number();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, bufsize: %lld", op.path(),
              static_cast<long long>(bufsize));
    if (!op.isInside()) return op.finish(kResInvalid);
    FdReplyBuffer buffer(item, bufsize);
    if (!buffer.isReady()) {
        const int err = errno;
        FD_LOG_AS(op.tag(), ZLOG_LEVEL_WARNING, "malloc read buffer failure. bufsize: %ld",
                  static_cast<long>(bufsize));
        return op.finish(-err);
    }
    if (bufsize < 1) {
        FD_LOG_AS(op.tag(), ZLOG_LEVEL_WARNING, "get cache buf node failure.");
        return op.finish(kResTryAgain);
    }
    return op.run([&](const char* local) {
        const int result = fd_readlink_f(map, local, buffer.data(), bufsize);
        buffer.deliver(result);
        return std::min(result, 0);
    });
}
