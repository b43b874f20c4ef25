// The one shared object of a Linux-dialect connection: pools, limits, the channel writer, the
// policy, the two long-lived workers, the live maps and the operator threads. Made by StartWork and
// let go by StopWork; a worker that is still busy then keeps it until it has ended.
#pragma once

#include <deque>
#include <memory>
#include <string>

#include "ZFdClientMgr.h"
#include "common/Comm/ZThread.h"
#include "common/LinuxServer/comm/fd_cmd_cache.h"
#include "common/LinuxServer/fdconfig/fd_config.h"

class FdClientPolicy;
class FdMapInfo;
class MapCtrlThread;
class OpreatorThread;
class SendThread;

// A map lives until its last user has let go of it: a request may work on one that has left the
// list.
using FdMapInfoPtr = std::shared_ptr<FdMapInfo>;

class FdContext : public std::enable_shared_from_this<FdContext> {
public:
    FdContext();
    virtual ~FdContext();
    FdContext(const FdContext&) = delete;
    FdContext& operator=(const FdContext&) = delete;

    // The "find" operations leave the map in the list, the "get" operations take it out.
    FdMapInfoPtr findMapInfoById(int mapid);
    FdMapInfoPtr getMapInfoById(int mapid);
    FdMapInfoPtr findMapInfoByMountPath(const char* path);
    FdMapInfoPtr getMapInfoByMountPath(const char* path);
    FdMapInfoPtr getMapInfo();
    bool addMapInfo(const FdMapInfoPtr& map);
    int nextMapId();  // the first one is 1

    bool initOprThread(int count);

    // An idle thread, or a new one. Null only while the connection is being taken down.
    std::shared_ptr<OpreatorThread> getReadyThread();
    bool addReadyThread(OpreatorThread* thread);
    bool freeAllOpreatorThread();

    void initZListener(const ZListener& listener);
    int postUiHandleEvent(FDREDIR_UI_MSG msg, const void* data);
    std::string createUiEventData(const std::string& first, const std::string& second);

    // Null before StartWork has set them and from StopWork on.
    std::shared_ptr<SendThread> sendThread();
    std::shared_ptr<MapCtrlThread> mapCtrlThread();
    void setSendThread(std::shared_ptr<SendThread> thread);
    void setMapCtrlThread(std::shared_ptr<MapCtrlThread> thread);

    // Lets go of everything that holds this object in turn. Threads that are still busy are told to
    // end after their request.
    void dismiss();

    FdCmdCache m_cmd_cache;
    FdConfig m_config;
    ChannelWriteFn m_channel_write;             // set before the workers start
    FdClientPolicy* m_client_policy = nullptr;  // not owned; set before the workers start

private:
    bool takeFromReadyList(const OpreatorThread* thread);

    int m_statu = 1;
    ZMutex m_worker_mutex{false};
    std::shared_ptr<SendThread> m_send_thread Z_GUARDED_BY(m_worker_mutex);
    std::shared_ptr<MapCtrlThread> m_map_ctrl_thread Z_GUARDED_BY(m_worker_mutex);
    ZMutex m_map_id_mutex{false};
    int m_map_id Z_GUARDED_BY(m_map_id_mutex) = 0;
    ZMutex m_map_mutex{false};
    std::deque<FdMapInfoPtr> m_map_list Z_GUARDED_BY(m_map_mutex);
    ZMutex m_all_thread_mutex{false};
    std::deque<std::shared_ptr<OpreatorThread>> m_all_thread_list Z_GUARDED_BY(m_all_thread_mutex);
    ZMutex m_ready_thread_mutex{false};
    std::deque<OpreatorThread*> m_ready_thread_list Z_GUARDED_BY(m_ready_thread_mutex);
    bool m_dismissed Z_GUARDED_BY(m_ready_thread_mutex) = false;
    ZListener m_listener;
    bool m_no_ui_event = false;
};
