// The requests that open and close objects. Processing thread only.
#include <cstdint>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Comm/HandleManage.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapFolder.h"
#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/DirOperate.h"
#include "linux/comm/Opreator/FileOpen.h"
#include "linux/comm/Opreator/FileOperate.h"
#include "linux/comm/Opreator/Info.h"
#include "linux/comm/Opreator/PathResolve.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

// The longest path that its 16-bit length can tell, and what follows it, lie within the buffer.
static_assert(kPathAt + UINT16_MAX + sizeof(_SHFLCREATEPARMS) <= MAX_CMD_BUFFER);

// What an open that must not change anything keeps of its flags, and what it gains: a directory,
// and failure if it is missing.
constexpr std::uint32_t kTargetDirectoryKeeps = 0xFFFFF00B;
constexpr std::uint32_t kTargetDirectoryGains = SHFL_CF_DIRECTORY | SHFL_CF_ACT_FAIL_IF_NEW;

bool copyBlock(void* to, const void* from) {
    const int err = memcpy_s(to, sizeof(_SHFLCREATEPARMS), from, sizeof(_SHFLCREATEPARMS));
    if (err != 0) FD_LOG_ERROR("memcpy_s failed, err = %d", err);
    return err == 0;
}

void logCreateFailure(PathBuild built, const LocalPath& path, int nameSize) {
    if (built == PathBuild::ConversionFailed) {
        FD_LOG_ERROR("utf16LToUtf8() error. length: %d, path: %s", nameSize, path.joined);
    } else {
        // Kept: the wording names the other helper.
        FD_LOG_ERROR("linuxPath2WinPath()  error. length: %d, path: %s", path.joinedLength,
                     path.joined);
    }
}

bool mayChange(std::uint32_t createFlags) {
    return replacesIfExists(createFlags) || createsIfNew(createFlags);
}

// Turns the request into what fits the object that is there. True if it is a directory that is to
// be closed again at once.
bool adaptToExisting(const char* path, _SHFLCREATEPARMS& parms) {
    RTFSOBJINFO info{};
    if (RTPathQueryInfoEx(path, &info, RTFSOBJATTRADD_NOTHING) != VINF_SUCCESS) return false;

    bool closeAfterOpen = false;
    if ((info.Attr.fMode & RTFS_TYPE_MASK) == RTFS_TYPE_DIRECTORY) {
        closeAfterOpen = (parms.CreateFlags & SHFL_CF_DIR_CLOSE_AFTER_OPEN) != 0;
        parms.CreateFlags |= SHFL_CF_DIRECTORY;
    }
    if ((parms.CreateFlags & SHFL_CF_OPEN_TARGET_DIRECTORY) != 0) {
        FD_LOG_WARN("create directory overwrite flag: 0x%x", parms.CreateFlags);
        parms.CreateFlags = (parms.CreateFlags & kTargetDirectoryKeeps) | kTargetDirectoryGains;
    }
    return closeAfterOpen;
}

// The test looks at the flags alone, so a read-only map also refuses an open-or-create of what
// exists.
bool isWriteRefused(const MapFolder& map, const char* path, std::uint32_t flags) {
    if (!mayChange(flags)) return false;

    FD_LOG_WARN(
        "create access denied!!!   mapfoder->m_clientFolder: %s,  flag: 0x%x, path: %s, mapfolder->m_bWritable : %d",
        map.m_clientFolder, flags, path, map.m_bWritable);  // Kept: for allowed requests too
    if (map.m_bWritable != 0) return false;

    FD_LOG_WARN("create access denied!!!   mapfoder->m_clientFolder: %s,  flag: 0x%x, path: %s",
                map.m_clientFolder, flags, path);
    return true;
}

void closeAgain(HandleManage& handles, long long handle) {
    _ZRSFHANDLE* const record = handles.GetHandleData(handle);
    if (record == nullptr) return;
    zrsfCloseDir(record);
    handles.RemoveHandle(handle);
}

int openObject(const char* path, _SHFLCREATEPARMS& parms, MapFolder* map) {
    if (isHiddenByRootFilter(*map, path)) {
        parms.Handle = SHFL_HANDLE_NIL;
        return mayChange(parms.CreateFlags) ? VERR_ACCESS_DENIED : VERR_FILE_NOT_FOUND;
    }

    const bool closeAfterOpen = map->m_mapType != kPrinterMap && adaptToExisting(path, parms);
    if (isWriteRefused(*map, path, parms.CreateFlags)) {
        parms.Handle = SHFL_HANDLE_NIL;
        return VERR_ACCESS_DENIED;
    }

    HandleManage* const handles = map->m_handleManage;
    const int rc = (parms.CreateFlags & SHFL_CF_DIRECTORY) != 0
                       ? zrfsOpenDir(path, &parms, handles, map)
                       : zrfsOpenFile(path, &parms, handles, map);
    if (closeAfterOpen) closeAgain(*handles, parms.Handle);
    return rc;
}

void putCreateReply(char* buffer, int status, const _SHFLCREATEPARMS& parms, int* resultSize) {
    if (!copyBlock(buffer + kReplyDataAt, &parms)) return;
    storeLe<std::int32_t>(buffer + kStatusAt, status);
    storeLe<std::uint32_t>(buffer + kCbBufferAt, sizeof parms);
    *resultSize = static_cast<int>(sizeof parms) + kDataReplyExtra;
}

}  // namespace

void ZrsfCreate(char*& buffer, int /*size*/, int* resultSize, MapFolder* map) {
    const int nameSize = loadLe<std::uint16_t>(buffer + kPathLengthAt);
    _SHFLCREATEPARMS parms;
    if (!copyBlock(&parms, buffer + kPathAt + nameSize)) return;

    LocalPath path;
    const PathBuild built = buildCreatePath(path, *map, buffer + kPathAt, nameSize);
    if (built == PathBuild::CopyFailed) return;
    if (built != PathBuild::Done) {
        logCreateFailure(built, path, nameSize);
        parms.Handle = SHFL_HANDLE_NIL;
        return putCreateReply(buffer, VERR_INVALID_PARAMETER, parms, resultSize);
    }

    const int rc = openObject(path.text, parms, map);

    putCreateReply(buffer, rc, parms, resultSize);
}

void ZrsfClose(char*& buffer, int /*size*/, int* resultSize, MapFolder* map) {
    const auto handle = loadLe<long long>(buffer + kHandleAt);

    _ZRSFHANDLE* const record = map->m_handleManage->GetHandleData(handle);
    if (record != nullptr) {
        record->dir.SearchCount = 0;
        record->type == HANDLE_TYPE_FILE ? zrsfCloseFile(record) : zrsfCloseDir(record);
    }
    map->m_handleManage->RemoveHandle(handle);  // Kept: an unknown handle is only logged

    putStatus(buffer, VINF_SUCCESS, resultSize);
}
