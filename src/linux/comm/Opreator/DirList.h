// The steps that build one entry of a listing. Processing thread only.
#pragma once

class MapFolder;

// Both write an entry at `to`, where there are kMaxEntrySize bytes, and give its size.
constexpr int kMaxEntrySize = 638;

// The entry `name` of the folder that `fullPath` names in its first `pathSize` - 1 bytes, with a
// slash at their end. The name is put behind them; the buffer holds kPathBufferSize + 1 bytes. 0,
// with a line in the log, for an entry that cannot be shown, and 0 for one that is hidden.
int getDirEntry(char* to, char* fullPath, int pathSize, char* name, const MapFolder& map);

// The entry of the object `path`, under the last component as its name. A status; `*entrySize` is
// set on success.
int getDirEntryByPath(char* to, char* path, int* entrySize);

// Whether `path` is the directory "/net" or shares its inode number.
bool inFilterListB(const char* path);
