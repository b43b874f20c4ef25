// The operator threads of the Linux dialect.
#include "common/LinuxServer/workthread/OpreatorThread.h"

#include <utility>

#include "common/Comm/FdLog.h"
#include "common/Comm/Linger.h"
#include "common/LinuxServer/opreator/fd_handlers.h"
#include "common/LinuxServer/workthread/DrainQueue.h"
#include "common/LinuxServer/workthread/FdContext.h"
#include "common/LinuxServer/workthread/FdMapInfo.h"
#include "common/LinuxServer/workthread/SendThread.h"

OpreatorThread::OpreatorThread(FdContext* context) : FdThread(context, "opreator thread") {
    m_handlers[1] = fd_getattr_c;
    m_handlers[2] = fd_readlink_c;
    m_handlers[4] = fd_mknod_c;
    m_handlers[5] = fd_mkdir_c;
    m_handlers[6] = fd_unlink_c;
    m_handlers[7] = fd_rmdir_c;
    m_handlers[8] = fd_symlink_c;
    m_handlers[9] = fd_rename_c;
    m_handlers[10] = fd_link_c;
    m_handlers[11] = fd_chmod_c;
    m_handlers[12] = fd_chown_c;
    m_handlers[13] = fd_truncate_c;
    m_handlers[15] = fd_open_c;
    m_handlers[16] = fd_read_c;
    m_handlers[17] = fd_write_c;
    m_handlers[18] = fd_statfs_c;
    m_handlers[19] = fd_flush_c;
    m_handlers[20] = fd_release_c;
    m_handlers[21] = fd_fsync_c;
    m_handlers[22] = fd_setxattr_c;
    m_handlers[23] = fd_getxattr_c;
    m_handlers[24] = fd_listxattr_c;
    m_handlers[25] = fd_removexattr_c;
    m_handlers[26] = fd_opendir_c;
    m_handlers[27] = fd_readdir_c;
    m_handlers[28] = fd_releasedir_c;
    m_handlers[30] = fd_init_c;
    m_handlers[31] = fd_destroy_c;
    m_handlers[32] = fd_access_c;
    m_handlers[37] = fd_utimens_c;
    m_handlers[44] = fd_fallocate_c;
    FD_LOG_INFO("opreator handle fill ok.");
}

OpreatorThread::~OpreatorThread() {
    FD_LOG_INFO("destory OpreatorThread ...");
    // Kept: the pointer is never cleared, so every thread that has served a request says this.
    if (m_map_info != nullptr) FD_LOG_ERROR("m_map_info != NULL");
    drainReaderQueue(m_cmd_queue, m_context->m_cmd_cache);
    FD_LOG_INFO("destory OpreatorThread ok ");
}

bool OpreatorThread::setMapInfo(FdMapInfo* map) {
    m_map_info = map;
    return true;
}

void OpreatorThread::setCountingMap(std::weak_ptr<FdMapInfo> map) {
    m_countingMap = std::move(map);
}

bool OpreatorThread::addOpreatorCmd(fd_cmd_item* item) {
    return m_cmd_queue.put_node(item);
}

void OpreatorThread::run() {
    FD_LOG_INFO("OpreatorThread start ...");
    beginRun();
    FD_LOG_INFO("OpreatorThread work ...");
    while (m_run_flag) {
        fd_cmd_item* item = nullptr;
        if (m_cmd_queue.get_node(&item, 0)) {
            handleItem(item);
            lingerWhile([this] { return m_cmd_queue.isEmpty(); });
        } else {
            FD_LOG_WARN("OpreatorThread get node failure");
        }
    }
    endRun();
    FD_LOG_INFO("OpreatorThread finish ...");
}

void OpreatorThread::handleItem(fd_cmd_item* item) {
    FD_LOG_DEBUG("get cmd node. mapid: %d, type: %d, subtype: %d, idx: %ld, extsize: %d",
                 static_cast<int>(item->head.mapid), static_cast<int>(item->head.type),
                 static_cast<int>(item->head.subtype), static_cast<long>(item->head.idx),
                 static_cast<int>(item->head.extsize));
    m_statu = kStatuWorking;
    const FdMapInfoPtr map = m_context->findMapInfoById(item->head.mapid);
    m_map_info = map.get();
    const FdMapInfoPtr counting = map != nullptr ? map : m_countingMap.lock();
    m_countingMap.reset();
    callHandler(map.get(), item);
    passOn(item);
    m_statu = kStatuReady;
    if (counting != nullptr) counting->decreaseRef();
    m_context->addReadyThread(this);
    FD_LOG_DEBUG("opreator move to ready list. ");
}

void OpreatorThread::callHandler(FdMapInfo* map, fd_cmd_item* item) {
    const int subtype = item->head.subtype;
    if (static_cast<unsigned>(subtype) >= m_handlers.size()) {
        FD_LOG_ERROR("unknow handle type. %d", subtype);
    } else if (m_handlers[static_cast<std::size_t>(subtype)] == nullptr) {
        FD_LOG_WARN("opreator is not support");
    } else if (map == nullptr) {  // it vanished since the front door looked
        item->head.res = kResTryAgain;
        item->head.extsize = 0;
    } else {
        m_handlers[static_cast<std::size_t>(subtype)](map, item);
    }
}

void OpreatorThread::passOn(fd_cmd_item* item) {
    if (const auto sender = m_context->sendThread()) {
        sender->addSendCmdItem(item);
    } else {
        m_context->m_cmd_cache.put_node(item);
    }
}

void OpreatorThread::endAfterRequest() {
    askToStop();
    m_cmd_queue.endWaits();
}

bool OpreatorThread::waitStop(int msecond) {
    return stopReader(m_cmd_queue, msecond);
}
