// Files of the file service: opening, closing and changing them. Processing thread only.
#pragma once

#include "common/Comm/HandleManage.h"
#include "linux/comm/Opreator/CreateParms.h"

class MapFolder;

// Opens or creates the file. Fills Handle, Result and Info of `parms`. `map` is not used.
int zrfsOpenFile(const char* path, _SHFLCREATEPARMS* parms, HandleManage* handles, MapFolder* map);

// Closes what the record holds; the record itself stays with its table.
void zrsfCloseFile(_ZRSFHANDLE* handle);

int RTSetFileInfo(long long handle, unsigned int size, SHFLFSOBJINFO* info, HANDLE_TYPE type);

// A null time stays as it is, or takes the other's value. The last two are not used.
int RTFileSetTimes(long long handle, const RTTIMESPEC* accessTime,
                   const RTTIMESPEC* modificationTime, const RTTIMESPEC* changeTime,
                   const RTTIMESPEC* birthTime);
int RTFileSetMode(long long handle, unsigned int mode);
int RTFileSetSize(long long handle, unsigned long long size);  // bytes

int RTFileLock(unsigned long long handle, unsigned long long offset, unsigned long long length,
               unsigned int flags);
int RTFileUnlock(unsigned long long handle, unsigned long long offset, unsigned long long length,
                 unsigned int flags);
