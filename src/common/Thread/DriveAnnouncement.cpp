// What the drive monitor tells the server: a new drive, its names, its end, and where the user's
// profile is. Each builds one message and sends it; no reply is waited for. Control thread.
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Map/MapManager.h"
#include "common/Thread/ControlThread.h"
#include "common/Thread/DriveMessage.h"
#include "linux/comm/Opreator/Info.h"

namespace {

constexpr unsigned kDriveAddedEvent = 0x500E0004;
constexpr unsigned kMapDeletedEvent = 0x500E0005;

// What the server shows as the drive's size and kind. A query that fails leaves its fields zero:
// the drive is announced all the same.
std::optional<SHFLVOLINFO> queryVolume(const MapFolder& map) {
    char path[2048] = {};
    if (const int err = memcpy_s(path, sizeof path, map.m_clientFolder, map.m_clientFolder_size);
        err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return {};
    }

    long long total = 0;
    long long available = 0;
    unsigned bytesPerUnit = 0;
    unsigned bytesPerSector = 0;
    unsigned serial = 0;
    RTFSPROPERTIES properties{};
    SHFLFSPROPERTIES wireProperties{};
    RTFsQuerySizes(path, &total, &available, &bytesPerUnit, &bytesPerSector);
    RTFsQuerySerial(path, &serial);
    RTFsQueryProperties(path, &properties);
    fileSysInfoFromRtfs(&wireProperties, &properties);

    FD_LOG_INFO("Four-byte problem, sizeof struct SHFLVOLINFO : %u",
                static_cast<unsigned>(sizeof(SHFLVOLINFO)));
    return SHFLVOLINFO{total, available, bytesPerUnit, bytesPerSector, serial, wireProperties};
}

std::string diskText(const SHFLVOLINFO& volume) {
    return "Disk serial number:" + std::to_string(volume.ulSerial) +
           " Total disk space:" + std::to_string(volume.ullTotalAllocationBytes) +
           " free disk space:" + std::to_string(volume.ullAvailableAllocationBytes);
}

}  // namespace

// Kept: a failure behind addMapInfo leaves the map in the registry, unannounced for as long as it
// stays there. Each later pass meets it at the first test.
MapFolderPtr ControlThread::addDrive(const MapDriverNode& node) {
    const int pathSize = static_cast<int>(std::strlen(node.m_pre_path)) + 1;
    if (const auto known = m_mapmanager->getMapInfoByClientPath(node.m_pre_path, pathSize)) {
        FD_LOG_ERROR("add a exist drive. clientFolder:%s, mapId:%d", known->m_clientFolder,
                     known->m_nMapIndex);
        return nullptr;
    }
    MapFolderPtr pMap = m_mapmanager->addMapInfo(node.m_pre_path, pathSize, node.m_type);
    if (pMap == nullptr) {
        FD_LOG_ERROR("add drive error. pMap == NULL");
        return nullptr;
    }

    const std::optional<SHFLVOLINFO> volume =
        node.m_type == kPrinterMap ? SHFLVOLINFO{} : queryVolume(*pMap);
    if (!volume) return nullptr;
    std::optional<DriveMessage> message = DriveMessage::addDrive(*pMap, *volume);
    if (!message) return nullptr;

    m_mapmanager->reportMetric(ZMETRICS_CLIENT_FDREDIR_DISKINFO, diskText(*volume));
    if (!m_mapmanager->sendData(message->data(), message->size())) return nullptr;

    FD_LOG_INFO("0x%x:  add driver.", kDriveAddedEvent);
    return pMap;
}

bool ControlThread::sendDriveName(const MapFolder* pMap) {
    if (pMap == nullptr) {
        FD_LOG_ERROR("pMap == NULL");
        return false;
    }
    std::optional<DriveMessage> message = DriveMessage::driveName(*pMap);
    if (!message) return false;

    FD_LOG_INFO("mapId: %d, msgSize: %d", pMap->m_nMapIndex, message->size());
    FD_LOG_INFO("rootFlag: %d, mapType: %d", pMap->m_rootFlag, pMap->m_mapType);
    FD_LOG_INFO("length: %d, compName: %s", pMap->m_utf8_computerName_size,
                pMap->m_utf8_computerName);
    FD_LOG_INFO("length: %d, fileName: %s", pMap->m_utf8_shareFileName_size,
                pMap->m_utf8_shareFileName);
    if (!m_mapmanager->sendData(message->data(), message->size())) {
        FD_LOG_ERROR("msgSize: %d", message->size());
        return false;
    }

    FD_LOG_INFO("0x%x:  add driver.", kDriveAddedEvent);
    return true;
}

bool ControlThread::deleteDrive(int mapId) {
    MapFolderPtr pMap = m_mapmanager->deleteMapInfoByMapIndex(mapId);
    if (pMap == nullptr) {
        FD_LOG_ERROR("delete a not exist drive. mapId:%d", mapId);
        return false;
    }
    FD_LOG_INFO("Send umMap. path:%s, mapId:%d ", pMap->m_utf8_mapName, pMap->m_nMapIndex);

    std::optional<DriveMessage> message = DriveMessage::deleteDrive(*pMap);
    if (!message) return false;
    FD_LOG_INFO("mapId: %d", pMap->m_nMapIndex);
    FD_LOG_INFO("m_utf8_mapName_size:%d", pMap->m_utf8_mapName_size);
    FD_LOG_INFO("m_utf8_mapName: %s", pMap->m_utf8_mapName);

    const bool rcFlag = m_mapmanager->sendData(message->data(), message->size());
    FD_LOG_INFO("0x%x:  map delete.  rcFlag: %d", kMapDeletedEvent, rcFlag);
    m_deleteMapList.push_back(std::move(pMap));
    m_clearCount = 0;
    return rcFlag;
}

bool ControlThread::SendUserProfilePath() {
    char path[260] = {};
    GetUserProfilePath(path, sizeof path);
    FD_LOG_INFO("UserProfile path = %s", path);

    const std::string root = path[0] == '/' ? "/." : std::string(path).substr(0, 3);
    const MapFolderPtr pMap =
        m_mapmanager->getMapInfoByClientPath(root.c_str(), static_cast<int>(root.size()) + 1);
    if (pMap == nullptr) {
        FD_LOG_WARN("profile dir not map!");
        return false;
    }

    std::optional<DriveMessage> message = DriveMessage::userProfile(*pMap, path);
    if (!message) return false;
    if (!m_mapmanager->sendData(message->data(), message->size())) return false;

    FD_LOG_INFO("SendUserProfilePath succeed!");
    return true;
}
