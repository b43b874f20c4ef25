// Reads from a file.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <cerrno>

int fd_read_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("read", map, item);
    fd_file_info info = op.fileInfo(op.length());
    const std::int64_t size = op.number();
    const std::int64_t offset = op.number();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, size: %lld, read_offset: %lld",
              op.path(), static_cast<long long>(size), static_cast<long long>(offset));
    if (!op.isInside()) return op.finish(kResInvalid);
    FdReplyBuffer buffer(item, size);
    if (!buffer.isReady()) {
        const int err = errno;
        FD_LOG_AS(op.tag(), ZLOG_LEVEL_WARNING, "malloc read buffer failure. size: %ld",
                  static_cast<long>(size));
        return op.finish(-err);
    }
    return op.run([&](const char* local) {
        const int result = fd_read_f(map, local, buffer.data(), size, offset, &info);
        buffer.deliver(result);
        return result;
    });
}
