// The reply forms that the file handlers share. Processing thread only.
#include "linux/comm/Funcdef.h"

#include <cstdint>
#include <cstring>

#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "linux/comm/Opreator/ObjectInfo.h"

void putStatus(char* buffer, int status, int* resultSize, int size) {
    storeLe<std::int32_t>(buffer + kStatusAt, status);
    storeLe<std::uint32_t>(buffer + kCbBufferAt, 0);
    *resultSize = size;
}

void putObjectInfo(char* buffer, const RTFSOBJINFO& info, int* resultSize) {
    SHFLFSOBJINFO wire = {};
    fileInfoFromRtfs(&wire, &info);

    storeLe<std::int32_t>(buffer + kStatusAt, 0);
    storeLe<std::uint32_t>(buffer + kCbBufferAt, sizeof wire);
    std::memcpy(buffer + kReplyDataAt, &wire, sizeof wire);
    *resultSize = static_cast<int>(sizeof wire) + kDataReplyExtra;
}
