// The result of an operation in the Linux dialect: a count, or minus an errno of the other side's.
#pragma once

#include <cstdint>
#include <string>

#include "peer/Errors.h"

namespace peer::linux {

// The failure that a negative result stands for. Numbers are taken as those of Linux; one that is
// none is EIO.
RemoteError errorOf(std::int64_t res);

// A failure that this side finds, in the same words: "is a directory (EISDIR)".
RemoteError localError(int error);

// The other side's answer does not add up.
RemoteError badReply(const std::string& what);

}  // namespace peer::linux
