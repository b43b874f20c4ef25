// The way from the local errno to the status words of the server. Any thread.
#include "linux/comm/Opreator/StatusCode.h"

#include <algorithm>
#include <cerrno>
#include <span>

#include "OwnErrnoRows.h"
#include "common/Comm/FdLog.h"
#include "linux/compat/ErrnoRow.h"

namespace {

constexpr int kOperationNotSupported = -445;
constexpr int kProtocolError = -466;

// The other status words of the network are numbered after the errno numbers of macOS, and these
// words go out on every platform.
constexpr int networkStatus(int number) {
    return -(400 + number);
}

// Searched in order: two symbols may share one number, and then the earlier row counts.
constexpr ErrnoRow kErrnoRows[] = {
    {0, VINF_SUCCESS},
    {EPERM, VERR_ACCESS_DENIED},
    {EACCES, VERR_ACCESS_DENIED},
    {ENOENT, VERR_FILE_NOT_FOUND},
    {ESRCH, VERR_PROCESS_NOT_FOUND},
    {ECHILD, VERR_PROCESS_NOT_FOUND},
    {EINTR, VERR_INTERRUPTED},
    {EIO, VERR_DEV_IO_ERROR},
    {ENXIO, VERR_DEV_IO_ERROR},
    {E2BIG, VERR_TOO_MUCH_DATA},
    {EOVERFLOW, VERR_TOO_MUCH_DATA},
    {ENOEXEC, VERR_BAD_EXE_FORMAT},
    {EBADF, VERR_INVALID_HANDLE},
    {EDEADLK, VERR_DEADLOCK},
    {ENOMEM, VERR_NO_MEMORY},
    {EFAULT, VERR_INVALID_POINTER},
    {EBUSY, VERR_RESOURCE_BUSY},
    {EEXIST, VERR_ALREADY_EXISTS},
    {EXDEV, VERR_NOT_SAME_DEVICE},
    {ENODEV, VERR_NOT_SUPPORTED},
    {ENOTSUP, VERR_NOT_SUPPORTED},
    {ENOSYS, VERR_NOT_SUPPORTED},
    {ENOTDIR, VERR_PATH_NOT_FOUND},
    {EISDIR, VERR_IS_A_DIRECTORY},
    {EINVAL, VERR_INVALID_PARAMETER},
    {EDOM, VERR_INVALID_PARAMETER},
    {ERANGE, VERR_INVALID_PARAMETER},
    {ENFILE, VERR_TOO_MANY_OPEN_FILES},
    {EMFILE, VERR_TOO_MANY_OPEN_FILES},
    {ENOTTY, VERR_INVALID_FUNCTION},
    {ETXTBSY, VERR_SHARING_VIOLATION},
    {EFBIG, VERR_FILE_TOO_BIG},
    {ENOSPC, VERR_DISK_FULL},
    {EDQUOT, VERR_DISK_FULL},
    {ESPIPE, VERR_SEEK_ON_DEVICE},
    {EROFS, VERR_WRITE_PROTECT},
    {EPIPE, VERR_BROKEN_PIPE},
    {EAGAIN, VERR_TRY_AGAIN},
    {ETIMEDOUT, VERR_TIMEOUT},
    {ELOOP, VERR_TOO_MANY_SYMLINKS},
    {ENAMETOOLONG, VERR_FILENAME_TOO_LONG},
    {ENOTEMPTY, VERR_DIR_NOT_EMPTY},
    {ENOLCK, VERR_FILE_LOCK_FAILED},
    {EILSEQ, VERR_NO_TRANSLATION},
    {ENODATA, VERR_NO_DATA},
    {EPROTO, kProtocolError},
    {EOPNOTSUPP, kOperationNotSupported},

    // The network.
    {EINPROGRESS, networkStatus(36)},
    {EALREADY, networkStatus(37)},
    {ENOTSOCK, networkStatus(38)},
    {EDESTADDRREQ, networkStatus(39)},
    {EMSGSIZE, networkStatus(40)},
    {EPROTOTYPE, networkStatus(41)},
    {ENOPROTOOPT, networkStatus(42)},
    {EPROTONOSUPPORT, networkStatus(43)},
    {ESOCKTNOSUPPORT, networkStatus(44)},
    {EPFNOSUPPORT, networkStatus(46)},
    {EAFNOSUPPORT, networkStatus(47)},
    {EADDRINUSE, networkStatus(48)},
    {EADDRNOTAVAIL, networkStatus(49)},
    {ENETDOWN, networkStatus(50)},
    {ENETUNREACH, networkStatus(51)},
    {ENETRESET, networkStatus(52)},
    {ECONNABORTED, networkStatus(53)},
    {ECONNRESET, networkStatus(54)},
    {ENOBUFS, networkStatus(55)},
    {EISCONN, networkStatus(56)},
    {ENOTCONN, networkStatus(57)},
    {ESHUTDOWN, networkStatus(58)},
    {ETOOMANYREFS, networkStatus(59)},
    {ECONNREFUSED, networkStatus(61)},
    {EHOSTDOWN, networkStatus(64)},
    {EHOSTUNREACH, networkStatus(65)},
};

const ErrnoRow* findRow(std::span<const ErrnoRow> rows, int err) {
    const auto row =
        std::find_if(rows.begin(), rows.end(), [err](const ErrnoRow& r) { return r.err == err; });
    return row == rows.end() ? nullptr : &*row;
}

}  // namespace

int RTErrConvertFromLinux(unsigned int err) {
    const auto number = static_cast<int>(err);
    if (const ErrnoRow* row = findRow(kErrnoRows, number)) return row->status;
    if (const ErrnoRow* row = findRow(kOwnErrnoRows, number)) return row->status;

    FD_LOG_ERROR("Unhandled error code %d", number);
    return VERR_UNRESOLVED_ERROR;
}
