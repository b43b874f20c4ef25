// The requests of the Windows dialect's file service as bytes, as the remote desktop sends them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "linux/comm/Opreator/CreateParms.h"

using Request = std::vector<char>;

// UTF-8 to UTF-16LE, without a terminator.
Request utf16Of(std::string_view utf8);

// A path of the map with backslashes: "\folder\name".
Request createRequest(std::string_view path, std::uint32_t flags, int mapId = 0);
Request createRequest(std::string_view path, const _SHFLCREATEPARMS& parms, int mapId = 0);
Request closeRequest(std::int64_t handle, int mapId = 0);
Request readRequest(std::int64_t handle, std::int64_t offset, std::uint32_t length, int mapId = 0);
Request writeRequest(std::int64_t handle, std::int64_t offset, std::string_view data,
                     int mapId = 0);
Request flushRequest(std::int64_t handle, int mapId = 0);

constexpr std::uint32_t kListReturnOne = 0x1;
Request listRequest(std::int64_t handle, std::string_view name, std::int32_t limit,
                    std::uint32_t flags = 0, int mapId = 0);

Request queryFileRequest(std::int64_t handle, int mapId = 0);
Request queryVolumeRequest(std::int64_t handle, int mapId = 0);
Request setFileInfoRequest(std::int64_t handle, const SHFLFSOBJINFO& info, int mapId = 0);
Request setEndOfFileRequest(std::int64_t handle, std::int64_t size, int mapId = 0);
Request removeRequest(std::string_view path, std::uint32_t flags = 0, int mapId = 0);

constexpr std::uint32_t kRenameReplace = 0x4;
Request renameRequest(std::string_view from, std::string_view to, std::uint32_t flags = 0,
                      int mapId = 0);

// The status and the data word that all replies share.
std::int32_t statusOf(const std::vector<char>& reply);
std::uint32_t cbBufferOf(const std::vector<char>& reply);

// Where the data of a reply begins.
constexpr std::size_t kDataAt = 20;

// The block of a create reply.
_SHFLCREATEPARMS createParmsOf(const std::vector<char>& reply);

// What a query replies, or a change of attributes.
SHFLFSOBJINFO infoOf(const std::vector<char>& reply);

struct ListedEntry {
    SHFLFSOBJINFO info;
    std::vector<char> name;  // UTF-16LE without the terminator
    bool isNamed(std::string_view utf8) const { return name == utf16Of(utf8); }
};

// The entries of a listing's reply; fails the test where they are not well formed.
std::vector<ListedEntry> entriesOf(const std::vector<char>& reply);
