// Writes to open files, one pwrite straight from the request, and flushes. Processing thread only.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "common/Comm/FdLog.h"
#include "common/Comm/HandleManage.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapFolder.h"
#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

constexpr int kWriteDataAt = 32;

constexpr std::uint32_t kMaxWriteCount = MAX_CMD_BUFFER - kWriteDataAt;

struct WriteRequest {
    unsigned long long hFile;
    unsigned long long offset;
    unsigned long length;
};

// Writes what the buffer holds of `data` and stores the bytes that went out in `*cbWrite`.
int writeFile(const _ZRSFHANDLE& handle, const WriteRequest& request, const char* data,
              std::uint32_t* cbWrite) {
    const int fd = static_cast<int>(handle.dir.Handle);
    const auto count = std::min<unsigned long>(request.length, kMaxWriteCount);
    const ssize_t written = pwrite(fd, data, count, static_cast<off_t>(request.offset));
    if (written < 0) {
        const int err = errno;
        const int rc = RTErrConvertFromLinux(static_cast<unsigned>(err));
        FD_LOG_WARN(
            "pwrite error!!!   path: %s, hFile: %llu, offset: %llu, length: %lu, rc: %d, cbWrite: %d, errno: %d",
            handle.name, request.hFile, request.offset, request.length, rc,
            static_cast<int>(written), err);
        return rc;
    }

    const auto end = request.offset + static_cast<unsigned long long>(written);
    if (lseek(fd, static_cast<off_t>(end), SEEK_SET) < 0) {
        const int err = errno;
        FD_LOG_WARN(
            "lseek error!!!   path: %s, hFile: %llu, offset: %llu, length: %lu, rc: %d, cbWrite: %d, errno: %d",
            handle.name, request.hFile, request.offset, request.length, VINF_SUCCESS,
            static_cast<int>(written), err);
    }
    *cbWrite = static_cast<std::uint32_t>(written);
    return VINF_SUCCESS;
}

// A printer port has nothing to flush.
int skipFlush(const _ZRSFHANDLE& handle, unsigned long long hFile) {
    FD_LOG_WARN("FlushFileBuffers is not need for lpt port.  path: %s, hFile: %d, rc: %d",
                handle.name, static_cast<int>(hFile), VINF_SUCCESS);
    return VINF_SUCCESS;
}

int flushFile(const _ZRSFHANDLE& handle, unsigned long long hFile) {
    int rc = VINF_SUCCESS;
    if (fsync(static_cast<int>(handle.dir.Handle)) != 0) {
        const int err = errno;
        rc = RTErrConvertFromLinux(static_cast<unsigned>(err));
        FD_LOG_WARN("fsync error. errno: %d, rc: %d", err, rc);
    }
    FD_LOG_INFO("flush end!!!   path: %s, hFile: %d, rc: %d", handle.name, static_cast<int>(hFile),
                rc);
    return rc;
}

}  // namespace

void ZrsfWrite(char*& buffer, int /*size*/, int* resultSize, MapFolder* map) {
    if (buffer == nullptr) {  // no message that the handle could be copied out of
        FD_LOG_WARN("memcpy_s failed");
        return;
    }
    const WriteRequest request = {loadLe<unsigned long long>(buffer + kHandleAt),
                                  loadLe<unsigned long long>(buffer + kOffsetAt),
                                  loadLe<std::uint32_t>(buffer + kLengthAt)};
    const _ZRSFHANDLE* handle =
        map->m_handleManage->GetHandleData(static_cast<long long>(request.hFile));

    if (handle == nullptr || handle->type == HANDLE_TYPE_DIR) {
        FD_LOG_WARN(
            "invalid parameter!!!   hFile: %llu, offset: %llu, length: %lu, pzrsfHandle: %p",
            request.hFile, request.offset, request.length, static_cast<const void*>(handle));
        return putStatus(buffer, VERR_INVALID_PARAMETER, resultSize);
    }
    if (map->m_bWritable == 0) {
        FD_LOG_WARN("write protect!!!   path: %s, hFile: %llu, offset: %llu, length: %lu",
                    handle->name, request.hFile, request.offset, request.length);
        return putStatus(buffer, VERR_WRITE_PROTECT, resultSize);
    }

    std::uint32_t cbWrite = 0;
    const int rc = writeFile(*handle, request, buffer + kWriteDataAt, &cbWrite);

    putStatus(buffer, rc, resultSize);
    storeLe<std::uint32_t>(buffer + kCbBufferAt, cbWrite);
}

void ZrsfFlush(char*& buffer, int /*size*/, int* resultSize, MapFolder* map) {
    const auto hFile = loadLe<unsigned long long>(buffer + kHandleAt);
    const _ZRSFHANDLE* handle = map->m_handleManage->GetHandleData(static_cast<long long>(hFile));

    if (handle == nullptr) {
        FD_LOG_WARN("flush invalid parameter!!!   hFile: %llu, pzrsfHandle: %p", hFile,
                    static_cast<const void*>(handle));
        return putStatus(buffer, VERR_INVALID_PARAMETER, resultSize);
    }

    const int rc =
        map->m_mapType == kPrinterMap ? skipFlush(*handle, hFile) : flushFile(*handle, hFile);

    putStatus(buffer, rc, resultSize);
}
