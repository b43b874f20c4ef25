// The same work by system calls alone.
#pragma once

#include <cstddef>
#include <string>

// Reads every entry of the folder and its attributes. The number of entries.
std::size_t listWithAttributes(const std::string& folder);
