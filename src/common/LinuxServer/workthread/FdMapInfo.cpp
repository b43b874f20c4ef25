// One folder that is offered to a remote Linux desktop.
#include "common/LinuxServer/workthread/FdMapInfo.h"

#include <cstring>
#include <string>

#include "common/Comm/FdLog.h"
#include "common/LinuxServer/workthread/FdContext.h"
#include "common/LinuxServer/workthread/OpreatorThread.h"
#include "common/LinuxServer/workthread/SendThread.h"
#include "linux/comm/Opreator/FdCommon_linux.h"

namespace {
constexpr int kServerPathAt = 8;  // in the payload of the server's answer to a plug
constexpr int kThreadTries = 10;
constexpr unsigned long kThreadPauseMs = 1000;
constexpr int kStopCheckMs = 100;

// The text at that offset of the payload, which need not be terminated.
std::string payloadText(const fd_cmd_item& item, int offset) {
    if (item.pdatasize <= offset) return {};
    const char* text = item.pdata + offset;
    return {text, strnlen(text, static_cast<std::size_t>(item.pdatasize - offset))};
}

bool sendMapCtrl(FdContext* context, int mapid, FdMapCtrl subtype) {
    const auto sender = context->sendThread();
    return sender != nullptr && sender->sendCmdItem(mapid, FD_TYPE_MAP_CTRL, subtype, 0);
}
}  // namespace

FdMapInfo::FdMapInfo(int mapid, FdContext* context) : m_map_id(mapid), m_context(context) {
    FD_LOG_INFO("mapid: %d", mapid);
}

FdMapInfo::~FdMapInfo() = default;

bool FdMapInfo::setCompName(const char* name) {
    m_comp_name.reset(getMountPointPath(name));
    if (m_comp_name == nullptr) FD_LOG_INFO("set computer name failure.");
    return m_comp_name != nullptr;
}

bool FdMapInfo::setServerMountPath(const char* path) {
    m_server_mount_path.reset(getMountPointPath(path));
    if (m_server_mount_path == nullptr) FD_LOG_INFO("set server mount path failure.");
    return m_server_mount_path != nullptr;
}

// Kept: these three log the value that they replace.
bool FdMapInfo::setMountFlag(int flag) {
    FD_LOG_INFO("set mount flag. flag: %#x", static_cast<unsigned>(m_mount_flag));
    m_mount_flag = flag;
    return true;
}

bool FdMapInfo::setMountType(int type) {
    FD_LOG_INFO("set mount type. type: %#x", static_cast<unsigned>(m_mount_type));
    m_mount_type = type;
    return true;
}

bool FdMapInfo::setMountPolicy(int policy) {
    FD_LOG_INFO("set mount policy. policy: %#x", static_cast<unsigned>(m_mount_policy));
    m_mount_policy = policy;
    return true;
}

bool FdMapInfo::setMountPath(const char* path) {
    FD_LOG_INFO("set mount path. path: %s", path == nullptr ? "" : path);
    m_mount_folder_name.reset();
    m_mount_path.reset(getMountPointPath(path));
    if (m_mount_path == nullptr) {
        FD_LOG_INFO("set mount path failure.");
        return false;
    }
    m_root_flag = isRootPath(path);
    if (m_root_flag) {
        FD_LOG_INFO("mount point is root path");
        return true;
    }
    m_mount_folder_name.reset(getMountPointFolder(path));
    if (m_mount_folder_name == nullptr) {
        FD_LOG_INFO("can not get folder name.  path: %s", path);
        return false;
    }
    FD_LOG_INFO("set mount path ok. folder: %s", m_mount_folder_name.get());
    return true;
}

bool FdMapInfo::handlePlugInfo(const MountInfo& info) {
    FD_LOG_INFO("mount pint plugin.  path: %s", info.path);
    setMountFlag(info.flag);
    setMountType(info.type);
    setMountPolicy(info.policy);
    if (!setMountPath(info.path)) {
        FD_LOG_WARN("set mount path failure!");
        return false;
    }
    m_statu = kMapPlugged;
    return true;
}

bool FdMapInfo::handleUnplugInfo() {
    FD_LOG_INFO("mount point unplugin. ");
    m_statu = kMapFinished;
    return true;
}

bool FdMapInfo::handleMapCmd(fd_cmd_item* item) {
    bool taken = true;
    if (item->head.res != 0) {
        m_statu = kMapFinished;
        FD_LOG_WARN("server handle map failure! mapid: %d", m_map_id);
    } else {
        setServerMountPath(payloadText(*item, kServerPathAt).c_str());
        m_statu = kMapMounted;
        taken = sendMapCtrl(m_context, m_map_id, FD_MAP_CTRL_MAP_ACK);
        if (!taken) FD_LOG_INFO("send map information failure.");
    }
    m_context->m_cmd_cache.put_node(item);
    return taken;
}

bool FdMapInfo::handleUnmapCmd(fd_cmd_item* item) {
    if (item->head.res != 0) {
        FD_LOG_WARN("server handle unmap failure! mapid: %d", m_map_id);
    } else if (!sendMapCtrl(m_context, m_map_id, FD_MAP_CTRL_UNMAP_ACK)) {
        FD_LOG_INFO("send unmap information failure.");
    }
    m_statu = kMapFinished;
    m_context->m_cmd_cache.put_node(item);
    return true;
}

bool FdMapInfo::handleOpreatorCmdItem(fd_cmd_item* item) {
    auto thread = m_context->getReadyThread();
    for (int i = 0; thread == nullptr && i < kThreadTries; ++i) {
        FD_LOG_ERROR("can not find ready opreator thread");
        ZThread::msleep(kThreadPauseMs);
        thread = m_context->getReadyThread();
    }
    if (thread == nullptr) return false;
    {
        const ZMutexLocker lock(m_mutex);
        ++m_ref_count;
    }
    thread->setCountingMap(weak_from_this());
    thread->addOpreatorCmd(item);
    return true;
}

int FdMapInfo::decreaseRef() {
    const ZMutexLocker lock(m_mutex);
    return --m_ref_count;
}

bool FdMapInfo::waitStop(int msecond) {
    FD_LOG_INFO("FdMapInfo wait stop, msecond: %d  ...", msecond);
    int count = 0;
    // Kept: no pause between the looks.
    for (bool more = msecond > 0; more;) {
        {
            const ZMutexLocker lock(m_mutex);
            count = m_ref_count;
        }
        if (count < 1) break;
        more = msecond > kStopCheckMs;
        msecond -= kStopCheckMs;
    }
    FD_LOG_INFO("FdMapInfo wait stop end,  count: %d, msecond: %d", count, msecond);
    return count < 1;
}
