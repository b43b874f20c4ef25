// The processing thread: one message after the other goes through the work buffer, and its reply is
// written before the next one is looked at.
#include "common/Thread/FdMsgProcThread.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <new>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Comm/Linger.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapManager.h"
#include "common/Thread/FdOperateMsgdeque.h"
#include "linux/comm/Funcdef.h"

namespace {

// A read that is all there looks at nothing behind itself and sees to every byte that it sends, so
// a file that is read in large pieces pays for no clearing between them.
bool isWholeRead(const FdOperateMsg& msg) {
    return msg.dataSize >= kReadRequestSize &&
           loadLe<std::uint16_t>(msg.data + kTypeAt) == FD_CMD_READ;
}

[[maybe_unused]] bool isZero(const char* bytes, int count) {
    if (count == 0) return true;
    return *bytes == 0 && std::memcmp(bytes, bytes + 1, static_cast<std::size_t>(count) - 1) == 0;
}
}  // namespace

FdMsgProcThread::FdMsgProcThread()
    : ZThread("FdMsgProcThread"), m_mapmanager(nullptr), m_fd_operate_msg_queue(nullptr) {
    FD_LOG_DEBUG("FdMsgProcThread()");
}

FdMsgProcThread::~FdMsgProcThread() {
    stopAndWait(kStopSteps);
    m_mapmanager = nullptr;
}

void FdMsgProcThread::setMapManager(MapManager* m) {
    m_mapmanager = m;
    if (m_mapmanager == nullptr) FD_LOG_ERROR("FdMsgProcThread() m_mapmanager == NULL");
}

void FdMsgProcThread::setFdMsgQueue(FdOperateMsgdeque* q) {
    m_fd_operate_msg_queue = q;
    // Kept: it is the manager that is tested.
    if (m_mapmanager == nullptr) FD_LOG_ERROR("FdMsgProcThread() m_fd_operate_msg_queue == NULL");
}

void FdMsgProcThread::run() {
    // Without either there is nothing to do, ever.
    const bool wired = m_mapmanager != nullptr && m_fd_operate_msg_queue != nullptr;

    m_buffer.reset(static_cast<char*>(std::calloc(MAX_CMD_BUFFER, 1)));
    if (m_buffer == nullptr) throw std::bad_alloc();
    m_dirtyBytes = 0;

    while (wired && m_running != 0) {
        const FdOperateMsgPtr msg(m_fd_operate_msg_queue->get_front_recv_msg());
        if (msg == nullptr || msg->data == nullptr || msg->dataSize < 1) continue;
        // Kept: the exit flag stays 0, so whoever stops this thread waits in vain and says so.
        if (!handleMessage(*msg)) return;
        lingerWhile([this] { return m_fd_operate_msg_queue->isEmpty(); });
    }

    m_buffer.reset();
    m_exit_flag = 1;
}

bool FdMsgProcThread::handleMessage(const FdOperateMsg& msg) {
    const auto size = static_cast<std::size_t>(msg.dataSize);
    if (const int err = memcpy_s(m_buffer.get(), MAX_CMD_BUFFER, msg.data, size); err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return false;
    }
    const int staysDirty = isWholeRead(msg) ? m_dirtyBytes : 0;
    if (staysDirty == 0) {
        clearBehind(msg.dataSize);
        assert(isZero(m_buffer.get() + msg.dataSize, MAX_CMD_BUFFER - msg.dataSize));
    }

    m_mapmanager->HandleCmd(m_buffer.get(), msg.dataSize);
    m_dirtyBytes = std::max(m_mapmanager->dirtyBytes(), staysDirty);
    return true;
}

// A message shorter than its handler expects reads zeros, never the remains of an earlier one.
// Clearing the whole buffer would cost more than most requests.
void FdMsgProcThread::clearBehind(int size) {
    if (m_dirtyBytes > size) {
        std::memset(m_buffer.get() + size, 0, static_cast<std::size_t>(m_dirtyBytes - size));
    }
}
