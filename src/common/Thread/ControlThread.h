// The drive monitor of the Windows dialect: keeps the set of maps equal to what the policy allows
// of the mounted file systems, and tells the server. Everything but the wiring runs on its own
// thread.
#pragma once

#include <list>

#include "common/Comm/ZThread.h"
#include "common/Map/MapFolder.h"

class FdClientPolicy;
class MapManager;

// Code of the metric events that tell the host about its disks.
constexpr int ZMETRICS_CLIENT_FDREDIR_DISKINFO = 0x150B0000;

// One mount point as the monitor sees it. Two nodes are the same mount point if policy and path are
// equal, so a new policy word makes every mount point a different one.
struct MapDriverNode {
    int m_mapIndex;  // the map id once the map exists, else -1
    int m_type;      // 0x2 root, 0x8 local or removable, 0x10 optical, 0x40 network, 0x1000 printer
    int m_policy;    // the policy word at the moment of enumeration
    char m_pre_path[260];  // the local mount path
};

// Made, wired, started, stopped and let go by ZFdClientMgr.
class ControlThread : public ZThread {
public:
    explicit ControlThread(FdClientPolicy* policy);  // not owned
    ~ControlThread() override;

    void setMapManager(MapManager* mapManager);  // not owned

    void moniterDriverChange();
    std::list<MapDriverNode> listLocalMountPoint();
    std::list<MapDriverNode> listFixMountPoint();
    std::list<MapDriverNode> listAddMountPoint(std::list<MapDriverNode> fresh);
    std::list<MapDriverNode> listDeleteMountPoint(std::list<MapDriverNode> fresh);
    std::list<MapDriverNode> listNoChangeMountPoint(std::list<MapDriverNode> fresh);
    bool isSameDriverNode(const MapDriverNode& a, const MapDriverNode& b);
    void freeMapFolderList(std::list<MapFolderPtr> maps);

    // Announcements. Each sends one message and waits for no reply.
    MapFolderPtr addDrive(const MapDriverNode& node);
    bool sendDriveName(const MapFolder* pMap);
    bool deleteDrive(int mapId);
    bool SendUserProfilePath();
    void GetUserProfilePath(char* buffer, int size);

protected:
    void run() override;

private:
    void releaseDeletedMaps();
    void announceFixedMounts();

    // Adds the drive and appends the node, with its map id, to `announced`.
    void announce(MapDriverNode node, std::list<MapDriverNode>& announced);
    void withdraw(const MapDriverNode& node);
    void reportDiskCount();

    std::list<MapDriverNode> m_fixMountList;  // fixed mount points that were announced
    std::list<MapDriverNode> m_mountList;     // announced, with their map ids
    MapManager* m_mapmanager;                 // not owned
    std::list<MapFolderPtr> m_deleteMapList;  // left the registry, released 100 passes later
    int m_clearCount;                         // passes since the last deletion, 100 at most
    FdClientPolicy* m_policy;                 // not owned
};
