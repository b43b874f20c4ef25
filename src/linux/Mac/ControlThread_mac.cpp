// What of the drive monitor is bound to the platform's mount table: which mount points are wanted,
// and where the user's profile is. Control thread.
#include <cstring>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Policy/FdClientPolicy.h"
#include "common/Thread/ControlThread.h"
#include "linux/compat/MountTable.h"

namespace {

constexpr int kRootType = 0x2;
constexpr int kDiskType = 0x8;  // local and removable file systems alike
constexpr int kOpticalType = 0x10;
constexpr int kNetworkType = 0x40;

MapDriverNode freshNode(const FdClientPolicy& policy, int type) {
    MapDriverNode node{};
    node.m_mapIndex = -1;
    node.m_type = type;
    node.m_policy = policy.getWorkingPolicy();
    return node;
}

bool setPath(MapDriverNode* node, const char* path) {
    constexpr std::size_t kRoom = sizeof node->m_pre_path - 1;  // the terminator stays
    if (memcpy_s(node->m_pre_path, kRoom, path, std::strlen(path)) == 0) return true;

    FD_LOG_ERROR("memcpy_s failed");
    return false;
}

// The kind of drive of a file system that the policy wants, or 0. The first list that names the
// type decides, allowed or not. Kept: the Linux dialect's monitor asks in another order and has
// another number for local ones.
int isNeedMap(const FdClientPolicy& policy, const char* typeName) {
    if (policy.isNetworkFileSystem(typeName)) return policy.isNetworkEnable() ? kNetworkType : 0;
    if (policy.isCdRomeFileSystem(typeName)) return policy.isCdromEnable() ? kOpticalType : 0;
    if (policy.isRemoveFileSystem(typeName)) return policy.isRemoveEnable() ? kDiskType : 0;
    if (policy.isLocalFileSystem(typeName)) return policy.isLocalEnable() ? kDiskType : 0;
    return 0;
}

// Whether the mount point is wanted, and then its node.
bool toNode(const FdClientPolicy& policy, const compat::MountEntry* pMountPoint,
            MapDriverNode* node) {
    if (!policy.isLinuxDirEnable(pMountPoint->f_mntonname)) return false;
    if (!policy.isFdRedirEnable()) return false;

    *node = freshNode(policy, isNeedMap(policy, pMountPoint->f_fstypename));
    if (node->m_type == 0) return false;

    if (std::strlen(pMountPoint->f_mntonname) >= sizeof node->m_pre_path) {
        FD_LOG_ERROR("strlen(pMountPoint->f_mntonname): %d, strlen(pMountPoint->f_fstypename): %d",
                     static_cast<int>(std::strlen(pMountPoint->f_mntonname)),
                     static_cast<int>(std::strlen(pMountPoint->f_fstypename)));
        return false;
    }
    return setPath(node, pMountPoint->f_mntonname);
}

}  // namespace

std::list<MapDriverNode> ControlThread::listLocalMountPoint() {
    std::list<MapDriverNode> wanted;
    if (m_policy->isLinuxRootDirEnable()) {
        MapDriverNode root = freshNode(*m_policy, kRootType);
        if (!setPath(&root, "/.")) return wanted;
        wanted.push_back(root);
    }

    compat::MountEntry* mounts = nullptr;
    const int count = getmntinfo(&mounts, MNT_NOWAIT);
    for (int i = 0; i < count; ++i) {
        MapDriverNode node{};
        if (toNode(*m_policy, mounts + i, &node)) wanted.push_back(node);
    }
    return wanted;
}

// No mount point is fixed here: all come and go with the mount table.
std::list<MapDriverNode> ControlThread::listFixMountPoint() {
    return {};
}

// No folder of the profile is offered from here: the buffer stays as it is.
void ControlThread::GetUserProfilePath(char* /*buffer*/, int /*size*/) {}
