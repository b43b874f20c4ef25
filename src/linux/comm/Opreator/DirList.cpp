// Lists directories and single objects. Processing thread only.
#include "linux/comm/Opreator/DirList.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapFolder.h"
#include "linux/comm/Opreator/DirOperate.h"
#include "linux/comm/Opreator/FdCommon_linux.h"
#include "linux/comm/Opreator/Info.h"
#include "linux/comm/Opreator/PathResolve.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

// What stands before the name of an entry.
#pragma pack(push, 1)
struct DirEntryHead {
    SHFLFSOBJINFO Info;
    std::uint8_t shortName[30];  // zero: a short name does not exist here
    std::uint16_t u16Size;       // bytes of the name with its terminator
    std::uint16_t u16Length;     // and without it
};
#pragma pack(pop)
static_assert(sizeof(DirEntryHead) == 126 && offsetof(DirEntryHead, u16Size) == 122);

constexpr int kEntryNameAt = sizeof(DirEntryHead);
constexpr int kEntryNameRoom = 512;  // 255 units and the terminator
static_assert(kEntryNameAt + kEntryNameRoom == kMaxEntrySize);

// Offsets in a listing's reply, from its cbBuffer word.
constexpr int kEntryCountAt = 4;
constexpr int kEntriesAt = 8;

constexpr int kUtf16Terminator = 2;

// A file name in UTF-16LE. The buffer has a terminator's room behind what a conversion may fill.
struct WideName {
    static constexpr int kRoom = 1024;
    char text[kRoom + kUtf16Terminator];
    int size = 0;  // bytes, without the terminator
};

// The size of the entry, or 0 with a line in the log. The name goes first: a copy that fails leaves
// zeros and no half of an entry.
int putDirEntry(char* to, const RTFSOBJINFO& info, const WideName& name) {
    const int sizeWithTerminator = name.size + kUtf16Terminator;
    if (const int err = memcpy_s(to + kEntryNameAt, kEntryNameRoom, name.text,
                                 static_cast<std::size_t>(sizeWithTerminator));
        err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return 0;
    }

    SHFLFSOBJINFO wireInfo;
    fileInfoFromRtfs(&wireInfo, &info);
    const DirEntryHead head{wireInfo,
                            {},
                            static_cast<std::uint16_t>(sizeWithTerminator),
                            static_cast<std::uint16_t>(name.size)};
    if (const int err = memcpy_s(to, sizeof head, &head, sizeof head); err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return 0;
    }
    return kEntryNameAt + sizeWithTerminator;
}

// False, with a line in the log, for a name that has no place in an entry.
bool convertEntryName(WideName& wide, char* name, std::size_t nameLength) {
    constexpr int kMost = WideName::kRoom - kUtf16Terminator;
    const int winPathSize =
        utf8ToUtf16L(wide.text, WideName::kRoom, name, static_cast<int>(nameLength));
    if (winPathSize < 0) {
        FD_LOG_ERROR("winPathSize = -1, filter the file.");
        return false;
    }
    if (winPathSize > kMost) {
        FD_LOG_ERROR("name is too long. winPathSize: %d", winPathSize);
        return false;
    }
    wide.size = winPathSize;
    std::memset(wide.text + wide.size, 0, kUtf16Terminator);
    return true;
}

}  // namespace

bool inFilterListB(const char* path) {
    struct stat net;
    struct stat object;
    if (stat("/net", &net) != 0 || stat(path, &object) != 0) return false;
    if (net.st_ino != object.st_ino || !S_ISDIR(object.st_mode)) return false;

    FD_LOG_WARN("pPath: %s, has the same ino with /net ", path);
    FD_LOG_WARN("pPath: %s", path);
    return true;
}

