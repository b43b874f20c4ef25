// The local steps of a lock request. They check and log, and then give the status of a lock call
// that was refused: no byte range is ever locked here, so other local programs never see a lock of
// the server. Processing thread only.
#include <cerrno>

#include "common/Comm/FdLog.h"
#include "linux/comm/Opreator/CreateParms.h"
#include "linux/comm/Opreator/FileOperate.h"
#include "linux/comm/Opreator/LockFlags.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

constexpr unsigned long long kToTheEnd = ~0ULL;

bool isNil(unsigned long long handle) {
    return static_cast<long long>(handle) == SHFL_HANDLE_NIL;
}

int refusedCall() {
    return RTErrConvertFromLinux(EFAULT);
}

}  // namespace

int RTFileLock(unsigned long long handle, unsigned long long /*offset*/, unsigned long long length,
               unsigned int flags) {
    const unsigned int mode = flags & SHFL_LOCK_MODE_MASK;

    if (isNil(handle)) {
        FD_LOG_WARN("file lock error.  Handle == SHFL_HANDLE_NIL");
        return VERR_INVALID_HANDLE;
    }
    if (mode == SHFL_LOCK_CANCEL || (flags & SHFL_LOCK_ENTIRE) != 0) {
        FD_LOG_WARN("file lock error.  SHFL_LOCK_CANCEL is true. flags: 0x%x", flags);
        FD_LOG_WARN("file & SHFL_LOCK_ENTIRE: %d", static_cast<int>(flags & SHFL_LOCK_ENTIRE));
        return VERR_INVALID_PARAMETER;
    }
    if (length == kToTheEnd) FD_LOG_WARN("file lock. length == -1. so set length to 1");
    if (mode == SHFL_LOCK_MODE_MASK) {
        FD_LOG_WARN("parameter error.  flags: 0x%x", flags);
        return VERR_INVALID_PARAMETER;
    }

    return refusedCall();
}

int RTFileUnlock(unsigned long long handle, unsigned long long /*offset*/,
                 unsigned long long length, unsigned int flags) {
    if (isNil(handle)) {
        FD_LOG_WARN("unlock handle error. Handle == SHFL_HANDLE_NIL. Handle: 0x%llx", handle);
        return VERR_INVALID_HANDLE;
    }
    if ((flags & (SHFL_LOCK_MODE_MASK | SHFL_LOCK_ENTIRE)) != 0) {
        FD_LOG_WARN("lock error.   flags: 0x%x", flags);
        FD_LOG_WARN("SHFL_LOCK_ENTIRE & flags: 0x%x", flags & SHFL_LOCK_ENTIRE);
        return VERR_INVALID_PARAMETER;
    }
    if (length == kToTheEnd) {
        FD_LOG_WARN("file unlock.  length == -1, set it to length == 1");
    }

    return refusedCall();
}
