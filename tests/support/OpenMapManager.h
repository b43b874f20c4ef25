// The manager with its handler table open, so that a test can put in a handler of its own.
#pragma once

#include "common/Map/MapManager.h"

class OpenMapManager : public MapManager {
public:
    using MapManager::m_fsHandlers;
    using MapManager::MapManager;
};
