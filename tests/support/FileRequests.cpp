#include "support/FileRequests.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>

#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"

namespace {

// A request under construction: the header, then one field after the other.
class Builder {
public:
    Builder(FdCmdType type, int mapId) : m_bytes(kHeaderSize) {
        storeLe<std::uint16_t>(m_bytes.data() + kTypeAt, type);
        storeLe<std::uint8_t>(m_bytes.data() + kMapIdAt, static_cast<std::uint8_t>(mapId));
        storeLe<std::uint8_t>(m_bytes.data() + kSeqAt, 7);
    }

    template <std::integral T>
    Builder& number(T value) {
        char bytes[sizeof(T)];
        storeLe(bytes, value);
        return raw({bytes, sizeof bytes});
    }

    Builder& raw(std::string_view bytes) {
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
        return *this;
    }

    // A length in bytes and the text.
    Builder& path(std::string_view utf8) {
        const Request text = utf16Of(utf8);
        number(static_cast<std::uint16_t>(text.size()));
        return raw({text.data(), text.size()});
    }

    template <typename Record>
    Builder& record(const Record& value) {
        char bytes[sizeof(Record)];
        std::memcpy(bytes, &value, sizeof bytes);
        return raw({bytes, sizeof bytes});
    }

    Request done() {
        storeLe(m_bytes.data() + kSizeAt, static_cast<std::uint32_t>(m_bytes.size() - kHeaderSize));
        return m_bytes;
    }

private:
    Request m_bytes;
};

// The next character of well-formed UTF-8, which is taken off.
std::uint32_t takeCodePoint(std::string_view& utf8) {
    const auto lead = static_cast<unsigned char>(utf8.front());
    const std::size_t count = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    std::uint32_t point = count == 1 ? lead : lead & (0x7FU >> count);
    for (std::size_t i = 1; i < count; ++i) {
        point = point << 6 | (static_cast<unsigned char>(utf8.at(i)) & 0x3FU);
    }
    utf8.remove_prefix(count);
    return point;
}

constexpr std::size_t kEntriesAt = 24;
constexpr std::size_t kEntryHead = 126;

}  // namespace

Request utf16Of(std::string_view utf8) {
    Request units;
    const auto put = [&units](std::uint32_t unit) {
        units.push_back(static_cast<char>(unit & 0xFF));
        units.push_back(static_cast<char>(unit >> 8));
    };
    while (!utf8.empty()) {
        const std::uint32_t point = takeCodePoint(utf8);
        if (point < 0x10000) {
            put(point);
        } else {
            put(0xD800 + ((point - 0x10000) >> 10));
            put(0xDC00 + ((point - 0x10000) & 0x3FF));
        }
    }
    return units;
}

Request createRequest(std::string_view path, std::uint32_t flags, int mapId) {
    _SHFLCREATEPARMS parms{};
    parms.CreateFlags = flags;
    return createRequest(path, parms, mapId);
}

Request createRequest(std::string_view path, const _SHFLCREATEPARMS& parms, int mapId) {
    return Builder(FD_CMD_CREATE, mapId).path(path).record(parms).done();
}

Request closeRequest(std::int64_t handle, int mapId) {
    return Builder(FD_CMD_CLOSE, mapId).number(handle).done();
}

Request readRequest(std::int64_t handle, std::int64_t offset, std::uint32_t length, int mapId) {
    return Builder(FD_CMD_READ, mapId).number(handle).number(offset).number(length).done();
}

Request writeRequest(std::int64_t handle, std::int64_t offset, std::string_view data, int mapId) {
    return Builder(FD_CMD_WRITE, mapId)
        .number(handle)
        .number(offset)
        .number(static_cast<std::uint32_t>(data.size()))
        .raw(data)
        .done();
}

Request flushRequest(std::int64_t handle, int mapId) {
    return Builder(FD_CMD_FLUSH, mapId).number(handle).done();
}

