// The parameter block of a create request and its flags.
#pragma once

#include <cstddef>
#include <cstdint>

#include "linux/comm/Opreator/ObjectInfo.h"

// What became of the object of a create request.
enum SHFLCREATERESULT : std::int32_t {
    SHFL_NO_RESULT = 0,       // nothing is known; the status tells the failure
    SHFL_PATH_NOT_FOUND = 1,  // a parent folder is missing
    SHFL_FILE_NOT_FOUND = 2,  // the object itself is missing
    SHFL_FILE_EXISTS = 3,     // it was opened, or it stands in the way
    SHFL_FILE_CREATED = 4,
    SHFL_FILE_REPLACED = 5,
};

constexpr std::int64_t SHFL_HANDLE_NIL = -1;

enum SHFL_CF : std::uint32_t {
    SHFL_CF_OPEN_TARGET_DIRECTORY = 0x00000002,
    SHFL_CF_DIRECTORY = 0x00000004,
    SHFL_CF_ACT_MASK_IF_EXISTS = 0x000000F0,
    SHFL_CF_ACT_OPEN_IF_EXISTS = 0x00000000,
    SHFL_CF_ACT_FAIL_IF_EXISTS = 0x00000010,
    SHFL_CF_ACT_REPLACE_IF_EXISTS = 0x00000020,
    SHFL_CF_ACT_OVERWRITE_IF_EXISTS = 0x00000030,
    SHFL_CF_ACT_MASK_IF_NEW = 0x00000F00,
    SHFL_CF_ACT_CREATE_IF_NEW = 0x00000000,
    SHFL_CF_ACT_FAIL_IF_NEW = 0x00000100,
    SHFL_CF_ACCESS_MASK_RW = 0x00003000,
    SHFL_CF_ACCESS_NONE = 0x00000000,
    SHFL_CF_ACCESS_READ = 0x00001000,
    SHFL_CF_ACCESS_WRITE = 0x00002000,
    SHFL_CF_ACCESS_READWRITE = 0x00003000,
    SHFL_CF_ACCESS_MASK_DENY = 0x0000C000,
    SHFL_CF_ACCESS_DENYNONE = 0x00000000,
    SHFL_CF_ACCESS_DENYREAD = 0x00004000,
    SHFL_CF_ACCESS_DENYWRITE = 0x00008000,
    SHFL_CF_ACCESS_DENYALL = 0x0000C000,
    SHFL_CF_ACCESS_MASK_ATTR = 0x00030000,
    SHFL_CF_ACCESS_ATTR_READ = 0x00010000,
    SHFL_CF_ACCESS_ATTR_WRITE = 0x00020000,
    SHFL_CF_ACCESS_APPEND = 0x00040000,
    SHFL_CF_DIR_CLOSE_AFTER_OPEN = 0x00100000,
};

#pragma pack(push, 1)
struct _SHFLCREATEPARMS {
    std::int64_t Handle;
    std::int32_t Result;
    std::uint32_t CreateFlags;
    SHFLFSOBJINFO Info;
    std::uint8_t reserved[20];  // comes back as it came
};
#pragma pack(pop)
static_assert(sizeof(_SHFLCREATEPARMS) == 128 && offsetof(_SHFLCREATEPARMS, Info) == 16);
