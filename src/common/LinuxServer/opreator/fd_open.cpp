// Tests that a file can be opened: no file stays open between requests.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

namespace {
// The protocol's numbers of the access modes. Kept: 3 passes on a read-only map.
constexpr unsigned kAccessMask = 3;
constexpr unsigned kWriteOnly = 1;
constexpr unsigned kReadWrite = 2;
}  // namespace

int fd_open_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("open", map, item);
    op.number();  // the length of the record, which is known
    fd_file_info info = op.fileInfo();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, flags: %llx", op.path(),
              static_cast<unsigned long long>(info.flags));
    if (!op.isInside()) return op.finish(kResInvalid);
    const unsigned accessMode = info.flags & kAccessMask;
    if (map->isReadOnly() && (accessMode == kWriteOnly || accessMode == kReadWrite)) {
        FD_LOG_AS(op.tag(), ZLOG_LEVEL_WARNING, "the map is readonly.  policy: %#x, flags: %#x",
                  static_cast<unsigned>(map->getMountPolicy()), static_cast<unsigned>(info.flags));
        item->head.res = kResReadOnly;
        return kResReadOnly;
    }
    return op.run([&](const char* local) {
        const int result = fd_open_f(map, local, &info);
        return result != 0 ? result : op.replyInfo(info, "get cache buf node failure.");
    });
}
