// Queries of open objects and of the volume behind a map. Processing thread only.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Comm/HandleManage.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapFolder.h"
#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/Info.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

constexpr std::size_t kVolumePathSize = 522;
constexpr std::size_t kAdditionalAt =
    offsetof(SHFLFSOBJINFO, Attr) + offsetof(RTFSOBJATTR, enmAdditional);

// Kept: Attr.u carries what the buffer holds.
void putPrinterInfo(char* buffer, int* resultSize) {
    putStatus(buffer, VINF_SUCCESS, resultSize, sizeof(SHFLFSOBJINFO) + kDataReplyExtra);
    storeLe<std::uint32_t>(buffer + kCbBufferAt, sizeof(SHFLFSOBJINFO));
    std::memset(buffer + kReplyDataAt, 0, kAdditionalAt);
    storeLe<std::int32_t>(buffer + kReplyDataAt + kAdditionalAt, RTFSOBJATTRADD_NOTHING);
}

struct VolumeSizes {
    long long total, available;
    unsigned int bytesPerUnit, bytesPerSector;
};

VolumeSizes querySizes(const char* path) {
    VolumeSizes sizes = {};
    const int rc = RTFsQuerySizes(path, &sizes.total, &sizes.available, &sizes.bytesPerUnit,
                                  &sizes.bytesPerSector);
    if (rc != VINF_SUCCESS) {
        FD_LOG_WARN("QuerySizes  error!!! path: %s, rc: %d", path, rc);
        FD_LOG_WARN(
            "ullTotalAllocationBytes: %llu, ullAvailableAllocationBytes: %llu, ulBytesPerAllocationUnit: %lu, ulBytesPerSector: %lu",
            static_cast<unsigned long long>(sizes.total),
            static_cast<unsigned long long>(sizes.available),
            static_cast<unsigned long>(sizes.bytesPerUnit),
            static_cast<unsigned long>(sizes.bytesPerSector));
    }
    return sizes;
}

unsigned int querySerial(const char* path) {
    unsigned int serial = 0;
    const int rc = RTFsQuerySerial(path, &serial);
    if (rc != VINF_SUCCESS) {
        FD_LOG_WARN("QuerySerical error. path: %s, rc: %d", path, rc);
        FD_LOG_WARN("ulSerial: %lu", static_cast<unsigned long>(serial));
    }
    return serial;
}

int queryProperties(const char* path, RTFSPROPERTIES* found) {
    const int rc = RTFsQueryProperties(path, found);
    if (rc != VINF_SUCCESS) {
        FD_LOG_WARN("QueryProperties error. path: %s, rc: %d", path, rc);
        FD_LOG_WARN(
            "cbMaxComponent: %lu, fRemote: 0x%x, fCaseSensitive: 0x%x, fReadOnly: 0x%x, fSupportsUnicode: 0x%x, fCompressed: 0x%x, fFileCompression: 0x%x",
            static_cast<unsigned long>(found->cbMaxComponent), unsigned{found->fRemote},
            unsigned{found->fCaseSensitive}, unsigned{found->fReadOnly},
            unsigned{found->fSupportsUnicode}, unsigned{found->fCompressed},
            unsigned{found->fFileCompression});
    }
    return rc;
}

// Fills the record, whose fields stay 0 where a query failed, and gives the status of the last
// query. Kept: the earlier two are only logged.
int queryVolume(const char* path, SHFLVOLINFO* volume) {
    const VolumeSizes sizes = querySizes(path);
    volume->ullTotalAllocationBytes = sizes.total;
    volume->ullAvailableAllocationBytes = sizes.available;
    volume->ulBytesPerAllocationUnit = sizes.bytesPerUnit;
    volume->ulBytesPerSector = sizes.bytesPerSector;
    volume->ulSerial = querySerial(path);

    RTFSPROPERTIES properties = {};
    const int rc = queryProperties(path, &properties);
    fileSysInfoFromRtfs(&volume->fsProperties, &properties);
    return rc;
}

}  // namespace

void ZrsfQueryFileInfo(char*& buffer, int /*size*/, int* resultSize, MapFolder* map) {
    const auto hFile = loadLe<unsigned long long>(buffer + kHandleAt);
    const _ZRSFHANDLE* handle = map->m_handleManage->GetHandleData(static_cast<long long>(hFile));

    if (handle == nullptr) {
        FD_LOG_WARN("QueryFileInfo. hFile: %llu, pzrsfHandle: %p", hFile,
                    static_cast<const void*>(handle));
        return putStatus(buffer, VERR_INVALID_PARAMETER, resultSize, kDataReplyExtra);
    }
    if (map->m_mapType == kPrinterMap) return putPrinterInfo(buffer, resultSize);

    RTFSOBJINFO info = {};
    const int rc = RTFileQueryInfo(hFile, &info, RTFSOBJATTRADD_NOTHING);
    if (rc != VINF_SUCCESS) {
        FD_LOG_WARN("QueryFileInfo failure!!!   path: %s, hFile: %llu, rc: %d", handle->name, hFile,
                    rc);
        return putStatus(buffer, rc, resultSize, kDataReplyExtra);
    }

    putObjectInfo(buffer, info, resultSize);
}

void ZrsfQueryVolumeInfo(char*& buffer, int /*size*/, int* resultSize, MapFolder* map) {
    const auto hFile = loadLe<unsigned long long>(buffer + kHandleAt);
    const _ZRSFHANDLE* handle = map->m_handleManage->GetHandleData(static_cast<long long>(hFile));

    if (handle == nullptr) {
        FD_LOG_WARN("QueryVolumeInfo. hFile: %llu, pzrsfHandle: %p", hFile,
                    static_cast<const void*>(handle));
        return putStatus(buffer, VERR_INVALID_PARAMETER, resultSize, kDataReplyExtra);
    }
    char path[kVolumePathSize] = {};
    const std::size_t pathSize = strnlen(map->m_clientFolder, sizeof map->m_clientFolder) + 1;
    if (const int err = memcpy_s(path, sizeof path, map->m_clientFolder, pathSize); err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return;
    }

    SHFLVOLINFO volume = {};
    const int rc = queryVolume(path, &volume);

    putStatus(buffer, rc, resultSize, sizeof volume + kDataReplyExtra);
    storeLe<std::uint32_t>(buffer + kCbBufferAt, sizeof volume);
    std::memcpy(buffer + kReplyDataAt, &volume, sizeof volume);
}
