// The three stages of opening a file. Processing thread only.
#include "linux/comm/Opreator/FileOpen.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "common/Comm/FdLog.h"
#include "linux/comm/Opreator/OpenFlags.h"
#include "linux/comm/Opreator/StatusCode.h"

namespace {

// Of what this gives, the flags have room for the permissions only.
std::uint32_t createMode(const _SHFLCREATEPARMS& parms) {
    const std::uint32_t mode = parms.Info.Attr.fMode;
    if ((mode & RTFS_DOS_MASK) != 0 && (mode & RTFS_UNIX_MASK) == 0) return rtFsModeFromDos(mode);
    return parms.Handle == 0 ? 0 : mode;
}

std::uint32_t accessFlags(std::uint32_t createFlags) {
    switch (createFlags & SHFL_CF_ACCESS_MASK_RW) {
        case SHFL_CF_ACCESS_READ:
            return RTFILE_O_READ;
        case SHFL_CF_ACCESS_WRITE:
            return RTFILE_O_WRITE;
        case SHFL_CF_ACCESS_READWRITE:
            return RTFILE_O_READWRITE;
        default:
            FD_LOG_WARN("SHFL_CF_ACCESS_MASK_RW: SHFL_CF_ACCESS_NONE");
            return RTFILE_O_READ;
    }
}

std::uint32_t attributeFlags(std::uint32_t createFlags) {
    switch (createFlags & SHFL_CF_ACCESS_MASK_ATTR) {
        case SHFL_CF_ACCESS_ATTR_READ:
            return RTFILE_O_ACCESS_ATTR_READ;
        case SHFL_CF_ACCESS_ATTR_WRITE:
            return RTFILE_O_ACCESS_ATTR_WRITE;
        default:
            return 0;  // Kept: also for both together
    }
}

std::uint32_t denyFlags(std::uint32_t createFlags) {
    switch (createFlags & SHFL_CF_ACCESS_MASK_DENY) {
        case SHFL_CF_ACCESS_DENYREAD:
            return RTFILE_O_DENY_READ;
        case SHFL_CF_ACCESS_DENYWRITE:
            return RTFILE_O_DENY_WRITE;
        case SHFL_CF_ACCESS_DENYALL:
            return RTFILE_O_DENY_READWRITE;
        default:
            return RTFILE_O_DENY_NONE;
    }
}

// The action of the two fields, or 0 for two that do not go together.
std::uint32_t actionFlags(std::uint32_t createFlags) {
    const std::uint32_t ifNew = createFlags & SHFL_CF_ACT_MASK_IF_NEW;
    const bool create = ifNew == SHFL_CF_ACT_CREATE_IF_NEW;
    const bool fail = ifNew == SHFL_CF_ACT_FAIL_IF_NEW;
    switch (existsAction(createFlags)) {
        case SHFL_CF_ACT_OPEN_IF_EXISTS:
            if (create) return RTFILE_O_OPEN_CREATE;
            if (fail) return RTFILE_O_OPEN;
            break;
        case SHFL_CF_ACT_FAIL_IF_EXISTS:
            if (create) return RTFILE_O_CREATE;
            break;
        case SHFL_CF_ACT_REPLACE_IF_EXISTS:
        case SHFL_CF_ACT_OVERWRITE_IF_EXISTS:
            if (create) return RTFILE_O_CREATE_REPLACE;
            if (fail) return RTFILE_O_OPEN | RTFILE_O_TRUNCATE;
            break;
        default:
            break;
    }
    return 0;
}

void logInvalidAction(std::uint32_t createFlags) {
    switch (existsAction(createFlags)) {
        case SHFL_CF_ACT_OPEN_IF_EXISTS:
            FD_LOG_WARN("SHFL_CF_ACT_OPEN_IF_EXISTS: invalid open/create action combination");
            break;
        case SHFL_CF_ACT_FAIL_IF_EXISTS:
            FD_LOG_WARN("SHFL_CF_ACT_FAIL_IF_EXISTS: invalid open/create action combination");
            break;
        case SHFL_CF_ACT_REPLACE_IF_EXISTS:
            FD_LOG_WARN("SHFL_CF_ACT_REPLACE_IF_EXISTS: invalid open/create action combination");
            break;
        case SHFL_CF_ACT_OVERWRITE_IF_EXISTS:
            FD_LOG_WARN("SHFL_CF_ACT_OVERWRITE_IF_EXISTS: invalid open/create action combination");
            break;
        default:
            FD_LOG_WARN("invalid parameter");
            break;
    }
}

}  // namespace

