// The rows for errno numbers that macOS has and others lack.
#pragma once

#include <array>
#include <cerrno>

#include "linux/comm/Opreator/StatusCode.h"
#include "linux/compat/ErrnoRow.h"

constexpr std::array<ErrnoRow, 1> kOwnErrnoRows{{{EPROCLIM, VERR_MAX_PROCS_REACHED}}};
