// The text of /proc/self/mountinfo and how it becomes a mount table.
#pragma once

#include <string>
#include <vector>

#include "linux/compat/MountTable.h"

namespace compat {

// Reads the whole text, or gives an empty one if that is impossible.
std::string readMountInfo(const char* path);

// One entry a well-formed line, in the order of the lines; others are skipped. Octal escapes are
// decoded inside `text`, which the entries point into.
std::vector<MountEntry> parseMountInfo(std::string& text);

}  // namespace compat