Request listRequest(std::int64_t handle, std::string_view name, std::int32_t limit,
                    std::uint32_t flags, int mapId) {
    return Builder(FD_CMD_DIR_LIST, mapId)
        .number(handle)
        .path(name)
        .number(flags)
        .number(std::uint32_t{0})
        .number(limit)
        .done();
}

Request queryFileRequest(std::int64_t handle, int mapId) {
    return Builder(FD_CMD_QUERY_FILE_INFO, mapId).number(handle).done();
}

Request queryVolumeRequest(std::int64_t handle, int mapId) {
    return Builder(FD_CMD_QUERY_VOLUME_INFO, mapId).number(handle).done();
}

Request setFileInfoRequest(std::int64_t handle, const SHFLFSOBJINFO& info, int mapId) {
    return Builder(FD_CMD_SET_FILE_INFO, mapId)
        .number(handle)
        .number(static_cast<std::uint32_t>(sizeof info))
        .record(info)
        .done();
}

Request setEndOfFileRequest(std::int64_t handle, std::int64_t size, int mapId) {
    return Builder(FD_CMD_SET_END_OF_FILE, mapId)
        .number(handle)
        .number(std::uint32_t{sizeof size})
        .number(size)
        .done();
}

Request removeRequest(std::string_view path, std::uint32_t flags, int mapId) {
    return Builder(FD_CMD_REMOVE, mapId).path(path).number(flags).done();
}

Request renameRequest(std::string_view from, std::string_view to, std::uint32_t flags, int mapId) {
    return Builder(FD_CMD_RENAME, mapId).path(from).path(to).number(flags).done();
}

std::int32_t statusOf(const std::vector<char>& reply) {
    return loadLe<std::int32_t>(reply.data() + kStatusAt);
}

std::uint32_t cbBufferOf(const std::vector<char>& reply) {
    return loadLe<std::uint32_t>(reply.data() + kCbBufferAt);
}

_SHFLCREATEPARMS createParmsOf(const std::vector<char>& reply) {
    _SHFLCREATEPARMS parms{};
    EXPECT_GE(reply.size(), kDataAt + sizeof parms);
    if (reply.size() < kDataAt + sizeof parms) return parms;
    std::memcpy(&parms, reply.data() + kDataAt, sizeof parms);
    return parms;
}

SHFLFSOBJINFO infoOf(const std::vector<char>& reply) {
    SHFLFSOBJINFO info{};
    EXPECT_EQ(reply.size(), 12U + 92 + 11);
    EXPECT_EQ(statusOf(reply), 0);
    EXPECT_EQ(cbBufferOf(reply), 92U);
    if (reply.size() >= kDataAt + sizeof info) {
        std::memcpy(&info, reply.data() + kDataAt, sizeof info);
    }
    return info;
}

std::vector<ListedEntry> entriesOf(const std::vector<char>& reply) {
    std::vector<ListedEntry> entries;
    if (reply.size() < kEntriesAt) return entries;

    const std::size_t end = kEntriesAt + cbBufferOf(reply);
    std::size_t at = kEntriesAt;
    while (at + kEntryHead <= end && end <= reply.size()) {
        ListedEntry entry{};
        std::memcpy(&entry.info, reply.data() + at, sizeof entry.info);
        const auto size = loadLe<std::uint16_t>(reply.data() + at + 122);
        const auto length = loadLe<std::uint16_t>(reply.data() + at + 124);
        EXPECT_EQ(size, length + 2);
        if (at + kEntryHead + size > end) break;
        const char* const name = reply.data() + at + kEntryHead;
        entry.name.assign(name, name + length);
        EXPECT_EQ(loadLe<std::uint16_t>(name + length), 0) << "the name's terminator";
        entries.push_back(entry);
        at += kEntryHead + size;
    }
    EXPECT_EQ(at, end) << "entries and cbBuffer disagree";
    EXPECT_EQ(loadLe<std::uint32_t>(reply.data() + kDataAt), entries.size());
    return entries;
}
