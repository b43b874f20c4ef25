// Would read an extended attribute: answered as not supported.
#include "common/LinuxServer/opreator/FdOperation.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <string>

int fd_getxattr_c(FdMapInfo* map, fd_cmd_item* item) {
    FdOperation op("getxattr", map, item);
    const std::int32_t nameLength = op.length();
    const std::string name = op.text();  // the reply may be built over the request
    op.bytes(nameLength);
    const std::int64_t size = op.number();
    FD_LOG_AS(op.tag(), ZLOG_LEVEL_DEBUG, "parse data, path: %s, name: %s, size: %lld", op.path(),
              name.c_str(), static_cast<long long>(size));
    if (!op.isInside()) return op.finish(kResInvalid);
    FdReplyBuffer buffer(item, size);
    if (!buffer.isReady()) {
        FD_LOG_AS(op.tag(), ZLOG_LEVEL_WARNING, "malloc value data failure.  size: %ld",
                  static_cast<long>(size));
        return op.finish(kResInvalid);
    }
    return op.run([&](const char* local) {
        const int result = fd_getxattr_f(map, local, name.c_str(), buffer.data(), size);
        buffer.deliver(result);
        return result;
    });
}
