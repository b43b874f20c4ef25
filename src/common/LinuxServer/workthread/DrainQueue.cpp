#include "common/LinuxServer/workthread/DrainQueue.h"

#include <deque>

#include "common/Comm/FdLog.h"
#include "common/LinuxServer/comm/fd_cmd_cache.h"
#include "common/LinuxServer/comm/fd_cmd_queue.h"

int drainQueue(FdCmdQueue& queue, FdCmdCache& cache) {
    std::deque<fd_cmd_item*> nodes;
    queue.get_all_node(&nodes);
    for (fd_cmd_item* item : nodes) {
        FD_LOG_WARN("free item. item: %p", static_cast<void*>(item));
        cache.put_node(item);
    }
    return queue.get_queue_size();
}

void drainReaderQueue(FdCmdQueue& queue, FdCmdCache& cache) {
    const int left = drainQueue(queue, cache);
    if (left != 0) {
        FD_LOG_ERROR("cmd size not zero. %d", left);
    } else {
        FD_LOG_INFO("cmd size is zero");
    }
}
