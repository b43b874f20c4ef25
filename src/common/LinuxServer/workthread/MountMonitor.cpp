// The mount monitor of the Linux dialect: compares what is mounted with what was offered. Map
// control thread. The listing itself is bound to the platform and stands in MapCtrlThread_mac.cpp.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "common/Comm/FdLog.h"
#include "common/LinuxServer/workthread/FdContext.h"
#include "common/LinuxServer/workthread/MapCtrlThread.h"

namespace {
constexpr unsigned long kFailurePauseMs = 500;
}

bool MapCtrlThread::isSameDriverNode(const MountInfo& a, const MountInfo& b) {
    return a.policy == b.policy && std::strcmp(a.path, b.path) == 0;
}

std::list<MountInfo> MapCtrlThread::listAddMountPoint(const std::list<MountInfo>& local) {
    std::list<MountInfo> added;
    std::ranges::copy_if(local, std::back_inserter(added), [this](const MountInfo& mount) {
        return std::ranges::none_of(m_mount_list, [&](const MountInfo& offered) {
            return isSameDriverNode(mount, offered);
        });
    });
    return added;
}

std::list<MountInfo> MapCtrlThread::listDeleteMountPoint(const std::list<MountInfo>& local) {
    std::list<MountInfo> gone;
    std::ranges::copy_if(m_mount_list, std::back_inserter(gone), [&](const MountInfo& offered) {
        return std::ranges::none_of(
            local, [&](const MountInfo& mount) { return isSameDriverNode(mount, offered); });
    });
    return gone;
}

std::list<MountInfo> MapCtrlThread::listNochangeMountPoint(const std::list<MountInfo>& local) {
    std::list<MountInfo> same;
    std::ranges::copy_if(local, std::back_inserter(same), [this](const MountInfo& mount) {
        return std::ranges::any_of(m_mount_list, [&](const MountInfo& offered) {
            return isSameDriverNode(mount, offered);
        });
    });
    return same;
}

void MapCtrlThread::printMountList(const std::list<MountInfo>& mounts) {
    for (const MountInfo& mount : mounts) {
        FD_LOG_DEBUG("mapid: %d, policy: %#x, type: %#x", mount.mapid,
                     static_cast<unsigned>(mount.policy), static_cast<unsigned>(mount.type));
        FD_LOG_DEBUG("path: %s", mount.path);
    }
}

void MapCtrlThread::monitorChange() {
    const std::list<MountInfo> local = listLocalMountPoint(m_context->m_client_policy);
    const std::list<MountInfo> added = listAddMountPoint(local);
    const std::list<MountInfo> gone = listDeleteMountPoint(local);
    const std::list<MountInfo> same = listNochangeMountPoint(local);
    if (added.empty() && gone.empty()) return;
    FD_LOG_DEBUG("add mount list");
    printMountList(added);
    FD_LOG_DEBUG("delete mount list");
    printMountList(gone);
    FD_LOG_DEBUG("current local mount list.");
    printMountList(local);
    m_mount_list.assign(same.begin(), same.end());
    offerMounts(added);
    withdrawMounts(gone);
}

void MapCtrlThread::offerMounts(const std::list<MountInfo>& added) {
    if (added.empty()) return;
    FD_LOG_INFO("add new mount map");
    for (const MountInfo& mount : added) {
        if (handlePlugInfo(mount)) {
            m_mount_list.push_back(mount);
            FD_LOG_INFO("add new mount success. ");
        } else {
            FD_LOG_INFO("add new mount failure. ");
        }
        FD_LOG_INFO("mount info. mapid: %d, policy: %#x, type: %#x", mount.mapid,
                    static_cast<unsigned>(mount.policy), static_cast<unsigned>(mount.type));
        FD_LOG_INFO("mount info. path: %s", mount.path);
    }
}

void MapCtrlThread::withdrawMounts(const std::list<MountInfo>& gone) {
    if (gone.empty()) return;
    FD_LOG_INFO("delete mount map");
    for (const MountInfo& mount : gone) {
        const bool withdrawn = handleUnplugInfo(mount);
        if (withdrawn) {
            FD_LOG_INFO("delete mount success. ");
        } else {
            FD_LOG_INFO("adelete mount failure. ");
        }
        FD_LOG_INFO("mount info. mapid: %d, policy: %d, type: %d", mount.mapid, mount.policy,
                    mount.type);
        // Kept: the text prints a number where the path belongs.
        FD_LOG_INFO("mount info. path: %d",
                    static_cast<int>(reinterpret_cast<std::intptr_t>(mount.path)));
        if (withdrawn) continue;
        m_mount_list.push_back(mount);
        msleep(kFailurePauseMs);
    }
}
