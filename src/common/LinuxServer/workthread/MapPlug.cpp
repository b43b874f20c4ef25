// Offering a mount point to the server and withdrawing it. Map control thread.
#include <array>
#include <cstring>
#include <memory>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Comm/WireNumbers.h"
#include "common/LinuxServer/comm/fd_cmd_cache.h"
#include "common/LinuxServer/workthread/FdContext.h"
#include "common/LinuxServer/workthread/FdMapInfo.h"
#include "common/LinuxServer/workthread/MapCtrlThread.h"
#include "common/LinuxServer/workthread/SendThread.h"
#include "linux/comm/Opreator/FdCommon_linux.h"

namespace {
// The plug record: four words, then the folder name and the computer name with their lengths.
constexpr int kRootFlagAt = 0;
constexpr int kFlagAt = 4;
constexpr int kMountTypeAt = 8;
constexpr int kMountPolicyAt = 12;
constexpr int kFolderLengthAt = 16;
constexpr int kFolderAt = 24;
constexpr int kLengthSize = 8;

const char* textOrEmpty(const char* text, const char* warning) {
    if (text != nullptr) return text;
    FD_LOG_WARN("%s", warning);
    return "";
}

// A length and the text with its terminator. The offset behind them, or -1.
int putText(char* payload, int size, int at, const char* text) {
    const std::size_t length = std::strlen(text) + 1;
    storeLe(payload + at, static_cast<std::int64_t>(length));
    at += kLengthSize;
    if (memcpy_s(payload + at, static_cast<std::size_t>(size - at), text, length) != 0) return -1;
    return at + static_cast<int>(length);
}

bool putPlugRecord(char* payload, int size, const FdMapInfo& map, const char* folder,
                   const char* computer) {
    storeLe(payload + kRootFlagAt, std::int32_t{map.isRootFlag() ? 1 : 0});
    storeLe(payload + kFlagAt, std::int32_t{map.getMountFlag()});
    storeLe(payload + kMountTypeAt, std::int32_t{map.getMountType()});
    storeLe(payload + kMountPolicyAt, std::int32_t{map.getMountPolicy()});
    const int behindFolder = putText(payload, size, kFolderLengthAt, folder);
    return behindFolder >= 0 && putText(payload, size, behindFolder, computer) >= 0;
}
}  // namespace

bool MapCtrlThread::sendPlugInfo(FdMapInfo* map) {
    FD_LOG_INFO("send plugin info.");
    const char* folder = textOrEmpty(map->getMountFolderName(), "folder == NULL");
    const char* computer = textOrEmpty(map->getCompName(), "compname == NULL");
    fd_cmd_item* item = nullptr;
    if (!m_context->m_cmd_cache.get_node(&item)) {
        FD_LOG_WARN("malloc cmd item failure. ");
        return false;
    }
    item->head.mapid = map->getMapId();
    item->head.type = FD_TYPE_MAP_CTRL;
    item->head.subtype = FD_MAP_CTRL_PLUG;
    const int size =
        kFolderAt + kLengthSize + static_cast<int>(std::strlen(folder) + std::strlen(computer)) + 2;
    if (!ensurePayload(item, size)) {
        FD_LOG_WARN("malloc cmd item pdata failure.  extsize: %d", size);
        m_context->m_cmd_cache.put_node(item);
        return false;
    }
    item->head.extsize = size;
    markPayload(item, size);
    const bool written = putPlugRecord(item->pdata, item->pdatasize, *map, folder, computer);
    if (!written) FD_LOG_ERROR("memcpy_s failed");
    const auto sender = m_context->sendThread();
    if (written && sender != nullptr) return sender->addSendCmdItem(item);
    m_context->m_cmd_cache.put_node(item);
    return false;
}

bool MapCtrlThread::handlePlugInfo(const MountInfo& info) {
    FD_LOG_INFO("new mount point plugin. type: %#x, policy: %#x, flag: %#x, path: %s",
                static_cast<unsigned>(info.type), static_cast<unsigned>(info.policy),
                static_cast<unsigned>(info.flag), info.path);
    const int mapid = m_context->nextMapId();
    FD_LOG_INFO("generete new map id: %d", mapid);
    if (m_context->findMapInfoById(mapid) != nullptr ||
        m_context->findMapInfoByMountPath(info.path) != nullptr) {
        FD_LOG_ERROR("plugin an exist mount point!  mapid: %d", mapid);
        return false;
    }
    std::array<char, kMountPathSize> computer{};
    if (getComputerName(computer.data(), static_cast<int>(computer.size())) == -1) {
        FD_LOG_ERROR("get host name failure!");
        return false;
    }
    const auto map = std::make_shared<FdMapInfo>(mapid, m_context);
    if (!map->handlePlugInfo(info)) {
        FD_LOG_ERROR("map handle plugin failure!");
        return false;
    }
    if (!map->setCompName(computer.data())) {
        FD_LOG_ERROR("set computer name failure!");
        return false;
    }
    FD_LOG_INFO("add an map info success");
    m_context->addMapInfo(map);
    if (sendPlugInfo(map.get())) return true;
    FD_LOG_ERROR("send mount plug info failure! ");
    m_context->getMapInfoById(mapid);
    return false;
}

bool MapCtrlThread::handleUnplugInfo(const MountInfo& info) {
    FD_LOG_INFO("unplug map. type: %d, path: %s", info.type, info.path);
    const FdMapInfoPtr map = m_context->findMapInfoByMountPath(info.path);
    if (map == nullptr) {
        FD_LOG_ERROR("unplugin an not exist map !  path: %s", info.path);
        return false;
    }
    const int mapid = map->getMapId();
    if (map->getStatu() == kMapPlugged) {
        FD_LOG_WARN("unplugin an not response map! mapid: %d, path: %s", mapid, info.path);
        return false;
    }
    FD_LOG_INFO("unplugin an map! mapid: %d, path: %s", mapid, info.path);
    const auto sender = m_context->sendThread();
    if (sender == nullptr || !sender->sendCmdItem(mapid, FD_TYPE_MAP_CTRL, FD_MAP_CTRL_UNPLUG, 0)) {
        FD_LOG_WARN("send unplugin message failure. send it latter please");
        return false;
    }
    return true;
}
