// Lists a folder. Kept: a folder that cannot be opened looks like an empty listing.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <cerrno>

namespace {
constexpr std::int64_t kLastEntryExtra = 24;  // the last entry may end that far behind the size
}

int fd_readdir_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("readdir", map, item);
    fd_file_info info = op.fileInfo(op.length());
    const std::int64_t offset = op.number();
    const std::int64_t size = op.number();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, read_offset: %lld, size: %lld",
              op.path(), static_cast<long long>(offset), static_cast<long long>(size));
    if (!op.isInside()) return op.finish(kResInvalid);
    if (size < 1) {
        FD_LOG_AS(op.tag(), ZLOG_LEVEL_ERROR, "fd_read_c, param size is invalid. [size: %d]",
                  static_cast<int>(size));
        return op.finish(kResInvalid);
    }
    FdReplyBuffer buffer(item, size, kLastEntryExtra);
    if (!buffer.isReady()) {
        const int err = errno;
        FD_LOG_AS(op.tag(), ZLOG_LEVEL_WARNING, "fd_read_c, malloc read buffer failure. size: %ld",
                  static_cast<long>(size));
        return op.finish(-err);
    }
    return op.run([&](const char* local) {
        buffer.deliver(fd_readdir_f(map, local, buffer.data(), size, offset, &info));
        return 0;
    });
}
