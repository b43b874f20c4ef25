// The request that removes a file or an empty directory. Processing thread only.
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "common/Comm/FdLog.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapFolder.h"
#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/PathResolve.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

static_assert(kPathAt + UINT16_MAX + 4 <= MAX_CMD_BUFFER);

// What kind the server takes the object for. Logged only.
constexpr unsigned int SHFL_REMOVE_FILE = 0x1;
constexpr unsigned int SHFL_REMOVE_DIR = 0x2;
constexpr unsigned int SHFL_REMOVE_SYMLINK = 0x4;

void logRemoveFailure(PathBuild built, const LocalPath& path, int nameLength) {
    if (built == PathBuild::ConversionFailed) {
        FD_LOG_ERROR("utf16LToUtf8 error!!!   name_length: %d, pathSize: %d", nameLength,
                     path.converted);
    } else {
        FD_LOG_ERROR("winPath2LinuxPath error.  pathSize: %d, pName: %s", path.joinedLength,
                     path.joined);
    }
}

void logFlags(unsigned int flag) {
    if ((flag & SHFL_REMOVE_DIR) != 0) {
        FD_LOG_INFO("flag & SHFL_REMOVE_DIR: 0x%x", flag & SHFL_REMOVE_DIR);
    }
    if ((flag & SHFL_REMOVE_FILE) != 0) {
        FD_LOG_INFO("flag & SHFL_REMOVE_FILE: 0x%x", flag & SHFL_REMOVE_FILE);
    }
    if ((flag & SHFL_REMOVE_SYMLINK) != 0) {
        FD_LOG_INFO("flag & SHFL_REMOVE_SYMLINK: 0x%x", flag & SHFL_REMOVE_SYMLINK);
    }
}

// Waits up to 5 seconds for an object that is about to go.
bool waitUntilGone(const char* path) {
    constexpr int kTries = 500;
    constexpr useconds_t kPause = 10000;
    for (int i = 0; i < kTries; ++i) {
        if (access(path, F_OK) != 0) {
            FD_LOG_INFO("pRealFilePath : %s is not exist. i = %d", path, i);
            return true;
        }
        usleep(kPause);
    }
    return false;
}

int removeObject(const char* path, int nameLength, unsigned int flag) {
    constexpr int kStillBusy = 130;  // Kept: the number as it is, with no symbol, on every platform

    if (std::remove(path) == 0) return VINF_SUCCESS;

    int err = errno;
    if (err == kStillBusy && waitUntilGone(path)) err = 0;
    FD_LOG_ERROR("remove error!!!   nameLength: %d, path: %s, flag: 0x%x, errno: %d", nameLength,
                 path, flag, err);
    return RTErrConvertFromLinux(static_cast<unsigned int>(err));
}

}  // namespace

void ZrsfRemove(char*& buffer, int /*size*/, int* resultSize, MapFolder* map) {
    const int nameLength = loadLe<std::uint16_t>(buffer + kPathLengthAt);
    const auto flag = loadLe<std::uint32_t>(buffer + kPathAt + nameLength);

    LocalPath path;
    const PathBuild built = buildChangePath(path, *map, buffer + kPathAt, nameLength);
    if (built == PathBuild::CopyFailed) return;
    if (built != PathBuild::Done) {
        logRemoveFailure(built, path, nameLength);
        return putStatus(buffer, VERR_INVALID_PARAMETER, resultSize);
    }
    if (map->m_bWritable == 0) {
        FD_LOG_WARN("remove write protect!!!");
        return putStatus(buffer, VERR_WRITE_PROTECT, resultSize);
    }

    logFlags(flag);
    zrfsTransFilePath(path.text, 0, map->m_clientFolder, map->m_clientFolder_size);
    const int rc = removeObject(path.text, nameLength, flag);
    FD_LOG_INFO("remove end!!!   nameLength: %d, path: %s, flag: 0x%x, rc: %d", nameLength,
                path.text, flag, rc);

    putStatus(buffer, rc, resultSize);
}
