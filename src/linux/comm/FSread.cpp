// Reads of open files: one pread straight into the reply. Processing thread only.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "common/Comm/FdLog.h"
#include "common/Comm/HandleManage.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapFolder.h"
#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

static_assert(kReadRequestSize == kLengthAt + 4);
constexpr int kReplyTail = kHeaderSize + kDataReplyExtra - kReplyDataAt;  // bytes behind the data

constexpr std::uint32_t kMinReadCount = 512;
constexpr std::uint32_t kMaxReadCount = MAX_CMD_BUFFER - kHeaderSize - kDataReplyExtra;

struct ReadRequest {
    unsigned long long hFile;
    unsigned long long offset;
    unsigned long length;
};

// Kept: a small read is made larger, and the reply may carry more than was asked for. A large one
// is cut so that the whole reply fits the work buffer.
std::uint32_t countFor(std::uint32_t length) {
    if (length < kMinReadCount) {
        FD_LOG_WARN("readcount < 512, set it to 512, length: %u", length);
    }
    return std::clamp(length, kMinReadCount, kMaxReadCount);
}

// Reads up to `count` bytes to `data` and stores what came in `*haveRead`.
int readFile(const _ZRSFHANDLE& handle, const ReadRequest& request, std::uint32_t count, char* data,
             std::uint32_t* haveRead) {
    const int fd = static_cast<int>(handle.dir.Handle);
    const ssize_t got = pread(fd, data, count, static_cast<off_t>(request.offset));
    if (got < 0) {
        const int err = errno;
        const int rc = RTErrConvertFromLinux(static_cast<unsigned>(err));
        FD_LOG_WARN(
            "pread error!!!   path: %s, hFile: %llu, offset: %llu, length: %lu, rc: %d, haveRead: %d, errno: %d",
            handle.name, request.hFile, request.offset, request.length, rc, static_cast<int>(got),
            err);
        return rc;
    }

    // Kept: the position moves by the count that was asked for, also after a short read.
    if (lseek(fd, static_cast<off_t>(request.offset + count), SEEK_SET) < 0) {
        const int err = errno;
        FD_LOG_WARN(
            "lseek error!!!   path: %s, hFile: %llu, offset: %llu, length: %lu, rc: %d, haveRead: %d, errno: %d",
            handle.name, request.hFile, request.offset, request.length, VINF_SUCCESS,
            static_cast<int>(got), err);
    }
    *haveRead = static_cast<std::uint32_t>(got);
    return VINF_SUCCESS;
}

// The reply's last bytes lie behind the data: the request's, if it reaches that far, and zeros.
void clearTail(char* buffer, int size, int replyEnd) {
    if (size < replyEnd) {
        const int from = std::max(size, replyEnd - kReplyTail);
        std::memset(buffer + from, 0, static_cast<std::size_t>(replyEnd - from));
    }
}

}  // namespace

void ZrsfRead(char*& buffer, int size, int* resultSize, MapFolder* map) {
    const ReadRequest request = {loadLe<unsigned long long>(buffer + kHandleAt),
                                 loadLe<unsigned long long>(buffer + kOffsetAt),
                                 loadLe<std::uint32_t>(buffer + kLengthAt)};
    const _ZRSFHANDLE* handle =
        map->m_handleManage->GetHandleData(static_cast<long long>(request.hFile));

    if (handle == nullptr || handle->type == HANDLE_TYPE_DIR) {
        FD_LOG_WARN(
            "invalid parameter!!!   handle: %llu, offset: %llu, length: %lu, pzrsfHandle: %p",
            request.hFile, request.offset, request.length, static_cast<const void*>(handle));
        return putStatus(buffer, VERR_INVALID_PARAMETER, resultSize, kDataReplyExtra);
    }

    std::uint32_t haveRead = 0;
    const std::uint32_t count = countFor(static_cast<std::uint32_t>(request.length));
    const int rc = readFile(*handle, request, count, buffer + kReplyDataAt, &haveRead);

    putStatus(buffer, rc, resultSize, static_cast<int>(haveRead) + kDataReplyExtra);
    storeLe<std::uint32_t>(buffer + kCbBufferAt, haveRead);
    clearTail(buffer, size, kHeaderSize + *resultSize);
}
