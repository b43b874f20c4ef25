// The delimited lists that steer which mount points are offered, and of which kind they are.
// Setters run on the processing thread, queries on any.
#include <cstdlib>
#include <cstring>
#include <utility>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Policy/FdClientPolicy.h"

namespace {
constexpr std::size_t kMaxMountPath = 255;

// Whether `text` is an entry of `list`, or several that stand side by side.
// Kept: only its first occurrence counts, even if that lies inside a longer entry.
bool holdsEntry(const char* list, const char* text, char delimiter) {
    const char* found = std::strstr(list, text);
    if (found == nullptr) return false;
    const bool begins = found == list || found[-1] == delimiter;
    const char behind = found[std::strlen(text)];
    return begins && (behind == '\0' || behind == delimiter);
}

bool holdsType(const char* list, const char* typeName, char delimiter) {
    if (typeName == nullptr || list == nullptr || *typeName == '\0') return false;
    return holdsEntry(list, typeName, delimiter);
}
}  // namespace

bool FdClientPolicy::setLinuxMountPath(const char* mountPath) {
    return replaceList(m_linuxMountPath, mountPath, "mountPath == NULL",
                       "setLinuxMountPath    size: %d,  mountPath: %s");
}

bool FdClientPolicy::setLinuxLocalfs(const char* localFs) {
    return replaceList(m_linuxLocalfs, localFs, "localFs == NULL",
                       "setLinuxLocalfs    size: %d,  localFs: %s");
}

bool FdClientPolicy::setLinuxRemovefs(const char* removeFs) {
    return replaceList(m_linuxRemovefs, removeFs, "removeFs == NULL",
                       "setLinuxRemovefs    size: %d,  removeFs: %s");
}

bool FdClientPolicy::setLinuxCdRomfs(const char* cdromFs) {
    return replaceList(m_linuxCdRomfs, cdromFs, "cdromFs == NULL",
                       "setLinuxCdRomfs    size: %d,  cdromFs: %s");
}

bool FdClientPolicy::setLinuxNetworkfs(const char* networkFs) {
    return replaceList(m_linuxNetworkfs, networkFs, "networkFs == NULL",
                       "setLinuxNetworkfs    size: %d,  networkFs: %s");
}

bool FdClientPolicy::replaceList(std::atomic<const char*>& list, const char* text,
                                 const char* nullText, const char* infoFormat) {
    if (text == nullptr) {
        FD_LOG_ERROR("%s", nullText);
        return false;
    }

    const std::size_t size = std::strlen(text) + 1;
    TextBlock block(static_cast<char*>(std::malloc(size)));
    if (block == nullptr) {
        list = nullptr;  // matches nothing until a later message brings a list
        FD_LOG_ERROR("malloc error!!!    fsSize: %d", static_cast<int>(size));
        return false;
    }

    FD_LOG_INFO(infoFormat, static_cast<int>(size), text);
    *block = '\0';  // a refused copy leaves an empty list
    const int err = memcpy_s(block.get(), size, text, size);
    m_textBlocks.push_back(std::move(block));
    list = m_textBlocks.back().get();
    if (err != 0) FD_LOG_ERROR("memcpy_s failed");
    return err == 0;
}

bool FdClientPolicy::setDelimiter(char delimiter) {
    FD_LOG_INFO("setDelimiter: %c", delimiter);
    m_delimiter = delimiter;
    return true;
}

bool FdClientPolicy::isLinuxDirEnable(const char* path) const {
    const char* list = m_linuxMountPath;
    if (path == nullptr || list == nullptr) return false;
    const std::size_t length = std::strlen(path);
    if (length == 0 || length > kMaxMountPath) return false;

    char ancestor[kMaxMountPath + 1] = {};
    if (memcpy_s(ancestor, sizeof ancestor, path, length) != 0) {
        FD_LOG_ERROR("memcpy_s failed");
        return false;
    }
    // From the nearest ancestor upwards; the slash that the path begins with ends none.
    for (char* slash = std::strrchr(ancestor + 1, '/'); slash != nullptr;
         slash = std::strrchr(ancestor + 1, '/')) {
        *slash = '\0';
        if (holdsEntry(list, ancestor, m_delimiter)) return true;
    }
    return false;
}

bool FdClientPolicy::isLocalFileSystem(const char* typeName) const {
    return holdsType(m_linuxLocalfs, typeName, m_delimiter);
}

bool FdClientPolicy::isRemoveFileSystem(const char* typeName) const {
    return holdsType(m_linuxRemovefs, typeName, m_delimiter);
}

bool FdClientPolicy::isCdRomeFileSystem(const char* typeName) const {
    return holdsType(m_linuxCdRomfs, typeName, m_delimiter);
}

bool FdClientPolicy::isNetworkFileSystem(const char* typeName) const {
    return holdsType(m_linuxNetworkfs, typeName, m_delimiter);
}
