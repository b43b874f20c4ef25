// The object and volume records of the file service, their mode word and their times.
#pragma once

#include <cstddef>
#include <cstdint>

// Nanoseconds since 1970-01-01 00:00:00 UTC.
#pragma pack(push, 1)
struct RTTIMESPEC {
    std::int64_t i64NanosecondsRelativeToUnixEpoch;
};

// Ticks of 100 ns since 1601-01-01 UTC.
struct _FILETIME {
    std::uint64_t ticks;
};

enum RTFSOBJATTRADD : std::int32_t { RTFSOBJATTRADD_NOTHING = 1, RTFSOBJATTRADD_UNIX = 2 };

struct RTFSOBJATTR {
    std::uint32_t fMode;
    RTFSOBJATTRADD enmAdditional;
    std::uint8_t u[36];
};

struct RTFSOBJINFO {
    std::int64_t cbObject;
    std::int64_t cbAllocated;
    RTTIMESPEC AccessTime;
    RTTIMESPEC ModificationTime;
    RTTIMESPEC ChangeTime;
    RTTIMESPEC BirthTime;
    RTFSOBJATTR Attr;
};

struct RTFSPROPERTIES {
    std::uint32_t cbMaxComponent;
    std::uint8_t fRemote;
    std::uint8_t fCaseSensitive;
    std::uint8_t fReadOnly;
    std::uint8_t fSupportsUnicode;
    std::uint8_t fCompressed;
    std::uint8_t fFileCompression;
};

// The wire forms.
using SHFLFSOBJINFO = RTFSOBJINFO;
using SHFLFSPROPERTIES = RTFSPROPERTIES;

struct SHFLVOLINFO {
    std::int64_t ullTotalAllocationBytes;
    std::int64_t ullAvailableAllocationBytes;
    std::uint32_t ulBytesPerAllocationUnit;
    std::uint32_t ulBytesPerSector;
    std::uint32_t ulSerial;
    SHFLFSPROPERTIES fsProperties;
};
#pragma pack(pop)
static_assert(sizeof(SHFLFSOBJINFO) == 92 && offsetof(SHFLFSOBJINFO, Attr) == 48);
static_assert(sizeof(SHFLFSPROPERTIES) == 10);
static_assert(sizeof(SHFLVOLINFO) == 38 && offsetof(SHFLVOLINFO, fsProperties) == 28);

// The mode word: DOS attributes in the high half, the Unix mode in the low half.
constexpr std::uint32_t RTFS_DOS_READONLY = 0x00010000;
constexpr std::uint32_t RTFS_DOS_DIRECTORY = 0x00100000;
constexpr std::uint32_t RTFS_DOS_NT_REPARSE_POINT = 0x04000000;
constexpr std::uint32_t RTFS_DOS_MASK = 0x7FFF0000;
constexpr std::uint32_t RTFS_UNIX_MASK = 0x0000FFFF;
constexpr std::uint32_t RTFS_TYPE_MASK = 0x0000F000;
constexpr std::uint32_t RTFS_TYPE_DIRECTORY = 0x00004000;

unsigned int rtFsModeFromDos(unsigned int fMode);
unsigned int rtFsModeFromLinux(unsigned int fMode, const char* name, unsigned int nameLen);

// Makes both halves consistent. `name` and `nameLen` are not used.
unsigned int rtFsModeNormalize(unsigned int fMode, const char* name, unsigned long nameLen);

// From the local form to the wire form, with the mode normalised.
void fileInfoFromRtfs(SHFLFSOBJINFO* dst, const RTFSOBJINFO* src);

// The same with the mode untouched.
void vbfsCopyFsObjInfoFromIprt(SHFLFSOBJINFO* dst, const RTFSOBJINFO* src);

void fileSysInfoFromRtfs(SHFLFSPROPERTIES* dst, const RTFSPROPERTIES* src);
void vbfsCopyFsPropertiesFromIprt(SHFLFSPROPERTIES* dst, const RTFSPROPERTIES* src);

std::int64_t RTTimeSpecGetNano(const RTTIMESPEC* time);
std::int64_t RTTimeSpecGetNtTime(const RTTIMESPEC* time);  // ticks of 100 ns since 1601
RTTIMESPEC* RTTimeSpecSetNtTime(RTTIMESPEC* time, unsigned long long ticks);
_FILETIME* RTTimeSpecGetNtFileTime(const RTTIMESPEC* time, _FILETIME* fileTime);
RTTIMESPEC* RTTimeSpecSetNtFileTime(RTTIMESPEC* time, const _FILETIME* fileTime);
