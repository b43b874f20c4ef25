#include "peer/windows/FileAttributes.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "peer/windows/Status.h"

namespace peer::windows {

namespace {

constexpr std::uint32_t kUnixMode = 0xFFFF;
constexpr std::uint32_t kOwnerRead = 0400;
constexpr int kAttributesShift = 16;
constexpr std::int64_t kBlock = 512;
constexpr std::uint64_t kCoarsest = 2 * std::uint64_t{kSecond};  // of all file systems

// Stable over sessions, and the same for a listing and a look-up.
std::uint64_t inodeOf(std::string_view path) {
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const char c : path) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 0x100000001B3;
    }
    return hash | 2;  // neither 0, which is no inode, nor 1, which is a root
}

// 0 would leave the time as it is, and the other side takes no fraction of a second before 1970.
Time wireTime(Time time) {
    if (time == 0) return 1;
    if (time > 0 || time % kSecond == 0) return time;
    const Time second = time - time % kSecond;
    return second < std::numeric_limits<Time>::min() + kSecond ? second : second - kSecond;
}

bool areClose(Time a, Time b) {
    const auto earlier = static_cast<std::uint64_t>(std::min(a, b));
    return static_cast<std::uint64_t>(std::max(a, b)) - earlier < kCoarsest;
}

}  // namespace

Attributes attributesOf(const ObjectInfo& info, std::string_view path) {
    Attributes attributes;
    attributes.mode = info.mode & kUnixMode;
    attributes.uid = ::geteuid();
    attributes.gid = ::getegid();
    attributes.inode = inodeOf(path);
    attributes.size = info.size < 0 ? 0 : info.size;
    attributes.blocks = attributes.size / kBlock + (attributes.size % kBlock != 0 ? 1 : 0);
    attributes.accessed = info.accessed;
    attributes.modified = info.modified;
    attributes.changed = info.changed;
    attributes.born = info.born;
    attributes.windowsAttributes = info.mode >> kAttributesShift;
    return attributes;
}

std::uint32_t setMode(const RemoteHandle& file, std::uint32_t mode) {
    ObjectInfo wanted;
    wanted.mode = kModeRegular | (mode & 07777U);
    const ObjectInfo now = file.session().setInfo(file.map(), file.value(), wanted);
    if ((now.mode & kPermissions) != ((mode | kOwnerRead) & kPermissions)) {
        throw RemoteError(EPERM, "the permissions were not changed");
    }
    return now.mode & 07777U;
}

void setTimes(const RemoteHandle& file, Time accessed, Time modified) {
    ObjectInfo wanted;
    wanted.accessed = wireTime(accessed);
    wanted.modified = wireTime(modified);
    const ObjectInfo now = file.session().setInfo(file.map(), file.value(), wanted);
    if (!areClose(now.modified, modified)) throw RemoteError(EPERM, "the times were not changed");
}

void setSize(const RemoteHandle& file, std::int64_t size) {
    if (size < 0) throw RemoteError(EINVAL, "a file cannot have a negative size");
    try {
        file.session().setEndOfFile(file.map(), file.value(), size);
    } catch (const StatusError& error) {
        if (error.status() != kNotSupported) throw;
        // Told apart by what the policy says, since the answer is the same.
        if (file.session().isResizable()) throw RemoteError(EFBIG, "the policy bounds sizes");
        throw RemoteError(EPERM, "the policy forbids to change sizes");
    }
}

}  // namespace peer::windows
