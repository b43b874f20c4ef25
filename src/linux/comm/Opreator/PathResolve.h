// From the path of a request to a local path, and which paths are hidden. Processing thread only.
#pragma once

class MapFolder;

constexpr int kPathBufferSize = 1024;  // what the length checks allow

// Repairs the letter case of a path that does not exist as written, in place. 1 if it exists or was
// repaired, else 0; the lengths are not used. The part behind the map's folder is looked for from
// the root of the local file system.
int zrfsTransFilePath(char* pszPath, int pszPathLen, char* mapPath, int mapPathLen);

// Whether the root filter hides `path` on this map.
bool isHiddenByRootFilter(const MapFolder& map, const char* path);
