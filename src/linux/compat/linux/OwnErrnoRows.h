// The rows for errno numbers that Linux has and others lack: none.
#pragma once

#include <array>

#include "linux/compat/ErrnoRow.h"

constexpr std::array<ErrnoRow, 0> kOwnErrnoRows{};
