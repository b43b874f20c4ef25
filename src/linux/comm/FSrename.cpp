// The request that gives an object another name. Processing thread only.
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "common/Comm/FdLog.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapFolder.h"
#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/PathResolve.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

// The source, the target and the flags follow each other, each path behind its length.
constexpr int kSrcLengthAt = 12;
constexpr int kPathLengthSize = 2;
static_assert(kSrcLengthAt + 2 * (kPathLengthSize + UINT16_MAX) + 4 <= MAX_CMD_BUFFER);

// The kind is logged only.
constexpr unsigned int SHFL_RENAME_FILE = 0x1;
constexpr unsigned int SHFL_RENAME_DIR = 0x2;
constexpr unsigned int SHFL_RENAME_REPLACE_IF_EXISTS = 0x4;

struct RenameRequest {
    int srcLength;
    char* src;
    int dstLength;
    char* dst;
    unsigned int flag;
};

RenameRequest readRequest(char* buffer) {
    RenameRequest request{};
    request.srcLength = loadLe<std::uint16_t>(buffer + kSrcLengthAt);
    request.src = buffer + kSrcLengthAt + kPathLengthSize;
    char* const dstLengthAt = request.src + request.srcLength;
    request.dstLength = loadLe<std::uint16_t>(dstLengthAt);
    request.dst = dstLengthAt + kPathLengthSize;
    request.flag = loadLe<std::uint32_t>(request.dst + request.dstLength);
    return request;
}

void logSrcFailure(PathBuild built, const LocalPath& path, int nameLength) {
    if (built == PathBuild::ConversionFailed) {
        FD_LOG_ERROR("Rename Src utf16LToUtf8 error!!!   name_length: %d, pathSize: %d", nameLength,
                     path.converted);
    } else {
        FD_LOG_ERROR("Rename Src winPath2LinuxPaht error!!!   dst_length: %d, pName: %s",
                     path.joinedLength, path.joined);
    }
}

void logDstFailure(PathBuild built, const LocalPath& path, int nameLength) {
    if (built == PathBuild::ConversionFailed) {
        FD_LOG_ERROR("Rename Dst utf16LToUtf8 error!!!   name_length: %d, pathSize: %d", nameLength,
                     path.converted);
    } else {
        FD_LOG_ERROR("Rename Dst winPath2LinuxPaht error!!!  pathSize: %d, pName: %s",
                     path.joinedLength, path.joined);
    }
}

int renameObject(const char* src, const char* dst) {
    if (std::rename(src, dst) == 0) return VINF_SUCCESS;

    const int err = errno;
    FD_LOG_WARN("rename with replace flag, but error. errno: %d", err);  // Kept: without it too
    return RTErrConvertFromLinux(static_cast<unsigned int>(err));
}

// False if the request has had its answer, or gets none.
bool buildPaths(const RenameRequest& request, const MapFolder& map, LocalPath& src, LocalPath& dst,
                char* buffer, int* resultSize) {
    const PathBuild srcBuilt = buildChangePath(src, map, request.src, request.srcLength);
    if (srcBuilt == PathBuild::CopyFailed) return false;
    if (srcBuilt != PathBuild::Done) {
        logSrcFailure(srcBuilt, src, request.srcLength);
        putStatus(buffer, VERR_INVALID_PARAMETER, resultSize);
        return false;
    }
    if (std::strrchr(src.text, '/') == nullptr) {
        putStatus(buffer, VERR_INVALID_PARAMETER, resultSize);
        return false;
    }

    const PathBuild dstBuilt = buildChangePath(dst, map, request.dst, request.dstLength);
    if (dstBuilt == PathBuild::CopyFailed) return false;
    if (dstBuilt != PathBuild::Done) {
        logDstFailure(dstBuilt, dst, request.dstLength);
        putStatus(buffer, VERR_INVALID_PARAMETER, resultSize);
        return false;
    }
    return true;
}

// Whether the target's name may be taken. Kept: a target that appears after the test is replaced.
bool mayTakeName(const char* dst, unsigned int flag) {
    if ((flag & SHFL_RENAME_REPLACE_IF_EXISTS) != 0) {
        FD_LOG_INFO("Rename flag & SHFL_RENAME_REPLACE_IF_EXISTS: 0x%x",
                    flag & SHFL_RENAME_REPLACE_IF_EXISTS);
        return true;
    }
    FD_LOG_INFO("Rename flag & SHFL_RENAME_DIR: 0x%x", flag & SHFL_RENAME_DIR);
    FD_LOG_INFO("Rename flag & SHFL_RENAME_FILE: 0x%x", flag & SHFL_RENAME_FILE);

    struct stat target;
    if (stat(dst, &target) != 0) return true;
    FD_LOG_WARN("file is exist. rename flags not set replace!");
    return false;
}

}  // namespace

void ZrsfRename(char*& buffer, int /*size*/, int* resultSize, MapFolder* map) {
    const RenameRequest request = readRequest(buffer);

    LocalPath src;
    LocalPath dst;
    if (!buildPaths(request, *map, src, dst, buffer, resultSize)) return;
    if (map->m_bWritable == 0) {
        FD_LOG_WARN(
            "Rename write protect!!!   srcLength: %d, srcPath: %s, dstLength: %d, dstPath: %s",
            request.srcLength, src.text, request.dstLength, dst.text);
        return putStatus(buffer, VERR_WRITE_PROTECT, resultSize);
    }

    zrfsTransFilePath(src.text, 0, map->m_clientFolder, map->m_clientFolder_size);
    zrfsTransFilePath(dst.text, 0, map->m_clientFolder, map->m_clientFolder_size);
    if (!mayTakeName(dst.text, request.flag)) {
        return putStatus(buffer, VERR_ALREADY_EXISTS, resultSize);
    }
    const int rc = renameObject(src.text, dst.text);
    FD_LOG_INFO(
        "Rename end!!!   src_length: %d, pLinuxSrcPath: %s, dst_length: %d, pLinuxDstPath: %s, flag: 0x%x, rc: %d",
        request.srcLength, src.text, request.dstLength, dst.text, request.flag, rc);

    putStatus(buffer, rc, resultSize);
}
