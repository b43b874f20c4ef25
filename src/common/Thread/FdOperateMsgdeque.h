// The inbound queue of the Windows dialect: the host's thread pushes, the processing thread pops.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>

#include "common/Comm/ZThread.h"

struct FdOperateMsg {
    char* data;  // owned, made with new[]
    int dataSize;
};

// Frees a record and its bytes.
struct FdOperateMsgDelete {
    void operator()(FdOperateMsg* msg) const;
};
using FdOperateMsgPtr = std::unique_ptr<FdOperateMsg, FdOperateMsgDelete>;

class FdOperateMsgdeque {
public:
    FdOperateMsgdeque();
    virtual ~FdOperateMsgdeque();  // frees what is still queued
    FdOperateMsgdeque(const FdOperateMsgdeque&) = delete;
    FdOperateMsgdeque& operator=(const FdOperateMsgdeque&) = delete;

    // Takes ownership of `msg` and of its bytes.
    void push_back_recv_msg(FdOperateMsg* msg);

    // The oldest record, which the caller owns from here on, or null after about 100 ms without
    // one.
    FdOperateMsg* get_front_recv_msg();
    void free_RecvMsg_Deque();

    // A look without the lock.
    bool isEmpty() const { return m_count.load(std::memory_order_relaxed) == 0; }

private:
    ZWaitCondition m_cond;
    ZMutex m_mutex{false};
    std::atomic<int> m_count{0};  // of m_recvDeque, changed under its lock
    std::deque<FdOperateMsg*> m_recvDeque Z_GUARDED_BY(m_mutex);
    std::uint8_t m_wakeFlag Z_GUARDED_BY(m_mutex) = 0;  // a wake-up that came while nobody waited
};
