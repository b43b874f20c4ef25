// What the mount monitor of the Linux dialect asks of the platform: the mount points that the
// policy allows. Kept apart from the listing of the Windows dialect, which differs on purpose: in
// the order of the tests, in the type of a local disk and in how fresh the table has to be.
#include <algorithm>
#include <cstring>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/LinuxServer/workthread/MapCtrlThread.h"
#include "common/Policy/FdClientPolicy.h"
#include "linux/comm/Opreator/FdCommon_linux.h"
#include "linux/compat/MountTable.h"

namespace {
constexpr int kLocalDisk = 2;
constexpr int kRemovableDisk = 8;
constexpr int kOpticalDisk = 0x10;
constexpr int kNetworkShare = 0x40;

// The class of a mount by the name of its file system, or 0: the first list that has it decides.
int classOf(const FdClientPolicy& policy, const char* typeName) {
    if (policy.isLocalFileSystem(typeName)) return policy.isLocalEnable() ? kLocalDisk : 0;
    if (policy.isRemoveFileSystem(typeName)) return policy.isRemoveEnable() ? kRemovableDisk : 0;
    if (policy.isCdRomeFileSystem(typeName)) return policy.isCdromEnable() ? kOpticalDisk : 0;
    if (policy.isNetworkFileSystem(typeName)) return policy.isNetworkEnable() ? kNetworkShare : 0;
    FD_LOG_DEBUG("unknow file system type.  type: %s", typeName);
    return 0;
}

bool fill(MountInfo& info, const FdClientPolicy& policy, int type, const char* path) {
    info = {};
    info.mapid = -1;
    info.type = type;
    info.policy = policy.getWorkingPolicy();
    const std::size_t length = std::min<std::size_t>(std::strlen(path), kMountPathSize - 1);
    if (memcpy_s(info.path, kMountPathSize - 1, path, length) == 0) return true;
    FD_LOG_DEBUG("memcpy_s failed");
    return false;
}

bool isNeedMap(const FdClientPolicy& policy, const compat::MountEntry& mount, MountInfo& info) {
    if (!policy.isLinuxDirEnable(mount.f_mntonname) || !policy.isFdRedirEnable()) return false;
    const int type = classOf(policy, mount.f_fstypename);
    return type != 0 && fill(info, policy, type, mount.f_mntonname);
}
}  // namespace

std::list<MountInfo> MapCtrlThread::listLocalMountPoint(FdClientPolicy* policy) {
    std::list<MountInfo> wanted;
    MountInfo info{};
    if (policy->isLinuxRootDirEnable()) {
        if (!fill(info, *policy, kLocalDisk, kRootPath)) return wanted;
        wanted.push_back(info);
    }
    compat::MountEntry* mounts = nullptr;
    const int count = compat::getmntinfo(&mounts, MNT_WAIT);
    for (int i = 0; i < count; ++i) {
        if (isNeedMap(*policy, mounts[i], info)) wanted.push_back(info);
    }
    return wanted;
}
