// Numbers of the Windows dialect: message codes, flags, and where the fields of a message stand.
#pragma once

#include <cstddef>
#include <cstdint>

namespace peer::windows {

enum Code : std::uint16_t {
    kCreate = 1,
    kClose = 2,
    kRead = 3,
    kWrite = 4,
    kFlush = 5,
    kList = 6,
    kQueryInfo = 8,
    kSetInfo = 9,
    kVolume = 10,
    kSetEndOfFile = 12,
    kRename = 13,
    kRemove = 14,
    kLocks = 15,
    kMapCount = 16,
    kMapName = 17,
    kMapByName = 18,
    kUnmapQuery = 19,
    kMapAdd = 512,
    kMapDelete = 513,
    kResult = 514,
    kMapAnswer = 515,
    kUnmapAnswer = 516,
    kEjectUsb = 517,
    kEjectCdrom = 518,
    kPolicy = 521,
    kPrinterAdd = 523,
    kDriveName = 525,
    kCompressed = 526,
    kUserProfile = 527,
    kHandshake = 0xCDEF
};

inline constexpr std::size_t kTypeAt = 0;
inline constexpr std::size_t kMapAt = 2;
inline constexpr std::size_t kSeqAt = 3;
inline constexpr std::size_t kParamAt = 4;
inline constexpr std::size_t kSizeAt = 8;
inline constexpr std::size_t kHeaderSize = 12;

inline constexpr std::size_t kStatusAt = 12;  // of a result
inline constexpr std::size_t kCountAt = 16;
inline constexpr std::size_t kDataAt = 20;
inline constexpr std::size_t kEntriesAt = 24;  // of a listing, behind the number of entries

// What the other side works in, whatever the message: its header and its reply included.
inline constexpr std::size_t kWorkBuffer = 1049600;
inline constexpr std::size_t kMaxTransfer = std::size_t{1} << 20;  // of one read or write
inline constexpr std::size_t kMinRead = 512;                       // a shorter read reads this much
inline constexpr std::uint32_t kListLimit = 65536;
inline constexpr std::size_t kMaxName = 510;   // bytes of UTF-16: longer ones are not listed
inline constexpr std::size_t kMaxPath = 1000;  // bytes of UTF-8; its path buffers hold 1024

inline constexpr std::uint64_t kNoHandle = ~std::uint64_t{0};

enum CreateFlag : std::uint32_t {
    kOpenTargetDirectory = 0x2,
    kDirectory = 0x4,
    kOpenIfExists = 0,
    kFailIfExists = 0x10,
    kReplaceIfExists = 0x20,
    kOverwriteIfExists = 0x30,
    kCreateIfNew = 0,
    kFailIfNew = 0x100,
    kAccessNone = 0,
    kAccessRead = 0x1000,
    kAccessWrite = 0x2000,
    kAccessReadWrite = 0x3000,
    kAppend = 0x40000,
    kCloseAfterOpen = 0x100000
};

enum CreateResult : std::uint32_t {
    kNoResult = 0,
    kPathNotFound = 1,
    kFileNotFound = 2,
    kFileExists = 3,
    kFileCreated = 4,
    kFileReplaced = 5
};

inline constexpr std::uint32_t kListReturnOne = 1;
inline constexpr std::uint32_t kRemoveFile = 1;
inline constexpr std::uint32_t kRemoveDirectory = 2;
inline constexpr std::uint32_t kRenameFile = 1;
inline constexpr std::uint32_t kRenameDirectory = 2;
inline constexpr std::uint32_t kRenameReplace = 4;

inline constexpr std::uint32_t kModeTypeMask = 0xF000;
inline constexpr std::uint32_t kModeDirectory = 0x4000;
inline constexpr std::uint32_t kModeRegular = 0x8000;
inline constexpr std::uint32_t kModeLink = 0xA000;
inline constexpr std::uint32_t kDosReadOnly = 0x00010000;
inline constexpr std::uint32_t kDosDirectory = 0x00100000;

inline constexpr std::int32_t kRootMap = 0x2;
inline constexpr std::int32_t kDiskMap = 0x8;
inline constexpr std::int32_t kOpticalMap = 0x10;
inline constexpr std::int32_t kNetworkMap = 0x40;
inline constexpr std::int32_t kPrinterMap = 0x1000;

// The short name of a code, or null.
const char* nameOf(std::uint16_t code);

}  // namespace peer::windows
