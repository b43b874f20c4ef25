// The messages of the Windows dialect: requests are built, results and announcements taken apart.
// Whatever comes from the other side may be hostile: each length is checked before its use, and
// what does not add up is a BadMessage.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "peer/Bytes.h"
#include "peer/windows/Records.h"

namespace peer::windows {

struct Header {
    std::uint16_t type = 0;
    std::uint8_t map = 0;
    std::uint8_t seq = 0;
    std::uint32_t param = 0;
    std::uint32_t size = 0;

    static Header parse(View message);
};

// A path on a drive, "folder/file" or empty for the drive itself, as requests carry it. Throws
// RemoteError for what this dialect cannot say.
Bytes wirePath(std::string_view path);

// Requests. The sender fills in `seq`. Paths are what wirePath made.
Bytes createRequest(std::uint8_t map, View path, std::uint32_t flags, std::uint32_t mode,
                    std::int64_t size = 0);
Bytes closeRequest(std::uint8_t map, std::uint64_t handle);
Bytes readRequest(std::uint8_t map, std::uint64_t handle, std::uint64_t offset,
                  std::uint32_t length);
Bytes writeRequest(std::uint8_t map, std::uint64_t handle, std::uint64_t offset, View data);
Bytes flushRequest(std::uint8_t map, std::uint64_t handle);

// `name` is the path of a folder with "\*" behind it, or that of the one object to look up.
Bytes listRequest(std::uint8_t map, std::uint64_t handle, View name, std::uint32_t flags,
                  std::uint32_t limit);
Bytes queryInfoRequest(std::uint8_t map, std::uint64_t handle);
Bytes volumeRequest(std::uint8_t map, std::uint64_t handle);
Bytes setInfoRequest(std::uint8_t map, std::uint64_t handle, const ObjectInfo& info);
Bytes setEndOfFileRequest(std::uint8_t map, std::uint64_t handle, std::int64_t size);
Bytes removeRequest(std::uint8_t map, View path, std::uint32_t flags);
Bytes renameRequest(std::uint8_t map, View from, View to, std::uint32_t flags);
Bytes mapCountRequest();

// Results, given whole. Each throws StatusError for a failure, except where it returns the status.
struct Created {
    std::int32_t status = 0;
    std::uint64_t handle = kNoHandle;
    std::uint32_t result = kNoResult;
    std::uint32_t flags = 0;
    ObjectInfo info;

    // Status 0 may come without a handle: `result` says why, and this turns it into a status.
    std::int32_t outcome() const;
};
Created parseCreated(View result);
std::int32_t statusOf(View result);
void parseStatus(View result);

// The bytes read: a view into `result`. `asked` is what the request had as its length.
View parseRead(View result, std::uint32_t asked);
std::uint32_t parseWritten(View result, std::uint32_t asked);
ObjectInfo parseInfo(View result);
VolumeInfo parseVolume(View result);
std::uint32_t parseMapCount(View result);

struct Entry {
    std::string name;
    ObjectInfo info;
};
struct Listing {
    bool ended = false;
    std::vector<Entry> entries;
};
Listing parseListing(View result);

// Announcements, given whole.
struct DriveAdded {
    std::uint32_t id = 0;
    std::string name;
    VolumeInfo volume;
    bool printer = false;
};
struct DriveNamed {
    std::uint32_t id = 0;
    std::int32_t rootFlag = 0;
    std::int32_t type = 0;
    std::string computer, share;
};
struct DriveDeleted {
    std::uint32_t id = 0;
    std::string name;
};
struct Handshake {
    std::uint32_t version = 0;
};
DriveAdded parseDriveAdded(View message);
DriveNamed parseDriveNamed(View message);
DriveDeleted parseDriveDeleted(View message);
Handshake parseHandshake(View message);

}  // namespace peer::windows
