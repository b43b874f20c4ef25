// Opens, makes and closes directories. Processing thread only.
#include "linux/comm/Opreator/DirOperate.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "linux/comm/Opreator/FileOpen.h"
#include "linux/comm/Opreator/Info.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

int RTDirCreate(const char* path, _SHFLCREATEPARMS* parms) {
    constexpr unsigned int kAllPermissions = 0x1FF;

    parms->Handle = SHFL_HANDLE_NIL;
    parms->Result = SHFL_FILE_CREATED;
    const unsigned int mode = rtFsModeNormalize(kAllPermissions, nullptr, 0) & RTFS_UNIX_MASK;
    if (mkdir(path, static_cast<mode_t>(mode)) == 0) return VINF_SUCCESS;

    const int err = errno;
    const int rc = RTErrConvertFromLinux(static_cast<unsigned int>(err));
    FD_LOG_WARN("RTDirCreate error.  errno: %d, rc: %d", err, rc);
    parms->Result = rc == VERR_ALREADY_EXISTS   ? SHFL_FILE_EXISTS
                    : rc == VERR_PATH_NOT_FOUND ? SHFL_PATH_NOT_FOUND
                                                : SHFL_NO_RESULT;
    return rc;
}

SHFLCREATERESULT resultOfFailedOpen(int rc) {
    switch (rc) {
        case VERR_ACCESS_DENIED:
            return SHFL_FILE_EXISTS;
        case VERR_FILE_NOT_FOUND:
            return SHFL_FILE_NOT_FOUND;
        case VERR_PATH_NOT_FOUND:
            return SHFL_PATH_NOT_FOUND;
        default:
            return SHFL_NO_RESULT;
    }
}

int RTDirOpenFiltered(int* fd, const char* path, _SHFLCREATEPARMS* parms) {
    *fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (*fd >= 0) return VINF_SUCCESS;

    const int err = errno;
    FD_LOG_WARN("dir open error.  errno: %d", err);
    const int rc = RTErrConvertFromLinux(static_cast<unsigned int>(err));
    parms->Result = resultOfFailedOpen(rc);
    parms->Handle = SHFL_HANDLE_NIL;
    return rc;
}

// False, with a line in the log, if the path could not be copied.
bool fillRecord(_ZRSFHANDLE& record, int fd, const char* path) {
    record.type = HANDLE_TYPE_DIR;
    record.dir.Handle = fd;
    record.dir.SearchHandle = nullptr;
    const std::size_t length = std::min(std::strlen(path), sizeof record.name - 1);
    const int err = memcpy_s(record.name, sizeof record.name, path, length);
    if (err != 0) FD_LOG_ERROR("memcpy_s failed, err = %d", err);
    return err == 0;
}

}  // namespace

int zrfsOpenDir(const char* path, _SHFLCREATEPARMS* parms, HandleManage* handles,
                MapFolder* /*map*/) {
    parms->Result = SHFL_FILE_EXISTS;
    if (createsIfNew(parms->CreateFlags)) {
        const int rc = RTDirCreate(path, parms);
        if (rc != VINF_SUCCESS && existsAction(parms->CreateFlags) != SHFL_CF_ACT_OPEN_IF_EXISTS) {
            return rc;
        }
    }

    RecordPtr record = newRecord();
    if (record == nullptr) {
        FD_LOG_ERROR("malloc error.  pzrsf == NULL");
        return VERR_NO_MEMORY;
    }
    int fd = -1;
    const int rcOpen = RTDirOpenFiltered(&fd, path, parms);
    if (rcOpen != VINF_SUCCESS) return rcOpen;
    if (!fillRecord(*record, fd, path)) {
        close(fd);
        return VERR_GENERAL_FAILURE;
    }
    if (handles->InsertHandle(fd, record.get())) {
        static_cast<void>(record.release());  // the table owns it from here
    } else {
        FD_LOG_ERROR("insertHandle error. dirhandle :%d", fd);
    }

    RTFSOBJINFO info{};
    const int rc = RTPathQueryInfoEx(path, &info, RTFSOBJATTRADD_NOTHING);
    if (rc == VINF_SUCCESS) {
        SHFLFSOBJINFO wireInfo;
        fileInfoFromRtfs(&wireInfo, &info);
        parms->Info = wireInfo;
    }
    parms->Handle = fd;
    return rc;
}

void zrsfCloseDir(_ZRSFHANDLE* handle) {
    if (handle->dir.Handle == 0 || handle->dir.Handle == -1) {
        FD_LOG_ERROR("dirHandle is invalid");
    } else if (close(static_cast<int>(handle->dir.Handle)) != 0) {
        FD_LOG_ERROR("pzrsfHandle->dir.Handle close Failure. errno: %d", errno);
    }
    if (handle->dir.SearchHandle != nullptr && closedir(handle->dir.SearchHandle) != 0) {
        FD_LOG_ERROR("searchHandleclose Failure. errno: %d", errno);
    }
    handle->dir.Handle = 0;
    handle->dir.SearchHandle = nullptr;
}
