// The messages of the Windows dialect: the header that all of them begin with, and their codes.
#pragma once

#include <cstddef>
#include <cstdint>

// Size of the work buffer, and so the bound on an inbound message and on a reply with its header.
constexpr int MAX_CMD_BUFFER = 1049600;

constexpr int kHeaderSize = 12;

#pragma pack(push, 1)
struct FdCmdHead {
    std::uint16_t type;
    std::uint8_t mapId, seq;
    std::uint32_t param, size;
};
#pragma pack(pop)
static_assert(sizeof(FdCmdHead) == kHeaderSize && offsetof(FdCmdHead, size) == 8);

// Offsets of the header's fields.
constexpr int kTypeAt = 0;
constexpr int kMapIdAt = 2;
constexpr int kSeqAt = 3;
constexpr int kParamAt = 4;
constexpr int kSizeAt = 8;

// Offsets of the form that the replies of all file requests share.
constexpr int kStatusAt = 12;
constexpr int kCbBufferAt = 16;
constexpr int kReplyDataAt = 20;

enum FdCmdType : std::uint16_t {
    FD_CMD_CREATE = 1,
    FD_CMD_CLOSE = 2,
    FD_CMD_READ = 3,
    FD_CMD_WRITE = 4,
    FD_CMD_FLUSH = 5,
    FD_CMD_DIR_LIST = 6,
    FD_CMD_QUERY_FILE_INFO = 8,
    FD_CMD_SET_FILE_INFO = 9,
    FD_CMD_QUERY_VOLUME_INFO = 10,
    FD_CMD_SET_END_OF_FILE = 12,
    FD_CMD_RENAME = 13,
    FD_CMD_REMOVE = 14,
    FD_CMD_LOCKS = 15,
    FD_CMD_GET_MAP_NUM = 16,
    FD_CMD_GET_MAP_NAME = 17,
    FD_CMD_GET_MAP_FOLDER = 18,
    FD_CMD_GET_UNMAP_FOLDER = 19,
    FD_CMD_MAP_ADD = 512,
    FD_CMD_MAP_DELETE = 513,
    FD_CMD_RESULT = 514,
    FD_CMD_MAP_RSP = 515,
    FD_CMD_UNMAP_RSP = 516,
    FD_CMD_EJECT_USB = 517,
    FD_CMD_EJECT_CDROM = 518,
    FD_CMD_POLICY = 521,
    FD_CMD_PRINTER_ADD = 523,
    FD_CMD_DRIVE_NAME = 525,
    FD_CMD_COMPRESSED = 526,
    FD_CMD_USER_PROFILE = 527,
    FD_CMD_HANDSHAKE = 0xCDEF,
};
