// The dispatcher of the Windows dialect and the way back to the channel. HandleCmd and all that
// hangs from it run on the processing thread; sendData and reportMetric on the control thread.
#include "common/Map/MapManager.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Comm/HandleManage.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Policy/FdClientPolicy.h"
#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {
constexpr int kMaxResultSize = MAX_CMD_BUFFER - kHeaderSize;
constexpr int kCompressType = 5;

// The reply for an unknown map. Kept: one byte short of the form, so the third byte behind the zero
// word is the last, and all three are the request's.
constexpr int kUnknownMapSize = 11;

// Map queries.
constexpr int kQueryMapIdAt = 12;
constexpr int kMapCountAt = 12;
constexpr int kNameSizeAt = 12;
constexpr int kNameAt = 14;
constexpr int kFoundMapIdAt = 16;
constexpr int kWordSize = 4;
constexpr int kNameSizeSize = 2;
constexpr int kFolderReplySize = 8;

// Notices.
constexpr int kVmNameAt = 12;
constexpr int kUnMapRcAt = 12;
constexpr int kDriveNameSizeAt = 12;
constexpr int kDriveNameAt = 16;
constexpr std::size_t kMaxDriveName = 2048;

void putResultHead(char* buffer, int size, int seq) {
    storeLe<std::uint16_t>(buffer + kTypeAt, FD_CMD_RESULT);
    storeLe<std::uint8_t>(buffer + kSeqAt, static_cast<std::uint8_t>(seq));
    storeLe<std::uint32_t>(buffer + kParamAt, 0);
    storeLe<std::uint32_t>(buffer + kSizeAt, static_cast<std::uint32_t>(size));
}

// As "%s" would print a name of `size` bytes in the work buffer.
std::string printable(const char* name, std::size_t size) {
    return {name, strnlen(name, size)};
}
}  // namespace

MapManager::MapManager(FdClientPolicy* policy, const ZListener& listener)
    : m_policy(policy), m_listener(listener) {
    m_fsHandlers[FD_CMD_CREATE] = ZrsfCreate;
    m_fsHandlers[FD_CMD_CLOSE] = ZrsfClose;
    m_fsHandlers[FD_CMD_READ] = ZrsfRead;
    m_fsHandlers[FD_CMD_WRITE] = ZrsfWrite;
    m_fsHandlers[FD_CMD_FLUSH] = ZrsfFlush;
    m_fsHandlers[FD_CMD_DIR_LIST] = ZrsfDirList;
    m_fsHandlers[FD_CMD_QUERY_FILE_INFO] = ZrsfQueryFileInfo;
    m_fsHandlers[FD_CMD_SET_FILE_INFO] = ZrsfSetFileInfo;
    m_fsHandlers[FD_CMD_QUERY_VOLUME_INFO] = ZrsfQueryVolumeInfo;
    m_fsHandlers[FD_CMD_SET_END_OF_FILE] = ZrsfSetEndOfFile;
    m_fsHandlers[FD_CMD_RENAME] = ZrsfRename;
    m_fsHandlers[FD_CMD_REMOVE] = ZrsfRemove;
    m_fsHandlers[FD_CMD_LOCKS] = ZrsfLocks;

    // Kept: once, before any policy message. Later values do not reach the compressor.
    m_compress.setMinCompressSize(policy->getCompressBoundSize());
    m_compress.setMinThreshold(policy->getCompressThreshold());
}

MapManager::~MapManager() {
    const std::list<MapFolderPtr> maps = takeMaps();  // their handles are closed outside the lock
    FD_LOG_INFO("~MapManager() m_mapList: %d", static_cast<int>(maps.size()));
}

void MapManager::initNet(ChannelWriteFn write, MetricReportFn metric) {
    m_channelWrite = std::move(write);
    m_metricReport = std::move(metric);
}

void MapManager::setOnLinuxDesktop(std::function<void()> onLinuxDesktop) {
    m_onLinuxDesktop = std::move(onLinuxDesktop);
}

void MapManager::HandleCmd(char* pbuffer, int size) {
    const auto seq = loadLe<std::uint8_t>(pbuffer + kSeqAt);  // now, a handler may write over it
    int resultSize = 0;

    dispatch(pbuffer, size, &resultSize);
    resultSize = std::clamp(resultSize, 0, kMaxResultSize);
    m_dirtyBytes = std::max(size, kHeaderSize + resultSize);
    if (resultSize < 1) return;

    if (m_policy->isSupportCompress() && sendCompressData(pbuffer, resultSize, seq)) return;
    SendResult(pbuffer, resultSize, seq);
}

