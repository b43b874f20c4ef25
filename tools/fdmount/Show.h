// How objects look in a listing.
#pragma once

#include <string>

#include "peer/windows/Records.h"

namespace fdmount {

std::string modeText(std::uint32_t mode);        // "-rw-r--r--"
std::string attributesText(std::uint32_t mode);  // "R--D--"
std::string timeText(std::int64_t nanoseconds);  // "2024-02-29 13:45:00"

// For a terminal quoted, for a file or a pipe as it is.
std::string nameText(const std::string& name);

}  // namespace fdmount
