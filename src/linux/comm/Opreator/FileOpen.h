// From the flags of a create request to an open file, in three stages. Processing thread only.
#pragma once

#include <cstdint>

#include "linux/comm/Opreator/CreateParms.h"

// Stage 1. VERR_INVALID_PARAMETER, with a line in the log, for actions that do not go together.
int vbsfConvertFileOpenFlags(const _SHFLCREATEPARMS& parms, std::uint32_t* fOpen);

// Stage 2. Supplies what is missing and refuses what is not known.
int rtFileRecalcAndValidateFlags(std::uint32_t* fOpen);

// Stage 3. On success `*fd` is the caller's to close. A printer port is opened non-blocking.
int RTFileOpen(int* fd, const char* path, std::uint32_t fOpen);

// "/dev/lp" and one digit from 0 to 8.
bool isPrinterPath(const char* path);

// The two action fields of a request's flags.
constexpr std::uint32_t existsAction(std::uint32_t createFlags) {
    return createFlags & SHFL_CF_ACT_MASK_IF_EXISTS;
}
constexpr bool createsIfNew(std::uint32_t createFlags) {
    return (createFlags & SHFL_CF_ACT_MASK_IF_NEW) == SHFL_CF_ACT_CREATE_IF_NEW;
}
constexpr bool replacesIfExists(std::uint32_t createFlags) {
    return existsAction(createFlags) == SHFL_CF_ACT_REPLACE_IF_EXISTS ||
           existsAction(createFlags) == SHFL_CF_ACT_OVERWRITE_IF_EXISTS;
}
