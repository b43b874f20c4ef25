// The records of the Linux dialect: what travels on the channel, and what carries it in memory.
#pragma once

#include <cstddef>
#include <cstdint>

// Message classes.
enum FdMsgType : std::int32_t { FD_TYPE_MAP_CTRL = 1, FD_TYPE_OPREATOR = 3 };

// Codes of map control messages.
enum FdMapCtrl : std::int32_t {
    FD_MAP_CTRL_IGNORED = 1,
    FD_MAP_CTRL_PLUG = 4,
    FD_MAP_CTRL_UNPLUG = 5,
    FD_MAP_CTRL_MAP = 6,
    FD_MAP_CTRL_MAP_ACK = 7,
    FD_MAP_CTRL_UNMAP = 8,
    FD_MAP_CTRL_UNMAP_ACK = 9,
};

// Results with a fixed number, whatever the platform's errno says.
enum FdResult : int {
    kResTryAgain = -11,  // no path buffer, no path, or another failure inside the client
    kResNoMemory = -12,
    kResAccess = -13,
    kResInvalid = -22,
    kResReadOnly = -30,
    kResNotSupported = -38,
};

// Bit of a map's policy word that makes the map read-only.
constexpr int kReadOnlyPolicy = 0x20;

#pragma pack(push, 1)
struct fd_msg_item {
    std::uint32_t head_size;
    std::uint32_t reserved;
    std::int32_t mapid;
    std::int32_t type;
    std::int32_t subtype;
    std::int64_t res;
    std::int64_t idx;
    std::uint8_t opaque[24];
    std::int32_t extsize;
};

struct fd_stat {
    std::int64_t st_dev;
    std::uint64_t st_ino;
    std::uint64_t st_mode;
    std::uint64_t st_nlink;
    std::uint64_t st_uid;
    std::uint64_t st_gid;
    std::int64_t st_rdev;
    std::int64_t st_size;
    std::int64_t st_blksize;
    std::int64_t st_blocks;
    std::int64_t st_atime_sec;  // the platforms define the short names as macros
    std::int64_t st_mtime_sec;
    std::int64_t st_ctime_sec;
};

struct fd_statvfs {
    std::uint64_t f_bsize;
    std::uint64_t f_frsize;
    std::uint64_t f_blocks;
    std::uint64_t f_bfree;
    std::uint64_t f_bavail;
    std::uint64_t f_files;
    std::uint64_t f_ffree;
    std::uint64_t f_favail;
    std::uint64_t f_fsid;
    std::uint64_t f_flag;
    std::uint64_t f_namemax;
};

// No message carries it; its size is logged at start-up.
struct fd_statfs {
    std::uint64_t words[15];
};

struct fd_file_info {
    std::uint64_t flags;  // the low two bits are the access mode
    std::uint8_t opaque[24];
    std::uint64_t handle;
    std::uint8_t opaque2[8];
};

struct fd_timespec {
    std::int64_t tv_sec;
    std::int64_t tv_nsec;
};
#pragma pack(pop)
static_assert(sizeof(fd_msg_item) == 64 && offsetof(fd_msg_item, extsize) == 60);
static_assert(sizeof(fd_stat) == 104 && sizeof(fd_statvfs) == 88 && sizeof(fd_statfs) == 120);
static_assert(sizeof(fd_file_info) == 48 && offsetof(fd_file_info, handle) == 32);
static_assert(sizeof(fd_timespec) == 16);

// A frame: 8 zero bytes, the length of what follows as 32 bits, a head, `extsize` bytes of payload.
constexpr int kFramePrefixSize = 12;
constexpr int kFrameLengthAt = 8;
constexpr int kMsgHeadSize = 64;
constexpr int kFrameHeadSize = kFramePrefixSize + kMsgHeadSize;

// A message on its way through the queues. Belongs to whoever holds the pointer.
struct fd_cmd_item {
    fd_msg_item head;
    std::int32_t pdatasize;  // capacity of pdata, 0 when it is null
    char* pdata;             // made with calloc
    std::int32_t dirty;      // bytes of pdata from its start that may be other than zero
};

// A scratch buffer for a path.
struct fd_buf_node {
    char* data;
    std::int32_t size;
};

constexpr int kMountPathSize = 260;

// One local mount point.
struct MountInfo {
    std::int32_t mapid;   // -1 until a map exists
    std::int32_t type;    // 2 local disk, 8 removable disk, 0x10 optical disk, 0x40 network share
    std::int32_t policy;  // the working policy
    std::int32_t flag;    // 0 in everything that this client lists
    char path[kMountPathSize];
};
