// The map control thread: its loop, the server's map control messages and the disconnect.
#include "common/LinuxServer/workthread/MapCtrlThread.h"

#include "common/Comm/FdLog.h"
#include "common/LinuxServer/workthread/DrainQueue.h"
#include "common/LinuxServer/workthread/FdContext.h"
#include "common/LinuxServer/workthread/FdMapInfo.h"

namespace {
constexpr int kQuietMs = 500;
constexpr int kMapStopMs = 20000;
}  // namespace

MapCtrlThread::MapCtrlThread(FdContext* context) : FdThread(context, "map ctrl thread") {}

MapCtrlThread::~MapCtrlThread() {
    FD_LOG_INFO("destory MapCtrlThread ...");
    const int left = drainQueue(m_cmd_queue, m_context->m_cmd_cache);
    if (left != 0) {
        FD_LOG_ERROR("cmd queue size not zero. %d", left);
    } else {
        FD_LOG_INFO("cmd queue size is zero");
    }
    FD_LOG_INFO("destory MapCtrlThread ok ");
}

bool MapCtrlThread::addMapCtrlCmd(fd_cmd_item* item) {
    return m_cmd_queue.put_node(item);
}

void MapCtrlThread::run() {
    FD_LOG_INFO("MapCtrlThread start ...");
    beginRun();
    m_statu = kStatuWorking;
    FD_LOG_INFO("MapCtrlThread work ...");
    while (m_run_flag) {
        fd_cmd_item* item = nullptr;
        // Kept: messages go before everything, the run flag included.
        while (m_cmd_queue.get_node(&item, kQuietMs)) handleMapCtrlCmd(item);
        if (m_run_flag) monitorChange();
    }
    endRun();
    FD_LOG_INFO("MapCtrlThread finish ok");
}

bool MapCtrlThread::waitStop(int msecond) {
    FD_LOG_INFO("MapCtrlThread wait stop, msecond: %d  ...", msecond);
    askToStop();
    m_cmd_queue.endWaits();
    m_cmd_queue.wake_all();
    handleDisconnect();
    const bool exited = pollExit(msecond);
    FD_LOG_INFO("MapCtrlThread wait stop end,  m_exit_flag: %d, msecond: %d", exited ? 1 : 0,
                msecond);
    return exited;
}

void MapCtrlThread::handleMapCtrlCmd(fd_cmd_item* item) {
    const int subtype = item->head.subtype;
    FD_LOG_INFO("mapid: %d, subtype: %d ...", static_cast<int>(item->head.mapid), subtype);
    switch (subtype) {
        case FD_MAP_CTRL_IGNORED:
            break;
        case FD_MAP_CTRL_MAP:
            if (handleMapCmd(item)) return;
            break;
        case FD_MAP_CTRL_UNMAP:
            if (handleUnmapCmd(item)) return;
            break;
        default:
            FD_LOG_INFO("unknow map ctrl message. %d", subtype);
            break;
    }
    m_context->m_cmd_cache.put_node(item);
}

bool MapCtrlThread::handleMapCmd(fd_cmd_item* item) {
    const int mapid = item->head.mapid;
    FD_LOG_INFO("mapid: %d, res: %ld", mapid, static_cast<long>(item->head.res));
    const FdMapInfoPtr map = m_context->getMapInfoById(mapid);
    if (map == nullptr) {
        FD_LOG_ERROR("server map an not exist mapinfo! ");
        return false;
    }
    if (map->handleMapCmd(item)) {
        m_context->addMapInfo(map);
        FD_LOG_INFO("client handle map cmd success. mapid: %d, mapinfo: %p", mapid,
                    static_cast<void*>(map.get()));
    } else {
        FD_LOG_INFO("delete mapinfo. mapid: %d, mapinfp: %p", mapid, static_cast<void*>(map.get()));
    }
    return true;
}

bool MapCtrlThread::handleUnmapCmd(fd_cmd_item* item) {
    const int mapid = item->head.mapid;
    FD_LOG_INFO("mapid: %d, res: %dld", mapid, static_cast<int>(item->head.res));
    const FdMapInfoPtr map = m_context->getMapInfoById(mapid);
    if (map == nullptr) {
        FD_LOG_ERROR("server ummap an not exist mapinfo! ");
        return false;
    }
    map->handleUnmapCmd(item);
    if (!map->waitStop(kMapStopMs)) {
        // A request is still at work on it; the record goes with the last of them.
        FD_LOG_ERROR("mapinfo stop error, mapinfo memory leak.  mapinfo: %p",
                     static_cast<void*>(map.get()));
    }
    return true;
}

bool MapCtrlThread::handleDisconnect() {
    FD_LOG_INFO("mapctrl thread handle disconnect");
    m_context->freeAllOpreatorThread();
    while (const FdMapInfoPtr map = m_context->getMapInfo()) {
        FD_LOG_INFO("map stop, mapid: %d, mapinfo: %p", map->getMapId(),
                    static_cast<void*>(map.get()));
    }
    FD_LOG_INFO("all map in server unplugin ok. ");
    return true;
}
