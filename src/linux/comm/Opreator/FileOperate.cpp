// Opens and closes files. Processing thread only.
#include "linux/comm/Opreator/FileOperate.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "common/Comm/FdLog.h"
#include "linux/comm/Opreator/FileOpen.h"
#include "linux/comm/Opreator/Info.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

// Kept: every object is executable to the server.
constexpr std::uint32_t kExecutePermissions = 0x49;

int convertFlags(const _SHFLCREATEPARMS& parms, std::uint32_t* fOpen) {
    const int rc = vbsfConvertFileOpenFlags(parms, fOpen);
    return rc != VINF_SUCCESS ? rc : rtFileRecalcAndValidateFlags(fOpen);
}

void fillInfo(_SHFLCREATEPARMS* parms, RTFSOBJINFO& info) {
    info.Attr.fMode |= kExecutePermissions;
    SHFLFSOBJINFO wireInfo;
    fileInfoFromRtfs(&wireInfo, &info);
    parms->Info = wireInfo;
}

// What the request asked for decides, not what happened: an open-or-create says "created" of a file
// that was there.
void tellResult(int fd, _SHFLCREATEPARMS* parms) {
    parms->Result = SHFL_FILE_EXISTS;
    if (replacesIfExists(parms->CreateFlags)) {
        RTFileSetSize(fd, static_cast<unsigned long long>(parms->Info.cbObject));
        parms->Result = SHFL_FILE_REPLACED;
    }
    if (existsAction(parms->CreateFlags) == SHFL_CF_ACT_FAIL_IF_EXISTS ||
        createsIfNew(parms->CreateFlags)) {
        parms->Result = SHFL_FILE_CREATED;
    }
}

int finishOpened(int fd, const char* path, _SHFLCREATEPARMS* parms, HandleManage* handles) {
    handles->InsertHandleByName(fd, path, HANDLE_TYPE_FILE);
    tellResult(fd, parms);
    if (isPrinterPath(path)) {
        parms->Handle = fd;
        return VINF_SUCCESS;
    }

    RTFSOBJINFO info{};
    const int rc =
        RTFileQueryInfo(static_cast<unsigned long long>(fd), &info, RTFSOBJATTRADD_NOTHING);
    if (rc != VINF_SUCCESS) {
        FD_LOG_ERROR("create a file success, but can't query the info of it.  rc: %d", rc);
        parms->Handle = SHFL_HANDLE_NIL;  // the record stays until the map goes
        return rc;
    }
    fillInfo(parms, info);
    parms->Handle = fd;
    return VINF_SUCCESS;
}

void countOpenErrors() {
    constexpr int kMaxCounted = 32;
    static int cErrors = 0;  // for a debugger
    if (cErrors < kMaxCounted) ++cErrors;
}

// Three failures are ordinary answers: status 0, and Result says why there is no handle.
int finishFailed(int rc, const char* path, _SHFLCREATEPARMS* parms) {
    parms->Handle = SHFL_HANDLE_NIL;
    switch (rc) {
        case VERR_FILE_NOT_FOUND:
            FD_LOG_WARN("file not find. SHFL_FILE_NOT_FOUND!!!   path: %s, createFlags: 0x%x", path,
                        parms->CreateFlags);
            parms->Result = SHFL_FILE_NOT_FOUND;
            return VINF_SUCCESS;
        case VERR_PATH_NOT_FOUND:
            FD_LOG_WARN("path not find. SHFL_PATH_NOT_FOUND!!!!!!   path: %s, createFlags: 0x%x",
                        path, parms->CreateFlags);
            parms->Result = SHFL_PATH_NOT_FOUND;
            return VINF_SUCCESS;
        case VERR_ALREADY_EXISTS: {
            RTFSOBJINFO info{};
            if (RTPathQueryInfoEx(path, &info, RTFSOBJATTRADD_NOTHING) == VINF_SUCCESS) {
                fillInfo(parms, info);
            }
            FD_LOG_WARN(
                "file is exist. VERR_ALREADY_EXISTS!!!   path: %s, createFlags: 0x%x, fMode: 0x%x",
                path, parms->CreateFlags, parms->Info.Attr.fMode);
            parms->Result = SHFL_FILE_EXISTS;
            return VINF_SUCCESS;
        }
        case VERR_TOO_MANY_OPEN_FILES:
            FD_LOG_WARN("too many file. VERR_TOO_MANY_OPEN_FILES!!!   path: %s, createFlags: 0x%x",
                        path, parms->CreateFlags);
            countOpenErrors();
            break;
        default:
            break;
    }
    parms->Result = SHFL_NO_RESULT;
    return rc;
}

}  // namespace

int zrfsOpenFile(const char* path, _SHFLCREATEPARMS* parms, HandleManage* handles,
                 MapFolder* /*map*/) {
    std::uint32_t fOpen = 0;
    const int rcFlags = convertFlags(*parms, &fOpen);
    if (rcFlags != VINF_SUCCESS) {
        parms->Result = SHFL_NO_RESULT;
        parms->Handle = SHFL_HANDLE_NIL;
        return rcFlags;
    }

    int fd = -1;
    const int rcOpen = RTFileOpen(&fd, path, fOpen);
    if (rcOpen != VINF_SUCCESS) return finishFailed(rcOpen, path, parms);

    const int rc = finishOpened(fd, path, parms, handles);
    // Without memory for a record no request reaches the file, not even one that closes it.
    if (handles->GetHandleData(fd) == nullptr) close(fd);
    return rc;
}

void zrsfCloseFile(_ZRSFHANDLE* handle) {
    if (close(static_cast<int>(handle->dir.Handle)) != 0) {
        FD_LOG_ERROR("zrsfCloseFile Should never be failure.  errno: %d", errno);
    }
    if (handle->dir.SearchHandle != nullptr) {
        FD_LOG_WARN(
            "File Handle. pzrsfHandle->dir.SearchHandle: %lld",
            static_cast<long long>(reinterpret_cast<std::intptr_t>(handle->dir.SearchHandle)));
        closedir(handle->dir.SearchHandle);
    }
}
