// The send thread of the Linux dialect.
#include "common/LinuxServer/workthread/SendThread.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Comm/Linger.h"
#include "common/Comm/WireNumbers.h"
#include "common/LinuxServer/workthread/DrainQueue.h"
#include "common/LinuxServer/workthread/FdContext.h"

SendThread::SendThread(FdContext* context) : FdThread(context, "send thread") {}

SendThread::~SendThread() {
    FD_LOG_INFO("destory SendThread ...");
    drainReaderQueue(m_cmd_queue, m_context->m_cmd_cache);
    FD_LOG_INFO("destory SendThread ok ");
}

bool SendThread::addSendCmdItem(fd_cmd_item* item) {
    return m_cmd_queue.put_node(item);
}

bool SendThread::sendCmdItem(int mapid, int type, int subtype, int res) {
    fd_cmd_item* item = nullptr;
    if (!m_context->m_cmd_cache.get_node(&item)) {
        FD_LOG_WARN("get cmd node from cache failure.");
        return false;
    }
    item->head.mapid = mapid;
    item->head.type = type;
    item->head.subtype = subtype;
    item->head.res = res;
    return m_cmd_queue.put_node(item);
}

void SendThread::run() {
    FD_LOG_INFO("SendThread start ...");
    beginRun();
    m_statu = kStatuWorking;
    FD_LOG_INFO("SendThread work ...");
    while (m_run_flag) {
        fd_cmd_item* item = nullptr;
        if (!m_cmd_queue.get_node(&item, 0)) {
            FD_LOG_WARN("get node failure");
            continue;
        }
        FD_LOG_DEBUG(
            "get send cmd item success. mapid: %d, type: %d, subtype: %d, idx: %ld, extsize: %d, res: %d",
            static_cast<int>(item->head.mapid), static_cast<int>(item->head.type),
            static_cast<int>(item->head.subtype), static_cast<long>(item->head.idx),
            static_cast<int>(item->head.extsize), static_cast<int>(item->head.res));
        const Sent sent = sendFrame(*item);
        m_context->m_cmd_cache.put_node(item);
        if (sent == Sent::kCopyFailed) return;  // Kept: the exit flag stays clear
        if (sent == Sent::kNo) break;  // the channel is out of step: nothing more can follow
        FD_LOG_DEBUG("free item node success. ");
        lingerWhile([this] { return m_cmd_queue.isEmpty(); });
    }
    endRun();
    FD_LOG_INFO("SendThread finish ...");
}

bool SendThread::ensureFrame(std::size_t size) {
    constexpr std::size_t kLargest = std::numeric_limits<int>::max();  // what a writer can be told
    if (size > kLargest) return false;
    if (size <= m_frameSize) return true;
    m_frameSize = 0;
    m_frame.reset(static_cast<char*>(std::calloc(size, 1)));
    if (m_frame != nullptr) m_frameSize = size;
    return m_frame != nullptr;
}

SendThread::Sent SendThread::sendFrame(const fd_cmd_item& item) {
    const auto payload = static_cast<std::size_t>(std::max(std::int32_t{item.head.extsize}, 0));
    const std::size_t size = payload + kFrameHeadSize;
    if (!ensureFrame(size)) {
        FD_LOG_WARN("malloc buffer failed.");
        return Sent::kNo;
    }
    char* frame = m_frame.get();
    std::memset(frame, 0, kFramePrefixSize);  // the writer may have changed the frame before
    storeLe(frame + kFrameLengthAt, static_cast<std::uint32_t>(payload + kMsgHeadSize));
    int err = memcpy_s(frame + kFramePrefixSize, size - kFramePrefixSize, &item.head, kMsgHeadSize);
    if (err == 0 && payload > 0) {
        err = memcpy_s(frame + kFrameHeadSize, payload, item.pdata, payload);
    }
    if (err != 0) {
        FD_LOG_ERROR("memcpy_s failed");
        return Sent::kCopyFailed;
    }
    const int written = m_context->m_channel_write(frame, static_cast<int>(size));
    if (written == static_cast<int>(size)) return Sent::kYes;
    FD_LOG_ERROR("send fd msg fail.");
    return Sent::kNo;
}

bool SendThread::waitStop(int msecond) {
    return stopReader(m_cmd_queue, msecond);
}
