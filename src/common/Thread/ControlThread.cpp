// The loop of the drive monitor: what is mounted is compared with what was announced, ten times a
// second, and maps come and go to match. Everything behind run() is on the control thread.
#include "common/Thread/ControlThread.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "common/Comm/FdLog.h"
#include "common/Map/MapManager.h"
#include "common/Policy/FdClientPolicy.h"

namespace {

constexpr int kPollMs = 100;
constexpr int kPassesToRelease = 100;  // a request may use a deleted map for about 10 seconds
constexpr unsigned kMapsReleasedEvent = 0x500E0006;

void logMountNode(int level, const MapDriverNode& mountNode) {
    FD_LOG(level, "mountNode.m_mapIndex:   %d", mountNode.m_mapIndex);
    FD_LOG(level, "mountNode.m_policy:     %d", mountNode.m_policy);
    FD_LOG(level, "mountNode.m_type:       %d", mountNode.m_type);
    FD_LOG(level, "mountNode.m_pre_path:   %s", mountNode.m_pre_path);
}

}  // namespace

ControlThread::ControlThread(FdClientPolicy* policy)
    : ZThread("ControlThread"), m_mapmanager(nullptr), m_clearCount(0), m_policy(policy) {}

ControlThread::~ControlThread() {
    FD_LOG_INFO("~ControlThread()");
    stopAndWait(kStopSteps);
    m_mapmanager = nullptr;
}

void ControlThread::setMapManager(MapManager* mapManager) {
    if (mapManager == nullptr) FD_LOG_ERROR("setMapManager() m_mapmanager == NULL");

    m_mapmanager = mapManager;
}

void ControlThread::run() {
    FD_LOG_INFO("ControlThread run");
    bool firstPass = true;
    while (m_running) {
        if (m_mapmanager != nullptr && m_policy->isFdRedirEnable() && !m_policy->isLinuxSystem()) {
            releaseDeletedMaps();
            moniterDriverChange();
            if (std::exchange(firstPass, false)) {
                SendUserProfilePath();
                announceFixedMounts();
            }
        }
        msleep(kPollMs);
    }
    m_exit_flag = 1;  // last: from here on the owner may let go of this object
}

// Kept: once. Only a deletion, which puts the count back to 0, leads to another release.
void ControlThread::releaseDeletedMaps() {
    if (m_clearCount == kPassesToRelease || ++m_clearCount < kPassesToRelease) return;

    freeMapFolderList(std::exchange(m_deleteMapList, {}));
    FD_LOG_INFO("0x%x:  client clear map info.", kMapsReleasedEvent);
}

void ControlThread::freeMapFolderList(std::list<MapFolderPtr> maps) {
    FD_LOG_INFO("map folder list size: %d", static_cast<int>(maps.size()));
    for (MapFolderPtr& map : maps) {
        if (map == nullptr) continue;
        FD_LOG_INFO("pMap->m_nMapIndex: %d, pMap->m_ClientFolder: %s", map->m_nMapIndex,
                    map->m_clientFolder);
        map.reset();
    }
}

void ControlThread::moniterDriverChange() {
    const std::list<MapDriverNode> fresh = listLocalMountPoint();
    const std::list<MapDriverNode> added = listAddMountPoint(fresh);
    const std::list<MapDriverNode> deleted = listDeleteMountPoint(fresh);
    std::list<MapDriverNode> unchanged = listNoChangeMountPoint(fresh);
    if (added.empty() && deleted.empty()) return;

    m_mountList = std::move(unchanged);
    FD_LOG_INFO(" add mountNode");
    for (const MapDriverNode& node : added) announce(node, m_mountList);
    FD_LOG_INFO(" delete mountNode");
    for (const MapDriverNode& node : deleted) withdraw(node);
    reportDiskCount();
}

void ControlThread::announceFixedMounts() {
    for (const MapDriverNode& node : listFixMountPoint()) announce(node, m_fixMountList);
}

void ControlThread::announce(MapDriverNode node, std::list<MapDriverNode>& announced) {
    FD_LOG_INFO("mountName: %s", node.m_pre_path);
    const MapFolderPtr map = addDrive(node);
    if (map == nullptr) {
        FD_LOG_ERROR("add a driver failure.");
        return logMountNode(ZLOG_LEVEL_ERROR, node);
    }

    if (node.m_type != kPrinterMap && m_policy->isSupportChineseName()) sendDriveName(map.get());

    node.m_mapIndex = map->m_nMapIndex;
    announced.push_back(node);
    FD_LOG_INFO("add a drive success.");
    logMountNode(ZLOG_LEVEL_INFO, node);
}

void ControlThread::withdraw(const MapDriverNode& node) {
    if (deleteDrive(node.m_mapIndex)) {
        FD_LOG_INFO("delete a drive success.");
        return logMountNode(ZLOG_LEVEL_INFO, node);
    }
    FD_LOG_ERROR("add a drive failure.");  // Kept: the text speaks of adding
    logMountNode(ZLOG_LEVEL_ERROR, node);
}

void ControlThread::reportDiskCount() {
    const std::string strDiskSum =
        "Total number of disks:" + std::to_string(m_mapmanager->getMapNum());
    m_mapmanager->reportMetric(ZMETRICS_CLIENT_FDREDIR_DISKINFO, strDiskSum);
    FD_LOG_INFO(
        "ZMETRICS_CLIENT_FDREDIR_DISKINFO = %d, const_cast<char *>(strDiskSum.c_str()) = %s ,strDiskSum.size() + 1 = %d ",
        ZMETRICS_CLIENT_FDREDIR_DISKINFO, strDiskSum.c_str(),
        static_cast<int>(strDiskSum.size() + 1));
}

std::list<MapDriverNode> ControlThread::listAddMountPoint(std::list<MapDriverNode> fresh) {
    fresh.remove_if([this](const MapDriverNode& node) {
        return std::ranges::any_of(m_mountList, [&](const MapDriverNode& announced) {
            return isSameDriverNode(node, announced);
        });
    });
    return fresh;
}

std::list<MapDriverNode> ControlThread::listDeleteMountPoint(std::list<MapDriverNode> fresh) {
    std::list<MapDriverNode> gone = m_mountList;
    gone.remove_if([&](const MapDriverNode& announced) {
        return std::ranges::any_of(
            fresh, [&](const MapDriverNode& node) { return isSameDriverNode(node, announced); });
    });
    return gone;
}

std::list<MapDriverNode> ControlThread::listNoChangeMountPoint(std::list<MapDriverNode> fresh) {
    std::list<MapDriverNode> unchanged;
    for (const MapDriverNode& node : fresh) {
        const auto announced = std::ranges::find_if(
            m_mountList, [&](const MapDriverNode& known) { return isSameDriverNode(node, known); });
        if (announced != m_mountList.end()) unchanged.push_back(*announced);
    }
    return unchanged;
}

bool ControlThread::isSameDriverNode(const MapDriverNode& a, const MapDriverNode& b) {
    return a.m_policy == b.m_policy && std::strcmp(a.m_pre_path, b.m_pre_path) == 0;
}
