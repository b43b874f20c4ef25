// The live maps of a Linux-dialect connection.
#include <algorithm>
#include <cstring>

#include "common/Comm/FdLog.h"
#include "common/LinuxServer/workthread/FdContext.h"
#include "common/LinuxServer/workthread/FdMapInfo.h"

namespace {
using MapList = std::deque<FdMapInfoPtr>;

auto byId(int mapid) {
    return [mapid](const FdMapInfoPtr& map) { return map->getMapId() == mapid; };
}

auto byPath(const char* path) {
    return [path](const FdMapInfoPtr& map) {
        return map->getMountPath() != nullptr && std::strcmp(map->getMountPath(), path) == 0;
    };
}

template <typename Predicate>
FdMapInfoPtr find(const MapList& maps, Predicate matches) {
    const auto found = std::ranges::find_if(maps, matches);
    return found == maps.end() ? nullptr : *found;
}

template <typename Predicate>
FdMapInfoPtr take(MapList& maps, Predicate matches) {
    const auto found = std::ranges::find_if(maps, matches);
    if (found == maps.end()) return nullptr;
    FdMapInfoPtr map = *found;
    maps.erase(found);
    return map;
}
}  // namespace

FdMapInfoPtr FdContext::findMapInfoById(int mapid) {
    const ZMutexLocker lock(m_map_mutex);
    return find(m_map_list, byId(mapid));
}

FdMapInfoPtr FdContext::findMapInfoByMountPath(const char* path) {
    const ZMutexLocker lock(m_map_mutex);
    return find(m_map_list, byPath(path));
}

FdMapInfoPtr FdContext::getMapInfoById(int mapid) {
    FdMapInfoPtr map;
    {
        const ZMutexLocker lock(m_map_mutex);
        map = take(m_map_list, byId(mapid));
    }
    if (map == nullptr) {
        FD_LOG_INFO("map not exist.  mapid: %d", mapid);
    } else {
        FD_LOG_INFO("map exist.  mapid: %d, mapinfo: %p", mapid, static_cast<void*>(map.get()));
    }
    return map;
}

FdMapInfoPtr FdContext::getMapInfoByMountPath(const char* path) {
    FdMapInfoPtr map;
    {
        const ZMutexLocker lock(m_map_mutex);
        map = take(m_map_list, byPath(path));
    }
    if (map == nullptr) {
        FD_LOG_INFO("map not exist.  path: %s", path);
    } else {
        FD_LOG_INFO("map exist.  path:%s , mapinfo: %p", path, static_cast<void*>(map.get()));
    }
    return map;
}

FdMapInfoPtr FdContext::getMapInfo() {
    FdMapInfoPtr map;
    {
        const ZMutexLocker lock(m_map_mutex);
        map = take(m_map_list, [](const FdMapInfoPtr&) { return true; });
    }
    FD_LOG_INFO("get map info. mapid: %d, mapinfo: %p", map == nullptr ? 0 : map->getMapId(),
                static_cast<void*>(map.get()));
    return map;
}

bool FdContext::addMapInfo(const FdMapInfoPtr& map) {
    const int mapid = map->getMapId();
    FD_LOG_INFO("add map info. mapid: %d", mapid);
    bool added = false;
    int count = 0;
    {
        const ZMutexLocker lock(m_map_mutex);
        added = find(m_map_list, byId(mapid)) == nullptr;
        if (added) m_map_list.push_back(map);
        count = static_cast<int>(m_map_list.size());
    }
    if (added) {
        FD_LOG_INFO("add map info success. mapid: %d, mapinfo: %p", mapid,
                    static_cast<void*>(map.get()));
    } else {
        FD_LOG_INFO("add an exist map. mapid: %d, mapinfo: %p", mapid,
                    static_cast<void*>(map.get()));
    }
    FD_LOG_INFO("map count.  %d", count);
    return added;
}

int FdContext::nextMapId() {
    const ZMutexLocker lock(m_map_id_mutex);
    return ++m_map_id;
}
