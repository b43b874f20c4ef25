// The naming rules of maps: by kind of map, by remote system and by what the path holds. Control
// thread only.
#include "common/Map/MapNaming.h"

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Map/MapFolder.h"
#include "common/Policy/FdClientPolicy.h"
#include "linux/comm/Opreator/FdCommon_linux.h"

namespace {

constexpr char kRootName[] = "rt";
constexpr std::size_t kTextLimit = kMapNameRoom - 1;  // leaves the terminator in its place

// Into a cleared `dst`, without the terminator.
bool copyText(char* dst, std::size_t limit, std::string_view src) {
    const int err = memcpy_s(dst, limit, src.data(), src.size());
    if (err != 0) FD_LOG_ERROR("memcpy_s failed, err = %d", err);
    return err == 0;
}

[[gnu::format(printf, 2, 3)]] bool formatText(MapNameText& name, const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    const int length = vsprintf_s(name.text, sizeof(name.text), format, args);
    va_end(args);
    if (length < 0) FD_LOG_ERROR("sprintf_s failed");
    return length >= 0;
}

std::uint16_t sizeWithTerminator(const char* text) {
    return static_cast<std::uint16_t>(std::strlen(text) + 1);
}

// The number of a printer port counts from 1, that of its device from 0.
char portDigit(const char* path, int pathSize) {
    const auto length = static_cast<int>(std::strlen(path));
    const bool isInside = pathSize >= 2 && pathSize - 2 < length;
    return static_cast<char>(isInside ? path[pathSize - 2] + 1 : 1);
}

bool makePrinterName(MapNameText& name, const MapFolder& map, const MapNameText& computer,
                     const char* path, int pathSize) {
    const bool isMade = map.m_policy->isWin7System() ? formatText(name, "%s--LPTx", computer.text)
                                                     : formatText(name, "LPTx");
    if (!isMade) return false;

    name.text[std::strlen(name.text) - 1] = portDigit(path, pathSize);
    FD_LOG_INFO("lpt map name is %s", name.text);
    return true;
}

bool makeRootName(MapNameText& name, const MapNameText& computer) {
    FD_LOG_WARN("root path folder name: %s", kRootName);
    return formatText(name, "%s r-%s", computer.text, kRootName);
}

bool makeFolderPart(MapNameText& part, const MapFolder& map, const char* path) {
    if (!copyText(part.text, kTextLimit, path)) return false;

    const auto length = static_cast<int>(std::strlen(path));
    if (getFolderNameByPath(part.text, kMapNameRoom, length) < 0) {
        FD_LOG_ERROR("can't get client path. fildPath: %s", path);
        return true;  // Kept: the whole path serves as the name, hyphens included
    }
    if (!isAllAsciiChar(part.text, kMapNameRoom)) return formatText(part, " %d", map.m_nMapIndex);
    return adjustStr(part.text, kMapNameRoom);  // the one hyphen of the name stands before it
}

bool makeFolderName(MapNameText& name, const MapFolder& map, const MapNameText& computer,
                    const char* path) {
    constexpr int kOldClientVersion = 10;
    MapNameText folder;
    if (!makeFolderPart(folder, map, path)) return false;

    const FdClientPolicy& policy = *map.m_policy;
    if (policy.isXpSystem() && policy.getWorkingClientVersion() == kOldClientVersion) {
        return formatText(name, "%s", folder.text);
    }
    return formatText(name, "%s-%s", computer.text, folder.text);
}

}  // namespace

bool setClientFolder(MapFolder& map, const char* path, int pathSize) {
    map.m_clientFolder_size = static_cast<std::uint16_t>(pathSize);
    if (!copyText(map.m_clientFolder, kTextLimit, path)) return false;

    // Kept: the whole array is converted, which mostly does not fit, and the size is then 65535.
    const int utf16Size = utf8ToUtf16L(map.m_utf16_clientFolder, sizeof(map.m_utf16_clientFolder),
                                       map.m_clientFolder, sizeof(map.m_clientFolder));
    map.m_utf16_clientFolder_size = static_cast<std::uint16_t>(utf16Size);
    return true;
}

bool makeComputerPart(MapNameText& part, const char* name) {
    const bool isAscii = isAllAsciiChar(name, kMapNameRoom);
    if (!isAscii) FD_LOG_WARN(" tmpCompName is not all ascii char");
    return copyText(part.text, kTextLimit, isAscii ? name : kComputerName) &&
           adjustStr(part.text, kMapNameRoom);
}

bool makeBaseName(MapNameText& name, MapFolder& map, const char* path, int pathSize) {
    MapNameText computer;
    if (!makeComputerPart(computer, kComputerName)) return false;

    if (map.m_mapType == kPrinterMap) {
        map.m_bWritable = 1;
        return makePrinterName(name, map, computer, path, pathSize);
    }

    map.m_bWritable = map.m_policy->isWritable() ? 1 : 0;
    if (getRootFlagByPath(path)) {
        map.m_rootFlag = 1;
        return makeRootName(name, computer);
    }
    return makeFolderName(name, map, computer, path);
}

bool makeNumberedName(MapNameText& name, const MapNameText& base, int number) {
    return formatText(name, "%s %d", base.text, number);
}

bool setComputerName(MapFolder& map) {
    MapNameText host;
    const bool isKnown = getHostName(host.text, kMapNameRoom) > 0;
    if (!copyText(map.m_utf8_computerName, kTextLimit, isKnown ? host.text : kComputerName)) {
        return false;
    }
    map.m_utf8_computerName_size = sizeWithTerminator(map.m_utf8_computerName);
    return true;
}

bool setShareFileName(MapFolder& map, const char* path) {
    MapNameText folder;
    if (!copyText(folder.text, kTextLimit, path)) return false;

    FD_LOG_INFO("full folderName : %s", folder.text);
    const auto length = static_cast<int>(std::strlen(path));
    const bool isCut = getFolderNameByPath(folder.text, kMapNameRoom, length) >= 0;
    if (isCut) {
        FD_LOG_INFO("folderName: %s", folder.text);
    } else {
        FD_LOG_WARN("can't get client path. fildPath: %s", path);
    }

    const char* const shareName = isCut ? folder.text : path;
    if (!copyText(map.m_utf8_shareFileName, sizeof(map.m_utf8_shareFileName), shareName)) {
        return false;
    }
    map.m_utf8_shareFileName_size = sizeWithTerminator(map.m_utf8_shareFileName);
    return true;
}

bool setMapName(MapFolder& map, const MapNameText& name) {
    // Kept: the name of a printer port goes out without its terminator.
    const bool isPrinter = map.m_mapType == kPrinterMap;
    map.m_utf8_mapName_size =
        static_cast<std::uint16_t>(std::strlen(name.text) + (isPrinter ? 0 : 1));
    if (!copyText(map.m_utf8_mapName, kTextLimit, name.text)) return false;

    const int utf16Size = utf8ToUtf16L(map.m_utf16_mapName, sizeof(map.m_utf16_mapName),
                                       map.m_utf8_mapName, map.m_utf8_mapName_size);
    map.m_utf16_mapName_size = static_cast<std::uint16_t>(utf16Size);
    if (utf16Size >= 0) return true;

    FD_LOG_ERROR("utf8ToUtf16L() return false");
    FD_LOG_ERROR("pMap->m_utf8_mapName: %s", map.m_utf8_mapName);
    FD_LOG_ERROR("pMap->m_utf8_mapName_size: %d", map.m_utf8_mapName_size);
    FD_LOG_ERROR("pMap->m_utf16_mapName_size: %d", map.m_utf16_mapName_size);
    return false;
}
