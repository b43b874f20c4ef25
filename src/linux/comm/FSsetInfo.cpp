// Changes of the times, the mode and the size of open objects, answered with the information as it
// stands afterwards. Processing thread only.
#include <cstdint>
#include <cstring>

#include "common/Comm/FdLog.h"
#include "common/Comm/HandleManage.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapFolder.h"
#include "common/Policy/FdClientPolicy.h"
#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/FileOperate.h"
#include "linux/comm/Opreator/Info.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

constexpr int kInfoLengthAt = 20;
constexpr int kInfoAt = 24;
constexpr int kNewSizeAt = 24;

constexpr std::int64_t kMegabyte = 1'048'576;

// A failure carries no information.
void putReply(char* buffer, int rc, const RTFSOBJINFO& info, int* resultSize) {
    if (rc < 0) return putStatus(buffer, rc, resultSize, kDataReplyExtra);
    putObjectInfo(buffer, info, resultSize);
}

int cbBufferFor(int rc) {
    return rc < 0 ? 0 : static_cast<int>(sizeof(SHFLFSOBJINFO));
}

bool isSizeAllowed(const FdClientPolicy& policy, std::int64_t newSize) {
    if (!policy.isSupportLinuxSetFileSize()) return false;
    const std::int64_t bound = policy.getLinuxSetFileBoundSize();
    return bound == 0 || newSize <= bound * kMegabyte;
}

int setSize(unsigned long long hFile, std::int64_t newSize, RTFSOBJINFO* info) {
    const int rc =
        RTFileSetSize(static_cast<long long>(hFile), static_cast<unsigned long long>(newSize));
    if (rc != VINF_SUCCESS) return rc;

    const int queryRc = RTFileQueryInfo(hFile, info, RTFSOBJATTRADD_NOTHING);
    if (queryRc != VINF_SUCCESS) FD_LOG_WARN("set size right. but can't get file info. ");
    return queryRc;
}

}  // namespace

void ZrsfSetFileInfo(char*& buffer, int /*size*/, int* resultSize, MapFolder* map) {
    const auto hFile = loadLe<unsigned long long>(buffer + kHandleAt);
    const auto length = loadLe<std::uint32_t>(buffer + kInfoLengthAt);
    SHFLFSOBJINFO wanted = {};
    std::memcpy(&wanted, buffer + kInfoAt, sizeof wanted);
    const auto key = static_cast<long long>(hFile);
    const _ZRSFHANDLE* handle = map->m_handleManage->GetHandleData(key);

    if (length < sizeof wanted || key == SHFL_HANDLE_NIL || handle == nullptr) {
        FD_LOG_WARN("setFileInfo invalid parameter!!!  hFile: %llu, length: %lu, pzrsfHandle: %p",
                    hFile, static_cast<unsigned long>(length), static_cast<const void*>(handle));
        return putStatus(buffer, VERR_INVALID_PARAMETER, resultSize, kDataReplyExtra);
    }
    if (map->m_bWritable == 0) {
        FD_LOG_WARN("setFileInfo write protect!!!  path: %s, hFile: %llu, length: %lu",
                    handle->name, hFile, static_cast<unsigned long>(length));
        return putStatus(buffer, VERR_WRITE_PROTECT, resultSize, kDataReplyExtra);
    }

    RTFSOBJINFO info = {};
    int rc = RTSetFileInfo(key, length, &wanted, handle->type);
    if (rc >= 0) rc = RTFileQueryInfo(hFile, &info, RTFSOBJATTRADD_NOTHING);

    putReply(buffer, rc, info, resultSize);
    FD_LOG_INFO("setFileInfo end!!!   path: %s, hFile: %llu, length: %lu, rc: %d, cb->cbBuffer: %d",
                handle->name, hFile, static_cast<unsigned long>(length), rc, cbBufferFor(rc));
}

void ZrsfSetEndOfFile(char*& buffer, int /*size*/, int* resultSize, MapFolder* map) {
    const auto hFile = loadLe<unsigned long long>(buffer + kHandleAt);
    const auto length = static_cast<unsigned long>(loadLe<std::uint32_t>(buffer + kInfoLengthAt));
    const auto newSize = loadLe<std::int64_t>(buffer + kNewSizeAt);
    const auto logSize = static_cast<unsigned>(newSize);  // the texts have room for 32 bits
    const _ZRSFHANDLE* handle = map->m_handleManage->GetHandleData(static_cast<long long>(hFile));

    if (handle == nullptr) {
        FD_LOG_WARN("setEndOfFile invalid parameter!!!   hFile: %llu, length: %lu, pzrsfHandle: %p",
                    hFile, length, static_cast<const void*>(handle));
        return putStatus(buffer, VERR_INVALID_PARAMETER, resultSize, kDataReplyExtra);
    }
    if (map->m_bWritable == 0) {
        FD_LOG_WARN("write protect!!!  path: %s, hFile: %llu, length: %lu", handle->name, hFile,
                    length);
        return putStatus(buffer, VERR_WRITE_PROTECT, resultSize, kDataReplyExtra);
    }
    if (!isSizeAllowed(*map->m_policy, newSize)) {
        FD_LOG_WARN(
            "linux is not support set file size!!!  path: %s, hFile: %llu, length: %lu, setSize: 0x%x",
            handle->name, hFile, length, logSize);
        return putStatus(buffer, VERR_NOT_SUPPORTED, resultSize, kDataReplyExtra);
    }

    RTFSOBJINFO info = {};
    const int rc = setSize(hFile, newSize, &info);

    putReply(buffer, rc, info, resultSize);
    FD_LOG_INFO(
        "setEndOfFile end!!!   path: %s, hFile: %llu, length: %lu, setSize: 0x%x, rc: %d, res->cbBuffer: %d",
        handle->name, hFile, length, logSize, rc, cbBufferFor(rc));
}
