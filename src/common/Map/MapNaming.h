// How a map gets its names. Each function fills fields of a map that is not listed yet, or a text
// on the way there, and gives false after a failure that it has logged. Control thread only.
#pragma once

class MapFolder;

constexpr int kMapNameRoom = 1024;

// A text of at most 1023 bytes.
struct MapNameText {
    char text[kMapNameRoom] = {};
};

// `pathSize` is the byte count of `path` with its terminator.
bool setClientFolder(MapFolder& map, const char* path, int pathSize);

// The first part of most map names, without any hyphen: `name`, or the fixed one if it is not
// ASCII.
bool makeComputerPart(MapNameText& part, const char* name);

// The name before it is unique, by kind of map. Sets m_bWritable and m_rootFlag as well.
bool makeBaseName(MapNameText& name, MapFolder& map, const char* path, int pathSize);

bool makeNumberedName(MapNameText& name, const MapNameText& base, int number);
bool setComputerName(MapFolder& map);
bool setShareFileName(MapFolder& map, const char* path);
bool setMapName(MapFolder& map, const MapNameText& name);  // in both encodings
