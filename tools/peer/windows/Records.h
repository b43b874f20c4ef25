// Records that results and announcements carry.
#pragma once

#include <cstdint>

#include "peer/Bytes.h"
#include "peer/windows/Protocol.h"

namespace peer::windows {

struct ObjectInfo {
    static constexpr std::size_t kSize = 92;

    std::int64_t size = 0;
    std::int64_t allocated = 0;
    std::int64_t accessed = 0;  // all times: nanoseconds since 1970
    std::int64_t modified = 0;
    std::int64_t changed = 0;
    std::int64_t born = 0;
    std::uint32_t mode = 0;  // DOS attributes in the upper half, the Unix mode in the lower one
    std::uint32_t additional = 1;

    bool isDirectory() const { return (mode & kModeTypeMask) == kModeDirectory; }
    bool isRegular() const { return (mode & kModeTypeMask) == kModeRegular; }

    static ObjectInfo parse(Cursor& from);
    void appendTo(Bytes& to) const;
};

struct VolumeInfo {
    static constexpr std::size_t kSize = 38;

    std::uint64_t total = 0;
    std::uint64_t available = 0;
    std::uint32_t unit = 0;
    std::uint32_t sector = 0;
    std::uint32_t serial = 0;
    std::uint32_t maxName = 0;
    bool remote = false, caseSensitive = false, readOnly = false, unicode = false;

    static VolumeInfo parse(Cursor& from);
};

}  // namespace peer::windows
