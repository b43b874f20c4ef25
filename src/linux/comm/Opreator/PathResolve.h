// From the path of a request to a local path, and which paths are hidden. Processing thread only.
#pragma once

class MapFolder;

constexpr int kPathBufferSize = 1024;  // what the length checks allow

// A local path and the text that it was translated from. Each buffer has one byte more than the
// checks allow, so that a terminator always has its place.
struct LocalPath {
    char joined[kPathBufferSize + 1] = {};  // the map's folder and the request's path behind it
    char text[kPathBufferSize + 1] = {};    // the same with slashes: the local path
    int converted = 0;                      // what the conversion to UTF-8 returned
    int joinedLength = 0;                   // how much of `joined` the translation was given
};

// How far the building of a path came. CopyFailed and MoveFailed have logged; the texts of the
// other two differ from handler to handler.
enum class PathBuild { Done, CopyFailed, MoveFailed, ConversionFailed, TranslationFailed };

// Each joins the map's folder and `name`, UTF-16LE of `nameSize` bytes. The request's own leading
// backslash is the separator, except in a listing, which brings one and drops the request's.
PathBuild buildCreatePath(LocalPath& path, const MapFolder& map, char* name, int nameSize);
PathBuild buildChangePath(LocalPath& path, const MapFolder& map, char* name, int nameSize);
PathBuild buildListPath(LocalPath& path, const MapFolder& map, char* name, int nameSize);

// Repairs the letter case of a path that does not exist as written, in place. 1 if it exists or was
// repaired, else 0; the lengths are not used. The part behind the map's folder is looked for from
// the root of the local file system.
int zrfsTransFilePath(char* pszPath, int pszPathLen, char* mapPath, int mapPathLen);

// Whether the root filter hides `path` on this map.
bool isHiddenByRootFilter(const MapFolder& map, const char* path);
