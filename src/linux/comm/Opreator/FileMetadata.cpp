// The local steps that change the times, the mode and the size of open files. Processing thread
// only.
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

#include "common/Comm/FdLog.h"
#include "linux/comm/Opreator/FileOperate.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

constexpr unsigned kOwnerRead = 0x100;

timeval timevalOf(const RTTIMESPEC& time) {
    const std::int64_t nanos = time.i64NanosecondsRelativeToUnixEpoch;
    timeval converted = {};
    converted.tv_sec = static_cast<decltype(converted.tv_sec)>(nanos / 1'000'000'000);
    converted.tv_usec = static_cast<decltype(converted.tv_usec)>(nanos % 1'000'000'000 / 1000);
    return converted;
}

// A zero time means "leave it".
const RTTIMESPEC* unlessZero(const RTTIMESPEC& time) {
    return time.i64NanosecondsRelativeToUnixEpoch == 0 ? nullptr : &time;
}

long long nanosOf(const RTTIMESPEC& time) {
    return time.i64NanosecondsRelativeToUnixEpoch;
}

void setTimes(long long handle, const SHFLFSOBJINFO& info) {
    const int rc = RTFileSetTimes(handle, unlessZero(info.AccessTime),
                                  unlessZero(info.ModificationTime), nullptr, nullptr);
    if (rc == VINF_SUCCESS) return;
    FD_LOG_WARN("RTFileSetTimes failed with %d\n", rc);
    FD_LOG_WARN("AccessTime       %lld\n", nanosOf(info.AccessTime));
    FD_LOG_WARN("ModificationTime %lld\n", nanosOf(info.ModificationTime));
    FD_LOG_WARN("ChangeTime       %lld\n", nanosOf(info.ChangeTime));
    FD_LOG_WARN("BirthTime        %lld\n", nanosOf(info.BirthTime));
}

// The owner keeps the read permission, whatever the server asks for.
void setMode(long long handle, unsigned mode) {
    if (mode == 0) return;
    if ((mode & RTFS_UNIX_MASK) != 0) mode |= kOwnerRead;
    const int rc = RTFileSetMode(handle, mode);
    if (rc != VINF_SUCCESS) FD_LOG_WARN("RTFileSetMode %x failed with %d\n", mode, rc);
}

}  // namespace

int RTSetFileInfo(long long handle, unsigned int size, SHFLFSOBJINFO* info, HANDLE_TYPE type) {
    const bool knownType = type == HANDLE_TYPE_FILE || type == HANDLE_TYPE_DIR;
    if (size < sizeof(SHFLFSOBJINFO) || info == nullptr || !knownType) {
        return VERR_INVALID_PARAMETER;
    }
    if (type == HANDLE_TYPE_DIR) {
        FD_LOG_WARN("set file info. type == DIR_HANDLE");
        return VINF_SUCCESS;
    }

    // Kept: a failure is logged only, and shows in the information that the reply carries.
    setTimes(handle, *info);
    setMode(handle, info->Attr.fMode);
    return VINF_SUCCESS;
}

int RTFileSetTimes(long long handle, const RTTIMESPEC* accessTime,
                   const RTTIMESPEC* modificationTime, const RTTIMESPEC* /*changeTime*/,
                   const RTTIMESPEC* /*birthTime*/) {
    if (handle == -1) return VERR_INVALID_PARAMETER;
    if (accessTime == nullptr && modificationTime == nullptr) return VINF_SUCCESS;

    // Kept: a time that is to stay takes the value of the other.
    if (modificationTime == nullptr) {
        FD_LOG_WARN("pModeificationTime == NULL");
        modificationTime = accessTime;
    }
    if (accessTime == nullptr) {
        FD_LOG_WARN("pAccessTime == NULL");
        accessTime = modificationTime;
    }

    const timeval times[2] = {timevalOf(*accessTime), timevalOf(*modificationTime)};
    if (futimes(static_cast<int>(handle), times) != 0) {
        const int err = errno;
        FD_LOG_WARN("set File time error. errno: %d", err);
        return RTErrConvertFromLinux(static_cast<unsigned>(err));
    }
    return VINF_SUCCESS;
}

int RTFileSetMode(long long handle, unsigned int mode) {
    const auto local = static_cast<mode_t>(rtFsModeNormalize(mode, nullptr, 0));
    if (fchmod(static_cast<int>(handle), local) != 0) {
        const int err = errno;
        const int rc = VERR_NOT_SUPPORTED;  // Kept: whatever the errno was
        FD_LOG_WARN("file set mode error. [rc: %d] [errno : %d]", rc, err);
        return rc;
    }
    return VINF_SUCCESS;
}

int RTFileSetSize(long long handle, unsigned long long size) {
    if (ftruncate(static_cast<int>(handle), static_cast<off_t>(size)) != 0) {
        const int err = errno;
        FD_LOG_WARN("file set size error.  size: %llu, errno: %d", size, err);
        return RTErrConvertFromLinux(static_cast<unsigned>(err));
    }
    return VINF_SUCCESS;
}
