// How objects look in a listing.
#pragma once

#include <string>

#include "peer/FileSystem.h"

namespace fdmount {

std::string modeText(std::uint32_t mode);                     // "-rw-r--r--"
std::string attributesText(std::uint32_t windowsAttributes);  // "R--D--"
std::string timeText(peer::Time time);                        // "2024-02-29 13:45:00"
const char* kindText(std::uint32_t mode);                     // "regular file"

// For a terminal quoted, for a file or a pipe as it is.
std::string nameText(const std::string& name);

}  // namespace fdmount