void MapManager::dispatch(char* pbuffer, int size, int* resultSize) {
    const auto code = loadLe<std::uint16_t>(pbuffer + kTypeAt);
    if (code <= FD_CMD_LOCKS) return HandleFSCmd(pbuffer, size, resultSize);

    switch (code) {
        case FD_CMD_GET_MAP_NUM:
            return HandleGetMapNum(pbuffer, resultSize);
        case FD_CMD_GET_MAP_NAME:
            return HandleGetMapName(pbuffer, resultSize);
        case FD_CMD_GET_MAP_FOLDER:
            return HandleGetMapFolder(pbuffer, resultSize);
        case FD_CMD_GET_UNMAP_FOLDER:
            return HandleGetUnMapFolder(pbuffer, resultSize);
        case FD_CMD_MAP_RSP:
            return HandleMapRsp(pbuffer);
        case FD_CMD_UNMAP_RSP:
            return HandleUnMapRsp(pbuffer);
        case FD_CMD_EJECT_USB:
            return HandleEjectUsb(pbuffer);
        case FD_CMD_EJECT_CDROM:
            return HandleEjectCDRom(pbuffer);
        case FD_CMD_POLICY:
            return HandlePolicy(pbuffer, size);
        default:  // 519 and 520 are reserved; nothing else comes from a server that we know
            return;
    }
}

void MapManager::HandleFSCmd(char* pbuffer, int size, int* resultSize) {
    const auto code = loadLe<std::uint16_t>(pbuffer + kTypeAt);
    const int mapId = loadLe<std::uint8_t>(pbuffer + kMapIdAt);
    const MapFolderPtr map = getMapInfoByID(mapId);  // held: the control thread may unlist it

    if (code < m_fsHandlers.size() && map != nullptr && nextMapId() > mapId) {
        // Kept: an empty slot is called as well, and std::bad_function_call ends the process.
        return m_fsHandlers[code](pbuffer, size, resultSize, map.get());
    }
    if (map == nullptr) {
        FD_LOG_WARN("mapfolder is null. pcmdhead->mapId : %d", mapId);
        return putStatus(pbuffer, VERR_INVALID_PARAMETER, resultSize, kUnknownMapSize);
    }
    FD_LOG_ERROR("Unsupported cmd = %d Or error map_id = %d", code, mapId);
}

void MapManager::HandleGetMapNum(char* pbuffer, int* resultSize) {
    storeLe<std::uint32_t>(pbuffer + kSizeAt, kWordSize);
    storeLe<std::int32_t>(pbuffer + kMapCountAt, getMapNum());
    *resultSize = kWordSize;
}

void MapManager::HandleGetMapName(char* pbuffer, int* resultSize) {
    const auto id = static_cast<int>(loadLe<std::uint32_t>(pbuffer + kQueryMapIdAt));
    const MapFolderPtr map = getMapInfoByID(id);

    const std::uint16_t nameSize = map == nullptr ? 0 : map->m_utf16_mapName_size;
    if (map != nullptr) {
        const int err =
            memcpy_s(pbuffer + kNameAt, MAX_CMD_BUFFER - kNameAt, map->m_utf16_mapName, nameSize);
        if (err != 0) {
            FD_LOG_ERROR("memcpy_s failed, err = %d", err);
            return;
        }
    }

    storeLe(pbuffer + kNameSizeAt, nameSize);
    *resultSize = nameSize + kNameSizeSize;
}

void MapManager::HandleGetMapFolder(char* pbuffer, int* resultSize) {
    const auto nameSize = loadLe<std::uint16_t>(pbuffer + kNameSizeAt);
    const MapFolderPtr map = getMapInfoByShareNameUtf16(pbuffer + kNameAt, nameSize);

    int status = VINF_SUCCESS;
    int mapId = 0;
    if (map != nullptr) {
        mapId = map->m_nMapIndex;
    } else {
        status = VERR_FILE_NOT_FOUND;
        mapId = nextMapId();
        FD_LOG_ERROR("VERR_FILE_NOT_FOUND, [findMapId: %d], [m_mapNum: %d] [sc2_name: %s]", 0,
                     mapId, printable(pbuffer + kNameAt, nameSize).c_str());
    }

    storeLe<std::int32_t>(pbuffer + kStatusAt, status);
    storeLe<std::int32_t>(pbuffer + kFoundMapIdAt, mapId);
    *resultSize = kFolderReplySize;
}

void MapManager::HandleGetUnMapFolder(char* pbuffer, int* resultSize) {
    storeLe<std::uint32_t>(pbuffer + kSizeAt, kWordSize);
    storeLe<std::uint32_t>(pbuffer + kMapCountAt, 0);
    *resultSize = kWordSize;

    for (const MapFolderPtr& map : listedMaps()) {
        FD_LOG_INFO("mapId: %d, mapName: %s", map->m_nMapIndex, map->m_utf8_mapName);
        map->m_handleManage->printAll();
    }
}

