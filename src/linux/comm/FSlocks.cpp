// Byte-range locks: the server is told success whatever happens. Processing thread only.
#include <cstdint>

#include "common/Comm/FdLog.h"
#include "common/Comm/HandleManage.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapFolder.h"
#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/FileOperate.h"
#include "linux/comm/Opreator/LockFlags.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

constexpr int kLocksOffsetAt = 20;
constexpr int kLocksLengthAt = 28;
constexpr int kLocksFlagAt = 36;

struct LockRequest {
    unsigned long long hFile;
    unsigned long long offset;
    unsigned long long length;
    unsigned int flags;
};

// A lock never waits: one thread serves all requests.
unsigned int withoutWait(unsigned int flags) {
    if ((flags & SHFL_LOCK_WAIT) == 0) return flags;
    FD_LOG_WARN("SHFL_LOCK_WAIT is set. Clear this flag, locks_flag & SHFL_LOCK_WAIT: 0x%x",
                flags & SHFL_LOCK_WAIT);
    return flags & ~unsigned{SHFL_LOCK_WAIT};
}

int lockOrUnlock(const LockRequest& request) {
    const unsigned int flags = request.flags;
    if ((flags & SHFL_LOCK_MODE_MASK) == SHFL_LOCK_CANCEL) {
        FD_LOG_INFO("SHFL_LOCK_CANCEL, locks_flag & SHFL_LOCK_MODE_MASK: 0x%x",
                    flags & SHFL_LOCK_MODE_MASK);
        return RTFileUnlock(request.hFile, request.offset, request.length, flags);
    }
    FD_LOG_INFO("locks_flag & SHFL_LOCK_SHARED   :  0x%x", flags & SHFL_LOCK_SHARED);
    FD_LOG_INFO("locks_flag & SHFL_LOCK_EXCLUSIVE:  0x%x", flags & SHFL_LOCK_EXCLUSIVE);
    FD_LOG_INFO("locks_flag & SHFL_LOCK_WAIT     :  0x%x", flags & SHFL_LOCK_WAIT);
    FD_LOG_INFO("locks_flag & SHFL_LOCK_ENTIRE   :  0x%x", flags & SHFL_LOCK_ENTIRE);
    return RTFileLock(request.hFile, request.offset, request.length, flags);
}

}  // namespace

void ZrsfLocks(char*& buffer, int /*size*/, int* resultSize, MapFolder* map) {
    LockRequest request = {loadLe<unsigned long long>(buffer + kHandleAt),
                           loadLe<unsigned long long>(buffer + kLocksOffsetAt),
                           loadLe<unsigned long long>(buffer + kLocksLengthAt),
                           loadLe<std::uint32_t>(buffer + kLocksFlagAt)};
    const _ZRSFHANDLE* handle =
        map->m_handleManage->GetHandleData(static_cast<long long>(request.hFile));

    if (handle == nullptr) {
        FD_LOG_WARN(
            "lock invalid parmeter!!!   hFile: %llu, locks_offset: %llu, locks_length: %llu, locks_flag: 0x%x, pzrsfHandle: %p",
            request.hFile, request.offset, request.length, request.flags,
            static_cast<const void*>(handle));
        return putStatus(buffer, VINF_SUCCESS, resultSize);
    }

    request.flags = withoutWait(request.flags);
    const int rc = lockOrUnlock(request);
    if (rc < 0) FD_LOG_ERROR("lock or unlock is error. rc: %d", rc);
    FD_LOG_INFO(
        "lock end!!!   path: %s, hFile: %llu, offset: %llu, length: %llu, flags: 0x%x, rc: %d",
        handle->name, request.hFile, request.offset, request.length, request.flags, rc);

    putStatus(buffer, VINF_SUCCESS, resultSize);  // Kept: never the status of the local step
}
