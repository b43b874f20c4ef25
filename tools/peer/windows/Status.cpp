#include "peer/windows/Status.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace peer::windows {

namespace {

struct Row {
    std::int32_t status;
    int error;
    const char* name;
    const char* text;
};

constexpr Row kRows[] = {
    {0, 0, "VINF_SUCCESS", "success"},
    {-1, EIO, "VERR_GENERAL_FAILURE", "general failure"},
    {-2, EINVAL, "VERR_INVALID_PARAMETER", "invalid name, handle or argument"},
    {-4, EBADF, "VERR_INVALID_HANDLE", "invalid handle"},
    {-6, EFAULT, "VERR_INVALID_POINTER", "bad address"},
    {-8, ENOMEM, "VERR_NO_MEMORY", "out of memory"},
    {-35, EIO, "VERR_UNRESOLVED_ERROR", "unknown error"},
    {-36, ENOSYS, "VERR_INVALID_FUNCTION", "invalid function"},
    {-37, ENOTSUP, "VERR_NOT_SUPPORTED", "not supported"},
    {-38, EACCES, "VERR_ACCESS_DENIED", "permission denied"},
    {-39, EINTR, "VERR_INTERRUPTED", "interrupted"},
    {-40, ETIMEDOUT, "VERR_TIMEOUT", "timed out"},
    {-42, E2BIG, "VERR_TOO_MUCH_DATA", "too much data"},
    {-44, EAGAIN, "VERR_MAX_PROCS_REACHED", "too many processes"},
    {-50, ESRCH, "VERR_PROCESS_NOT_FOUND", "no such process"},
    {-52, EAGAIN, "VERR_TRY_AGAIN", "try again"},
    {-58, EILSEQ, "VERR_NO_TRANSLATION", "name cannot be translated"},
    {-102, ENOENT, "VERR_FILE_NOT_FOUND", "no such file or directory"},
    {-103, ENOENT, "VERR_PATH_NOT_FOUND", "no such path"},
    {-105, EEXIST, "VERR_ALREADY_EXISTS", "exists already"},
    {-106, EMFILE, "VERR_TOO_MANY_OPEN_FILES", "too many open files"},
    {-109, ESPIPE, "VERR_SEEK_ON_DEVICE", "cannot seek"},
    {-113, EROFS, "VERR_WRITE_PROTECT", "write protected"},
    {-114, EBUSY, "VERR_SHARING_VIOLATION", "in use"},
    {-115, ENOLCK, "VERR_FILE_LOCK_FAILED", "no locks available"},
    {-119, EXDEV, "VERR_NOT_SAME_DEVICE", "not on the same device"},
    {-120, ENAMETOOLONG, "VERR_FILENAME_TOO_LONG", "name too long"},
    {-125, ENOTEMPTY, "VERR_DIR_NOT_EMPTY", "directory not empty"},
    {-127, EISDIR, "VERR_IS_A_DIRECTORY", "is a directory"},
    {-128, EFBIG, "VERR_FILE_TOO_BIG", "file too large"},
    {-138, EBUSY, "VERR_RESOURCE_BUSY", "busy"},
    {-152, ENOSPC, "VERR_DISK_FULL", "no space left on the drive"},
    {-156, ELOOP, "VERR_TOO_MANY_SYMLINKS", "too many levels of symbolic links"},
    {-201, ENOENT, "VERR_NO_MORE_FILES", "no more files"},
    {-250, EIO, "VERR_DEV_IO_ERROR", "input or output error"},
    {-301, EPIPE, "VERR_BROKEN_PIPE", "broken pipe"},
    {-304, ENODATA, "VERR_NO_DATA", "no data"},
    {-365, EDEADLK, "VERR_DEADLOCK", "deadlock avoided"},
    {-608, ENOEXEC, "VERR_BAD_EXE_FORMAT", "bad executable format"},
};

const Row* rowOf(std::int32_t status) {
    const auto* row = std::find_if(std::begin(kRows), std::end(kRows),
                                   [status](const Row& r) { return r.status == status; });
    return row == std::end(kRows) ? nullptr : row;
}

}  // namespace

std::string describeStatus(std::int32_t status) {
    const Row* row = rowOf(status);
    if (row == nullptr) return "status " + std::to_string(status);
    return std::string(row->text) + " (" + row->name + ")";
}

int errnoOf(std::int32_t status) {
    const Row* row = rowOf(status);
    return row == nullptr ? EIO : row->error;
}

}  // namespace peer::windows
