// The request that lists a directory or looks up one object. Processing thread only.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Comm/HandleManage.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapFolder.h"
#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/DirOperate.h"
#include "linux/comm/Opreator/PathResolve.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

constexpr int kNameLengthAt = 20;
constexpr int kListNameAt = 22;

// Offsets behind the name.
constexpr int kFlagsAt = 0;
constexpr int kLimitAt = 8;

static_assert(kListNameAt + UINT16_MAX + kLimitAt + 4 <= MAX_CMD_BUFFER);

constexpr int kEmptyListSize = 12;  // the status, cbBuffer and the number of entries

struct ListRequest {
    long long hFile;
    int nameLength;
    std::unique_ptr<char[]> name;  // zero-terminated
    unsigned int flags;
    std::int32_t limit;
};

// False if the name could not be copied; a name of no bytes cannot.
bool readRequest(ListRequest& request, const char* buffer) {
    request.hFile = loadLe<long long>(buffer + kHandleAt);
    request.nameLength = loadLe<std::uint16_t>(buffer + kNameLengthAt);
    const auto length = static_cast<std::size_t>(request.nameLength);

    request.name.reset(new (std::nothrow) char[length + 1]);
    if (request.name == nullptr) return false;
    if (const int err = memcpy_s(request.name.get(), length, buffer + kListNameAt, length);
        err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return false;
    }
    request.name[length] = '\0';

    const char* const behind = buffer + kListNameAt + length;
    request.flags = loadLe<std::uint32_t>(behind + kFlagsAt);
    request.limit = loadLe<std::int32_t>(behind + kLimitAt);
    return true;
}

void putEmptyList(char* buffer, int status, int* resultSize) {
    storeLe<std::uint32_t>(buffer + kReplyDataAt, 0);
    putStatus(buffer, status, resultSize, kEmptyListSize);
}

void logPathFailure(PathBuild built, const LocalPath& path, const ListRequest& request) {
    if (built == PathBuild::ConversionFailed) {
        FD_LOG_ERROR("utf16LToUtf8 error!!!  name_length: %d, pName: %s", request.nameLength,
                     request.name.get());
    } else {
        FD_LOG_ERROR("winPath2LinuxPath error. length: %d, winPath: %s", path.joinedLength,
                     path.joined);
    }
}

// A size that goes by the server's limit, but is no more than the work buffer holds.
int boundedSize(std::int32_t size, int extra) {
    constexpr long long kMost = MAX_CMD_BUFFER - kHeaderSize;
    return static_cast<int>(std::min<long long>(static_cast<long long>(size) + extra, kMost));
}

void answerUnbuilt(PathBuild built, const LocalPath& path, const ListRequest& request, char* buffer,
                   int* resultSize) {
    if (built == PathBuild::CopyFailed) return;
    if (built == PathBuild::MoveFailed) {
        // Kept: the status alone is written, and the size goes by the server's limit.
        storeLe<std::int32_t>(buffer + kStatusAt, VERR_GENERAL_FAILURE);
        *resultSize = boundedSize(request.limit, kCbBufferAt - kStatusAt);
        return;
    }
    logPathFailure(built, path, request);
    putEmptyList(buffer, VERR_INVALID_PARAMETER, resultSize);
}

// The record, or null with a line in the log. A file's is served as well.
_ZRSFHANDLE* findHandle(long long hFile, const MapFolder& map) {
    _ZRSFHANDLE* const handle = map.m_handleManage->GetHandleData(hFile);
    if (handle == nullptr) {
        FD_LOG_ERROR("pzrsfHandle == NULL, hFile: %llu", static_cast<unsigned long long>(hFile));
    } else if (handle->type == HANDLE_TYPE_FILE) {
        FD_LOG_ERROR("dirlist use a file HANDLE");
    }
    return handle;
}

}  // namespace

void ZrsfDirList(char*& buffer, int /*size*/, int* resultSize, MapFolder* map) {
    ListRequest request{};
    if (!readRequest(request, buffer)) return;
    LocalPath path;
    const PathBuild built = buildListPath(path, *map, buffer + kListNameAt, request.nameLength);
    if (built != PathBuild::Done) return answerUnbuilt(built, path, request, buffer, resultSize);

    _ZRSFHANDLE* const handle = findHandle(request.hFile, *map);
    if (handle == nullptr) return putEmptyList(buffer, VERR_INVALID_PARAMETER, resultSize);

    const auto pathSize = static_cast<int>(std::strlen(path.text));
    const bool isDirectory = std::string_view(path.text).ends_with('*');
    if (isDirectory) path.text[pathSize - 1] = '\0';
    zrfsTransFilePath(path.text, pathSize, map->m_clientFolder, map->m_clientFolder_size);
    if (handle->dir.SearchEnd != 0) return putEmptyList(buffer, VERR_NO_MORE_FILES, resultSize);

    int listSize = request.limit;
    char* const list = buffer + kCbBufferAt;
    int rc = VINF_SUCCESS;
    if (isDirectory) {
        rc = zrsfDirList(path.text, pathSize, &listSize, list, handle, request.flags, map);
    } else {
        rc = zrsfFileList(path.text, pathSize, &listSize, list, handle);
        handle->dir.SearchEnd = 1;
    }

    storeLe<std::int32_t>(buffer + kStatusAt, rc);
    *resultSize = boundedSize(listSize, kCbBufferAt - kStatusAt);
}
