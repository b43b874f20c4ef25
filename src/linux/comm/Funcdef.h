// The file handlers of the Windows dialect, one for each slot of the handler table. Each reads its
// request from `buffer`, which holds MAX_CMD_BUFFER bytes, builds the reply over it and stores the
// reply's size in `*resultSize`; 0 sends no reply. All run on the processing thread.
#pragma once

class MapFolder;
struct RTFSOBJINFO;

void ZrsfCreate(char*& buffer, int size, int* resultSize, MapFolder* map);
void ZrsfClose(char*& buffer, int size, int* resultSize, MapFolder* map);
void ZrsfRead(char*& buffer, int size, int* resultSize, MapFolder* map);
void ZrsfWrite(char*& buffer, int size, int* resultSize, MapFolder* map);
void ZrsfFlush(char*& buffer, int size, int* resultSize, MapFolder* map);
void ZrsfDirList(char*& buffer, int size, int* resultSize, MapFolder* map);
void ZrsfQueryFileInfo(char*& buffer, int size, int* resultSize, MapFolder* map);
void ZrsfSetFileInfo(char*& buffer, int size, int* resultSize, MapFolder* map);
void ZrsfQueryVolumeInfo(char*& buffer, int size, int* resultSize, MapFolder* map);
void ZrsfSetEndOfFile(char*& buffer, int size, int* resultSize, MapFolder* map);
void ZrsfRename(char*& buffer, int size, int* resultSize, MapFolder* map);
void ZrsfRemove(char*& buffer, int size, int* resultSize, MapFolder* map);
void ZrsfLocks(char*& buffer, int size, int* resultSize, MapFolder* map);

// The form of a reply that carries a status and no data: status, a zero word, `resultSize` bytes.
constexpr int kStatusOnlySize = 12;

// The reply of a handler whose size is counted as its data and 11 bytes.
constexpr int kDataReplyExtra = 11;

// A read request that is all there. Its handler looks at nothing behind it, and every byte of its
// reply is the request's, the file's or zero, whatever the buffer held.
constexpr int kReadRequestSize = 32;

// Offset of the handle in every request that begins with one, and of what follows it in a request
// to read or write.
constexpr int kHandleAt = 12;
constexpr int kOffsetAt = 20;
constexpr int kLengthAt = 28;

// Offset of the path in a request to create or remove, and of its length in bytes.
constexpr int kPathLengthAt = 12;
constexpr int kPathAt = 14;

// Writes the status form into the buffer: `status`, `cbBuffer` 0 and `*resultSize` = `size`.
void putStatus(char* buffer, int status, int* resultSize, int size = kStatusOnlySize);

// Writes success and the wire form of `info`, 92 bytes.
void putObjectInfo(char* buffer, const RTFSOBJINFO& info, int* resultSize);
