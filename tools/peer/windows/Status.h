// Status codes of the Windows dialect.
#pragma once

#include <cstdint>
#include <string>

#include "peer/Errors.h"

namespace peer::windows {

enum Status : std::int32_t {
    kSuccess = 0,
    kGeneralFailure = -1,
    kInvalidParameter = -2,
    kNotSupported = -37,
    kAccessDenied = -38,
    kStatusFileNotFound = -102,
    kStatusPathNotFound = -103,
    kAlreadyExists = -105,
    kWriteProtect = -113,
    kDirectoryNotEmpty = -125,
    kIsADirectory = -127,
    kDiskFull = -152,
    kNoMoreFiles = -201
};

// "permission denied (VERR_ACCESS_DENIED)"; a code without a name: "status -9999".
std::string describeStatus(std::int32_t status);

// The errno of this system that comes closest.
int errnoOf(std::int32_t status);

// The request was answered with a failure.
class StatusError : public RemoteError {
public:
    explicit StatusError(std::int32_t status)
        : RemoteError(errnoOf(status), describeStatus(status)), m_status(status) {}
    std::int32_t status() const { return m_status; }

private:
    std::int32_t m_status;
};

}  // namespace peer::windows
