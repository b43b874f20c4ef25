// A queue of nodes, first in, first out, with many writers and one reader. It does not own the
// nodes: whoever destroys a queue drains it first.
#pragma once

#include <atomic>
#include <deque>

#include "common/Comm/ZThread.h"
#include "common/LinuxServer/comm/fd_wire.h"

class FdCmdQueue {
public:
    FdCmdQueue() = default;
    virtual ~FdCmdQueue() = default;
    FdCmdQueue(const FdCmdQueue&) = delete;
    FdCmdQueue& operator=(const FdCmdQueue&) = delete;

    // Whoever takes the node owns it.
    virtual bool put_node(fd_cmd_item* item);

    // Waits `msecond` milliseconds for a node, or without limit for 0. False when none came, also
    // after a wake-up without one.
    virtual bool get_node(fd_cmd_item** item, int msecond);
    virtual bool get_all_node(std::deque<fd_cmd_item*>* nodes);
    virtual int get_queue_size();
    virtual void wake_all();

    // From now on get_node never waits, so a reader that is just about to cannot miss its stop.
    void endWaits();

    // A look without the lock.
    bool isEmpty() const { return m_count.load(std::memory_order_relaxed) == 0; }

private:
    std::atomic<int> m_count{0};  // of m_list, changed under its lock
    std::deque<fd_cmd_item*> m_list Z_GUARDED_BY(m_mutex);
    bool m_waitsEnded Z_GUARDED_BY(m_mutex) = false;
    ZMutex m_mutex{false};
    ZWaitCondition m_wait;
};