void MapManager::HandleMapRsp(char* pbuffer) {
    const auto vmName = loadLe<std::int8_t>(pbuffer + kVmNameAt);
    const MapFolderPtr map = getMapInfoByID(loadLe<std::uint8_t>(pbuffer + kMapIdAt));

    if (map == nullptr) {
        FD_LOG_WARN("can not find the map. ");
        return;
    }
    FD_LOG_INFO("clientPath: %s", map->m_clientFolder);
    if (vmName < 'A') FD_LOG_WARN("vmName < 'A'' , vmName: %d", vmName);
    map->m_vmName = vmName;
}

void MapManager::HandleUnMapRsp(char* pbuffer) {
    const int mapId = loadLe<std::uint8_t>(pbuffer + kMapIdAt);
    const int rc = loadLe<std::int8_t>(pbuffer + kUnMapRcAt);
    const MapFolderPtr map = getMapInfoByID(mapId);

    FD_LOG_INFO("mapId: %d, rc: %d", mapId, rc);
    if (map == nullptr) FD_LOG_ERROR("HandleUmMapRsp Error.  can't get the map");
}

void MapManager::HandleEjectUsb(char* pbuffer) {
    FD_LOG_INFO("Handle Eject Usb. pbuffer: %p", static_cast<const void*>(pbuffer));
}

void MapManager::HandleEjectCDRom(char* pbuffer) {
    const auto nameSize = loadLe<std::int32_t>(pbuffer + kDriveNameSizeAt);
    char driveName[kMaxDriveName + 1] = {};  // the terminator has its place behind the longest name

    // A negative size is a huge count here, which the copy refuses like any that is too large.
    const int err = memcpy_s(driveName, kMaxDriveName, pbuffer + kDriveNameAt,
                             static_cast<std::size_t>(nameSize));
    if (err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return;
    }
    FD_LOG_INFO("driveName: %s", driveName);
    FD_LOG_INFO("Try Eject CDRom In Linux. TODO ********");
}

// Kept: without the send lock, so the three writes may have a message of the control thread between
// them; and with compression on, the body is empty, since the compressor produces no data.
bool MapManager::sendCompressData(char* pbuffer, int size, int seq) {
    char* out = nullptr;
    int outSize = 0;
    if (!m_compress.compressData(pbuffer + kHeaderSize, size, kCompressType, out, outSize)) {
        return false;
    }

    char head[kHeaderSize] = {};
    storeLe<std::uint16_t>(head + kTypeAt, FD_CMD_COMPRESSED);
    storeLe<std::uint8_t>(head + kSeqAt, static_cast<std::uint8_t>(seq));
    storeLe<std::uint32_t>(head + kParamAt, kCompressType);
    storeLe<std::int32_t>(head + kSizeAt, outSize + kHeaderSize);
    putResultHead(pbuffer, size, seq);

    m_channelWrite(head, kHeaderSize);
    m_channelWrite(pbuffer, kHeaderSize);
    if (m_channelWrite(out, outSize) < 0) {
        FD_LOG_WARN("send compress data error. compressDataSize: %d", outSize);
        return false;
    }
    return true;
}

void MapManager::SendResult(char* pbuffer, int size, int seq) {
    putResultHead(pbuffer, size, seq);
    if (const int ret = writeWhole(pbuffer, size + kHeaderSize); ret < 0) {
        FD_LOG_ERROR("write info error.   ret: %d", ret);
    }
}

bool MapManager::sendData(char* data, int size) {
    FD_LOG_DEBUG("sendData. size: %d", size);
    const int ret = writeWhole(data, size);
    if (ret < 0) FD_LOG_ERROR("Write failed.  ret: %d", ret);
    return ret >= 0;
}

int MapManager::writeWhole(char* data, int size) {
    const ZMutexLocker lock(m_sendMutex);
    return m_channelWrite(data, size);
}

void MapManager::reportMetric(int code, const std::string& text) {
    std::string copy = text;
    m_metricReport(code, copy.data(), static_cast<unsigned>(copy.size() + 1));
}

int MapManager::nextMapId() {
    const ZMutexLocker lock(m_mapListMutex);
    return m_mapNum;
}

std::list<MapFolderPtr> MapManager::listedMaps() {
    const ZMutexLocker lock(m_mapListMutex);
    return m_mapList;
}

std::list<MapFolderPtr> MapManager::takeMaps() {
    const ZMutexLocker lock(m_mapListMutex);
    return std::exchange(m_mapList, {});
}
