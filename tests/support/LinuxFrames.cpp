#include "support/LinuxFrames.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "common/Comm/WireNumbers.h"

namespace linuxframes {
namespace {

template <std::integral T>
void put(Bytes& out, T value) {
    char bytes[sizeof(T)];
    storeLe(bytes, value);
    out.insert(out.end(), bytes, bytes + sizeof(T));
}

// Reads fields one behind the other; fails the test beyond the end.
class Fields {
public:
    explicit Fields(const Bytes& bytes) : m_bytes(bytes) {}

    template <std::integral T>
    T number() {
        const std::string bytes = raw(sizeof(T));
        return loadLe<T>(bytes.data());
    }
    std::string raw(std::size_t size) {
        if (size > m_bytes.size() - m_at) {
            ADD_FAILURE() << "a field leads beyond the message";
            return std::string(std::min<std::size_t>(size, 64), '\0');
        }
        m_at += size;
        return {m_bytes.data() + m_at - size, size};
    }
    std::string text() {
        std::string bytes = raw(static_cast<std::size_t>(number<std::int64_t>()));
        EXPECT_TRUE(!bytes.empty() && bytes.back() == '\0') << "no terminator";
        return bytes.substr(0, bytes.find('\0'));
    }
    bool isAtEnd() const { return m_at == m_bytes.size(); }

private:
    const Bytes& m_bytes;
    std::size_t m_at = 0;
};

}  // namespace

Payload& Payload::number(std::int64_t value) {
    put(m_bytes, value);
    return *this;
}

Payload& Payload::text(std::string_view value) {
    number(static_cast<std::int64_t>(value.size()) + 1);
    raw(value);
    m_bytes.push_back('\0');
    return *this;
}

Payload& Payload::raw(std::string_view bytes) {
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    return *this;
}

Payload& Payload::info(const Bytes& record) {
    number(static_cast<std::int64_t>(record.size()));
    return raw({record.data(), record.size()});
}

Bytes fileInfo(std::uint64_t flags, std::uint64_t handle) {
    Bytes out;
    put(out, flags);
    for (char i = 1; i <= 24; ++i) out.push_back(i);
    put(out, handle);
    for (char i = 101; i <= 108; ++i) out.push_back(i);
    return out;
}

Bytes readlinkOf(std::string_view path, std::int64_t bufsize) {
    return Payload(path).number(bufsize);
}

Bytes mknodOf(std::string_view path, std::int64_t mode, std::int64_t dev) {
    return Payload(path).number(mode).number(dev);
}

Bytes numberOf(std::string_view path, std::int64_t value) {
    return Payload(path).number(value);
}

Bytes twoPathsOf(std::string_view path, std::string_view to) {
    return Payload(path).text(to);
}

Bytes infoOf(std::string_view path, const Bytes& info) {
    return Payload(path).info(info);
}

Bytes readOf(std::string_view path, std::int64_t size, std::int64_t offset) {
    return Payload(path).info(fileInfo()).number(size).number(offset);
}

Bytes writeOf(std::string_view path, std::string_view data, std::int64_t offset) {
    return Payload(path)
        .number(static_cast<std::int64_t>(data.size()))
        .raw(data)
        .info(fileInfo(1))
        .number(offset);
}

Bytes readdirOf(std::string_view path, std::int64_t size, std::int64_t offset) {
    return Payload(path).info(fileInfo()).number(offset).number(size);
}

Bytes anyPayloadOf(int code) {
    switch (code) {
        case kReadlink:
            return readlinkOf("/link", 4096);
        case kMknod:
            return mknodOf("/node", 0100644);
        case kMkdir:
            return numberOf("/made", 0755);
        case kUnlink:
        case kRmdir:
            return Payload("/nothing");
        case kSymlink:
        case kRename:
        case kLink:
            return twoPathsOf("/nothing", "/nowhere/else");
        case kChmod:
            return numberOf("/file", 0644);
        case kChown:
            return Payload("/file").number(0).number(0);
        case kTruncate:
            return numberOf("/file", 4);
        case kOpen:
        case kFlush:
        case kRelease:
            return infoOf("/file");
        case kRead:
            return readOf("/file", 100, 0);
        case kWrite:
            return writeOf("/file", "text", 0);
        case kFsync:
            return Payload("/file").info(fileInfo()).number(1);
        case kSetxattr:
            return Payload("/file").text("user.a").number(3).raw("abc").number(0);
        case kGetxattr:
            return Payload("/file").text("user.a").number(100);
        case kListxattr:
            return numberOf("/file", 100);
        case kRemovexattr:
            return Payload("/file").text("user.a");
        case kOpendir:
        case kReleasedir:
            return infoOf("/sub");
        case kReaddir:
            return readdirOf("/", 4096);
        case kInit:
            return Payload("/").number(0).raw("block");
        case kAccess:
            return numberOf("/file", 4);
        case kUtimens:
            return Payload("/file").number(32).number(1).number(2).number(3).number(4);
        case kFallocate:
            return Payload("/file").info(fileInfo()).number(0).number(0).number(10);
        default:  // getattr, statfs, destroy
            return Payload("/file");
    }
}

Bytes frameOf(const Message& message) {
    const auto size = static_cast<std::int32_t>(message.payload.size());
    Bytes out(12, '\x55');  // nobody reads the prefix
    put(out, message.headSize);
    put(out, message.reserved);
    put(out, message.mapid);
    put(out, message.type);
    put(out, message.subtype);
    put(out, message.res);
    put(out, message.idx);
    out.insert(out.end(), message.opaque.begin(), message.opaque.end());
    put(out, message.extsize == -1 ? size : message.extsize);
    out.insert(out.end(), message.payload.begin(), message.payload.end());
    return out;
}

Message parse(const Bytes& frame) {
    Message message;
    if (frame.size() < kFrameHead) {
        ADD_FAILURE() << "a frame of " << frame.size() << " bytes";
        return message;
    }
    Fields fields(frame);
    EXPECT_EQ(fields.number<std::uint64_t>(), 0U);
    EXPECT_EQ(fields.number<std::uint32_t>(), frame.size() - 12);
    message.headSize = fields.number<std::uint32_t>();
    message.reserved = fields.number<std::uint32_t>();
    message.mapid = fields.number<std::int32_t>();
    message.type = fields.number<std::int32_t>();
    message.subtype = fields.number<std::int32_t>();
    message.res = fields.number<std::int64_t>();
    message.idx = fields.number<std::int64_t>();
    message.opaque = fields.raw(24);
    message.extsize = fields.number<std::int32_t>();
    message.payload.assign(frame.begin() + kFrameHead, frame.end());
    EXPECT_EQ(std::max(message.extsize, 0), static_cast<int>(message.payload.size()));
    return message;
}

PlugRecord plugOf(const Bytes& payload) {
    Fields fields(payload);
    PlugRecord record{};
    record.rootFlag = fields.number<std::int32_t>();
    record.flag = fields.number<std::int32_t>();
    record.type = fields.number<std::int32_t>();
    record.policy = fields.number<std::int32_t>();
    record.folder = fields.text();
    record.computer = fields.text();
    EXPECT_TRUE(fields.isAtEnd());
    return record;
}

std::vector<DirEntry> entriesOf(const Bytes& block) {
    Fields fields(block);
    const auto count = fields.number<std::int64_t>();
    std::vector<DirEntry> entries;
    for (std::int64_t i = 0; i < count && !fields.isAtEnd(); ++i) {
        DirEntry entry{};
        entry.name = fields.text();
        EXPECT_EQ(fields.number<std::int64_t>(), 104);
        for (int field = 0; field < 13; ++field) {
            entry.stat.push_back(fields.number<std::int64_t>());
        }
        entry.off = fields.number<std::int64_t>();
        entry.read = fields.number<std::int64_t>();
        entry.write = fields.number<std::int64_t>();
        entry.exec = fields.number<std::int64_t>();
        entries.push_back(std::move(entry));
    }
    EXPECT_EQ(static_cast<std::int64_t>(entries.size()), count);
    EXPECT_TRUE(fields.isAtEnd());
    return entries;
}

std::vector<std::string> namesOf(const Bytes& block) {
    std::vector<std::string> names;
    for (const DirEntry& entry : entriesOf(block)) names.push_back(entry.name);
    std::ranges::sort(names);
    return names;
}

std::int64_t wordAt(const Bytes& bytes, std::size_t offset) {
    if (offset + 8 > bytes.size()) {
        ADD_FAILURE() << "no word at " << offset;
        return -1;
    }
    return loadLe<std::int64_t>(bytes.data() + offset);
}

}  // namespace linuxframes
