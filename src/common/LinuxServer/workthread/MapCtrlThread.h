// The one thread that makes and ends the maps of the Linux dialect: it answers the server's map
// control messages and, after half a second without one, compares the local mount points with the
// ones already offered. Made by FdLinuxDesktopClient. Everything but addMapCtrlCmd and waitStop
// runs on its own thread.
#pragma once

#include <deque>
#include <list>

#include "common/LinuxServer/comm/fd_cmd_queue.h"
#include "common/LinuxServer/workthread/FdThread.h"

class FdClientPolicy;
class FdMapInfo;

class MapCtrlThread : public FdThread {
public:
    explicit MapCtrlThread(FdContext* context);
    ~MapCtrlThread() override;

    // The queue owns the node from here on.
    bool addMapCtrlCmd(fd_cmd_item* item);

    // Ends the operator threads and the maps as well. Runs on the thread that stops the client.
    bool waitStop(int msecond) override;

    void handleMapCtrlCmd(fd_cmd_item* item);
    bool handleMapCmd(fd_cmd_item* item);    // true when the node was taken over
    bool handleUnmapCmd(fd_cmd_item* item);  // likewise
    bool handleDisconnect();
    bool handlePlugInfo(const MountInfo& info);
    bool handleUnplugInfo(const MountInfo& info);
    bool sendPlugInfo(FdMapInfo* map);

    // The mount monitor. Two mounts are the same if path and policy are equal.
    void monitorChange();
    std::list<MountInfo> listLocalMountPoint(FdClientPolicy* policy);
    std::list<MountInfo> listAddMountPoint(const std::list<MountInfo>& local);
    std::list<MountInfo> listDeleteMountPoint(const std::list<MountInfo>& local);
    std::list<MountInfo> listNochangeMountPoint(const std::list<MountInfo>& local);
    bool isSameDriverNode(const MountInfo& a, const MountInfo& b);
    void printMountList(const std::list<MountInfo>& mounts);

protected:
    void run() override;

private:
    void offerMounts(const std::list<MountInfo>& added);
    void withdrawMounts(const std::list<MountInfo>& gone);

    FdCmdQueue m_cmd_queue;
    std::deque<MountInfo> m_mount_list;  // offered, or not yet withdrawn
};
