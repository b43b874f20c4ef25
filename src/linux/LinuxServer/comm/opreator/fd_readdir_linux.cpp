// Fills a directory block from the start of a folder.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Comm/WireNumbers.h"

namespace {
// An entry: a length and the name, a length and the attributes, a word, three access results.
constexpr std::int64_t kCountSize = 8;
constexpr std::int64_t kEntryWordSize = 8;
constexpr std::int64_t kReckonedSize = 129;  // Kept: what an entry is tested with, beside its name
constexpr std::size_t kPathSize = 1024;
constexpr std::int64_t kLargestBlock = std::numeric_limits<std::int32_t>::max() / 2;  // of a block

using Stream = std::unique_ptr<DIR, int (*)(DIR*)>;

// What the folder itself knows of an entry stands in for attributes that cannot be had.
struct stat attributesOf(int folder, const dirent& entry) {
    struct stat info {};
    if (fstatat(folder, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) == -1) {
        info = {};
        info.st_ino = entry.d_ino;
        info.st_mode = static_cast<mode_t>(entry.d_type << 12);
    }
    return info;
}

class BlockWriter {
public:
    explicit BlockWriter(char* at) : m_at(at) {}

    void word(std::int64_t value) {
        storeLe(m_at, value);
        m_at += kEntryWordSize;
    }
    void attributes(const struct stat& info) {
        fd_stat record{};
        stat_fuse2fd(&info, &record);
        std::memcpy(m_at, &record, sizeof(record));
        m_at += sizeof(record);
    }
    int name(const char* text, std::size_t length) {
        const int err = memcpy_s(m_at, length, text, length);
        m_at += length;
        return err;
    }
    char* at() const { return m_at; }

private:
    char* m_at;
};

// Writes one entry. Its size, or minus errno. What is asked about it is asked from the open folder:
// the way to the folder need not be walked four times for each entry.
std::int64_t writeEntry(char* to, int folder, const dirent& entry, std::size_t nameLength) {
    const struct stat info = attributesOf(folder, entry);
    BlockWriter writer(to);
    writer.word(static_cast<std::int64_t>(nameLength + 1));
    if (const int err = writer.name(entry.d_name, nameLength + 1); err != 0) {
        const int reason = errno;
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return -reason;
    }
    writer.word(sizeof(fd_stat));
    writer.attributes(info);
    writer.word(0);
    for (const int mask : {R_OK, W_OK, X_OK}) {
        writer.word(faccessat(folder, entry.d_name, mask, 0));
    }
    return writer.at() - to;
}

// The length of the block, or minus errno.
std::int64_t fillBlock(const Stream& stream, const char* path, char* buffer, std::int64_t bufsize) {
    std::int64_t used = kCountSize;
    std::int64_t count = 0;
    std::array<char, kPathSize> full{};  // the limit of an entry's full path
    storeLe(buffer, count);
    while (const dirent* entry = readdir(stream.get())) {
        if (sprintf_s(full.data(), full.size(), "%s/%s", path, entry->d_name) == -1) {
            const int err = errno;
            FD_LOG_ERROR("sprintf_s failed");
            return -err;
        }
        const std::size_t length = std::strlen(entry->d_name);
        if (used + static_cast<std::int64_t>(length) + kReckonedSize > bufsize) {
            FD_LOG_INFO("offset: %d, bufsize: %ld", static_cast<int>(used),
                        static_cast<long>(bufsize));
            break;
        }
        const std::int64_t size = writeEntry(buffer + used, dirfd(stream.get()), *entry, length);
        if (size < 0) return size;
        used += size;
        storeLe(buffer, ++count);
    }
    return used;
}
}  // namespace

int fd_readdir_f(FdMapInfo* /*map*/, const char* path, char* buffer, std::int64_t bufsize,
                 std::int64_t read_offset, fd_file_info* /*info*/) {
    FD_LOG_DEBUG("path: %s, bufsize: %ld, read_offset: %ld", path, static_cast<long>(bufsize),
                 static_cast<long>(read_offset));
    const Stream stream(opendir(path), closedir);
    bufsize = std::min(bufsize, kLargestBlock);
    const int res =
        stream == nullptr ? -errno : static_cast<int>(fillBlock(stream, path, buffer, bufsize));
    FD_LOG_DEBUG("res: %d", res);
    return res;
}
