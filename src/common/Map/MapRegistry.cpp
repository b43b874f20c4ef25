// The registry of maps. The control thread adds and removes them, the processing thread looks them
// up for each request. The control thread is the sole adder, so a name found unique stays so until
// its map is listed.
#include "common/Map/MapManager.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "common/Comm/FdLog.h"
#include "common/Map/MapNaming.h"

namespace {

constexpr int kMaxNameNumber = 1000;

std::string_view bytesOf(const char* text, int size) {
    return {text, static_cast<std::size_t>(std::max(size, 0))};
}

bool hasClientPath(const MapFolder& map, const char* path, int pathSize) {
    constexpr int kRoom = sizeof(map.m_clientFolder);
    return map.m_clientFolder_size == pathSize && pathSize <= kRoom &&
           bytesOf(map.m_clientFolder, pathSize) == bytesOf(path, pathSize);
}

// Whether one name is the other with a terminating character behind it.
bool isTerminatedForm(std::string_view longer, std::string_view shorter) {
    return longer.size() == shorter.size() + sizeof(char16_t) && longer.starts_with(shorter);
}

bool isSameName(std::string_view a, std::string_view b) {
    return a == b || isTerminatedForm(a, b) || isTerminatedForm(b, a);
}

void logMap(const MapFolder& map) {
    FD_LOG_INFO("mapId: %d", map.m_nMapIndex);
    FD_LOG_INFO("clientFolder: %s", map.m_clientFolder);
    FD_LOG_INFO("mapName: %s", map.m_utf8_mapName);
    FD_LOG_INFO("computerName: %s", map.m_utf8_computerName);
    FD_LOG_INFO("shareFileName: %s", map.m_utf8_shareFileName);
}

}  // namespace

template <typename Predicate>
MapFolderPtr MapManager::findMap(Predicate isWanted) {
    const ZMutexLocker lock(m_mapListMutex);
    for (const MapFolderPtr& map : m_mapList) {
        if (isWanted(*map)) return map;
    }
    return nullptr;
}

MapFolderPtr MapManager::addMapInfo(const char* path, int pathSize, int type) {
    if (getMapInfoByClientPath(path, pathSize) != nullptr) {
        FD_LOG_WARN("filepathStr is exist!!!   filePathStr: %s, pathSize: %d", path, pathSize);
        return nullptr;
    }

    MapFolderPtr map = std::make_shared<MapFolder>(m_policy, m_listener);
    map->m_nMapIndex = nextMapId();
    map->m_mapType = type;
    if (!setClientFolder(*map, path, pathSize) || !nameMap(*map, path, pathSize)) return nullptr;

    listMap(map);
    logMap(*map);
    return map;
}

bool MapManager::nameMap(MapFolder& map, const char* path, int pathSize) {
    MapNameText base;
    MapNameText name;
    return makeBaseName(base, map, path, pathSize) && makeUniqueName(name, base) &&
           setComputerName(map) && setShareFileName(map, path) && setMapName(map, name);
}

bool MapManager::makeUniqueName(MapNameText& name, const MapNameText& base) {
    name = base;
    for (int number = 1; getMapInfoByShareNameUtf8(name.text, kMapNameRoom) != nullptr; ++number) {
        if (!makeNumberedName(name, base, number)) return false;
        if (number == kMaxNameNumber) {
            FD_LOG_ERROR("share name all same.count: %d, tmpMapName: %s", number, base.text);
            return true;  // Kept: two maps may have this one
        }
    }
    return true;
}

void MapManager::listMap(const MapFolderPtr& map) {
    const ZMutexLocker lock(m_mapListMutex);
    m_mapList.push_back(map);
    ++m_mapNum;
}

MapFolderPtr MapManager::getMapInfoByID(int id) {
    MapFolderPtr map = findMap([id](const MapFolder& m) { return m.m_nMapIndex == id; });
    if (map == nullptr) FD_LOG_WARN("can not find the map by id. id: %d", id);
    return map;
}

MapFolderPtr MapManager::getMapInfoByClientPath(const char* path, int pathSize) {
    MapFolderPtr map =
        findMap([=](const MapFolder& m) { return hasClientPath(m, path, pathSize); });
    if (map == nullptr) FD_LOG_WARN("can't find the map by client path. path: %s", path);
    return map;
}

MapFolderPtr MapManager::getMapInfoByShareNameUtf8(const char* name, int /*size*/) {
    return findMap([name](const MapFolder& m) { return std::strcmp(m.m_utf8_mapName, name) == 0; });
}

MapFolderPtr MapManager::getMapInfoByShareNameUtf16(const char* name, int size) {
    if (size > MAX_PATH_BUFF) {
        FD_LOG_ERROR("nameSize: %d, MAX_PATH_BUFF: %d", size, MAX_PATH_BUFF);
        return nullptr;
    }

    const std::string_view wanted = bytesOf(name, size);
    MapFolderPtr map = findMap([wanted](const MapFolder& m) {
        return isSameName(bytesOf(m.m_utf16_mapName, m.m_utf16_mapName_size), wanted);
    });
    if (map == nullptr) {
        const std::string start(wanted.substr(0, wanted.find('\0')));
        FD_LOG_WARN("can not find the map by name. path: %s", start.c_str());
    }
    return map;
}

MapFolderPtr MapManager::deleteMapInfoByMapIndex(int id) {
    FD_LOG_INFO("mapId: %d", id);
    MapFolderPtr map = unlistMap(id);
    if (map == nullptr) FD_LOG_WARN("can't find the map id");
    return map;
}

int MapManager::getMapNum() {
    int next = 0;
    int listed = 0;
    {
        const ZMutexLocker lock(m_mapListMutex);
        next = m_mapNum;
        listed = static_cast<int>(m_mapList.size());
    }
    FD_LOG_INFO("m_mapNum: %d, m_mapList: %d", next, listed);
    return listed;
}

MapFolderPtr MapManager::unlistMap(int id) {
    const ZMutexLocker lock(m_mapListMutex);
    const auto found =
        std::find_if(m_mapList.begin(), m_mapList.end(),
                     [id](const MapFolderPtr& map) { return map->m_nMapIndex == id; });
    if (found == m_mapList.end()) return nullptr;
    MapFolderPtr map = std::move(*found);
    m_mapList.erase(found);
    return map;
}
