#include "peer/windows/Messages.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "peer/Text.h"
#include "peer/windows/Status.h"

namespace peer::windows {

namespace {

constexpr std::size_t kParmsSize = 128;
constexpr std::size_t kParmsTail = 20;
constexpr std::size_t kEntryGap = 30;
constexpr char kMagic[] = {'w', 'g', 'q'};

Bytes request(Code code, std::uint8_t map) {
    Bytes message;
    appendLe(message, std::uint16_t{code});
    appendLe(message, map);
    appendLe(message, std::uint8_t{0});
    appendLe(message, std::uint64_t{0});
    return message;
}

// The other side goes by the length of the message; the field says the same.
Bytes finished(Bytes message) {
    storeLe(message.data() + kSizeAt, static_cast<std::uint32_t>(message.size() - kHeaderSize));
    return message;
}

Bytes handleRequest(Code code, std::uint8_t map, std::uint64_t handle) {
    Bytes message = request(code, map);
    appendLe(message, handle);
    return message;
}

void appendPath(Bytes& to, View path) {
    appendLe(to, static_cast<std::uint16_t>(path.size()));
    append(to, path);
}

std::string textUpToZero(View bytes) {
    const std::string_view text = textOf(bytes);
    return std::string(text.substr(0, text.find('\0')));
}

struct Result {
    std::int32_t status;
    std::uint32_t count;
    Cursor data;  // all behind them, stale bytes at the end included
};

Result openResult(View message, std::string_view what) {
    Cursor from(message, what);
    from.bytes(kHeaderSize, "header");
    const auto status = from.number<std::int32_t>("status");
    const auto count = from.number<std::uint32_t>("count");
    return {status, count, from};
}

void requireSuccess(std::int32_t status) {
    if (status != kSuccess) throw StatusError(status);
}

template <typename Record>
Record parseRecord(View message, const char* what) {
    Result result = openResult(message, what);
    requireSuccess(result.status);
    if (result.count != Record::kSize) {
        throw BadMessage(std::string(what) + ": a record of " + std::to_string(result.count) +
                         " bytes instead of " + std::to_string(Record::kSize));
    }
    return Record::parse(result.data);
}

Entry parseEntry(Cursor& from) {
    Entry entry;
    entry.info = ObjectInfo::parse(from);
    from.bytes(kEntryGap, "short name");
    const auto size = from.number<std::uint16_t>("name size");
    const auto length = from.number<std::uint16_t>("name length");
    const View name = from.bytes(size, "name");
    if (length > size || length % 2 != 0) {
        throw BadMessage("listing: a name of " + std::to_string(length) + " bytes in a field of " +
                         std::to_string(size));
    }
    entry.name = utf8FromUtf16(name.first(length));
    if (entry.name.empty() || entry.name.find('/') != std::string::npos ||
        entry.name.find('\0') != std::string::npos) {
        throw BadMessage("listing: '" + escaped(entry.name) + "' is no name of a file");
    }
    return entry;
}

}  // namespace

Header Header::parse(View message) {
    Cursor from(message, "message");
    Header header;
    header.type = from.number<std::uint16_t>("type");
    header.map = from.number<std::uint8_t>("map");
    header.seq = from.number<std::uint8_t>("seq");
    header.param = from.number<std::uint32_t>("param");
    header.size = from.number<std::uint32_t>("size");
    return header;
}

Bytes wirePath(std::string_view path) {
    std::string text;
    while (!path.empty()) {
        const std::size_t slash = std::min(path.find('/'), path.size());
        const std::string_view part = path.substr(0, slash);
        path.remove_prefix(std::min(slash + 1, path.size()));
        if (part.empty() || part == ".") continue;
        if (part == "..") throw RemoteError(EINVAL, "'..' is not a name on a drive");
        if (part.find('\\') != std::string_view::npos) {
            throw RemoteError(EINVAL, "a name with a backslash cannot be asked for");
        }
        if (part.find('\0') != std::string_view::npos) {
            throw RemoteError(EINVAL, "a name cannot hold a zero byte");
        }
        const std::optional<Bytes> wide = utf16FromUtf8(part);
        if (!wide) throw RemoteError(EILSEQ, "the name is not valid UTF-8");
        if (wide->size() > kMaxName) throw RemoteError(ENAMETOOLONG, "the name is too long");
        text.push_back('\\');
        text += part;
    }
    if (text.size() > kMaxPath) throw RemoteError(ENAMETOOLONG, "the path is too long");
    return *utf16FromUtf8(text);
}

Bytes createRequest(std::uint8_t map, View path, std::uint32_t flags, std::uint32_t mode,
                    std::int64_t size) {
    Bytes message = request(kCreate, map);
    appendPath(message, path);
    appendLe(message, kNoHandle);  // not 0, or the mode would not count
    appendLe(message, std::uint32_t{kNoResult});
    appendLe(message, flags);
    ObjectInfo info;
    info.size = size;
    info.mode = mode;
    info.appendTo(message);
    message.append(kParmsTail, '\0');
    return finished(std::move(message));
}

Bytes closeRequest(std::uint8_t map, std::uint64_t handle) {
    return finished(handleRequest(kClose, map, handle));
}

Bytes readRequest(std::uint8_t map, std::uint64_t handle, std::uint64_t offset,
                  std::uint32_t length) {
    Bytes message = handleRequest(kRead, map, handle);
    appendLe(message, offset);
    appendLe(message, length);
    return finished(std::move(message));
}

Bytes writeRequest(std::uint8_t map, std::uint64_t handle, std::uint64_t offset, View data) {
    Bytes message = handleRequest(kWrite, map, handle);
    message.reserve(message.size() + 12 + data.size());
    appendLe(message, offset);
    appendLe(message, static_cast<std::uint32_t>(data.size()));
    append(message, data);
    return finished(std::move(message));
}

Bytes flushRequest(std::uint8_t map, std::uint64_t handle) {
    return finished(handleRequest(kFlush, map, handle));
}

Bytes listRequest(std::uint8_t map, std::uint64_t handle, View name, std::uint32_t flags,
                  std::uint32_t limit) {
    Bytes message = handleRequest(kList, map, handle);
    appendPath(message, name);
    appendLe(message, flags);
    appendLe(message, std::uint32_t{0});
    appendLe(message, limit);
    return finished(std::move(message));
}

Bytes queryInfoRequest(std::uint8_t map, std::uint64_t handle) {
    return finished(handleRequest(kQueryInfo, map, handle));
}

Bytes volumeRequest(std::uint8_t map, std::uint64_t handle) {
    return finished(handleRequest(kVolume, map, handle));
}

Bytes setInfoRequest(std::uint8_t map, std::uint64_t handle, const ObjectInfo& info) {
    Bytes message = handleRequest(kSetInfo, map, handle);
    appendLe(message, static_cast<std::uint32_t>(ObjectInfo::kSize));
    info.appendTo(message);
    return finished(std::move(message));
}

Bytes setEndOfFileRequest(std::uint8_t map, std::uint64_t handle, std::int64_t size) {
    Bytes message = handleRequest(kSetEndOfFile, map, handle);
    appendLe(message, static_cast<std::uint32_t>(sizeof size));
    appendLe(message, size);
    return finished(std::move(message));
}

Bytes removeRequest(std::uint8_t map, View path, std::uint32_t flags) {
    Bytes message = request(kRemove, map);
    appendPath(message, path);
    appendLe(message, flags);
    return finished(std::move(message));
}

Bytes renameRequest(std::uint8_t map, View from, View to, std::uint32_t flags) {
    Bytes message = request(kRename, map);
    appendPath(message, from);
    appendPath(message, to);
    appendLe(message, flags);
    return finished(std::move(message));
}

Bytes mapCountRequest() {
    return finished(request(kMapCount, 0));
}

std::int32_t Created::outcome() const {
    if (status != kSuccess) return status;
    if (handle != kNoHandle) return kSuccess;
    switch (result) {
        case kPathNotFound:
            return kStatusPathNotFound;
        case kFileNotFound:
            return kStatusFileNotFound;
        case kFileExists:
            return kAlreadyExists;
        default:
            return kGeneralFailure;
    }
}

Created parseCreated(View message) {
    Result result = openResult(message, "result of a create");
    Created created;
    created.status = result.status;
    if (result.count != kParmsSize) {
        // A drive that is gone answers with the status alone.
        if (result.status != kSuccess) return created;
        throw BadMessage("result of a create: a block of " + std::to_string(result.count) +
                         " bytes instead of " + std::to_string(kParmsSize));
    }
    created.handle = result.data.number<std::uint64_t>("handle");
    created.result = result.data.number<std::uint32_t>("create result");
    created.flags = result.data.number<std::uint32_t>("flags");
    created.info = ObjectInfo::parse(result.data);
    return created;
}

std::int32_t statusOf(View message) {
    return openResult(message, "result").status;
}

void parseStatus(View message) {
    requireSuccess(statusOf(message));
}

View parseRead(View message, std::uint32_t asked) {
    Result result = openResult(message, "result of a read");
    requireSuccess(result.status);
    if (result.count > std::max<std::size_t>(asked, kMinRead)) {
        throw BadMessage("result of a read: " + std::to_string(result.count) +
                         " bytes, asked were " + std::to_string(asked));
    }
    // A short read is served as one of kMinRead bytes.
    const View data = result.data.bytes(result.count, "data");
    return data.first(std::min<std::size_t>(data.size(), asked));
}

std::uint32_t parseWritten(View message, std::uint32_t asked) {
    const Result result = openResult(message, "result of a write");
    requireSuccess(result.status);
    if (result.count > asked) {
        throw BadMessage("result of a write: " + std::to_string(result.count) +
                         " bytes written, sent were " + std::to_string(asked));
    }
    return result.count;
}

ObjectInfo parseInfo(View message) {
    return parseRecord<ObjectInfo>(message, "object information");
}

VolumeInfo parseVolume(View message) {
    return parseRecord<VolumeInfo>(message, "volume information");
}

std::uint32_t parseMapCount(View message) {
    Cursor from(message, "number of maps");
    from.bytes(kHeaderSize, "header");
    return from.number<std::uint32_t>("number");
}

Listing parseListing(View message) {
    Result result = openResult(message, "listing");
    Listing listing;
    listing.ended = result.status == kNoMoreFiles;
    if (!listing.ended) requireSuccess(result.status);

    // A listing without entries may end before the number of them.
    if (result.count == 0) return listing;
    const auto count = result.data.number<std::uint32_t>("number of entries");
    Cursor entries(result.data.bytes(result.count, "entries"), "listing");
    for (std::uint32_t i = 0; i < count; ++i) listing.entries.push_back(parseEntry(entries));
    return listing;
}

DriveAdded parseDriveAdded(View message) {
    Cursor from(message, "announcement of a drive");
    DriveAdded drive;
    drive.printer = from.number<std::uint16_t>("type") == kPrinterAdd;
    from.bytes(kHeaderSize - 2, "header");
    drive.id = from.number<std::uint32_t>("map id");
    const auto nameSize = from.number<std::uint32_t>("name size");
    drive.name = textUpToZero(from.bytes(nameSize, "name"));
    const auto wideSize = from.number<std::uint16_t>("wide name size");
    from.bytes(wideSize, "wide name");
    drive.volume = VolumeInfo::parse(from);
    return drive;
}

DriveNamed parseDriveNamed(View message) {
    Cursor from(message, "names of a drive");
    DriveNamed drive;
    from.bytes(kHeaderSize, "header");
    drive.id = from.number<std::uint32_t>("map id");
    from.bytes(4, "length");
    drive.rootFlag = from.number<std::int32_t>("root flag");
    drive.type = from.number<std::int32_t>("map type");
    const auto computerSize = from.number<std::uint16_t>("computer name size");
    drive.computer = textUpToZero(from.bytes(computerSize, "computer name"));
    const auto shareSize = from.number<std::uint16_t>("folder name size");
    drive.share = textUpToZero(from.bytes(shareSize, "folder name"));
    return drive;
}

DriveDeleted parseDriveDeleted(View message) {
    Cursor from(message, "removal of a drive");
    DriveDeleted drive;
    from.bytes(kHeaderSize, "header");
    drive.id = from.number<std::uint32_t>("map id");
    const auto nameSize = from.number<std::uint32_t>("name size");
    drive.name = textUpToZero(from.bytes(nameSize, "name"));
    return drive;
}

Handshake parseHandshake(View message) {
    const Header header = Header::parse(message);
    if (header.type != kHandshake || message.size() != kHeaderSize + sizeof kMagic ||
        std::memcmp(message.data() + kHeaderSize, kMagic, sizeof kMagic) != 0) {
        throw BadMessage("the other side does not begin with a handshake");
    }
    return {header.param};
}

}  // namespace peer::windows