int getDirEntry(char* to, char* fullPath, int pathSize, char* name, const MapFolder& map) {
    const std::size_t nameLength = std::strlen(name);
    const auto nameAt = static_cast<std::size_t>(pathSize - 1);
    if (nameLength + static_cast<std::size_t>(pathSize) > kPathBufferSize) {
        FD_LOG_WARN("nameLength: %d", static_cast<int>(nameLength));
        return 0;
    }
    if (const int err =
            memcpy_s(fullPath + nameAt, kPathBufferSize + 1 - nameAt, name, nameLength + 1);
        err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return 0;
    }
    if (inFilterListB(fullPath) || isHiddenByRootFilter(map, fullPath)) return 0;

    RTFSOBJINFO info{};
    const int rc = RTPathQueryInfoEx(fullPath, &info, RTFSOBJATTRADD_NOTHING);
    if (rc != VINF_SUCCESS) {
        FD_LOG_ERROR("rc: %d", rc);
        return 0;
    }
    WideName wide;
    return convertEntryName(wide, name, nameLength) ? putDirEntry(to, info, wide) : 0;
}

namespace {

// What follows the last separator, or null if there is nothing before it.
char* lastComponent(char* path) {
    char* const slash = std::strrchr(path, '/');
    char* const backslash = std::strrchr(path, '\\');
    char* const last = slash == nullptr       ? backslash
                       : backslash == nullptr ? slash
                                              : std::max(slash, backslash);
    return last == nullptr || last == path ? nullptr : last + 1;
}

}  // namespace

int getDirEntryByPath(char* to, char* path, int* entrySize) {
    char* const name = lastComponent(path);
    if (name == nullptr) {
        FD_LOG_ERROR("path error. pPath: %s", path);
        return VERR_INVALID_PARAMETER;
    }

    WideName wide;
    const int converted =
        utf8ToUtf16L(wide.text, WideName::kRoom, name, static_cast<int>(std::strlen(name)) + 1);
    if (converted < kUtf16Terminator) {
        FD_LOG_ERROR("getDirEntryByPath: pPath: %s", path);
        return VERR_INVALID_PARAMETER;
    }
    wide.size = converted - kUtf16Terminator;

    RTFSOBJINFO info{};
    const int rc = RTPathQueryInfoEx(path, &info, RTFSOBJATTRADD_NOTHING);
    if (rc != VINF_SUCCESS) {
        FD_LOG_ERROR("pPath %s, rc: %d", path, rc);
        return rc;
    }

    *entrySize = putDirEntry(to, info, wide);
    return *entrySize > 0 ? VINF_SUCCESS : VERR_GENERAL_FAILURE;
}

