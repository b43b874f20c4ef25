// Builds local paths out of requests and repairs their letter case. Processing thread only.
#include "linux/comm/Opreator/PathResolve.h"

#include <dirent.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Map/MapFolder.h"
#include "common/Policy/FdClientPolicy.h"
#include "linux/comm/Opreator/FdCommon_linux.h"

namespace {

constexpr int kMaxNamesLookedAt = 1000;  // of one directory, in the search for another spelling

bool copyFolder(LocalPath& path, const MapFolder& map) {
    const int folderSize = map.m_clientFolder_size;
    if (folderSize < 1) return false;  // the joint is one byte before the end of the folder

    const int err = memcpy_s(path.joined, kPathBufferSize, map.m_clientFolder,
                             static_cast<std::size_t>(folderSize));
    if (err != 0) FD_LOG_ERROR("memcpy_s failed, err = %d", err);
    return err == 0;
}

// Converts the request's path into `joined` from index `at` on, up to the length that is allowed.
bool convertName(LocalPath& path, int at, char* name, int nameSize) {
    path.converted = utf16LToUtf8(path.joined + at, kPathBufferSize - at, name, nameSize);
    return path.converted >= 0;
}

PathBuild translate(LocalPath& path, int length) {
    path.joinedLength = length;
    return winPath2LinuxPath(path.text, kPathBufferSize, path.joined, length) == -1
               ? PathBuild::TranslationFailed
               : PathBuild::Done;
}

bool isSeparator(char c) {
    return c == '/' || c == '\\';
}

}  // namespace

PathBuild buildCreatePath(LocalPath& path, const MapFolder& map, char* name, int nameSize) {
    if (!copyFolder(path, map)) return PathBuild::CopyFailed;
    const int folderSize = map.m_clientFolder_size;

    if (nameSize == 0) {
        // The map's own folder. A printer port's is a device, which bears no slash behind it.
        if (map.m_mapType != kPrinterMap) path.joined[folderSize - 1] = '/';
    } else if (!convertName(path, folderSize - 1, name, nameSize)) {
        return PathBuild::ConversionFailed;
    }

    // Kept: one byte more than was joined, so a path of 1024 bytes is refused here and nowhere
    // else.
    return translate(path, folderSize + path.converted);
}

PathBuild buildChangePath(LocalPath& path, const MapFolder& map, char* name, int nameSize) {
    if (!copyFolder(path, map)) return PathBuild::CopyFailed;
    const int joint = map.m_clientFolder_size - 1;

    if (!convertName(path, joint, name, nameSize)) return PathBuild::ConversionFailed;

    return translate(path, joint + path.converted);
}

PathBuild buildListPath(LocalPath& path, const MapFolder& map, char* name, int nameSize) {
    if (!copyFolder(path, map)) return PathBuild::CopyFailed;
    const int nameAt = map.m_clientFolder_size;
    path.joined[nameAt - 1] = '/';

    if (!convertName(path, nameAt, name, nameSize)) return PathBuild::ConversionFailed;

    char* const first = path.joined + nameAt;
    if (path.converted > 0 && isSeparator(*first)) {
        path.converted -= 1;
        // With the byte behind the name, which is zero: the moved text ends where it should.
        const int err = memmove_s(first, static_cast<std::size_t>(kPathBufferSize + 1 - nameAt),
                                  first + 1, static_cast<std::size_t>(path.converted) + 1);
        if (err != 0) {
            FD_LOG_ERROR("memcpy_s failed, err = %d", err);
            return PathBuild::MoveFailed;
        }
    }

    return translate(path, nameAt + path.converted);
}

namespace {

struct CloseDir {
    void operator()(DIR* dir) const { closedir(dir); }
};
using DirGuard = std::unique_ptr<DIR, CloseDir>;

// Appends the spelling that the directory has for `component`, or nothing if it has none.
void appendSpelling(std::string& pathName, DIR* dir, const std::string& component) {
    for (int i = 0; i < kMaxNamesLookedAt; ++i) {
        const dirent* entry = readdir(dir);
        if (entry == nullptr) return;
        if (strcasecmp(entry->d_name, component.c_str()) == 0) {
            pathName += entry->d_name;
            return;
        }
    }
}

// The suffix in the spelling of the file system; what is not found leaves a doubled slash. Empty if
// a folder on the way cannot be read.
std::string findSpelling(const std::string& suffix) {
    std::string tempPathName;
    std::size_t index = 0;
    while (index < suffix.size()) {
        tempPathName += '/';
        if (index + 1 == suffix.size()) break;  // a slash at the very end

        const std::size_t end = std::min(suffix.find('/', index + 1), suffix.size());
        const DirGuard dir(opendir(tempPathName.c_str()));
        if (dir == nullptr) {
            FD_LOG_ERROR("pSearchTmp == NULL! tempPathName: %s", tempPathName.c_str());
            return {};
        }
        appendSpelling(tempPathName, dir.get(), suffix.substr(index + 1, end - index - 1));
        index = end;
    }
    return tempPathName;
}

}  // namespace

int zrfsTransFilePath(char* pszPath, int /*pszPathLen*/, char* mapPath, int /*mapPathLen*/) {
    if (pszPath == nullptr || mapPath == nullptr) {
        FD_LOG_ERROR("pszPath: %p, mapPath: %p", static_cast<const void*>(pszPath),
                     static_cast<const void*>(mapPath));
        return 0;
    }

    const std::size_t pathLength = std::strlen(pszPath);
    const std::size_t mapLength = std::strlen(mapPath);
    if (pathLength > kPathBufferSize || mapLength == 0 || pathLength < mapLength + 2) {
        FD_LOG_WARN("length: %d, pszPath: %s", static_cast<int>(pathLength), pszPath);
        FD_LOG_WARN("length: %d, mapPath: %s", static_cast<int>(mapLength), mapPath);
        return 0;
    }

    // Kept: the part behind the map's folder is looked for from the root, on every map.
    char* const suffix = pszPath + mapLength;
    if (access(suffix, F_OK) == 0) return 1;

    const std::string spelling = findSpelling(suffix);
    if (spelling.size() < 2 || spelling.compare(0, 2, "//") == 0) return 0;

    const int err = memcpy_s(suffix, pathLength - mapLength, spelling.data(), spelling.size());
    if (err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return 0;
    }
    return 1;
}

bool isHiddenByRootFilter(const MapFolder& map, const char* path) {
    return map.m_rootFlag != 0 && !map.m_policy->isLinuxSystem() &&
           map.m_policy->isLinuxRootPathFilter(path);
}
