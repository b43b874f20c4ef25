// The messages of the Linux dialect as bytes, as the remote desktop sends and reads them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace linuxframes {

using Bytes = std::vector<char>;

constexpr std::size_t kFrameHead = 76;  // prefix and head

constexpr int kMapCtrl = 1;
constexpr int kOperation = 3;

constexpr int kPlug = 4;
constexpr int kUnplug = 5;
constexpr int kMap = 6;
constexpr int kMapAck = 7;
constexpr int kUnmap = 8;
constexpr int kUnmapAck = 9;

enum Code : int {
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
    kFlush = 19,
    kRelease = 20,
    kFsync = 21,
    kSetxattr = 22,
    kGetxattr = 23,
    kListxattr = 24,
    kRemovexattr = 25,
    kOpendir = 26,
    kReaddir = 27,
    kReleasedir = 28,
    kInit = 30,
    kDestroy = 31,
    kAccess = 32,
    kUtimens = 37,
    kFallocate = 44,
};

// A payload under construction, field by field.
class Payload {
public:
    Payload() = default;
    explicit Payload(std::string_view path) { text(path); }

    Payload& number(std::int64_t value);
    Payload& text(std::string_view value);  // its length with the terminator, and both
    Payload& raw(std::string_view bytes);
    Payload& info(const Bytes& record);                // the length 48 and the record
    operator const Bytes&() const { return m_bytes; }  // NOLINT(google-explicit-constructor)
    const Bytes& bytes() const { return m_bytes; }

private:
    Bytes m_bytes;
};

// A file record of 48 bytes: every byte of the opaque parts differs from zero.
Bytes fileInfo(std::uint64_t flags = 0, std::uint64_t handle = 0);

// The payloads of the operations, in the order of their codes.
Bytes readlinkOf(std::string_view path, std::int64_t bufsize);
Bytes mknodOf(std::string_view path, std::int64_t mode, std::int64_t dev = 0);
Bytes numberOf(std::string_view path, std::int64_t value);  // mkdir, chmod, truncate, access
Bytes twoPathsOf(std::string_view path, std::string_view to);
Bytes infoOf(std::string_view path, const Bytes& info = fileInfo());  // open, opendir, flush ...
Bytes readOf(std::string_view path, std::int64_t size, std::int64_t offset);
Bytes writeOf(std::string_view path, std::string_view data, std::int64_t offset);
Bytes readdirOf(std::string_view path, std::int64_t size, std::int64_t offset = 0);

// A well-formed payload for any code, over a folder that holds "file", "link" and "sub".
Bytes anyPayloadOf(int code);

struct Message {
    std::int32_t mapid = 0;
    std::int32_t type = kOperation;
    std::int32_t subtype = 0;
    std::int64_t idx = 0;
    Bytes payload = {};
    std::int64_t res = 0;
    std::uint32_t headSize = 64;
    std::uint32_t reserved = 0;
    std::string opaque = std::string(24, '\0');
    std::int32_t extsize = -1;  // as long as the payload unless it is set
};

Bytes frameOf(const Message& message);

// Fails the test where the frame is not well formed.
Message parse(const Bytes& frame);

struct PlugRecord {
    std::int32_t rootFlag;
    std::int32_t flag;
    std::int32_t type;
    std::int32_t policy;
    std::string folder;
    std::string computer;
};
PlugRecord plugOf(const Bytes& payload);

struct DirEntry {
    std::string name;
    std::vector<std::int64_t> stat;  // the thirteen fields
    std::int64_t off;
    std::int64_t read;
    std::int64_t write;
    std::int64_t exec;
};

// The entries of a directory block; fails the test where it is not well formed.
std::vector<DirEntry> entriesOf(const Bytes& block);
std::vector<std::string> namesOf(const Bytes& block);  // sorted

std::int64_t wordAt(const Bytes& bytes, std::size_t offset);

}  // namespace linuxframes
