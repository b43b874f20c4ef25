// The platform seam for what stat tells of one object, birth time included: that is a field of stat
// on macOS and needs another call elsewhere. Any thread.
#pragma once

#include <cstdint>

namespace compat {

// Times in nanoseconds since 1970-01-01 UTC, modulo 2 to the 64th.
struct FileStatus {
    std::int64_t size;
    std::uint32_t mode;  // type and permissions, as in st_mode
    std::int64_t accessTime;
    std::int64_t modificationTime;
    std::int64_t changeTime;
    std::int64_t birthTime;  // the modification time where the file system keeps none

    bool operator==(const FileStatus&) const = default;
};

// Each takes one system call and returns 0, or -1 with errno set. A link reports its target.
int statPath(const char* path, FileStatus* status);
int statHandle(int fd, FileStatus* status);

// A file may carry any number of seconds: the product wraps like the field that it goes into.
constexpr std::int64_t nanoseconds(std::int64_t seconds, std::int64_t nanos) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(seconds) * 1'000'000'000U +
                                     static_cast<std::uint64_t>(nanos));
}

}  // namespace compat
