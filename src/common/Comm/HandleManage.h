// What the server has open on one map: a record for each open file or directory, by handle value. A
// handle value is the local descriptor. No lock: requests run on the processing thread, one by one.
#pragma once

#include <dirent.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>

enum HANDLE_TYPE : std::int32_t { HANDLE_TYPE_FILE = 0, HANDLE_TYPE_DIR = 1 };

struct _ZRSFHANDLE {
    HANDLE_TYPE type;
    char name[522];  // local path, cut to 521 bytes; serves logs and the prefix match only
    struct {
        long long Handle;          // the descriptor, of files and directories alike
        DIR* SearchHandle;         // the stream of a running listing, or null
        std::uint8_t SearchEnd;    // 1 once the listing on this handle is finished
        std::int32_t SearchCount;  // entries delivered so far
    } dir;
};

// A record that no table owns yet. Tables free theirs with free().
struct FreeRecord {
    void operator()(_ZRSFHANDLE* record) const { std::free(record); }
};
using RecordPtr = std::unique_ptr<_ZRSFHANDLE, FreeRecord>;
RecordPtr newRecord();  // all zero, or null without memory

class HandleManage {
public:
    HandleManage();
    ~HandleManage();  // ClearAll
    HandleManage(const HandleManage&) = delete;
    HandleManage& operator=(const HandleManage&) = delete;

    // Takes ownership of `data`, which malloc made, unless it returns false: the key is present.
    bool InsertHandle(long long handle, _ZRSFHANDLE* data);
    bool InsertHandleByName(long long handle, const char* name, HANDLE_TYPE type);

    // Frees the record and closes nothing.
    bool RemoveHandle(long long handle);

    // The record, owned by the table, or null.
    _ZRSFHANDLE* GetHandleData(long long handle);

    bool starts_with(const char* s, const char* prefix);

    // Closes and removes every record whose path begins with `path`, byte by byte.
    void clearAllHandleInTheVolumePath(const char* path);
    void ClearAll();
    bool printAll();

private:
    std::map<long long, _ZRSFHANDLE*> m_handles;
};
