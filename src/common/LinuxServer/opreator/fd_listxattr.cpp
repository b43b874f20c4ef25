// Would list the extended attributes: answered as not supported.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

int fd_listxattr_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("listxattr", map, item);
    const std::int64_t size = op.number();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, size: %lld", op.path(),
              static_cast<long long>(size));
    if (!op.isInside()) return op.finish(kResInvalid);
    FdReplyBuffer buffer(item, size);
    if (!buffer.isReady()) {
        FD_LOG_AS(op.tag(), ZLOG_LEVEL_ERROR, "malloc list size failure!  size: %ld",
                  static_cast<long>(size));
        return op.finish(kResInvalid);
    }
    return op.run([&](const char* local) {
        const int result = fd_listxattr_f(map, local, buffer.data(), size);
        buffer.deliver(result);
        return result;
    });
}