int vbsfConvertFileOpenFlags(const _SHFLCREATEPARMS& parms, std::uint32_t* fOpen) {
    const std::uint32_t mode = createMode(parms) << RTFILE_O_CREATE_MODE_SHIFT;
    std::uint32_t flags = mode & RTFILE_O_CREATE_MODE_MASK;
    flags |= accessFlags(parms.CreateFlags);
    if ((parms.CreateFlags & SHFL_CF_ACCESS_APPEND) != 0) flags |= RTFILE_O_APPEND;
    flags |= attributeFlags(parms.CreateFlags);

    const std::uint32_t action = actionFlags(parms.CreateFlags);
    if (action == 0) {
        logInvalidAction(parms.CreateFlags);
        return VERR_INVALID_PARAMETER;
    }

    *fOpen = flags | action | denyFlags(parms.CreateFlags);
    return VINF_SUCCESS;
}

namespace {

bool isKnownAction(std::uint32_t fOpen) {
    switch (fOpen & RTFILE_O_ACTION_MASK) {
        case RTFILE_O_OPEN_CREATE:
        case RTFILE_O_CREATE:
        case RTFILE_O_CREATE_REPLACE:
        case RTFILE_O_OPEN:
            return true;
        default:
            return false;
    }
}

}  // namespace

int rtFileRecalcAndValidateFlags(std::uint32_t* fOpen) {
    if ((*fOpen & RTFILE_O_ACTION_MASK) == 0) {
        FD_LOG_WARN("fOpen & RTFILE_O_ACTION_MASK == 0.  fOpen: 0x%x", *fOpen);
        *fOpen |= RTFILE_O_OPEN;
    }
    if ((*fOpen & RTFILE_O_DENY_MASK) == 0) {
        FD_LOG_WARN("fOpen & RTFILE_O_DENY_MASK == 0.  fOpen: 0x%x", *fOpen);
        *fOpen |= RTFILE_O_DENY_NONE;
    }

    if (!isKnownAction(*fOpen) || (*fOpen & RTFILE_O_DENY_MASK) > RTFILE_O_DENY_NONE) {
        FD_LOG_ERROR("RTFileOpen Param Validate.  fOpen: 0x%x", *fOpen);
        return VERR_INVALID_PARAMETER;
    }
    return VINF_SUCCESS;
}

bool isPrinterPath(const char* path) {
    constexpr std::size_t kDigitAt = 7;
    return std::strlen(path) == kDigitAt + 1 && std::strncmp(path, "/dev/lp", kDigitAt) == 0 &&
           path[kDigitAt] >= '0' && path[kDigitAt] <= '8';
}

namespace {

int localAction(std::uint32_t fOpen) {
    int flags = (fOpen & RTFILE_O_TRUNCATE) != 0 ? O_TRUNC : 0;
    switch (fOpen & RTFILE_O_ACTION_MASK) {
        case RTFILE_O_OPEN_CREATE:
            flags |= O_CREAT;
            break;
        case RTFILE_O_CREATE:
            flags |= O_CREAT | O_EXCL;
            break;
        case RTFILE_O_CREATE_REPLACE:
            flags |= O_CREAT | O_TRUNC;
            break;
        default:
            break;
    }
    return flags;
}

int localAccess(std::uint32_t fOpen) {
    const int append = (fOpen & RTFILE_O_APPEND) != 0 ? O_APPEND : 0;
    switch (fOpen & RTFILE_O_ACCESS_MASK) {
        case RTFILE_O_READ:
            return O_RDONLY;
        case RTFILE_O_WRITE:
            return O_WRONLY | append;
        case RTFILE_O_READWRITE:
            return O_RDWR | append;
        default:
            FD_LOG_WARN("fOpen & RTFILE_O_ACCESS_MASK  default. Set to ready only.");
            return O_RDONLY;
    }
}

// Opens what exists. On a write-protected volume it is opened for reading instead.
int openExisting(const char* path, int fileFlag) {
    const int fd = open(path, fileFlag | O_CLOEXEC);
    if (fd >= 0 || errno != EROFS) return fd;

    FD_LOG_WARN("open file with read and write flag, write protect!!!  fileFlag: 0x%x",
                static_cast<unsigned int>(fileFlag));
    return open(path, (fileFlag & ~O_ACCMODE) | O_RDONLY | O_CLOEXEC);
}

}  // namespace

int RTFileOpen(int* fd, const char* path, std::uint32_t fOpen) {
    int fileFlag = localAction(fOpen) | localAccess(fOpen);
    if (isPrinterPath(path)) {
        FD_LOG_INFO("open /dev/lp%c. set O_NONBLOCK. ", path[std::strlen(path) - 1]);
        fileFlag |= O_NONBLOCK;
    }

    // Kept: a mode of 0 stays 0.
    const std::uint32_t mode = (fOpen & RTFILE_O_CREATE_MODE_MASK) >> RTFILE_O_CREATE_MODE_SHIFT;
    *fd = (fOpen & RTFILE_O_ACTION_MASK) == RTFILE_O_OPEN
              ? openExisting(path, fileFlag)
              : open(path, fileFlag | O_CLOEXEC, static_cast<mode_t>(mode));
    return *fd >= 0 ? VINF_SUCCESS : RTErrConvertFromLinux(static_cast<unsigned int>(errno));
}
