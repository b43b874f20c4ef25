// The flags of a lock request. The mode field tells what is wanted: release, shared or exclusive.
#pragma once

#include <cstdint>

enum SHFL_LOCK : std::uint32_t {
    SHFL_LOCK_CANCEL = 0x0,
    SHFL_LOCK_SHARED = 0x1,
    SHFL_LOCK_EXCLUSIVE = 0x2,
    SHFL_LOCK_MODE_MASK = 0x3,
    SHFL_LOCK_WAIT = 0x4,
    SHFL_LOCK_ENTIRE = 0x8,
};
