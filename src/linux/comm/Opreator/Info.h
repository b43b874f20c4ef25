// What the local system says of a file or a volume. Any thread.
#pragma once

#include "linux/comm/Opreator/ObjectInfo.h"

// Follows links, so a dangling link counts as missing. `additional` is not used.
int RTPathQueryInfoEx(const char* path, RTFSOBJINFO* info, RTFSOBJATTRADD additional);

// Of an open descriptor. A descriptor of value 0 cannot be queried.
int RTFileQueryInfo(unsigned long long hFile, RTFSOBJINFO* info, RTFSOBJATTRADD additional);

// Bytes in total and for an unprivileged user. Any output may be null.
int RTFsQuerySizes(const char* path, long long* total, long long* available,
                   unsigned int* bytesPerUnit, unsigned int* bytesPerSector);

int RTFsQuerySerial(const char* path, unsigned int* serial);
int RTFsQueryProperties(const char* path, RTFSPROPERTIES* properties);
