#include "peer/linux/Messages.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include "peer/linux/Results.h"

namespace peer::linux {

namespace {

constexpr std::size_t kSmallRequest = 192;  // with a path of usual length
constexpr std::size_t kAccessSize = 32;     // the offset and the access tests of an entry
constexpr std::size_t kSmallestEntry = 8 + 2 + 8 + kStatSize + kAccessSize;

Bytes frameOf(std::int32_t type, std::int32_t subtype, std::size_t room) {
    Bytes frame;
    frame.reserve(kPayloadAt + room);
    frame.append(kPayloadAt, '\0');
    storeLe(frame.data() + kLengthAt, static_cast<std::uint32_t>(kHeadSize));
    storeLe(frame.data() + kHeadSizeAt, static_cast<std::uint32_t>(kHeadSize));
    storeLe(frame.data() + kTypeAt, type);
    storeLe(frame.data() + kSubtypeAt, subtype);
    return frame;
}

// Once the payload is complete.
void setSize(Bytes& frame, std::size_t extra = 0) {
    const std::size_t size = frame.size() - kPayloadAt + extra;
    storeLe(frame.data() + kLengthAt, static_cast<std::uint32_t>(size + kHeadSize));
    storeLe(frame.data() + kExtSizeAt, static_cast<std::uint32_t>(size));
}

void appendText(Bytes& to, std::string_view text) {
    appendLe(to, static_cast<std::uint64_t>(text.size() + 1));
    to.append(viewOf(text));
    to.push_back('\0');
}

void checkText(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) throw localError(EINVAL);
    if (text.size() >= kMaxPath) throw localError(ENAMETOOLONG);
}

void appendPath(Bytes& to, std::string_view path) {
    checkText(path);
    appendLe(to, static_cast<std::uint64_t>(path.size() + 2));
    to.push_back('/');
    to.append(viewOf(path));
    to.push_back('\0');
}

void appendInfo(Bytes& to, int flags) {
    appendLe(to, static_cast<std::uint64_t>(kFileInfoSize));
    appendLe(to, static_cast<std::uint64_t>(static_cast<unsigned>(flags)));
    to.append(kFileInfoSize - 8, '\0');
}

Bytes withPath(Code code, std::string_view path) {
    Bytes frame = frameOf(kOperation, code, kSmallRequest + path.size());
    appendPath(frame, path);
    return frame;
}

Request finished(Bytes frame) {
    setSize(frame);
    return {std::move(frame), {}, {}};
}

// The result of an operation that says no more than that it was done.
std::int64_t resultOf(View reply) {
    const auto res = loadLe<std::int64_t>(reply.data() + kResAt);
    if (res < 0) throw errorOf(res);
    return res;
}

View fixedPayload(View reply, std::size_t size) {
    if (resultOf(reply) != 0) throw badReply("a count for what counts nothing");
    const View payload = payloadOf(reply);
    if (payload.size() != size) {
        throw badReply(std::to_string(payload.size()) + " bytes instead of " +
                       std::to_string(size));
    }
    return payload;
}

DirEntry parseEntry(Cursor& from) {
    DirEntry entry;
    const auto length = from.number<std::uint64_t>("name length");
    const View name = from.bytes(length, "name");
    if (name.empty() || name.back() != '\0') throw BadMessage("a name without an end");
    entry.name = textOf(name.first(name.size() - 1));
    if (from.number<std::uint64_t>("attributes length") != kStatSize) {
        throw BadMessage("attributes of another length");
    }
    entry.attributes = parseStat(from.bytes(kStatSize, "attributes").data());
    from.bytes(kAccessSize, "access");
    return entry;
}

}  // namespace

Head Head::parse(View frame) {
    if (frame.size() < kPayloadAt) {
        throw BadMessage("a frame of " + std::to_string(frame.size()) + " bytes");
    }
    const char* at = frame.data();
    const auto length = loadLe<std::uint32_t>(at + kLengthAt);
    const auto extsize = loadLe<std::int32_t>(at + kExtSizeAt);
    if (loadLe<std::uint64_t>(at) != 0 || length != frame.size() - kPrefixSize) {
        throw BadMessage("a frame of " + std::to_string(frame.size()) +
                         " bytes that says it has another length");
    }
    if (static_cast<std::size_t>(std::max(extsize, 0)) != frame.size() - kPayloadAt) {
        throw BadMessage("a frame whose payload does not fill it");
    }
    return {loadLe<std::int32_t>(at + kMapIdAt), loadLe<std::int32_t>(at + kTypeAt),
            loadLe<std::int32_t>(at + kSubtypeAt), loadLe<std::int64_t>(at + kResAt),
            loadLe<std::int64_t>(at + kIdxAt)};
}

Request pathRequest(Code code, std::string_view path) {
    return finished(withPath(code, path));
}

Request numberRequest(Code code, std::string_view path, std::int64_t number) {
    Bytes frame = withPath(code, path);
    appendLe(frame, number);
    return finished(std::move(frame));
}

Request mknodRequest(std::string_view path, std::uint32_t mode, std::uint64_t device) {
    Bytes frame = withPath(kMknod, path);
    appendLe(frame, std::uint64_t{mode});
    appendLe(frame, device);
    return finished(std::move(frame));
}

