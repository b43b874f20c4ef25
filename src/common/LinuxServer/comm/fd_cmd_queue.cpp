// A queue of nodes between threads.
#include "common/LinuxServer/comm/fd_cmd_queue.h"

#include <utility>

#include "common/Comm/FdLog.h"

bool FdCmdQueue::put_node(fd_cmd_item* item) {
    const ZMutexLocker lock(m_mutex);
    const bool wasEmpty = m_list.empty();
    m_list.push_back(item);
    ++m_count;
    if (wasEmpty) m_wait.wakeOne();  // one reader a queue: with nodes left it is awake
    return true;
}

bool FdCmdQueue::get_node(fd_cmd_item** item, int msecond) {
    const ZMutexLocker lock(m_mutex);
    if (m_list.empty() && !m_waitsEnded) {
        if (msecond != 0) {
            m_wait.wait(m_mutex, msecond);
        } else {
            m_wait.wait(m_mutex);
        }
    }
    if (m_list.empty()) return false;
    *item = m_list.front();
    m_list.pop_front();
    --m_count;
    return true;
}

bool FdCmdQueue::get_all_node(std::deque<fd_cmd_item*>* nodes) {
    const ZMutexLocker lock(m_mutex);
    if (nodes != &m_list) *nodes = std::exchange(m_list, {});
    m_list.clear();
    m_count = 0;
    return true;
}

int FdCmdQueue::get_queue_size() {
    const ZMutexLocker lock(m_mutex);
    return static_cast<int>(m_list.size());
}

void FdCmdQueue::wake_all() {
    FD_LOG_INFO("wake up all waiter ...");
    {
        const ZMutexLocker lock(m_mutex);
        m_wait.wakeAll();
    }
    FD_LOG_INFO("wake up all waiter ok ");
}

void FdCmdQueue::endWaits() {
    const ZMutexLocker lock(m_mutex);
    m_waitsEnded = true;
    m_wait.wakeAll();
}
