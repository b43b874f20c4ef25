// What the local system says of a file or a volume. No state, any thread.
#include "linux/comm/Opreator/Info.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "StatFs.h"
#include "common/Comm/FdLog.h"
#include "linux/comm/Opreator/PathResolve.h"
#include "linux/comm/Opreator/StatusCode.h"
#include "linux/compat/FileStatus.h"

namespace {

constexpr unsigned kSerial = 0x0004787F;  // of every volume

void fillInfo(const compat::FileStatus& status, RTFSOBJINFO* info) {
    info->cbObject = status.size;
    info->cbAllocated = status.size;  // Kept: the block count is not used
    info->AccessTime = {status.accessTime};
    info->ModificationTime = {status.modificationTime};
    info->ChangeTime = {status.changeTime};
    info->BirthTime = {status.birthTime};
    info->Attr.fMode = status.mode;
    info->Attr.enmAdditional = RTFSOBJATTRADD_NOTHING;
}

int statusOf(int err) {
    return RTErrConvertFromLinux(static_cast<unsigned>(err));
}

}  // namespace

int RTPathQueryInfoEx(const char* path, RTFSOBJINFO* info, RTFSOBJATTRADD /*additional*/) {
    if (path == nullptr) {
        FD_LOG_WARN("pLinuxPath == NULL");
        return VERR_INVALID_PARAMETER;
    }
    if (strnlen(path, kPathBufferSize) == kPathBufferSize) {
        FD_LOG_ERROR("memcpy_s failed");  // Kept: the text of the copy that was here
        return VERR_GENERAL_FAILURE;
    }

    // A listing queries each of its entries: access is only asked once the query itself has failed,
    // since an object that stat finds is there for access as well.
    compat::FileStatus status = {};
    if (compat::statPath(path, &status) == 0) {
        fillInfo(status, info);
        return VINF_SUCCESS;
    }
    const int queryErr = errno;

    if (access(path, F_OK) != 0) {
        const int err = errno;
        const int rc = statusOf(err);
        FD_LOG_WARN("access errno: %d,  rc: %d", err, rc);
        FD_LOG_WARN("pLinuxPath: %s", path);
        return rc;
    }
    FD_LOG_WARN("fstat error. ");
    FD_LOG_WARN("pLinuxPath: %s", path);
    FD_LOG_WARN("error: %d", queryErr);
    return statusOf(queryErr);
}

int RTFileQueryInfo(unsigned long long hFile, RTFSOBJINFO* info, RTFSOBJATTRADD additional) {
    if (hFile == 0) {  // Kept: although 0 is a descriptor
        FD_LOG_ERROR("hFile == NULL");
        return VERR_INVALID_PARAMETER;
    }
    if (info == nullptr) {
        FD_LOG_ERROR("pObjInfo == NULL.  hFile: %llu", hFile);
        return VERR_INVALID_PARAMETER;
    }
    if (additional != RTFSOBJATTRADD_NOTHING && additional != RTFSOBJATTRADD_UNIX) {
        FD_LOG_ERROR("enmAdditionalAttribs: %d", static_cast<int>(additional));
        return VERR_INVALID_PARAMETER;
    }

    const int fd = static_cast<int>(hFile);  // the low 32 bits
    compat::FileStatus status = {};
    if (compat::statHandle(fd, &status) != 0) {
        const int err = errno;
        FD_LOG_WARN("fstat error. ");
        FD_LOG_WARN("hFile: %d", fd);
        FD_LOG_WARN("error: %d", err);
        return statusOf(err);
    }
    fillInfo(status, info);
    return VINF_SUCCESS;
}

int RTFsQuerySizes(const char* path, long long* total, long long* available,
                   unsigned int* bytesPerUnit, unsigned int* bytesPerSector) {
    if (path == nullptr) return VERR_INVALID_PARAMETER;

    struct statfs volume = {};
    if (statfs(path, &volume) != 0) {
        const int err = errno;
        FD_LOG_WARN("RTFsQuerySizes() errno: %d", err);
        return statusOf(err);
    }

    const auto unit = static_cast<unsigned long long>(volume.f_bsize);
    if (total != nullptr) *total = static_cast<long long>(unit * volume.f_blocks);
    if (available != nullptr) *available = static_cast<long long>(unit * volume.f_bavail);
    if (bytesPerUnit != nullptr) *bytesPerUnit = static_cast<unsigned>(unit);
    if (bytesPerSector != nullptr) *bytesPerSector = static_cast<unsigned>(unit);
    return VINF_SUCCESS;
}

int RTFsQuerySerial(const char* path, unsigned int* serial) {
    if (path == nullptr || serial == nullptr) return VERR_INVALID_PARAMETER;

    struct statfs volume = {};  // shows that the path is alive, nothing more
    if (statfs(path, &volume) != 0) {
        const int err = errno;
        const int rc = statusOf(err);
        FD_LOG_WARN("RTFsQuerySerial() errno: %d, rc: %d", err, rc);
        return rc;
    }

    *serial = kSerial;
    return VINF_SUCCESS;
}

int RTFsQueryProperties(const char* path, RTFSPROPERTIES* properties) {
    if (path == nullptr || properties == nullptr) return VERR_INVALID_PARAMETER;

    struct statfs volume = {};
    if (statfs(path, &volume) != 0) {
        const int err = errno;
        const int rc = statusOf(err);
        FD_LOG_WARN("RTFsQuerySerial() errno: %d, rc: %d", err, rc);  // Kept: the other's text
        return rc;
    }

    // Every map is a local, case-insensitive, writable volume to the server. Write protection is
    // the business of m_bWritable.
    *properties = {};
    properties->cbMaxComponent = 255;
    properties->fSupportsUnicode = 1;
    return VINF_SUCCESS;
}
