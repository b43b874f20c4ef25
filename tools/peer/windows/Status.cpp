#include "peer/windows/Status.h"

#include <algorithm>
#include <iterator>

namespace peer::windows {

namespace {

struct Row {
    std::int32_t status;
    const char* name;
    const char* text;
};

constexpr Row kRows[] = {
    {0, "VINF_SUCCESS", "success"},
    {-1, "VERR_GENERAL_FAILURE", "general failure"},
    {-2, "VERR_INVALID_PARAMETER", "invalid name, handle or argument"},
    {-4, "VERR_INVALID_HANDLE", "invalid handle"},
    {-6, "VERR_INVALID_POINTER", "bad address"},
    {-8, "VERR_NO_MEMORY", "out of memory"},
    {-35, "VERR_UNRESOLVED_ERROR", "unknown error"},
    {-36, "VERR_INVALID_FUNCTION", "invalid function"},
    {-37, "VERR_NOT_SUPPORTED", "not supported"},
    {-38, "VERR_ACCESS_DENIED", "permission denied"},
    {-39, "VERR_INTERRUPTED", "interrupted"},
    {-40, "VERR_TIMEOUT", "timed out"},
    {-42, "VERR_TOO_MUCH_DATA", "too much data"},
    {-44, "VERR_MAX_PROCS_REACHED", "too many processes"},
    {-50, "VERR_PROCESS_NOT_FOUND", "no such process"},
    {-52, "VERR_TRY_AGAIN", "try again"},
    {-58, "VERR_NO_TRANSLATION", "name cannot be translated"},
    {-102, "VERR_FILE_NOT_FOUND", "no such file or directory"},
    {-103, "VERR_PATH_NOT_FOUND", "no such path"},
    {-105, "VERR_ALREADY_EXISTS", "exists already"},
    {-106, "VERR_TOO_MANY_OPEN_FILES", "too many open files"},
    {-109, "VERR_SEEK_ON_DEVICE", "cannot seek"},
    {-113, "VERR_WRITE_PROTECT", "write protected"},
    {-114, "VERR_SHARING_VIOLATION", "in use"},
    {-115, "VERR_FILE_LOCK_FAILED", "no locks available"},
    {-119, "VERR_NOT_SAME_DEVICE", "not on the same device"},
    {-120, "VERR_FILENAME_TOO_LONG", "name too long"},
    {-125, "VERR_DIR_NOT_EMPTY", "directory not empty"},
    {-127, "VERR_IS_A_DIRECTORY", "is a directory"},
    {-128, "VERR_FILE_TOO_BIG", "file too large"},
    {-138, "VERR_RESOURCE_BUSY", "busy"},
    {-152, "VERR_DISK_FULL", "no space left on the drive"},
    {-156, "VERR_TOO_MANY_SYMLINKS", "too many levels of symbolic links"},
    {-201, "VERR_NO_MORE_FILES", "no more files"},
    {-250, "VERR_DEV_IO_ERROR", "input or output error"},
    {-301, "VERR_BROKEN_PIPE", "broken pipe"},
    {-304, "VERR_NO_DATA", "no data"},
    {-365, "VERR_DEADLOCK", "deadlock avoided"},
    {-608, "VERR_BAD_EXE_FORMAT", "bad executable format"},
};

}  // namespace

std::string describeStatus(std::int32_t status) {
    const auto* row = std::find_if(std::begin(kRows), std::end(kRows),
                                   [status](const Row& r) { return r.status == status; });
    if (row == std::end(kRows)) return "status " + std::to_string(status);
    return std::string(row->text) + " (" + row->name + ")";
}

}  // namespace peer::windows