namespace {

// Entries as they gather in a reply.
struct Gathered {
    char* entries;  // the entry area
    int used = 0;
    int count = 0;
};

void putGathered(char* buffer, const Gathered& gathered, int* size) {
    storeLe<std::uint32_t>(buffer, static_cast<std::uint32_t>(gathered.used));
    storeLe<std::uint32_t>(buffer + kEntryCountAt, static_cast<std::uint32_t>(gathered.count));
    *size = gathered.used + kEntriesAt;
}

// Opens the stream of a new listing. False, with a line in the log, if that fails.
bool openStream(_ZRSFHANDLE& handle, const char* path) {
    if (handle.dir.SearchHandle != nullptr) {
        FD_LOG_INFO("search continue.  searchHandle: %d", 0);  // Kept: the value is always 0
        return true;
    }

    handle.dir.SearchHandle = opendir(path);
    if (handle.dir.SearchHandle == nullptr) {
        FD_LOG_ERROR("pSearchTmp == NULL, pPath: %s", path);
        return false;
    }
    handle.dir.SearchEnd = 0;
    handle.dir.SearchCount = 0;
    return true;
}

// The bytes that the entries before one may have taken, so that the longest still fits.
bool hasRoomForEntry(const Gathered& gathered, int limit) {
    constexpr int kReplyHeadAndEntry = kEntriesAt + kMaxEntrySize;
    constexpr int kMaxListSize = 65536;
    return gathered.used + kReplyHeadAndEntry < std::min({kMaxListSize, MAX_CMD_BUFFER, limit});
}

// Reads on in the stream until the reply is full or the directory ends. `folder` is a buffer of
// kPathBufferSize + 1 bytes in which the entries' full paths are built.
int gatherEntries(Gathered& gathered, char* folder, int pathSize, int limit, _ZRSFHANDLE& handle,
                  unsigned int flags, const MapFolder& map) {
    constexpr unsigned int SHFL_LIST_RETURN_ONE = 0x1;
    while (hasRoomForEntry(gathered, limit)) {
        dirent* const record = readdir(handle.dir.SearchHandle);
        if (record == nullptr) {
            handle.dir.SearchEnd = 1;
            return VERR_NO_MORE_FILES;
        }

        const int size =
            getDirEntry(gathered.entries + gathered.used, folder, pathSize, record->d_name, map);
        if (size == 0) continue;
        ++gathered.count;
        ++handle.dir.SearchCount;
        gathered.used += size;

        if ((flags & SHFL_LIST_RETURN_ONE) != 0) {
            folder[pathSize - 1] = '\0';
            FD_LOG_INFO("SHFL_LIST_RETURN_ONE, path: %s", folder);
            break;
        }
    }
    return VINF_SUCCESS;
}

// What a reply without entries is made of.
int answerNothing(int status, char* buffer, int* size) {
    putGathered(buffer, Gathered{buffer + kEntriesAt}, size);
    return status;
}

// Kept: the reply is as long as the server allowed, and only its first words mean anything.
int answerUnopened(char* buffer, int* size) {
    const long long limit = *size;
    answerNothing(VERR_INVALID_PARAMETER, buffer, size);
    *size = static_cast<int>(std::min<long long>(limit + kEntriesAt, INT_MAX));
    return VERR_INVALID_PARAMETER;
}

}  // namespace

int zrsfDirList(const char* path, int pathSize, int* size, char* buffer, _ZRSFHANDLE* handle,
                unsigned int flags, MapFolder* map) {
    if (pathSize < 1) return answerNothing(VERR_INVALID_PARAMETER, buffer, size);
    char folder[kPathBufferSize + 1] = {};
    if (const int err = memcpy_s(folder, kPathBufferSize, path, static_cast<std::size_t>(pathSize));
        err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return answerNothing(VERR_GENERAL_FAILURE, buffer, size);
    }
    if (!openStream(*handle, folder)) return answerUnopened(buffer, size);

    Gathered gathered{buffer + kEntriesAt};
    const int rc = gatherEntries(gathered, folder, pathSize, *size, *handle, flags, *map);
    putGathered(buffer, gathered, size);
    return rc;
}

int zrsfFileList(const char* path, int pathSize, int* size, char* buffer, _ZRSFHANDLE* /*handle*/) {
    Gathered gathered{buffer + kEntriesAt};
    int rc = VERR_INVALID_PARAMETER;
    if (path == nullptr || pathSize > kPathBufferSize) {
        FD_LOG_ERROR("getDirEntryByPath param error.");
        FD_LOG_ERROR("pbuffer: %p, size: %d, pPath: %p, pathSize: %d",
                     static_cast<const void*>(buffer), *size, static_cast<const void*>(path),
                     pathSize);
    } else {
        char object[kPathBufferSize + 1] = {};
        std::memcpy(object, path, strnlen(path, kPathBufferSize));
        rc = getDirEntryByPath(gathered.entries, object, &gathered.used);
    }

    if (rc == VINF_SUCCESS) {
        gathered.count = 1;
        rc = VERR_NO_MORE_FILES;
    } else if (rc == VERR_FILE_NOT_FOUND) {
        FD_LOG_WARN("file path is not exit, so no more file!!!  rc: %d, path: %s", rc, path);
        rc = VERR_NO_MORE_FILES;
    } else {
        FD_LOG_WARN("file list error!!!  rc: %d, path: %s", rc, path == nullptr ? "" : path);
    }
    putGathered(buffer, gathered, size);
    return rc;
}
