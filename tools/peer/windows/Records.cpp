#include "peer/windows/Records.h"

namespace peer::windows {

namespace {
constexpr std::size_t kExtraSize = 36;  // of the object information; carries nothing
}

ObjectInfo ObjectInfo::parse(Cursor& from) {
    ObjectInfo info;
    info.size = from.number<std::int64_t>("size");
    info.allocated = from.number<std::int64_t>("allocated size");
    info.accessed = from.number<std::int64_t>("access time");
    info.modified = from.number<std::int64_t>("modification time");
    info.changed = from.number<std::int64_t>("change time");
    info.born = from.number<std::int64_t>("birth time");
    info.mode = from.number<std::uint32_t>("mode");
    info.additional = from.number<std::uint32_t>("kind of attributes");
    from.bytes(kExtraSize, "attributes");
    return info;
}

void ObjectInfo::appendTo(Bytes& to) const {
    for (const std::int64_t field : {size, allocated, accessed, modified, changed, born}) {
        appendLe(to, field);
    }
    appendLe(to, mode);
    appendLe(to, additional);
    to.append(kExtraSize, '\0');
}

VolumeInfo VolumeInfo::parse(Cursor& from) {
    VolumeInfo info;
    info.total = from.number<std::uint64_t>("total size");
    info.available = from.number<std::uint64_t>("available size");
    info.unit = from.number<std::uint32_t>("allocation unit");
    info.sector = from.number<std::uint32_t>("sector size");
    info.serial = from.number<std::uint32_t>("serial number");
    info.maxName = from.number<std::uint32_t>("name limit");
    info.remote = from.number<std::uint8_t>("properties") != 0;
    info.caseSensitive = from.number<std::uint8_t>("properties") != 0;
    info.readOnly = from.number<std::uint8_t>("properties") != 0;
    info.unicode = from.number<std::uint8_t>("properties") != 0;
    from.bytes(2, "properties");
    return info;
}

}  // namespace peer::windows
