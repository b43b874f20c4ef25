// Directories of the file service: opening, closing and listing them. Processing thread only.
#pragma once

#include "common/Comm/HandleManage.h"
#include "linux/comm/Opreator/CreateParms.h"

class MapFolder;

// Opens, and with the create action makes, the directory. Fills Handle, Result and Info of `parms`.
int zrfsOpenDir(const char* path, _SHFLCREATEPARMS* parms, HandleManage* handles, MapFolder* map);

// Closes what the record holds; the record itself stays with its table.
void zrsfCloseDir(_ZRSFHANDLE* handle);

// `buffer` is the reply at its cbBuffer word. `*size` holds the server's limit on entry and the
// bytes from `buffer` on return, less 4.
int zrsfDirList(const char* path, int pathSize, int* size, char* buffer, _ZRSFHANDLE* handle,
                unsigned int flags, MapFolder* map);

// The same for the one object that `path` names.
int zrsfFileList(const char* path, int pathSize, int* size, char* buffer, _ZRSFHANDLE* handle);
