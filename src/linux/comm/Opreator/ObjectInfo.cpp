// The two halves of the mode word, the ways of a record to the wire, and the two epochs. Any
// thread.
#include "linux/comm/Opreator/ObjectInfo.h"

#include <algorithm>

namespace {

constexpr std::uint32_t kFileType = 0x8000;
constexpr std::uint32_t kLinkType = 0xA000;
constexpr std::uint32_t kReadAndSearch = 0x016D;  // r-xr-xr-x
constexpr std::uint32_t kRead = 0x0124;           // r--r--r--
constexpr std::uint32_t kWrite = 0x0092;          // -w--w--w-

// The wire's own number for Unix attributes, of which only the head goes out.
constexpr auto kWireUnixAttributes = static_cast<RTFSOBJATTRADD>(3);
constexpr std::size_t kWireUnixAttributesSize = 8;

constexpr std::uint64_t kTickNanoseconds = 100;
constexpr std::uint64_t kUnixEpochTicks = 116444736000000000;  // 1970 seen from 1601

bool hasType(std::uint32_t fMode, std::uint32_t type) {
    return (fMode & RTFS_TYPE_MASK) == type;
}

}  // namespace

unsigned int rtFsModeFromDos(unsigned int fMode) {
    const bool isDirectory = (fMode & RTFS_DOS_DIRECTORY) != 0;
    std::uint32_t unixHalf = isDirectory ? RTFS_TYPE_DIRECTORY | kReadAndSearch : kFileType | kRead;
    if ((fMode & RTFS_DOS_NT_REPARSE_POINT) != 0) {
        unixHalf = kLinkType | (unixHalf & kReadAndSearch);
    }
    if ((fMode & RTFS_DOS_READONLY) == 0) unixHalf |= kWrite;
    return (fMode & ~RTFS_UNIX_MASK) | unixHalf;
}

unsigned int rtFsModeFromLinux(unsigned int fMode, const char* /*name*/, unsigned int /*nameLen*/) {
    if (hasType(fMode, kLinkType)) fMode |= RTFS_DOS_NT_REPARSE_POINT;
    if (hasType(fMode, RTFS_TYPE_DIRECTORY)) fMode |= RTFS_DOS_DIRECTORY;
    if ((fMode & kWrite) == 0) fMode |= RTFS_DOS_READONLY;
    return fMode;
}

unsigned int rtFsModeNormalize(unsigned int fMode, const char* name, unsigned long nameLen) {
    if ((fMode & RTFS_UNIX_MASK) == 0) {
        fMode = rtFsModeFromDos(fMode);
    } else if ((fMode & RTFS_DOS_MASK) == 0) {
        fMode = rtFsModeFromLinux(fMode, name, static_cast<unsigned int>(nameLen));
    }

    if (hasType(fMode, RTFS_TYPE_DIRECTORY)) fMode |= RTFS_DOS_DIRECTORY;
    if (hasType(fMode, 0)) {
        fMode |= (fMode & RTFS_DOS_DIRECTORY) != 0 ? RTFS_TYPE_DIRECTORY : kFileType;
    }
    return fMode;
}

void fileInfoFromRtfs(SHFLFSOBJINFO* dst, const RTFSOBJINFO* src) {
    vbfsCopyFsObjInfoFromIprt(dst, src);
    dst->Attr.fMode = rtFsModeNormalize(dst->Attr.fMode, nullptr, 0);
}

void vbfsCopyFsObjInfoFromIprt(SHFLFSOBJINFO* dst, const RTFSOBJINFO* src) {
    SHFLFSOBJINFO wire = *src;
    std::fill_n(wire.Attr.u, sizeof(wire.Attr.u), std::uint8_t{0});
    wire.Attr.enmAdditional = RTFSOBJATTRADD_NOTHING;
    if (src->Attr.enmAdditional == RTFSOBJATTRADD_UNIX) {
        wire.Attr.enmAdditional = kWireUnixAttributes;
        std::copy_n(src->Attr.u, kWireUnixAttributesSize, wire.Attr.u);
    }
    *dst = wire;
}

void fileSysInfoFromRtfs(SHFLFSPROPERTIES* dst, const RTFSPROPERTIES* src) {
    *dst = *src;
}

void vbfsCopyFsPropertiesFromIprt(SHFLFSPROPERTIES* dst, const RTFSPROPERTIES* src) {
    fileSysInfoFromRtfs(dst, src);
}

std::int64_t RTTimeSpecGetNano(const RTTIMESPEC* time) {
    return time->i64NanosecondsRelativeToUnixEpoch;
}

std::int64_t RTTimeSpecGetNtTime(const RTTIMESPEC* time) {
    const std::int64_t ticks = RTTimeSpecGetNano(time) / std::int64_t{kTickNanoseconds};
    return ticks + std::int64_t{kUnixEpochTicks};
}

RTTIMESPEC* RTTimeSpecSetNtTime(RTTIMESPEC* time, unsigned long long ticks) {
    // Modulo 2^64: times out of reach wrap.
    const std::uint64_t nanoseconds = (ticks - kUnixEpochTicks) * kTickNanoseconds;
    time->i64NanosecondsRelativeToUnixEpoch = static_cast<std::int64_t>(nanoseconds);
    return time;
}

_FILETIME* RTTimeSpecGetNtFileTime(const RTTIMESPEC* time, _FILETIME* fileTime) {
    fileTime->ticks = static_cast<std::uint64_t>(RTTimeSpecGetNtTime(time));
    return fileTime;
}

RTTIMESPEC* RTTimeSpecSetNtFileTime(RTTIMESPEC* time, const _FILETIME* fileTime) {
    return RTTimeSpecSetNtTime(time, fileTime->ticks);
}
