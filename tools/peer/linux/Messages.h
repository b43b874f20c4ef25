// The messages of the Linux dialect: requests are built, replies taken apart. Whatever comes from
// the other side may be hostile: each length is checked before its use. A frame that does not add
// up is a BadMessage, an answer that does not fit its request a RemoteError with EIO.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "peer/Bytes.h"
#include "peer/FileSystem.h"
#include "peer/linux/Protocol.h"
#include "peer/linux/Records.h"

namespace peer::linux {

struct Head {
    std::int32_t map = 0, type = 0, subtype = 0;
    std::int64_t res = 0;
    std::int64_t idx = 0;

    // Checks the frame's lengths against each other.
    static Head parse(View frame);
};

inline View payloadOf(View frame) {
    return frame.subspan(kPayloadAt);
}

// A frame up to a write's data, the data, which stay where they are, and what comes behind them.
struct Request {
    Bytes frame;
    View data;
    Bytes tail;

    std::int32_t code() const { return loadLe<std::int32_t>(frame.data() + kSubtypeAt); }
};

// A path "folder/file" travels as "/folder/file". Throws RemoteError for what no request can carry.
Request pathRequest(Code code, std::string_view path);  // getattr, unlink, rmdir, statfs
Request numberRequest(Code code, std::string_view path, std::int64_t number);
Request mknodRequest(std::string_view path, std::uint32_t mode, std::uint64_t device);
Request twoPathsRequest(Code code, std::string_view from, std::string_view to);
Request openRequest(std::string_view path, int accessMode);  // 0 to 2: read, write, both
Request readRequest(std::string_view path, std::uint64_t offset, std::size_t size);
Request writeRequest(std::string_view path, std::uint64_t offset, View data);
Request readdirRequest(std::string_view path, std::size_t size);

// A symbolic link at `path` whose target is the folder of the drive with `sent` behind it.
Request symlinkRequest(std::string_view sent, std::string_view path);

// Map control without a payload, and the answer to a plug with the place where it is mounted.
Bytes controlMessage(std::int32_t map, Control subtype, std::int64_t res = 0);
Bytes mapMessage(std::int32_t map, std::string_view place);

// A request's number, which its sender gives it.
void number(Request& request, std::int32_t map, std::int64_t idx);

// Replies, given whole. Each throws the RemoteError of a failure.
void parseDone(View reply);
void parseOpened(View reply);
Attributes parseGetattr(View reply);
Volume parseStatfs(View reply);
View parseRead(View reply, std::size_t asked);  // a view into `reply`
std::size_t parseWritten(View reply, std::size_t asked);
std::string parseReadlink(View reply);

struct Block {
    bool present = false;  // a folder that could not be read has no block
    std::size_t size = 0;
    std::vector<DirEntry> entries;  // but "." and ".."
};
Block parseReaddir(View reply);

// Whether a block of this size leaves room for one more entry of any kind, had there been one.
bool isWhole(std::size_t blockSize, std::size_t askedSize);

}  // namespace peer::linux
