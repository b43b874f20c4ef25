// The inbound queue of the Windows dialect. Pushed by the host's thread, popped by the processing
// thread.
#include "common/Thread/FdOperateMsgdeque.h"

namespace {
constexpr int kReaderWaitMs = 100;  // bounds how late the processing thread sees its run flag
}

void FdOperateMsgDelete::operator()(FdOperateMsg* msg) const {
    delete[] msg->data;
    delete msg;
}

FdOperateMsgdeque::FdOperateMsgdeque() = default;

FdOperateMsgdeque::~FdOperateMsgdeque() {
    free_RecvMsg_Deque();
}

void FdOperateMsgdeque::push_back_recv_msg(FdOperateMsg* msg) {
    const ZMutexLocker lock(m_mutex);
    m_recvDeque.push_back(msg);
    ++m_count;
    m_wakeFlag = 1;
    m_cond.wakeOne();
}

FdOperateMsg* FdOperateMsgdeque::get_front_recv_msg() {
    const ZMutexLocker lock(m_mutex);
    if (m_wakeFlag != 1 && m_recvDeque.empty()) {
        if (!m_cond.wait(m_mutex, kReaderWaitMs)) return nullptr;
    }
    m_wakeFlag = 0;
    if (m_recvDeque.empty()) return nullptr;
    FdOperateMsg* msg = m_recvDeque.front();
    m_recvDeque.pop_front();
    --m_count;
    return msg;
}

void FdOperateMsgdeque::free_RecvMsg_Deque() {
    const ZMutexLocker lock(m_mutex);
    m_wakeFlag = 1;
    m_cond.wakeOne();
    while (!m_recvDeque.empty()) {
        const FdOperateMsgPtr freed(m_recvDeque.front());
        m_recvDeque.pop_front();
        --m_count;
    }
}