Request twoPathsRequest(Code code, std::string_view from, std::string_view to) {
    Bytes frame = withPath(code, from);
    appendPath(frame, to);
    return finished(std::move(frame));
}

Request openRequest(std::string_view path, int accessMode) {
    Bytes frame = withPath(kOpen, path);
    appendInfo(frame, accessMode);
    return finished(std::move(frame));
}

Request readRequest(std::string_view path, std::uint64_t offset, std::size_t size) {
    Bytes frame = withPath(kRead, path);
    appendInfo(frame, 0);
    appendLe(frame, static_cast<std::uint64_t>(size));
    appendLe(frame, offset);
    return finished(std::move(frame));
}

Request writeRequest(std::string_view path, std::uint64_t offset, View data) {
    Request request{withPath(kWrite, path), data, {}};
    appendLe(request.frame, static_cast<std::uint64_t>(data.size()));
    request.tail.reserve(8 + kFileInfoSize + 8);
    appendInfo(request.tail, 1);
    appendLe(request.tail, offset);
    setSize(request.frame, data.size() + request.tail.size());
    return request;
}

Request readdirRequest(std::string_view path, std::size_t size) {
    Bytes frame = withPath(kReaddir, path);
    appendInfo(frame, 0);
    appendLe(frame, std::uint64_t{0});
    appendLe(frame, static_cast<std::uint64_t>(size));
    return finished(std::move(frame));
}

Request symlinkRequest(std::string_view sent, std::string_view path) {
    checkText(sent);
    Bytes frame = frameOf(kOperation, kSymlink, kSmallRequest + sent.size() + path.size());
    appendText(frame, sent);
    appendPath(frame, path);
    return finished(std::move(frame));
}

Bytes controlMessage(std::int32_t map, Control subtype, std::int64_t res) {
    Bytes frame = frameOf(kMapControl, subtype, 0);
    storeLe(frame.data() + kMapIdAt, map);
    storeLe(frame.data() + kResAt, res);
    return frame;
}

Bytes mapMessage(std::int32_t map, std::string_view place) {
    Bytes frame = controlMessage(map, kMap);
    frame.append(8, '\0');
    frame.append(viewOf(place));
    frame.push_back('\0');
    setSize(frame);
    return frame;
}

void number(Request& request, std::int32_t map, std::int64_t idx) {
    storeLe(request.frame.data() + kMapIdAt, map);
    storeLe(request.frame.data() + kIdxAt, idx);
}

void parseDone(View reply) {
    fixedPayload(reply, 0);
}

void parseOpened(View reply) {
    fixedPayload(reply, kFileInfoSize);
}

Attributes parseGetattr(View reply) {
    return parseStat(fixedPayload(reply, kStatSize).data());
}

Volume parseStatfs(View reply) {
    return parseStatvfs(fixedPayload(reply, kStatvfsSize).data());
}

View parseRead(View reply, std::size_t asked) {
    const auto count = static_cast<std::uint64_t>(resultOf(reply));
    const View data = payloadOf(reply);
    if (count != data.size() || count > asked) {
        throw badReply(std::to_string(count) + " bytes read, " + std::to_string(data.size()) +
                       " sent, " + std::to_string(asked) + " asked for");
    }
    return data;
}

std::size_t parseWritten(View reply, std::size_t asked) {
    const auto count = static_cast<std::uint64_t>(resultOf(reply));
    if (count > asked || !payloadOf(reply).empty()) {
        throw badReply(std::to_string(count) + " bytes written of " + std::to_string(asked));
    }
    return count;
}

// A failure comes one higher than it is: no permission is 0, and there is no target then.
std::string parseReadlink(View reply) {
    const auto res = loadLe<std::int64_t>(reply.data() + kResAt);
    const View payload = payloadOf(reply);
    if (res < 0) throw errorOf(res == std::numeric_limits<std::int64_t>::min() ? res : res - 1);
    if (res == 0 && payload.empty()) throw errorOf(-1);
    if (res != 0 || payload.back() != '\0') throw badReply("a target without an end");
    const std::string_view text = textOf(payload.first(payload.size() - 1));
    if (text.empty() || text.find('\0') != std::string_view::npos) {
        throw badReply("a target that is no text");
    }
    return std::string(text);
}

Block parseReaddir(View reply) {
    resultOf(reply);
    const View payload = payloadOf(reply);
    Block block;
    if (payload.empty()) return block;
    block.present = true;
    block.size = payload.size();
    try {
        Cursor from(payload, "folder");
        const auto count = from.number<std::uint64_t>("count");
        if (count > from.rest().size() / kSmallestEntry) throw BadMessage("too many entries");
        block.entries.reserve(count);
        for (std::uint64_t i = 0; i < count; ++i) {
            DirEntry entry = parseEntry(from);
            if (entry.name == "." || entry.name == "..") continue;
            if (!isName(entry.name)) throw BadMessage("an entry that has no name");
            block.entries.push_back(std::move(entry));
        }
        if (!from.rest().empty()) throw BadMessage("bytes behind the last entry");
    } catch (const BadMessage& bad) {
        throw badReply(bad.what());
    }
    return block;
}

bool isWhole(std::size_t blockSize, std::size_t askedSize) {
    return blockSize + kLongestName + kReckonedEntry <= askedSize;
}

}  // namespace peer::linux
