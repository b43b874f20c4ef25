#include "peer/linux/Records.h"

#include <algorithm>
#include <limits>

#include "peer/linux/Results.h"

namespace peer::linux {

namespace {

constexpr std::size_t kMaxText = 4096;
constexpr std::uint64_t kReadOnlyFlag = 1;  // of f_flag

template <typename T>
T word(const char* record, std::size_t index) {
    return static_cast<T>(loadLe<std::int64_t>(record + 8 * index));
}

// Times that nanoseconds cannot say become the first or the last that they can.
Time timeOf(std::int64_t seconds) {
    constexpr std::int64_t kLimit = std::numeric_limits<Time>::max() / kSecond;
    return std::clamp(seconds, -kLimit, kLimit) * kSecond;
}

std::string readText(Cursor& from, std::string_view field) {
    const auto length = from.number<std::uint64_t>(field);
    if (length == 0 || length > kMaxText) {
        throw BadMessage("plug: " + std::string(field) + " has a length of " +
                         std::to_string(length));
    }
    const std::string_view text = textOf(from.bytes(length, field));
    return std::string(text.substr(0, text.find('\0')));
}

}  // namespace

Attributes parseStat(const char* record) {
    Attributes attributes;
    attributes.fileSystem = word<std::uint64_t>(record, 0);
    attributes.inode = word<std::uint64_t>(record, 1);
    attributes.mode = word<std::uint32_t>(record, 2) & 0xFFFFU;
    attributes.links = word<std::uint64_t>(record, 3);
    attributes.uid = word<std::uint32_t>(record, 4);
    attributes.gid = word<std::uint32_t>(record, 5);
    attributes.device = word<std::uint64_t>(record, 6);
    attributes.size = word<std::int64_t>(record, 7);
    const auto blockSize = word<std::int64_t>(record, 8);
    if (blockSize > 0) attributes.blockSize = blockSize;
    attributes.blocks = word<std::int64_t>(record, 9);
    attributes.accessed = timeOf(word<std::int64_t>(record, 10));
    attributes.modified = timeOf(word<std::int64_t>(record, 11));
    attributes.changed = timeOf(word<std::int64_t>(record, 12));
    if (attributes.size < 0 || attributes.blocks < 0) throw badReply("a size below zero");
    return attributes;
}

Volume parseStatvfs(const char* record) {
    Volume volume;
    const auto unit = word<std::uint64_t>(record, 1);  // the block size is the same on the wire
    if (unit > 0) volume.blockSize = unit;
    volume.blocks = word<std::uint64_t>(record, 2);
    volume.freeBlocks = word<std::uint64_t>(record, 3);
    volume.availableBlocks = word<std::uint64_t>(record, 4);
    volume.files = word<std::uint64_t>(record, 5);
    volume.freeFiles = word<std::uint64_t>(record, 6);
    volume.readOnly = (word<std::uint64_t>(record, 9) & kReadOnlyFlag) != 0;
    const auto longest = word<std::uint64_t>(record, 10);
    if (longest > 0) volume.maxName = longest;
    return volume;
}

bool isName(std::string_view text) {
    return !text.empty() && text != "." && text != ".." &&
           text.find('/') == std::string_view::npos && text.find('\0') == std::string_view::npos;
}

PlugRecord PlugRecord::parse(View payload) {
    Cursor from(payload, "plug");
    PlugRecord record;
    record.root = from.number<std::int32_t>("root flag") != 0;
    record.flag = from.number<std::int32_t>("flag");
    record.type = from.number<std::int32_t>("type");
    record.policy = from.number<std::int32_t>("policy");
    record.folder = readText(from, "folder");
    record.computer = readText(from, "computer");
    if (record.folder.empty() && record.root) record.folder = "Root";
    if (!isName(record.folder)) throw BadMessage("plug: the folder is no name");
    return record;
}

}  // namespace peer::linux
