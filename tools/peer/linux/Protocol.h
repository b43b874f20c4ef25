// Numbers of the Linux dialect: operations, map control, and where the fields of a frame stand.
#pragma once

#include <cstddef>
#include <cstdint>

namespace peer::linux {

enum Class : std::int32_t { kMapControl = 1, kOperation = 3 };

enum Control : std::int32_t {
    kIgnored = 1,
    kPlug = 4,
    kUnplug = 5,
    kMap = 6,
    kMapAck = 7,
    kUnmap = 8,
    kUnmapAck = 9
};

enum Code : std::int32_t {
    kGetattr = 1,
    kReadlink = 2,
    kMknod = 4,
    kMkdir = 5,
    kUnlink = 6,
    kRmdir = 7,
    kSymlink = 8,
    kRename = 9,
    kLink = 10,
    kChmod = 11,
    kChown = 12,
    kTruncate = 13,
    kOpen = 15,
    kRead = 16,
    kWrite = 17,
    kStatfs = 18,
    kReaddir = 27,
    kAccess = 32,
    kUtimens = 37
};

// A frame: 8 bytes of zero, the length of what follows, the head, the payload.
inline constexpr std::size_t kLengthAt = 8;
inline constexpr std::size_t kHeadSizeAt = 12;
inline constexpr std::size_t kReservedAt = 16;
inline constexpr std::size_t kMapIdAt = 20;
inline constexpr std::size_t kTypeAt = 24;
inline constexpr std::size_t kSubtypeAt = 28;
inline constexpr std::size_t kResAt = 32;
inline constexpr std::size_t kIdxAt = 40;
inline constexpr std::size_t kOpaqueAt = 48;
inline constexpr std::size_t kExtSizeAt = 72;
inline constexpr std::size_t kPayloadAt = 76;

inline constexpr std::size_t kPrefixSize = 12;
inline constexpr std::size_t kHeadSize = 64;
inline constexpr std::size_t kFileInfoSize = 48;
inline constexpr std::size_t kStatSize = 104;
inline constexpr std::size_t kStatvfsSize = 88;

// A directory block: the number of entries, and each with its name's length, the name, the length
// of the attributes, the attributes, an offset and three results of an access test.
inline constexpr std::size_t kBlockHead = 8;
inline constexpr std::size_t kReckonedEntry = 129;  // what one is tested with, beside its name
inline constexpr std::size_t kLongestName = 1023;   // on any system: the other side's limit
inline constexpr std::size_t kBlockOverrun = 24;  // how far the last entry may pass the asked size

inline constexpr std::size_t kMaxPath = 4095;  // with the folder on the other side in front

inline constexpr std::int32_t kReadOnlyPolicy = 0x20;

inline constexpr std::int32_t kDiskMount = 2;
inline constexpr std::int32_t kRemovableMount = 8;
inline constexpr std::int32_t kOpticalMount = 0x10;
inline constexpr std::int32_t kNetworkMount = 0x40;

inline constexpr int kMayRead = 4;
inline constexpr int kMayWrite = 2;

// The short name of an operation or of a map control message, or null.
const char* nameOf(std::int32_t type, std::int32_t subtype);

}  // namespace peer::linux
